// Starts the page: reads the data that it carries, then shows what its address asks for.

import {addChunk, Data, TableLayout} from "./data";
import {showDetail} from "./detail";
import {button, byId, element, forgetColours} from "./dom";
import {Filter, filterFault} from "./filter";
import {duration, hexNumber, parseHex} from "./format";
import {Latency} from "./latency";
import {showOverview} from "./overview";
import {Timeline} from "./timeline";
import {Facts, noService, Trace} from "./trace";
import {negativeName, serviceName} from "./uds";
import {Model, Tab, tabs, viewToAddress} from "./view";

const typingPause = 200;  // milliseconds, before what was typed is searched for

function json<T>(id: string): T { return JSON.parse(byId(id).textContent ?? "") as T; }

async function readTrace(): Promise<Trace> {
    const data = new Data(json<TableLayout[]>("layout"));
    for (const chunk of document.querySelectorAll("script.chunk")) {
        await addChunk(data, chunk.textContent ?? "");
        chunk.remove();  // its text is not needed twice
    }
    return new Trace(data, json<Facts>("facts"));
}

function options(into: HTMLSelectElement, choices: [string, string][]): void {
    into.replaceChildren(element("option", {value: ""}, "all"),
                         ...choices.map(([value, text]) => element("option", {value}, text)));
}

function fillChoices(trace: Trace): void {
    options(byId("unit") as HTMLSelectElement, trace.units.map((unit): [string, string] => [unit.name, unit.name])
        .sort((a, b) => a[0] < b[0] ? -1 : 1));
    const services = [...new Set(trace.spanService)].filter((service) => service !== noService).sort((a, b) => a - b);
    options(byId("service") as HTMLSelectElement, services.map((service) =>
        [String(service), `${hexNumber(service, 2)} ${serviceName(trace.facts, service)}`]));
    const nrcs = [...new Set(trace.spans.column("nrc").subarray(0, trace.spans.rows))].filter((nrc) => nrc > 0);
    options(byId("nrc") as HTMLSelectElement, nrcs.sort((a, b) => a - b).map((nrc) =>
        [String(nrc), negativeName(trace.facts, nrc)]));
}

type TextField = "unit" | "service" | "nrc" | "id" | "bytes" | "text";
const textFields: TextField[] = ["unit", "service", "nrc", "id", "bytes", "text"];

class FilterForm {
    private timer = 0;

    constructor(private readonly model: Model) {
        for (const field of textFields) {
            byId(field).addEventListener("change", () => this.take());
            byId(field).addEventListener("input", () => {
                window.clearTimeout(this.timer);
                this.timer = window.setTimeout(() => this.take(), typingPause);
            });
        }
        byId("problems").addEventListener("change", () => this.take());
        byId("filter").addEventListener("submit", (event) => {
            event.preventDefault();
            this.take();
        });
        byId("clear").addEventListener("click", () => model.clearFilter());
        byId("rate").addEventListener("change", () =>
            model.set({bitRate: Number((byId("rate") as HTMLSelectElement).value)}));
    }

    private take(): void {
        window.clearTimeout(this.timer);
        const part: Partial<Filter> = {problems: (byId("problems") as HTMLInputElement).checked};
        for (const field of textFields) part[field] = (byId(field) as HTMLInputElement).value;
        this.model.setFilter(part);
    }

    show(): void {
        const {filter, bitRate} = this.model.view;
        for (const field of textFields) {
            const input = byId(field) as HTMLInputElement;
            if (input !== document.activeElement || filter[field] === "") input.value = filter[field];
        }
        (byId("problems") as HTMLInputElement).checked = filter.problems;
        (byId("rate") as HTMLSelectElement).value = String(bitRate);
        this.showRegion();
        const fault = filterFault(filter);
        byId("fault").textContent = fault;
        for (const [field, isWrong] of [["bytes", filter.bytes !== "" && !parseHex(filter.bytes)],
                                        ["id", fault.startsWith("An identifier")]] as const)
            byId(field).setAttribute("aria-invalid", String(isWrong));
        const {matching, trace} = this.model;
        byId("status").textContent = `${matching.length.toLocaleString("en-US")} of ` +
            `${trace.spans.rows.toLocaleString("en-US")} exchanges`;
    }

