// The lanes of the timeline and how each is drawn.

import {FrameFlag, SpanFlag} from "./data";
import {colour} from "./dom";
import {matchingFrames} from "./filter";
import {canId, count, duration} from "./format";
import {BusLoad, frameBits} from "./load";
import {Pyramid} from "./pyramid";
import {LinkLife, Outcome, outcomeNames, Trace} from "./trace";
import {Model} from "./view";

export interface Scale { from: number; to: number; width: number }

export interface Lane {
    name: string;
    height: number;
    draw(drawing: CanvasRenderingContext2D, y: number, scale: Scale): void;
    /** What is at a time, as text; empty: nothing. */
    textAt(time: number, tolerance: number): string;
    /** The exchange at a time; -1: none. */
    spanAt(time: number, tolerance: number): number;
    /** Its exchanges, if it has any. */
    spans?: Pyramid;
}

const rowHeight = 22;
const graphHeight = 44;
// Flags of intervals: a bit for each outcome, and one for what was sent again.
const outcomes = 0x3F;
const again = 0x40;

export const outcomeColours = ["ok", "open", "pending", "negative", "silent", "error"];

function x(time: number, scale: Scale): number {
    return (time - scale.from) / (scale.to - scale.from) * scale.width;
}

/** Colour and shape tell the outcome: whoever does not see the one sees the other. */
function drawOutcome(drawing: CanvasRenderingContext2D, outcome: Outcome, left: number, y: number, width: number,
                     colours: string[]): void {
    const inner = rowHeight - 6;
    drawing.fillStyle = drawing.strokeStyle = colours[outcome];
    if (outcome === Outcome.ok) {
        drawing.fillRect(left, y + 8, width, inner - 8);
    } else if (outcome === Outcome.negative || outcome === Outcome.pending) {
        drawing.fillRect(left, y + 3, width, inner);
        if (width < 6) return;
        drawing.fillStyle = colour("background");
        const size = outcome === Outcome.negative ? 5 : 2;
        drawing.fillRect(left + 2, y + 3 + (inner - size) / 2, Math.min(width - 4, size * 2), size);
    } else if (width < 4) {
        drawing.fillRect(left, y + 1, width, inner + 4);
    } else {
        drawing.lineWidth = 1.5;
        drawing.strokeRect(left + 0.75, y + 3.75, width - 1.5, inner - 1.5);
        if (outcome === Outcome.open) return;
        drawing.beginPath();
        drawing.moveTo(left, y + 3);
        drawing.lineTo(left + Math.min(width, inner), y + 3 + inner);
        if (outcome === Outcome.error) {
            drawing.moveTo(left + Math.min(width, inner), y + 3);
            drawing.lineTo(left, y + 3 + inner);
        }
        drawing.stroke();
    }
}

/** A wedge above the beginning of what was sent again, since nothing fitting had come. */
function drawAgain(drawing: CanvasRenderingContext2D, left: number, y: number): void {
    drawing.fillStyle = colour("text");
    drawing.beginPath();
    drawing.moveTo(left - 4, y);
    drawing.lineTo(left + 4, y);
    drawing.lineTo(left, y + 5);
    drawing.fill();
}

class UnitLane implements Lane {
    readonly height = rowHeight;
    constructor(readonly name: string, private readonly trace: Trace, readonly spans: Pyramid) {}

    draw(drawing: CanvasRenderingContext2D, y: number, scale: Scale): void {
        const colours = outcomeColours.map(colour);
        const pixel = (scale.to - scale.from) / scale.width;
        // Several of one pixel are drawn once, the most remarkable of them.
        let at = -1;
        let outcome = 0;
        let right = 0;
        let isAgain = 0;
        const flush = (): void => {
            if (at < 0) return;
            drawOutcome(drawing, outcome, at, y, Math.max(1, right - at), colours);
            if (isAgain !== 0) drawAgain(drawing, at, y);
        };
        this.spans.visit(scale.from, scale.to, pixel, (begin, end, flags) => {
            const left = Math.floor(Math.max(-2, x(begin, scale)));
            const to = Math.min(scale.width + 2, x(end, scale));
            const of = 31 - Math.clz32(flags & outcomes);
            if (left === at && to - left <= 1) {
                outcome = Math.max(outcome, of);
                isAgain |= flags & again;
            } else {
                flush();
                [at, outcome, right, isAgain] = [left, of, to, flags & again];
            }
        });
        flush();
    }

