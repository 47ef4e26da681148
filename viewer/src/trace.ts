// The trace as its views see it: control units, links and exchanges.

import {Data, FrameFlag, PacketFlag, RequestFlag, Result, SpanFlag, Table} from "./data";
import {canId, hexBytes} from "./format";
import {describeAnswer, describeRequest, Names, serviceName} from "./uds";

interface Lines { count: number; first: number }
interface Session {
    process: number; number: number; first: number; last: number; wasStopped: boolean;
}
export interface File {
    path: string; records: number; cut: number; damaged: Lines; unknown: Lines;
    sessions: Session[];
}
export interface Facts extends Names {
    program: string;
    hasCalendarTime: boolean;
    files: File[];
    types: Record<string, string>;
    errors: Record<string, string>;
    packetTypes: string[];
}

export interface Unit {
    module: number;
    requestId: number;   // 0: only functional requests
    responseId: number;  // 0: whoever answers a functional request
    name: string;
}

/** How an exchange ended; a later one is more remarkable. */
export enum Outcome { ok, open, pending, negative, silent, error }
export const outcomeNames = ["answered", "not answered in the trace", "pending (0x78)",
                             "negative response", "no answer in time", "error"];

/** The service of an exchange whose request is not a UDS request. */
export const noService = 256;
const pendingCode = 0x78;
const startComm = 0x8001;
const stopComm = 0x8002;

export interface LinkLife { file: number; process: number; module: number; link: number; begin: number; end: number }

export class Trace {
    readonly units: Unit[] = [];
    spanUnit = new Uint32Array(0);
    spanService = new Uint16Array(0);
    spanOutcome = new Uint8Array(0);
    first = Infinity;
    last = -Infinity;
    readonly lives: LinkLife[] = [];

    constructor(readonly data: Data, readonly facts: Facts) {
        for (const file of facts.files) {
            for (const session of file.sessions) {
                this.first = Math.min(this.first, session.first);
                this.last = Math.max(this.last, session.last);
            }
        }
        if (this.first > this.last) this.first = this.last = 0;
        this.nameSpans();
        this.followLinks();
    }

    get requests(): Table { return this.data.tables.requests; }
    get spans(): Table { return this.data.tables.spans; }
    get frames(): Table { return this.data.tables.frames; }
    get packets(): Table { return this.data.tables.packets; }
    get callbacks(): Table { return this.data.tables.callbacks; }

    requestOf(span: number): number { return this.spans.get("request", span); }

    sentBytes(span: number): Uint8Array {
        return this.data.payload(this.requests, this.requestOf(span));
    }

    answerBytes(span: number): Uint8Array { return this.data.payload(this.spans, span); }

    /** The end of an exchange; of one that has none the end of its request. */
    spanEnd(span: number): number {
        return this.spans.get("answered", span) || this.requests.get("end", this.requestOf(span));
    }

    spanDuration(span: number): number {
        return Math.max(0, this.spanEnd(span) - this.spans.get("sent", span));
    }

    service(span: number): string {
        const service = this.spanService[span];
        return service === noService ? "no service" : serviceName(this.facts, service);
    }

    requestText(request: number): string {
        const bytes = this.data.payload(this.requests, request);
        const type = this.requests.get("type", request);
        const isRaw = (this.requests.get("flags", request) & RequestFlag.raw) !== 0;
        const name = this.facts.types[type] ?? String(type);
        if (isRaw || bytes.length === 0) return isRaw ? `${name} (raw frames)` : name;
        return describeRequest(this.facts, bytes);
    }

    answerText(span: number): string {
        const result = this.spans.get("result", span);
        if (result === Result.silent) return outcomeNames[Outcome.silent];
        if (result === Result.error) return "error of the dongle";
        if (result === Result.open) return outcomeNames[Outcome.open];
        const bytes = this.answerBytes(span);
        return bytes.length > 0 ? describeAnswer(this.facts, bytes) : "answered";
    }