    private showRegion(): void {
        const {from, to, least, most} = this.model.view.filter;
        const made: HTMLElement[] = [];
        if (from !== null || to !== null) {
            const text = `${((from ?? 0) / 1e6).toFixed(3)} s to ${((to ?? this.model.length) / 1e6).toFixed(3)} s`;
            made.push(button(`${text} ✕`, () => this.model.setFilter({from: null, to: null}), {"aria-label": `Remove the limit ${text}`}));
        }
        if (least !== null || most !== null) {
            const text = `${duration(least ?? 0)} to ${most === null ? "any time" : duration(most)}`;
            made.push(button(`${text} ✕`, () => this.model.setFilter({least: null, most: null}), {"aria-label": `Remove the limit ${text}`}));
        }
        byId("regions").replaceChildren(...made);
    }
}

function showTab(model: Model): void {
    for (const tab of tabs) {
        byId(tab).hidden = tab !== model.view.tab;
        byId(`tab-${tab}`).setAttribute("aria-selected", String(tab === model.view.tab));
        byId(`tab-${tab}`).setAttribute("tabindex", tab === model.view.tab ? "0" : "-1");
    }
}

function listenToTabs(model: Model): void {
    for (const tab of tabs) {
        byId(`tab-${tab}`).addEventListener("click", () => model.set({tab}));
        byId(`tab-${tab}`).addEventListener("keydown", (event) => {
            const by = event.key === "ArrowRight" ? 1 : event.key === "ArrowLeft" ? -1 : 0;
            if (by === 0) return;
            const next = tabs[(tabs.indexOf(tab) + by + tabs.length) % tabs.length] as Tab;
            model.set({tab: next});
            byId(`tab-${next}`).focus();
        });
    }
}

/** The theme of the system, until the user chooses the other one. */
function listenToTheme(redraw: () => void): void {
    const dark = window.matchMedia("(prefers-color-scheme: dark)");
    const root = document.documentElement;
    const change = (theme: string): void => {
        root.dataset.theme = theme;
        forgetColours();
        redraw();
    };
    root.dataset.theme = dark.matches ? "dark" : "light";
    dark.addEventListener("change", () => change(dark.matches ? "dark" : "light"));
    byId("theme").addEventListener("click", () => change(root.dataset.theme === "dark" ? "light" : "dark"));
}

function start(trace: Trace): void {
    fillChoices(trace);
    const model = new Model(trace, location.hash);
    byId("title").textContent = trace.facts.files.map((file) => file.path.replace(/^.*[/\\]/, "")).join(", ");
    byId("program").textContent = trace.facts.program;
    const form = new FilterForm(model);
    byId("page").hidden = false;
    byId("loading").hidden = true;
    showTab(model);
    const timeline = new Timeline(model);
    const latency = new Latency(model);
    let shown: Uint32Array | null = null;
    const show = (): void => {
        showTab(model);
        form.show();
        if (model.view.tab === "overview" && shown !== model.matching) {
            shown = model.matching;
            showOverview(model, byId("overview"));
        }
    };
    // Addresses change with every pixel of a move; browsers limit how often they take one.
    let timer = 0;
    const noteAddress = (): void => {
        window.clearTimeout(timer);
        timer = window.setTimeout(() => history.replaceState(null, "", viewToAddress(model.view, model.length)), typingPause);
    };
    model.listen((change) => {
        if (change.filter || change.tab || change.bitRate) show();
        if (change.selected) showDetail(model, byId("detail"));
        noteAddress();
    });
    listenToTabs(model);
    listenToTheme(() => {
        timeline.drawSoon();
        latency.draw();
    });
    window.addEventListener("hashchange", () => model.goTo(location.hash));
    show();
    showDetail(model, byId("detail"));
    timeline.drawSoon();
    latency.draw();
    requestAnimationFrame(() => requestAnimationFrame(() => {
        performance.mark("first picture");
        document.body.dataset.ready = "true";
    }));
}

function fail(error: unknown): void {
    byId("loading").textContent = "This report cannot be shown: " +
        (typeof DecompressionStream === "undefined" ? "this browser is too old; use a current one."
                                                    : `its data is damaged (${String(error)}). Write it again.`);
}

readTrace().then(start).catch(fail);
