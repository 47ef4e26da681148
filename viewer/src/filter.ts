// What is shown, as fields, as part of the page's address and as a test of exchanges.

import {parseHex} from "./format";
import {Outcome, Trace} from "./trace";

export interface Filter {
    unit: string;      // its name; empty: all
    service: string;   // its number in decimal
    nrc: string;       // its number in decimal
    id: string;        // an identifier in hexadecimal
    bytes: string;     // hexadecimal
    text: string;
    problems: boolean;
    from: number | null;   // microseconds since the beginning
    to: number | null;
    least: number | null;  // answer time in microseconds
    most: number | null;
}

export function noFilter(): Filter {
    return {unit: "", service: "", nrc: "", id: "", bytes: "", text: "", problems: false,
            from: null, to: null, least: null, most: null};
}

const textFields = ["unit", "service", "nrc", "id", "bytes", "text"] as const;
const numberFields = ["from", "to", "least", "most"] as const;

export function filterToAddress(filter: Filter, address: URLSearchParams): void {
    for (const field of textFields) if (filter[field]) address.set(field, filter[field]);
    for (const field of numberFields) {
        const value = filter[field];
        if (value !== null) address.set(field, String(Math.round(value)));
    }
    if (filter.problems) address.set("problems", "1");
}

/** Fields that an address has wrong are left out. */
export function filterFromAddress(address: URLSearchParams): Filter {
    const filter = noFilter();
    for (const field of textFields) filter[field] = address.get(field) ?? "";
    for (const field of numberFields) {
        const value = Number(address.get(field) ?? NaN);
        filter[field] = address.has(field) && Number.isFinite(value) ? value : null;
    }
    filter.problems = address.get("problems") === "1";
    return filter;
}

/** What is wrong with a field that was typed; empty: nothing. */
export function filterFault(filter: Filter): string {
    if (filter.bytes && !parseHex(filter.bytes)) return "Bytes are pairs of hexadecimal digits, such as 22 F1 90.";
    if (filter.id && !/^[0-9a-f]{1,8}$/i.test(filter.id.trim())) return "An identifier is hexadecimal, such as 7E8.";
    return "";
}

export function contains(bytes: ArrayLike<number>, part: number[]): boolean {
    for (let at = 0; at + part.length <= bytes.length; at++) {
        let i = 0;
        while (i < part.length && bytes[at + i] === part[i]) i++;
        if (i === part.length) return true;
    }
    return false;
}

function hasId(id: string): (candidate: number) => boolean {
    const wanted = parseInt(id, 16);
    return (candidate) => candidate === wanted;
}

/** The rows of the raw frames that pass: they have an identifier and bytes, and nothing else to filter by. */
export function matchingFrames(trace: Trace, filter: Filter): Uint32Array {
    const {frames} = trace;
    const ids = frames.column("id");
    const id = filter.id.trim();
    const isWanted = id && !filterFault({...noFilter(), id}) ? hasId(id) : () => true;
    const part = parseHex(filter.bytes);
    const rows = new Uint32Array(frames.rows);
    let count = 0;
    for (let row = 0; row < frames.rows; row++)
        if (isWanted(ids[row]) && (!part || contains(trace.data.payload(frames, row), part))) rows[count++] = row;
    return rows.subarray(0, count);
}

/** The rows of the exchanges that pass, in the table's order. Without a field that is faulty. */
export function matchingSpans(trace: Trace, filter: Filter): Uint32Array {
    const tests: ((span: number) => boolean)[] = [];
    const {spans} = trace;
    const sent = spans.column("sent");
    if (filter.unit) tests.push((span) => trace.units[trace.spanUnit[span]].name === filter.unit);
    if (filter.service) tests.push((span) => trace.spanService[span] === Number(filter.service));
    const nrcs = spans.column("nrc");
    if (filter.nrc) tests.push((span) => nrcs[span] === Number(filter.nrc));
    if (filter.problems) tests.push((span) => trace.spanOutcome[span] !== Outcome.ok);
    const {from, to, least, most} = filter;
    if (from !== null) tests.push((span) => trace.spanEnd(span) - trace.first >= from);
    if (to !== null) tests.push((span) => sent[span] - trace.first <= to);
    if (least !== null) tests.push((span) => trace.spanDuration(span) >= least);
    if (most !== null) tests.push((span) => trace.spanDuration(span) <= most);
    const id = filter.id.trim();
    if (id && !filterFault({...noFilter(), id})) {
        const isWanted = hasId(id);
        tests.push((span) => isWanted(spans.get("requestId", span)) || isWanted(spans.get("responseId", span)));
    }
    const part = parseHex(filter.bytes);
    if (part) tests.push((span) => contains(trace.sentBytes(span), part) || contains(trace.answerBytes(span), part));
    const text = filter.text.trim().toLowerCase();
    if (text) tests.push((span) => trace.spanText(span).toLowerCase().includes(text));

    const rows = new Uint32Array(spans.rows);
    let count = 0;
    for (let span = 0; span < spans.rows; span++)
        if (tests.every((test) => test(span))) rows[count++] = span;
    return rows.subarray(0, count);
}
