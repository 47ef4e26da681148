// The timeline: lanes over a common axis, moved and zoomed by mouse, wheel, touch and keys.

import {ticks} from "d3-array";
import {byId, colour, context, element} from "./dom";
import {duration, seconds} from "./format";
import {fixedLanes, frameLanes, Lane, outcomeColours, Scale, unitLanes} from "./lanes";
import {outcomeNames} from "./trace";
import {Model} from "./view";

const labelWidth = 190;
const axisHeight = 26;
const tolerance = 3;      // pixels
const shortestRange = 20; // microseconds

export class Timeline {
    private lanes: Lane[] = [];
    private readonly fixed: {before: Lane[]; after: Lane[]};
    private readonly scroller = byId("lanes");
    private readonly canvas = byId("chart") as HTMLCanvasElement;
    private readonly spacer = byId("spacer");
    private readonly tip = byId("tip");
    private laneIndex = 0;  // of the keyboard
    private isWaiting = false;
    private readonly pointers = new Map<number, PointerEvent>();
    private moved = 0;      // pixels since the pointer went down

    constructor(private readonly model: Model) {
        this.fixed = fixedLanes(model);
        this.makeLanes();
        this.makeLegend();
        this.scroller.addEventListener("scroll", () => this.drawSoon());
        new ResizeObserver(() => this.drawSoon()).observe(this.scroller);
        this.canvas.addEventListener("wheel", (event) => this.onWheel(event), {passive: false});
        this.canvas.addEventListener("pointerdown", (event) => this.onDown(event));
        this.canvas.addEventListener("pointermove", (event) => this.onMove(event));
        this.canvas.addEventListener("pointerup", (event) => this.onUp(event));
        this.canvas.addEventListener("pointercancel", (event) => this.pointers.delete(event.pointerId));
        this.canvas.addEventListener("pointerleave", () => { this.tip.hidden = true; });
        this.canvas.addEventListener("keydown", (event) => this.onKey(event));
        model.listen((change) => {
            if (change.filter) this.makeLanes();
            this.drawSoon();
        });
    }

    drawSoon(): void {
        if (this.isWaiting) return;
        this.isWaiting = true;
        requestAnimationFrame(() => {
            this.isWaiting = false;
            this.draw();
        });
    }

    private makeLanes(): void {
        this.lanes = [...this.fixed.before, ...unitLanes(this.model), ...frameLanes(this.model), ...this.fixed.after];
        this.laneIndex = Math.min(this.laneIndex, Math.max(0, this.lanes.length - 1));
        const height = this.lanes.reduce((sum, lane) => sum + lane.height, 0);
        this.spacer.style.height = `${height + axisHeight}px`;
    }

    private makeLegend(): void {
        byId("legend").replaceChildren(...outcomeNames.map((name, i) =>
            element("li", {class: outcomeColours[i]}, name)), element("li", {class: "again"}, "sent again"));
    }

    private get scale(): Scale {
        const {from, to} = this.model.view;
        return {from, to, width: Math.max(1, this.scroller.clientWidth - labelWidth)};
    }

    private draw(): void {
        const width = this.scroller.clientWidth;
        const height = this.scroller.clientHeight;
        const drawing = context(this.canvas, width, height);
        if (!drawing) return;
        const {scale} = this;
        drawing.font = "13px system-ui, sans-serif";
        drawing.textBaseline = "middle";
        this.drawAxis(drawing, scale, height);
        drawing.save();
        drawing.beginPath();
        drawing.rect(0, axisHeight, width, height - axisHeight);
        drawing.clip();
        let y = axisHeight - this.scroller.scrollTop;
        this.lanes.forEach((lane, i) => {
            if (y + lane.height > axisHeight && y < height) this.drawLane(drawing, lane, i, y, scale);
            y += lane.height;
        });
        drawing.restore();
        this.drawSelection(drawing, scale, height);
    }

