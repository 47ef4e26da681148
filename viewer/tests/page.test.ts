import assert from "node:assert/strict";
import test from "node:test";

import {Data, fromBase64, inflate, TableLayout} from "../src/data";
import {contains, filterFault, filterFromAddress, filterToAddress, matchingFrames, noFilter} from "../src/filter";
import {calendarTime, canId, dump, duration, parseHex} from "../src/format";
import {BusLoad, frameBits} from "../src/load";
import {Pyramid} from "../src/pyramid";
import {logarithmicBins} from "../src/statistics";
import {Facts, Trace} from "../src/trace";
import {describeAnswer, describeRequest, Names} from "../src/uds";
import {viewFromAddress, viewToAddress} from "../src/view";

const layout: TableLayout[] = [{name: "one", columns: [["flags", "byte"], ["id", "number"], ["time", "time"]]}];

/** A column's differences with their bytes in planes, as the writer has them. */
function planes(values: number[], size: number): number[] {
    let before = 0n;
    const bytes: bigint[] = values.map((value) => {
        const difference = BigInt.asUintN(8 * size, BigInt(value) - before);
        before = BigInt(value);
        return difference;
    });
    return Array.from({length: size}, (_, plane) => bytes.map((value) => Number(value >> BigInt(8 * plane) & 0xFFn))).flat();
}

function chunk(flags: number[], ids: number[], times: number[], payload: number[] = []): Uint8Array {
    return Uint8Array.from([...flags, ...planes(ids, 4), ...planes(times, 7), ...payload]);
}

test("columns have the values that were written, across chunks", () => {
    const data = new Data(layout);
    const times = [1_790_000_000_000_123, 0, 1_790_000_000_000_122];
    data.add([3], chunk([1, 255, 0], [7, 0xFFFFFFFF, 0], times, [0xAA]));
    data.add([1], chunk([9], [5], [4], [0xBB]));
    const {one} = data.tables;
    assert.deepEqual([...one.column("flags").subarray(0, one.rows)], [1, 255, 0, 9]);
    assert.deepEqual([...one.column("id").subarray(0, one.rows)], [7, 0xFFFFFFFF, 0, 5]);
    assert.deepEqual([...one.column("time").subarray(0, one.rows)], [...times, 4]);
    assert.deepEqual([one.chunkOf(2), one.chunkOf(3)], [0, 1]);
});

test("a chunk that is too short is refused", () => {
    assert.throws(() => new Data(layout).add([2], Uint8Array.from([1, 2, 3])), /shorter than its tables/);
});

test("base64 and deflate are undone", async () => {
    // "tarvik" by another implementation
    const bytes = await inflate(fromBase64("eJwrSSwqy8wGAAkKApI="));
    assert.equal(String.fromCharCode(...bytes), "tarvik");
});

test("numbers and bytes have the texts of the field", () => {
    assert.deepEqual([canId(0x7E8), canId(0x18DAF110), canId(1)], ["7E8", "18DAF110", "001"]);
    assert.deepEqual([duration(0), duration(999), duration(1500), duration(2.5e6), duration(125e6), duration(7.3e9)],
                     ["0 µs", "999 µs", "1.50 ms", "2.50 s", "2 min 5 s", "2 h 1 min"]);
    assert.equal(calendarTime(1_700_000_000_123_456), "2023-11-14 22:13:20.123456 UTC");
    assert.ok(calendarTime(2 ** 63).endsWith(" s"));
    assert.equal(dump([0x62, 0xF1, 0x41, 0x7F]), `0000  ${"62 F1 41 7F".padEnd(47)}  b.A.`);
    assert.deepEqual(parseHex("22 f1 90"), [0x22, 0xF1, 0x90]);
    assert.deepEqual([parseHex("22f"), parseHex("xy"), parseHex("")], [null, null, null]);
});