    /** One line about an exchange, for searching and for lists. */
    spanText(span: number): string {
        return `${this.units[this.spanUnit[span]].name} ${this.requestText(this.requestOf(span))}` +
            ` → ${this.answerText(span)}`;
    }

    private outcomeOf(span: number): Outcome {
        const result = this.spans.get("result", span);
        if (result === Result.silent) return Outcome.silent;
        if (result === Result.error) return Outcome.error;
        if (result === Result.open) return Outcome.open;
        const nrc = this.spans.get("nrc", span);
        if (nrc === pendingCode) return Outcome.pending;
        return nrc > 0 ? Outcome.negative : Outcome.ok;
    }

    private nameSpans(): void {
        const {spans, requests} = this;
        this.spanUnit = new Uint32Array(spans.rows);
        this.spanService = new Uint16Array(spans.rows);
        this.spanOutcome = new Uint8Array(spans.rows);
        const known = new Map<string, number>();
        for (let span = 0; span < spans.rows; span++) {
            const of = this.requestOf(span);
            const module = requests.get("module", of);
            const responseId = spans.get("responseId", span);
            const requestId = spans.get("requestId", span);
            const isFunctional = (spans.get("flags", span) & SpanFlag.functional) !== 0;
            const key = responseId > 0 ? `${module}:${responseId}` : `${module}:to:${requestId}`;
            let unit = known.get(key);
            if (unit === undefined) {
                unit = this.units.length;
                known.set(key, unit);
                this.units.push({module, requestId: 0, responseId, name: ""});
            }
            if (!isFunctional || responseId === 0) this.units[unit].requestId = requestId;
            this.spanUnit[span] = unit;
            const sent = this.sentBytes(span);
            this.spanService[span] = sent.length > 0 ? sent[0] : noService;
            this.spanOutcome[span] = this.outcomeOf(span);
        }
        this.nameUnits();
    }

    private nameUnits(): void {
        const hasSeveral = new Set(this.units.map((unit) => unit.module)).size > 1;
        for (const unit of this.units) {
            const ids = [unit.requestId, unit.responseId].filter((id) => id > 0).map(canId);
            const name = unit.responseId === 0 ? `${ids[0] ?? "?"} (functional)` : ids.join(":");
            unit.name = hasSeveral ? `module ${unit.module} ${name}` : name;
        }
    }

    /** A link is on line from the end of STARTCOMM to the end of STOPCOMM, or of its session. */
    private followLinks(): void {
        const {requests} = this;
        const open = new Map<string, LinkLife>();
        const endOfSession = (file: number, at: number): number =>
            this.facts.files[file].sessions.find((session) => session.first <= at && at <= session.last)?.last ?? this.last;
        for (let row = 0; row < requests.rows; row++) {
            const type = requests.get("type", row);
            if (type !== startComm && type !== stopComm) continue;
            const [file, process, module, link] =
                ["file", "process", "module", "link"].map((name) => requests.get(name, row));
            const key = [file, process, module, link].join(":");
            const at = requests.get("end", row);
            const life = open.get(key);
            if (type === stopComm && life && at <= life.end) {
                life.end = at;
                open.delete(key);
            } else if (type === startComm && !(life && at <= life.end)) {
                const begun = {file, process, module, link, begin: at, end: endOfSession(file, at)};
                open.set(key, begun);
                this.lives.push(begun);
            }
        }
    }

    packetText(row: number): string {
        const type = this.facts.packetTypes[this.packets.get("type", row)] ?? "?";
        const isSent = (this.packets.get("flags", row) & PacketFlag.sent) !== 0;
        return `relay packet ${type} ${isSent ? "sent" : "received"}, ${this.packets.get("length", row)} bytes`;
    }

    frameText(row: number): string {
        const isSent = (this.frames.get("flags", row) & FrameFlag.sent) !== 0;
        return `${canId(this.frames.get("id", row))} ${isSent ? "sent" : "received"}  ` +
            hexBytes(this.data.payload(this.frames, row));
    }
}
