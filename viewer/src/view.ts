// What the views share: the trace, what is chosen of it, and who is told of a change.

import {Filter, filterFromAddress, filterToAddress, matchingSpans, noFilter} from "./filter";
import {Trace} from "./trace";

export const tabs = ["overview", "timeline", "latency"] as const;
export type Tab = typeof tabs[number];

export interface View {
    tab: Tab;
    from: number;      // of the timeline, microseconds since the beginning
    to: number;
    selected: number;  // an exchange; -1: none
    bitRate: number;   // of the CAN bus, bits per second
    filter: Filter;
}

const defaultBitRate = 500_000;

export function viewFromAddress(hash: string, length: number): View {
    const address = new URLSearchParams(hash.replace(/^#/, ""));
    const number = (name: string, otherwise: number): number => {
        const value = Number(address.get(name) ?? NaN);
        return address.has(name) && Number.isFinite(value) ? value : otherwise;
    };
    const tab = tabs.find((name) => name === address.get("tab")) ?? "overview";
    const bitRate = number("rate", defaultBitRate);
    const view = {tab, from: number("begin", 0), to: number("end", length),
                  selected: Math.trunc(number("exchange", -1)),
                  bitRate: bitRate > 0 ? bitRate : defaultBitRate, filter: filterFromAddress(address)};
    if (view.to <= view.from) [view.from, view.to] = [0, length];
    return view;
}

export function viewToAddress(view: View, length: number): string {
    const address = new URLSearchParams({tab: view.tab});
    if (view.from !== 0 || view.to !== length) {
        address.set("begin", String(Math.round(view.from)));
        address.set("end", String(Math.round(view.to)));
    }
    if (view.selected >= 0) address.set("exchange", String(view.selected));
    if (view.bitRate !== defaultBitRate) address.set("rate", String(view.bitRate));
    filterToAddress(view.filter, address);
    return `#${address}`;
}

export class Model {
    view: View;
    matching: Uint32Array;
    private readonly listeners: ((change: Change) => void)[] = [];

    constructor(readonly trace: Trace, hash: string) {
        this.view = this.viewAt(hash);
        this.matching = matchingSpans(trace, this.view.filter);
    }

    /** Of the whole trace, in microseconds. */
    get length(): number { return Math.max(1, this.trace.last - this.trace.first); }

    /** The view of an address, which may be of another report. */
    private viewAt(hash: string): View {
        const view = viewFromAddress(hash, this.length);
        return view.selected < this.trace.spans.rows ? view : {...view, selected: -1};
    }

    goTo(hash: string): void { this.set(this.viewAt(hash)); }

    listen(listener: (change: Change) => void): void { this.listeners.push(listener); }

    /** Takes a part of the view; the views that depend on it are told once. */
    set(part: Partial<View>): void {
        const change = {filter: part.filter !== undefined, range: part.from !== undefined || part.to !== undefined,
                        selected: part.selected !== undefined, tab: part.tab !== undefined,
                        bitRate: part.bitRate !== undefined};
        this.view = {...this.view, ...part};
        if (change.filter) this.matching = matchingSpans(this.trace, this.view.filter);
        for (const listener of this.listeners) listener(change);
    }

    setFilter(part: Partial<Filter>): void { this.set({filter: {...this.view.filter, ...part}}); }

    clearFilter(): void { this.set({filter: noFilter()}); }

    select(span: number, tab?: Tab): void { this.set(tab ? {selected: span, tab} : {selected: span}); }
}

export interface Change { filter: boolean; range: boolean; selected: boolean; tab: boolean; bitRate: boolean }