    spanAt(time: number, tolerance: number): number {
        const index = this.spans.at(time, tolerance);
        return index < 0 ? -1 : this.spans.row(index);
    }

    textAt(time: number, tolerance: number): string {
        const span = this.spanAt(time, tolerance);
        if (span < 0) return "";
        const {trace} = this;
        return `${trace.spanText(span)}\n${duration(trace.spanDuration(span))}, ${outcomeNames[trace.spanOutcome[span]]}`;
    }
}

/** Intervals of one kind: links on line, callbacks. */
class BarLane implements Lane {
    readonly height = rowHeight;
    constructor(readonly name: string, private readonly bars: Pyramid, private readonly colourName: string,
                private readonly text: (row: number) => string) {}

    draw(drawing: CanvasRenderingContext2D, y: number, scale: Scale): void {
        drawing.fillStyle = colour(this.colourName);
        this.bars.visit(scale.from, scale.to, (scale.to - scale.from) / scale.width, (begin, end) => {
            const left = Math.max(-2, x(begin, scale));
            drawing.fillRect(left, y + 7, Math.max(1, Math.min(scale.width + 2, x(end, scale)) - left), rowHeight - 14);
        });
    }

    spanAt(): number { return -1; }

    textAt(time: number, tolerance: number): string {
        const index = this.bars.at(time, tolerance);
        return index < 0 ? "" : this.text(this.bars.row(index));
    }
}

/** A value for each column of pixels. */
class GraphLane implements Lane {
    readonly height = graphHeight;
    private readonly columns = 2;  // pixels
    constructor(readonly name: string, private readonly colourName: string, private readonly fixedMost: number,
                private readonly value: (from: number, to: number) => number,
                private readonly text: (from: number, to: number) => string) {}

    draw(drawing: CanvasRenderingContext2D, y: number, scale: Scale): void {
        const step = (scale.to - scale.from) / scale.width * this.columns;
        // From multiples of a step on, so that columns keep their values while the view moves.
        const first = Math.floor(scale.from / step) * step;
        const values: number[] = [];
        for (let from = first; from < scale.to; from += step) values.push(this.value(from, from + step));
        const most = this.fixedMost || Math.max(1, ...values);
        drawing.fillStyle = colour(this.colourName);
        values.forEach((value, i) => {
            if (value <= 0) return;
            const height = Math.max(1, Math.min(1, value / most) * (this.height - 6));
            drawing.fillRect(x(first + i * step, scale), y + this.height - 3 - height, this.columns, height);
        });
    }

    spanAt(): number { return -1; }

    textAt(time: number, tolerance: number): string { return this.text(time - tolerance, time + tolerance); }
}

export function unitLanes(model: Model): Lane[] {
    const {trace, matching} = model;
    const rows: number[][] = trace.units.map(() => []);
    for (const span of matching) rows[trace.spanUnit[span]].push(span);
    const sent = trace.spans.column("sent");
    const flags = trace.spans.column("flags");
    return trace.units.map((unit, i) => ({unit, rows: rows[i]})).filter((lane) => lane.rows.length > 0)
        .sort((a, b) => a.unit.module - b.unit.module || a.unit.requestId - b.unit.requestId)
        .map(({unit, rows}) => new UnitLane(unit.name, trace, new Pyramid(Uint32Array.from(rows),
            (row) => sent[row] - trace.first, (row) => trace.spanEnd(row) - trace.first,
            (row) => 1 << trace.spanOutcome[row] | ((flags[row] & SpanFlag.again) !== 0 ? again : 0))));
}

function moduleLanes(trace: Trace): Lane[] {
    const modules = [...new Set(trace.lives.map((life) => life.module))].sort((a, b) => a - b);
    return modules.map((module) => lifeLane(trace, `module ${module}`, (life) => life.module === module));
}

function linkLanes(trace: Trace): Lane[] {
    const first = trace.lives.filter((life, i) => trace.lives.findIndex((other) => isSameLink(life, other)) === i);
    first.sort((a, b) => a.module - b.module || a.link - b.link);
    return first.map((link) => lifeLane(trace, `link ${link.module}:${link.link}`, (life) => isSameLink(life, link)));
}

