// Answer times: how many are how long, and when. A region that is drawn in either filters everything.

import {ticks} from "d3-array";
import {byId, colour, context} from "./dom";
import {duration} from "./format";
import {outcomeColours} from "./lanes";
import {logarithmicBins} from "./statistics";
import {Outcome} from "./trace";
import {Model} from "./view";

const left = 70;
const bottom = 26;
const top = 8;

interface Point { x: number; y: number }

/** Draws a rectangle while the mouse button is down and tells about it afterwards. */
function selectRegion(canvas: HTMLCanvasElement, box: HTMLElement, onRegion: (a: Point, b: Point) => void): void {
    let begin: Point | null = null;
    const at = (event: PointerEvent): Point => ({x: event.offsetX, y: event.offsetY});
    canvas.addEventListener("pointerdown", (event) => {
        canvas.setPointerCapture(event.pointerId);
        begin = at(event);
    });
    canvas.addEventListener("pointermove", (event) => {
        if (!begin) return;
        const end = at(event);
        box.hidden = false;
        box.style.left = `${canvas.offsetLeft + Math.min(begin.x, end.x)}px`;
        box.style.top = `${canvas.offsetTop + Math.min(begin.y, end.y)}px`;
        box.style.width = `${Math.abs(end.x - begin.x)}px`;
        box.style.height = `${Math.abs(end.y - begin.y)}px`;
    });
    const finish = (event: PointerEvent): void => {
        const from = begin;
        begin = null;
        box.hidden = true;
        if (from && event.type === "pointerup" && Math.abs(event.offsetX - from.x) > 4) onRegion(from, at(event));
    };
    canvas.addEventListener("pointerup", finish);
    canvas.addEventListener("pointercancel", finish);
}

export class Latency {
    private readonly histogram = byId("histogram") as HTMLCanvasElement;
    private readonly scatter = byId("scatter") as HTMLCanvasElement;
    private low = 0;   // of the shown answer times, as logarithms of microseconds
    private high = 1;
    private times = new Float64Array(0);
    private begin = 0; // of the shown exchanges
    private end = 1;

    constructor(private readonly model: Model) {
        this.measure();
        new ResizeObserver(() => this.draw()).observe(byId("latency"));
        model.listen((change) => {
            if (change.filter) this.measure();
            if (change.filter || change.tab || change.selected) this.draw();
        });
        selectRegion(this.histogram, byId("region"), (a, b) => {
            const time = (x: number): number => 10 ** (this.low + (x - left) / this.plotWidth * (this.high - this.low));
            const [least, most] = [time(Math.min(a.x, b.x)), time(Math.max(a.x, b.x))];
            model.setFilter({least, most});
        });
        selectRegion(this.scatter, byId("region"), (a, b) => {
            const at = (x: number): number => this.begin + (x - left) / this.plotWidth * (this.end - this.begin);
            const time = (y: number): number => 10 ** (this.high - (y - top) / this.plotHeight * (this.high - this.low));
            model.setFilter({from: at(Math.min(a.x, b.x)), to: at(Math.max(a.x, b.x)),
                             least: time(Math.max(a.y, b.y)), most: time(Math.min(a.y, b.y))});
        });
    }

    private get width(): number { return byId("latency").clientWidth - 24; }
    private get height(): number { return Math.max(160, Math.min(320, window.innerHeight / 3)); }
    private get plotWidth(): number { return Math.max(1, this.width - left - 10); }
    private get plotHeight(): number { return this.height - top - bottom; }

    private get answered(): Uint32Array {
        const {trace, matching} = this.model;
        return matching.filter((span) => [Outcome.ok, Outcome.negative, Outcome.pending].includes(trace.spanOutcome[span]));
    }

    private measure(): void {
        const {trace} = this.model;
        const spans = this.answered;
        this.times = Float64Array.from(spans, (span) => Math.max(1, trace.spanDuration(span)));
        let [least, most, begin, end] = [Infinity, 1, Infinity, -Infinity];
        spans.forEach((span, i) => {
            least = Math.min(least, this.times[i]);
            most = Math.max(most, this.times[i]);
            const sent = trace.spans.get("sent", span) - trace.first;
            begin = Math.min(begin, sent);
            end = Math.max(end, sent);
        });
        // A tenth of a decade around them, so that the outermost can be selected.
        this.low = Math.log10(Math.min(least, most)) - 0.1;
        this.high = Math.max(Math.log10(most) + 0.1, this.low + 0.2);
        [this.begin, this.end] = spans.length > 0 ? [begin - 1, Math.max(end, begin) + 1] : [0, this.model.length];
    }

