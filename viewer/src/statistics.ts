// Figures of answer times.

import {quantileSorted} from "d3-array";
import {Outcome, Trace} from "./trace";

export interface Figures {
    exchanges: number; negative: number; silent: number; errors: number;
    p50: number; p95: number; p99: number; most: number;  // microseconds; NaN: no answer
}

export function figuresOf(trace: Trace, spans: ArrayLike<number>): Figures {
    const figures = {exchanges: spans.length, negative: 0, silent: 0, errors: 0};
    const times: number[] = [];
    for (let i = 0; i < spans.length; i++) {
        const outcome = trace.spanOutcome[spans[i]];
        if (outcome === Outcome.negative || outcome === Outcome.pending) figures.negative++;
        if (outcome === Outcome.silent) figures.silent++;
        if (outcome === Outcome.error) figures.errors++;
        if (outcome === Outcome.ok || outcome === Outcome.negative || outcome === Outcome.pending)
            times.push(trace.spanDuration(spans[i]));
    }
    const sorted = Float64Array.from(times).sort();
    const at = (p: number): number => quantileSorted(sorted, p) ?? NaN;
    return {...figures, p50: at(0.5), p95: at(0.95), p99: at(0.99), most: at(1)};
}

/** Lists of exchanges by a key, those with most exchanges first. */
export function groups(spans: ArrayLike<number>, key: (span: number) => string): [string, number[]][] {
    const found = new Map<string, number[]>();
    for (let i = 0; i < spans.length; i++) {
        const of = key(spans[i]);
        const list = found.get(of);
        if (list) list.push(spans[i]);
        else found.set(of, [spans[i]]);
    }
    return [...found].sort((a, b) => b[1].length - a[1].length || (a[0] < b[0] ? -1 : 1));
}

/** Counts in bins of equal width of the logarithm, from 10^low to 10^high microseconds. */
export function logarithmicBins(values: ArrayLike<number>, low: number, high: number, bins: number): Uint32Array {
    const counts = new Uint32Array(bins);
    for (let i = 0; i < values.length; i++) {
        const place = (Math.log10(Math.max(1, values[i])) - low) / (high - low) * bins;
        counts[Math.min(bins - 1, Math.max(0, Math.floor(place)))]++;
    }
    return counts;
}