const names: Names = {services: {34: "ReadDataByIdentifier", 16: "DiagnosticSessionControl", 49: "RoutineControl"},
    subFunctions: {16: {3: "extendedDiagnosticSession"}, 49: {1: "startRoutine"}},
    negativeResponses: {49: "requestOutOfRange"}, identifiers: {61840: "VINDataIdentifier"}, routines: {65280: "eraseMemory"}};

test("requests and answers are described by service, sub-function, identifier and code", () => {
    assert.equal(describeRequest(names, [0x22, 0xF1, 0x90, 0x12, 0x34]), "ReadDataByIdentifier F190 VINDataIdentifier, 1234");
    assert.equal(describeRequest(names, [0x10, 0x83]), "DiagnosticSessionControl extendedDiagnosticSession");
    assert.equal(describeRequest(names, [0x31, 1, 0xFF, 0]), "RoutineControl startRoutine FF00 eraseMemory");
    assert.equal(describeRequest(names, [0xBA]), "service 0xBA");
    assert.equal(describeAnswer(names, [0x62, 0xF1, 0x90, 0x41]), "ReadDataByIdentifier F190 VINDataIdentifier");
    assert.equal(describeAnswer(names, [0x7F, 0x22, 0x31]), "negative response requestOutOfRange (0x31) to ReadDataByIdentifier");
    assert.equal(describeAnswer(names, [0x7F, 0x22, 0x99]), "negative response unknown code (0x99) to ReadDataByIdentifier");
    assert.equal(describeAnswer(names, [0xEE, 1]), "EE 01");
});

test("intervals are found whatever their order, and each is drawn once", () => {
    const begins = Array.from({length: 5000}, (_, i) => (i * 7919) % 5000 * 10);
    const rows = Uint32Array.from(begins, (_, i) => i);
    const pyramid = new Pyramid(rows, (row) => begins[row], (row) => begins[row] + 5, () => 1);
    const drawn: number[] = [];
    pyramid.visit(100, 149, 0, (begin, _end, _flags, index) => {
        assert.equal(begins[pyramid.row(index)], begin);
        drawn.push(begin);
    });
    assert.deepEqual(drawn, [100, 110, 120, 130, 140]);
    assert.equal(pyramid.begin(pyramid.at(203, 0)), 200);
    assert.equal(pyramid.at(207, 0), -1);
    assert.equal(pyramid.begin(pyramid.firstFrom(201)), 210);
});

test("far away, groups stand for their intervals, with all of their flags and none of the gaps", () => {
    // Two dense bursts with nothing between them.
    const begins = Array.from({length: 4000}, (_, i) => i < 2000 ? i : 1e6 + i);
    const pyramid = new Pyramid(Uint32Array.from(begins, (_, i) => i), (row) => begins[row], (row) => begins[row] + 1,
                                (row) => row === 777 ? 8 : 1);
    let count = 0;
    let flags = 0;
    pyramid.visit(0, 2e6, 500, (begin, end, of) => {
        assert.ok(end - begin <= 500);
        flags |= of;
        count++;
    });
    assert.equal(flags, 9);
    assert.ok(count < 200);
});

test("an empty lane draws nothing", () => {
    const pyramid = new Pyramid(new Uint32Array(0), () => 0, () => 0, () => 0);
    pyramid.visit(0, 1, 0, () => { throw new Error("drawn"); });
    assert.equal(pyramid.at(0, 1), -1);
});

test("bus load is the part of the time that the bits take", () => {
    assert.deepEqual([frameBits(8, false), frameBits(8, true), frameBits(0, false)], [111, 131, 47]);
    const bus = new BusLoad(Float64Array.from([0, 10, 20, 1000]), () => 111);
    assert.equal(bus.count(0, 21), 3);
    assert.equal(bus.load(0, 1000, 500_000), 3 * 111 / 500);
});

test("answer times are counted by their logarithm, the outermost in the last bins", () => {
    assert.deepEqual([...logarithmicBins([1, 9, 10, 99, 100, 5000], 0, 2, 2)], [2, 4]);
});