    private drawAxis(drawing: CanvasRenderingContext2D, scale: Scale, height: number): void {
        const step = ticks(scale.from / 1e6, scale.to / 1e6, scale.width / 110);
        const places = step.length > 1 ? Math.max(0, Math.min(6, -Math.floor(Math.log10(step[1] - step[0])))) : 6;
        for (const second of step) {
            const x = labelWidth + (second * 1e6 - scale.from) / (scale.to - scale.from) * scale.width;
            drawing.fillStyle = colour("line");
            drawing.fillRect(x, axisHeight - 4, 1, height);
            drawing.fillStyle = colour("text");
            drawing.fillText(`${second.toFixed(places)} s`, x + 3, axisHeight / 2);
        }
    }

    private drawLane(drawing: CanvasRenderingContext2D, lane: Lane, index: number, y: number, scale: Scale): void {
        if (index % 2 === 1) {
            drawing.fillStyle = colour("stripe");
            drawing.fillRect(0, y, labelWidth + scale.width, lane.height);
        }
        drawing.fillStyle = colour("text");
        const isChosen = index === this.laneIndex && document.activeElement === this.canvas;
        drawing.fillText(`${isChosen ? "▸ " : ""}${lane.name}`, 6, y + lane.height / 2, labelWidth - 12);
        drawing.save();
        drawing.beginPath();
        drawing.rect(labelWidth, y, scale.width, lane.height);
        drawing.clip();
        drawing.translate(labelWidth, 0);
        lane.draw(drawing, y, scale);
        drawing.restore();
    }

    private drawSelection(drawing: CanvasRenderingContext2D, scale: Scale, height: number): void {
        const {trace, view} = this.model;
        if (view.selected < 0) return;
        const x = (time: number): number => labelWidth + (time - trace.first - scale.from) / (scale.to - scale.from) * scale.width;
        const left = Math.max(labelWidth, x(trace.spans.get("sent", view.selected)));
        const right = Math.min(labelWidth + scale.width, x(trace.spanEnd(view.selected)));
        if (right < labelWidth || left > labelWidth + scale.width) return;
        drawing.strokeStyle = colour("focus");
        drawing.lineWidth = 2;
        drawing.strokeRect(left - 1, axisHeight, Math.max(2, right - left + 2), height - axisHeight - 1);
    }

    private get pixel(): number { return (this.model.view.to - this.model.view.from) / this.scale.width; }

    private timeAt(x: number): number { return this.model.view.from + (x - labelWidth) * this.pixel; }

    private laneAt(y: number): number {
        let top = axisHeight - this.scroller.scrollTop;
        if (y < axisHeight) return -1;
        return this.lanes.findIndex((lane) => y < (top += lane.height));
    }

    /** Shows from one time to another, kept within the trace and a width that can be drawn. */
    private show(from: number, to: number): void {
        const length = Math.min(this.model.length, Math.max(shortestRange, to - from));
        const begin = Math.min(this.model.length - length, Math.max(0, from));
        this.model.set({from: begin, to: begin + length});
    }

    private zoom(factor: number, around: number): void {
        const {from, to} = this.model.view;
        const length = Math.min(this.model.length, Math.max(shortestRange, (to - from) * factor));
        const part = (around - from) / (to - from);
        this.show(around - part * length, around - part * length + length);
    }

    private pan(by: number): void {
        const {from, to} = this.model.view;
        this.show(from + by, to + by);
    }

    private onWheel(event: WheelEvent): void {
        event.preventDefault();
        const sideways = event.shiftKey ? event.deltaY || event.deltaX : event.deltaX;
        if (sideways !== 0) this.pan(sideways * this.pixel);
        else this.zoom(Math.exp(event.deltaY / 400), this.timeAt(event.offsetX));
    }

    private onDown(event: PointerEvent): void {
        this.canvas.setPointerCapture(event.pointerId);
        this.pointers.set(event.pointerId, event);
        this.moved = 0;
    }