    draw(): void {
        if (byId("latency").hidden) return;
        this.drawHistogram();
        this.drawScatter();
    }

    /** 1, 2 and 5 times the powers of ten between the shown answer times; where there is none, their ends. */
    private marks(): [number, string][] {
        const marks: [number, string][] = [];
        for (let power = Math.floor(this.low); power <= this.high; power++) {
            for (const digit of [1, 2, 5]) {
                const place = power + Math.log10(digit);
                if (place >= this.low && place <= this.high) marks.push([place, duration(digit * 10 ** power)]);
            }
        }
        return marks.length > 0 ? marks : [this.low, this.high].map((place) => [place, duration(10 ** place)]);
    }

    private drawHistogram(): void {
        const drawing = context(this.histogram, this.width, this.height);
        if (!drawing) return;
        const bins = Math.max(10, Math.floor(this.plotWidth / 8));
        const counts = logarithmicBins(this.times, this.low, this.high, bins);
        const most = Math.max(1, ...counts);
        drawing.font = "13px system-ui, sans-serif";
        for (const value of ticks(0, most, 4).filter(Number.isInteger)) {
            const y = top + this.plotHeight * (1 - value / most);
            drawing.fillStyle = colour("line");
            drawing.fillRect(left, y, this.plotWidth, 1);
            drawing.fillStyle = colour("text");
            drawing.fillText(String(value), 8, y + 4);
        }
        drawing.fillStyle = colour("ok");
        const width = this.plotWidth / bins;
        counts.forEach((value, i) => {
            const height = value > 0 ? Math.max(1, value / most * this.plotHeight) : 0;
            drawing.fillRect(left + i * width, top + this.plotHeight - height, Math.max(1, width - 1), height);
        });
        drawing.fillStyle = colour("text");
        let free = 0;
        for (const [place, text] of this.marks()) {
            const x = left + (place - this.low) / (this.high - this.low) * this.plotWidth;
            if (x < free || x + 50 > this.width) continue;
            drawing.fillText(text, x, this.height - 8);
            free = x + drawing.measureText(text).width + 14;
        }
    }

    private drawScatter(): void {
        const drawing = context(this.scatter, this.width, this.height);
        if (!drawing) return;
        const {trace, view} = this.model;
        drawing.font = "13px system-ui, sans-serif";
        let free = Infinity;
        for (const [place, text] of this.marks()) {
            const y = top + (this.high - place) / (this.high - this.low) * this.plotHeight;
            if (y > free) continue;
            free = y - 16;
            drawing.fillStyle = colour("line");
            drawing.fillRect(left, y, this.plotWidth, 1);
            drawing.fillStyle = colour("text");
            drawing.fillText(text, 4, y + 4);
        }
        drawing.fillStyle = colour("text");
        for (const second of ticks(this.begin / 1e6, this.end / 1e6, this.plotWidth / 120)) {
            const x = left + (second * 1e6 - this.begin) / (this.end - this.begin) * this.plotWidth;
            drawing.fillText(`${second} s`, x, this.height - 8);
        }
        const colours = outcomeColours.map(colour);
        this.answered.forEach((span, i) => {
            const x = left + (trace.spans.get("sent", span) - trace.first - this.begin) / (this.end - this.begin) * this.plotWidth;
            const y = top + (this.high - Math.log10(this.times[i])) / (this.high - this.low) * this.plotHeight;
            const outcome = trace.spanOutcome[span];
            drawing.fillStyle = colours[outcome];
            if (outcome === Outcome.ok) drawing.fillRect(x - 1, y - 1, 3, 3);
            else drawing.fillRect(x - 1, y - 4, 2, 9);
            if (span === view.selected) {
                drawing.strokeStyle = colour("focus");
                drawing.strokeRect(x - 6, y - 6, 12, 12);
            }
        });
    }
}
