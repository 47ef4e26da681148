// Figures: files, what went wrong, the slowest exchanges, and control units with their services.

import {button, element, table} from "./dom";
import {calendarTime, count, duration, seconds} from "./format";
import {figuresOf, groups} from "./statistics";
import {Outcome, outcomeNames, Trace} from "./trace";
import {negativeName} from "./uds";
import {Model} from "./view";

const mostSlowest = 20;
const mostGroups = 500;

function time(us: number): string {
    return Number.isFinite(us) ? duration(us) : "–";
}

function unread(lines: {count: number; first: number}): string {
    return lines.count === 0 ? "0" : `${lines.count} (first: line ${lines.first})`;
}

function filesTable(trace: Trace): HTMLElement {
    const rows = trace.facts.files.map((file) => [
        file.path, String(file.records), unread(file.damaged), unread(file.unknown), String(file.cut),
        file.sessions.map((session) => `process ${session.process}` +
            (session.number > 0 ? `, session ${session.number}` : ", begin missing") +
            (session.wasStopped ? "" : ", no end recorded")).join("; ")]);
    return table("Files", ["File", "Lines read", "Damaged, passed over", "Unknown, passed over", "Shortened lines",
                           "Sessions"], rows, [1, 2, 3, 4]);
}

function facts(model: Model): HTMLElement {
    const {trace, matching} = model;
    const begin = trace.facts.hasCalendarTime ? calendarTime(trace.first) : "not known: times are those of the computer's counter";
    const figures = figuresOf(trace, matching);
    const tiles: [string, string][] = [
        ["Begin", begin], ["Duration", duration(model.length)],
        ["Control units", String(trace.units.filter((unit) => unit.responseId > 0).length)],
        ["Exchanges shown", `${matching.length.toLocaleString("en-US")} of ${trace.spans.rows.toLocaleString("en-US")}`],
        ["Negative responses", String(figures.negative)], ["No answer", String(figures.silent)],
        ["Errors", String(figures.errors)], ["Raw frames", trace.frames.rows.toLocaleString("en-US")],
        ["Relay packets", trace.packets.rows.toLocaleString("en-US")],
        ["Answer time p50 / p95 / p99", [figures.p50, figures.p95, figures.p99].map(time).join(" / ")]];
    return element("dl", {class: "tiles"}, ...tiles.map(([name, value]) =>
        element("div", {}, element("dt", {}, name), element("dd", {}, value))));
}

function problemsTable(model: Model): HTMLElement {
    const {trace, matching} = model;
    const bad = matching.filter((span) => trace.spanOutcome[span] !== Outcome.ok);
    const name = (span: number): string => {
        const nrc = trace.spans.get("nrc", span);
        return nrc > 0 ? `negative response ${negativeName(trace.facts, nrc)}`
                       : outcomeNames[trace.spanOutcome[span]];
    };
    const rows = groups(bad, name).map(([kind, spans]) => {
        const nrc = trace.spans.get("nrc", spans[0]);
        const show = nrc > 0 ? button("Show only these", () => model.setFilter({nrc: String(nrc)}))
                             : button("Show problems", () => model.setFilter({problems: true}));
        return [kind, String(spans.length), groups(spans, (span) => trace.units[trace.spanUnit[span]].name)
            .slice(0, 5).map(([unit]) => unit).join(", "), show];
    });
    if (rows.length === 0) return element("p", {}, "No errors and no negative responses.");
    return table("Errors and negative responses", ["Kind", "Number", "Control units", ""], rows, [1]);
}

function slowestTable(model: Model): HTMLElement {
    const {trace, matching} = model;
    const slowest: number[] = [];
    let least = -1;
    for (const span of matching) {
        const length = trace.spanDuration(span);
        if (slowest.length === mostSlowest && length <= least) continue;
        const at = slowest.findIndex((other) => trace.spanDuration(other) < length);
        slowest.splice(at < 0 ? slowest.length : at, 0, span);
        if (slowest.length > mostSlowest) slowest.pop();
        least = trace.spanDuration(slowest[slowest.length - 1]);
    }
    const rows = slowest.map((span) => [
        button(duration(trace.spanDuration(span)), () => model.select(span, "timeline"),
               {"aria-label": `Show the exchange of ${duration(trace.spanDuration(span))} in the timeline`}),
        seconds(trace.spans.get("sent", span) - trace.first), trace.units[trace.spanUnit[span]].name,
        trace.requestText(trace.requestOf(span)), trace.answerText(span)]);
    return table("Slowest exchanges", ["Time", "At", "Control unit", "Request", "Answer"], rows, [0, 1]);
}

function unitsTable(model: Model): HTMLElement {
    const {trace, matching} = model;
    const all = groups(matching, (span) => `${trace.spanUnit[span]} ${trace.spanService[span]}`);
    const rows = all.slice(0, mostGroups).map(([, spans]) => {
        const unit = trace.units[trace.spanUnit[spans[0]]].name;
        const figures = figuresOf(trace, spans);
        const service = String(trace.spanService[spans[0]]);
        return [button(unit, () => model.setFilter({unit})),
                button(trace.service(spans[0]), () => model.setFilter({unit, service})),
                String(figures.exchanges), String(figures.negative), String(figures.silent), String(figures.errors),
                ...[figures.p50, figures.p95, figures.p99, figures.most].map(time)];
    });
    const made = table("Control units and services", ["Control unit", "Service", "Exchanges", "Negative", "No answer",
        "Errors", "p50", "p95", "p99", "Longest"], rows, [2, 3, 4, 5, 6, 7, 8, 9]);
    if (all.length <= mostGroups) return made;
    return element("div", {}, made, element("p", {}, `${count(all.length - mostGroups, "row")} more: filter to see them.`));
}

export function showOverview(model: Model, into: HTMLElement): void {
    into.replaceChildren(facts(model), filesTable(model.trace), problemsTable(model), slowestTable(model),
                         unitsTable(model));
}