    private onMove(event: PointerEvent): void {
        const before = this.pointers.get(event.pointerId);
        if (!before) {
            this.showTip(event);
            return;
        }
        const other = [...this.pointers.values()].find((pointer) => pointer.pointerId !== event.pointerId);
        if (other) {
            const [was, is] = [Math.abs(before.offsetX - other.offsetX), Math.abs(event.offsetX - other.offsetX)];
            if (was > 10 && is > 10) this.zoom(was / is, this.timeAt((event.offsetX + other.offsetX) / 2));
        } else {
            this.pan((before.offsetX - event.offsetX) * this.pixel);
            this.scroller.scrollTop += before.offsetY - event.offsetY;
        }
        this.moved += Math.abs(event.offsetX - before.offsetX) + Math.abs(event.offsetY - before.offsetY);
        this.pointers.set(event.pointerId, event);
    }

    private onUp(event: PointerEvent): void {
        this.pointers.delete(event.pointerId);
        if (this.moved > 4) return;
        const lane = this.laneAt(event.offsetY);
        if (lane < 0) return;
        this.laneIndex = lane;
        this.model.select(this.lanes[lane].spanAt(this.timeAt(event.offsetX), tolerance * this.pixel));
    }

    private showTip(event: PointerEvent): void {
        const lane = this.laneAt(event.offsetY);
        const text = lane < 0 || event.offsetX < labelWidth ? ""
            : this.lanes[lane].textAt(this.timeAt(event.offsetX), tolerance * this.pixel);
        this.tip.hidden = text === "";
        this.tip.textContent = text && `${seconds(this.timeAt(event.offsetX))}\n${text}`;
        this.tip.style.left = `${Math.min(event.offsetX + 14, this.scroller.clientWidth - 300)}px`;
        this.tip.style.top = `${event.offsetY + 16}px`;
    }

    private onKey(event: KeyboardEvent): void {
        if (event.ctrlKey || event.altKey || event.metaKey) return;
        const {from, to} = this.model.view;
        const middle = (from + to) / 2;
        const actions: Record<string, () => void> = {
            ArrowLeft: () => this.pan((from - to) / 8), ArrowRight: () => this.pan((to - from) / 8),
            "+": () => this.zoom(0.5, middle), "=": () => this.zoom(0.5, middle), "-": () => this.zoom(2, middle),
            "0": () => this.show(0, this.model.length), Home: () => this.show(0, to - from),
            End: () => this.show(this.model.length - (to - from), this.model.length),
            ArrowUp: () => this.chooseLane(-1), ArrowDown: () => this.chooseLane(1),
            n: () => this.step(1), p: () => this.step(-1), Escape: () => this.model.select(-1)};
        const action = actions[event.key];
        if (!action) return;
        event.preventDefault();
        action();
    }

    private chooseLane(by: number): void {
        this.laneIndex = Math.min(this.lanes.length - 1, Math.max(0, this.laneIndex + by));
        const top = this.lanes.slice(0, this.laneIndex).reduce((sum, lane) => sum + lane.height, 0);
        const bottom = top + this.lanes[this.laneIndex].height;
        const seen = this.scroller.clientHeight - axisHeight;
        this.scroller.scrollTop = Math.min(top, Math.max(this.scroller.scrollTop, bottom - seen));
        byId("announcement").textContent = this.lanes[this.laneIndex].name;
        this.drawSoon();
    }

    /** Selects the next or previous exchange of the lane, or its first in view, and moves it into view. */
    private step(by: number): void {
        const spans = this.lanes[this.laneIndex]?.spans;
        if (!spans || spans.length === 0) return;
        const {trace, view} = this.model;
        let index = -1;
        for (let i = 0; view.selected >= 0 && i < spans.length && index < 0; i++)
            if (spans.row(i) === view.selected) index = i;
        index = index < 0 ? spans.firstFrom(view.from) : index + by;
        const span = spans.row(Math.min(spans.length - 1, Math.max(0, index)));
        const begin = trace.spans.get("sent", span) - trace.first;
        const length = view.to - view.from;
        if (begin < view.from || begin > view.to) this.show(begin - length / 2, begin + length / 2);
        this.model.select(span);
        byId("announcement").textContent = `${trace.spanText(span)}, ${duration(trace.spanDuration(span))}`;
    }
}