test("a view in the address is the same view again", () => {
    const filter = {...noFilter(), unit: "7E0:7E8", bytes: "22 F1", text: "a&b=#%", problems: true, from: 5, most: 700};
    const view = {tab: "timeline" as const, from: 10, to: 900, selected: 3, bitRate: 250_000, filter};
    assert.deepEqual(viewFromAddress(viewToAddress(view, 1000), 1000), view);
});

test("what an address has wrong is left out", () => {
    const view = viewFromAddress("#tab=nonsense&begin=x&end=-5&rate=-1&exchange=x&from=y", 1000);
    assert.deepEqual([view.tab, view.from, view.to, view.selected, view.bitRate, view.filter.from],
                     ["overview", 0, 1000, -1, 500_000, null]);
});

test("fields that are wrong are named", () => {
    assert.equal(filterFault(noFilter()), "");
    assert.ok(filterFault({...noFilter(), bytes: "2"}).includes("hexadecimal"));
    assert.ok(filterFault({...noFilter(), id: "7G8"}).includes("7E8"));
    const address = new URLSearchParams();
    filterToAddress(noFilter(), address);
    assert.deepEqual(filterFromAddress(address), noFilter());
    assert.equal(String(address), "");
});

test("bytes are found at any place", () => {
    assert.ok(contains([1, 2, 2, 3], [2, 3]));
    assert.ok(!contains([1, 2], [2, 3]));
});

test("raw frames are filtered by identifier and bytes", () => {
    const data = new Data([{name: "frames", columns: [["id", "number"], ["payload", "number"], ["recorded", "number"]]}]);
    data.add([3], Uint8Array.from([...planes([0x100, 0x1A0, 0x1A0], 4), ...planes([0, 2, 4], 4), ...planes([2, 2, 2], 4),
                                   1, 2, 3, 4, 1, 2]));
    const trace = {data, frames: data.tables.frames} as unknown as Trace;
    const rows = (part: object): number[] => [...matchingFrames(trace, {...noFilter(), ...part})];
    assert.deepEqual(rows({}), [0, 1, 2]);
    assert.deepEqual(rows({id: "1a0"}), [1, 2]);
    assert.deepEqual(rows({bytes: "01 02"}), [0, 2]);
    assert.deepEqual(rows({id: "1A0", bytes: "0102"}), [2]);
    assert.deepEqual(rows({id: "no"}), [0, 1, 2]);
});

const requestColumns = ["file", "process", "module", "link", "type", "end"];

/** A trace of one file with two sessions and these requests, by type and end. */
function traceOfRequests(requests: [number, number][]): Trace {
    const tables: TableLayout[] = ["requests", "spans", "frames", "packets", "callbacks"].map((name) =>
        ({name, columns: name === "requests" ? requestColumns.map((column) => [column, "number"]) : []}));
    const data = new Data(tables);
    const columns = requestColumns.map((name) => requests.map(([type, end]) => name === "type" ? type : name === "end" ? end : 1));
    columns[0].fill(0);
    data.add([requests.length, 0, 0, 0, 0], Uint8Array.from(columns.flatMap((values) => planes(values, 4))));
    const session = {process: 1, number: 1, wasStopped: true};
    const sessions = [{...session, first: 0, last: 100}, {...session, first: 200, last: 300}];
    const lines = {count: 0, first: 0};
    const facts = {files: [{path: "", records: 0, cut: 0, damaged: lines, unknown: lines, sessions}]};
    return new Trace(data, facts as unknown as Facts);
}

test("a link is on line until STOPCOMM, or until its own session ends", () => {
    const lives = (requests: [number, number][]): number[][] =>
        traceOfRequests(requests).lives.map((life) => [life.begin, life.end]);
    assert.deepEqual(lives([[0x8001, 10], [0x8004, 20], [0x8002, 50]]), [[10, 50]]);
    assert.deepEqual(lives([[0x8001, 10], [0x8001, 20]]), [[10, 100]]);
    assert.deepEqual(lives([[0x8001, 10], [0x8001, 210], [0x8002, 250]]), [[10, 100], [210, 250]]);
    assert.deepEqual(lives([[0x8002, 50]]), []);
});
