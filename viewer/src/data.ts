// Reads the tables that are in the page: columns of differences with their bytes in planes.

export type ColumnKind = "byte" | "number" | "time";
export interface TableLayout {
    name: string;
    columns: [string, ColumnKind][];
}
export type Values = Uint8Array | Uint32Array | Float64Array;

// Flags of rows, as the writer sets them (tools/dpdu/report/report_data.cpp).
export const RequestFlag = {raw: 1, finished: 2, cancelled: 4, problem: 8};
export const SpanFlag = {functional: 1, again: 2};
export const PacketFlag = {sent: 1};
export const FrameFlag = {sent: 1, bits29: 2};
export const Result = {open: 0, answered: 1, silent: 2, error: 3};

const planes = {byte: 1, number: 4, time: 7};

function emptyValues(kind: ColumnKind, size: number): Values {
    if (kind === "byte") return new Uint8Array(size);
    return kind === "number" ? new Uint32Array(size) : new Float64Array(size);
}

/** Decodes one column and returns where the next one begins. */
function decodeColumn(kind: ColumnKind, bytes: Uint8Array, at: number, rows: number, into: Values,
                      first: number): number {
    const end = at + planes[kind] * rows;
    if (end > bytes.length) throw new Error("the data is shorter than its tables");
    if (kind === "byte") {
        into.set(bytes.subarray(at, end), first);
        return end;
    }
    let value = 0;
    for (let row = 0; row < rows; row++) {
        const from = at + row;
        const low = (bytes[from] | bytes[from + rows] << 8 | bytes[from + 2 * rows] << 16 |
                     bytes[from + 3 * rows] << 24) >>> 0;
        if (kind === "number") {
            value = (value + low) >>> 0;
        } else {
            // In two's complement: the uppermost byte has the sign.
            const high = bytes[from + 4 * rows] | bytes[from + 5 * rows] << 8 | bytes[from + 6 * rows] << 24 >> 8;
            value += high * 2 ** 32 + low;
        }
        into[first + row] = value;
    }
    return end;
}

/** A table that grows by chunks. */
export class Table {
    rows = 0;
    private capacity = 0;
    private readonly columns = new Map<string, Values>();
    private chunks = new Uint32Array(0);

    constructor(readonly layout: TableLayout) {
        for (const [name, kind] of layout.columns) this.columns.set(name, emptyValues(kind, 0));
    }

    /** The values of a column; take it again after the table has grown. */
    column(name: string): Values {
        const values = this.columns.get(name);
        if (!values) throw new Error(`no column ${name} in ${this.layout.name}`);
        return values;
    }

    get(name: string, row: number): number {
        return this.column(name)[row];
    }

    /** Which chunk's bytes a row refers to. */
    chunkOf(row: number): number {
        return this.chunks[row];
    }

    append(bytes: Uint8Array, at: number, rows: number, chunk: number): number {
        this.reserve(this.rows + rows);
        for (const [name, kind] of this.layout.columns)
            at = decodeColumn(kind, bytes, at, rows, this.column(name), this.rows);
        this.chunks.fill(chunk, this.rows, this.rows + rows);
        this.rows += rows;
        return at;
    }

    private reserve(rows: number): void {
        if (rows <= this.capacity) return;
        this.capacity = Math.max(rows, 2 * this.capacity);
        for (const [name, kind] of this.layout.columns) {
            const larger = emptyValues(kind, this.capacity);
            larger.set(this.column(name).subarray(0, this.rows));
            this.columns.set(name, larger);
        }
        const chunks = new Uint32Array(this.capacity);
        chunks.set(this.chunks);
        this.chunks = chunks;
    }
}

export class Data {
    readonly tables: Record<string, Table> = {};
    private readonly payloads: Uint8Array[] = [];

    constructor(private readonly layout: TableLayout[]) {
        for (const table of layout) this.tables[table.name] = new Table(table);
    }

    add(rows: number[], bytes: Uint8Array): void {
        let at = 0;
        this.layout.forEach((table, i) => {
            at = this.tables[table.name].append(bytes, at, rows[i], this.payloads.length);
        });
        this.payloads.push(bytes.subarray(at));
    }

    /** Bytes that two columns of a row tell the place and number of. */
    payload(table: Table, row: number, at = "payload", size = "recorded"): Uint8Array {
        const from = table.get(at, row);
        return this.payloads[table.chunkOf(row)].subarray(from, from + table.get(size, row));
    }
}

export function fromBase64(text: string): Uint8Array {
    const characters = atob(text);
    const bytes = new Uint8Array(characters.length);
    for (let i = 0; i < characters.length; i++) bytes[i] = characters.charCodeAt(i);
    return bytes;
}

export async function inflate(bytes: Uint8Array): Promise<Uint8Array> {
    const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
    return new Uint8Array(await new Response(stream).arrayBuffer());
}

/** A chunk's text: its rows by table as JSON, a line end, and the compressed columns. */
export async function addChunk(data: Data, text: string): Promise<void> {
    const end = text.indexOf("\n");
    const {rows} = JSON.parse(text.slice(0, end)) as {rows: number[]};
    data.add(rows, await inflate(fromBase64(text.slice(end + 1))));
}