function isSameLink(a: LinkLife, b: LinkLife): boolean { return a.module === b.module && a.link === b.link; }

function lifeLane(trace: Trace, name: string, isOf: (life: LinkLife) => boolean): Lane {
    const rows = trace.lives.map((_, i) => i).filter((i) => isOf(trace.lives[i]));
    return new BarLane(name, new Pyramid(Uint32Array.from(rows), (row) => trace.lives[row].begin - trace.first,
        (row) => trace.lives[row].end - trace.first, () => 1), "link", (row) => {
        const life = trace.lives[row];
        return `link ${life.module}:${life.link} of process ${life.process} on line for ${duration(life.end - life.begin)}`;
    });
}

/** Of the frames that the filter leaves; the load is theirs, too. */
export function frameLanes(model: Model): Lane[] {
    const {trace} = model;
    const lanes: Lane[] = [];
    const modules = new Set(trace.frames.column("module").subarray(0, trace.frames.rows));
    const matching = matchingFrames(trace, model.view.filter);
    for (const module of modules) {
        const rows = Array.from(matching).filter((row) => trace.frames.get("module", row) === module);
        const time = trace.frames.column("time");
        rows.sort((a, b) => time[a] - time[b]);
        const bus = new BusLoad(Float64Array.from(rows, (row) => time[row] - trace.first), (i) =>
            frameBits(trace.frames.get("length", rows[i]), (trace.frames.get("flags", rows[i]) & FrameFlag.bits29) !== 0));
        const suffix = modules.size > 1 ? ` of module ${module}` : "";
        lanes.push(new GraphLane(`raw frames${suffix}`, "frame", 0, (from, to) => bus.count(from, to), (from, to) => {
            const first = bus.firstFrom(from);
            const number = bus.count(from, to);
            if (number === 0) return "";
            const ids = new Set(rows.slice(first, first + Math.min(number, 1000)).map((row) => canId(trace.frames.get("id", row))));
            const shown = [...ids].slice(0, 8).join(" ");
            return number === 1 ? trace.frameText(rows[first]) : `${count(number, "frame")}: ${shown}${ids.size > 8 ? " …" : ""}`;
        }));
        const load = (from: number, to: number): number => bus.load(from, to, model.view.bitRate);
        lanes.push(new GraphLane(`bus load${suffix}`, "load", 1, load, (from, to) =>
            `${(100 * load(from, to)).toFixed(1)} % of ${model.view.bitRate / 1000} kbit/s, without stuff bits`));
    }
    return lanes;
}

function packetLane(trace: Trace): Lane[] {
    if (trace.packets.rows === 0) return [];
    const rows = Array.from({length: trace.packets.rows}, (_, i) => i);
    const time = trace.packets.column("time");
    rows.sort((a, b) => time[a] - time[b]);
    const packets = new BusLoad(Float64Array.from(rows, (row) => time[row] - trace.first), () => 1);
    return [new GraphLane("relay packets", "packet", 0, (from, to) => packets.count(from, to), (from, to) => {
        const first = packets.firstFrom(from);
        const number = packets.count(from, to);
        if (number === 0) return "";
        return number === 1 ? trace.packetText(rows[first]) : count(number, "relay packet");
    })];
}

function callbackLane(trace: Trace): Lane[] {
    const {callbacks} = trace;
    if (callbacks.rows === 0) return [];
    const begin = callbacks.column("begin");
    const length = callbacks.column("duration");
    return [new BarLane("callbacks", new Pyramid(Uint32Array.from({length: callbacks.rows}, (_, i) => i),
        (row) => begin[row] - trace.first, (row) => begin[row] + length[row] - trace.first, () => 1), "callback", (row) =>
        `callback for ComPrimitive ${trace.requests.get("cop", callbacks.get("request", row))}, ${duration(length[row])}`)];
}

/** Those that a filter does not change. */
export function fixedLanes(model: Model): {before: Lane[]; after: Lane[]} {
    const {trace} = model;
    return {before: moduleLanes(trace),
            after: [...packetLane(trace), ...callbackLane(trace), ...linkLanes(trace)]};
}
