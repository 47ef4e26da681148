// Everything about one exchange, and what happened around it.

import {RequestFlag, SpanFlag} from "./data";
import {button, element} from "./dom";
import {calendarTime, canId, dump, duration, seconds} from "./format";
import {outcomeNames, Trace} from "./trace";
import {describeAnswer, describeRequest} from "./uds";
import {Model} from "./view";

const around = 4;  // events before it, and as many after it

function list(rows: [string, string][]): HTMLElement {
    return element("dl", {}, ...rows.flatMap(([name, value]) => [element("dt", {}, name), element("dd", {}, value)]));
}

function bytesOf(title: string, meaning: string, bytes: Uint8Array, length: number): HTMLElement[] {
    const made = [element("h3", {}, title), element("p", {}, meaning || "–")];
    if (bytes.length > 0) made.push(element("pre", {tabindex: "0"}, dump(bytes)));
    if (bytes.length < length) made.push(element("p", {}, `${bytes.length} of ${length} bytes are in the trace.`));
    return made;
}

function mayAnswer(trace: Trace, request: number): string {
    const bytes = trace.data.payload(trace.requests, request, "units", "unitBytes");
    const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    const units: string[] = [];
    for (let at = 0; at + 8 <= bytes.byteLength; at += 8) {
        const ids = [view.getUint32(at), view.getUint32(at + 4)].filter((id) => id > 0);
        units.push(ids.map(canId).join(":"));
    }
    return units.join(", ") || "any";
}

function times(model: Model, span: number): [string, string][] {
    const {trace} = model;
    const request = trace.requestOf(span);
    const at = (us: number): string => us > 0 ? seconds(us - trace.first) : "–";
    const of = (name: string): number => trace.requests.get(name, request);
    const sent = trace.spans.get("sent", span);
    const rows: [string, string][] = [
        ["Queued", at(of("queued"))], ["Taken by the link", at(of("started"))], ["Sent", at(sent)],
        ["Answered", at(trace.spans.get("answered", span))], ["Finished", at(of("finished"))],
        ["Answer time", duration(trace.spanDuration(span))]];
    if (trace.facts.hasCalendarTime) rows.unshift(["Date", calendarTime(sent)]);
    return rows;
}

function history(model: Model, span: number): [string, string][] {
    const {trace} = model;
    const request = trace.requestOf(span);
    const of = (name: string): number => trace.requests.get(name, request);
    const flags = trace.spans.get("flags", span);
    const notes = [(flags & SpanFlag.again) !== 0 && "sent again",
                   (flags & SpanFlag.functional) !== 0 && "functional",
                   (of("flags") & RequestFlag.cancelled) !== 0 && "cancelled"].filter(Boolean).join(", ");
    const rows: [string, string][] = [
        ["Control unit", trace.units[trace.spanUnit[span]].name], ["Outcome", outcomeNames[trace.spanOutcome[span]]],
        ["Module, link, ComPrimitive", `${of("module")}, ${of("link")}, ${of("cop")}`],
        ["Process", String(of("process"))], ["May answer", mayAnswer(trace, request)],
        ["Time-out", `${trace.spans.get("timeout", span)} ms`],
        ["Results, busy, strays", `${of("results")}, ${of("busy")}, ${of("strays")}`]];
    if (notes) rows.push(["Remarks", notes]);
    if (of("error") > 0) rows.push(["Error item", trace.facts.errors[of("error")] ?? String(of("error"))]);
    return rows;
}

/** The rows of a column of times that are next to a time, before and after it. */
function nearest(times: ArrayLike<number>, rows: number, time: number, most: number): number[] {
    const before: number[] = [];
    const after: number[] = [];
    const keep = (into: number[], row: number, isNearer: (a: number, b: number) => boolean): void => {
        let at = into.length;
        while (at > 0 && isNearer(times[row], times[into[at - 1]])) at--;
        into.splice(at, 0, row);
        if (into.length > most) into.pop();
    };
    for (let row = 0; row < rows; row++) {
        if (times[row] <= time) keep(before, row, (a, b) => a > b);
        else keep(after, row, (a, b) => a < b);
    }
    return before.reverse().concat(after);
}

function eventsAround(model: Model, span: number): HTMLElement {
    const {trace} = model;
    const time = trace.spans.get("sent", span);
    const events: {time: number; child: HTMLElement}[] = [];
    const sent = trace.spans.column("sent");
    for (const row of nearest(sent, trace.spans.rows, time, around)) {
        const text = trace.spanText(row);
        const child = row === span ? element("strong", {}, text) : button(text, () => model.select(row));
        events.push({time: sent[row], child});
    }
    for (const row of nearest(trace.frames.column("time"), trace.frames.rows, time, around))
        events.push({time: trace.frames.get("time", row), child: element("span", {}, `raw frame ${trace.frameText(row)}`)});
    for (const row of nearest(trace.packets.column("time"), trace.packets.rows, time, around))
        events.push({time: trace.packets.get("time", row), child: element("span", {}, trace.packetText(row))});
    events.sort((a, b) => a.time - b.time);
    return element("ol", {class: "around"}, ...events.map((event) => element("li", {},
        element("time", {}, `${event.time < time ? "−" : "+"}${duration(Math.abs(event.time - time))}`), event.child)));
}

export function showDetail(model: Model, into: HTMLElement): void {
    const span = model.view.selected;
    into.hidden = span < 0;
    if (span < 0) return;
    const {trace} = model;
    const request = trace.requestOf(span);
    const sent = trace.sentBytes(span);
    const answer = trace.answerBytes(span);
    into.replaceChildren(
        element("div", {class: "row"}, element("h2", {}, `Exchange ${span + 1}`),
                button("Close", () => model.select(-1), {"aria-label": "Close the exchange"})),
        list(history(model, span)), list(times(model, span)),
        ...bytesOf("Request", describeRequest(trace.facts, sent), sent, trace.requests.get("length", request)),
        ...bytesOf("Answer", answer.length > 0 ? describeAnswer(trace.facts, answer) : trace.answerText(span), answer,
                   trace.spans.get("length", span)),
        element("h3", {}, "Around it"), eventsAround(model, span));
}
