// Intervals ordered by their beginning, in groups of groups: what of them is narrower than a pixel is
// seen as one, so drawing costs as much as there are pixels, not as there are intervals.

export interface Interval { begin: number; end: number; flags: number; row: number }

const group = 16;

interface Level { begin: Float64Array; end: Float64Array; flags: Uint8Array }

export class Pyramid {
    private readonly levels: Level[] = [];
    private readonly rows: Uint32Array;

    /** Flags are one bit each; those of a group are all of its intervals'. */
    constructor(rows: Uint32Array, begin: (row: number) => number, end: (row: number) => number,
                flags: (row: number) => number) {
        const begins = new Float64Array(rows.length);
        rows.forEach((row, i) => { begins[i] = begin(row); });
        const order = new Uint32Array(rows.length).map((_, i) => i);
        const isOrdered = begins.every((value, i) => i === 0 || begins[i - 1] <= value);
        if (!isOrdered) order.sort((a, b) => begins[a] - begins[b]);
        this.rows = order.map((i) => rows[i]);
        const level = {begin: new Float64Array(rows.length), end: new Float64Array(rows.length),
                       flags: new Uint8Array(rows.length)};
        this.rows.forEach((row, i) => {
            level.begin[i] = begin(row);
            level.end[i] = Math.max(level.begin[i], end(row));
            level.flags[i] = flags(row);
        });
        this.levels.push(level);
        while (this.levels[this.levels.length - 1].begin.length > group)
            this.levels.push(this.above(this.levels[this.levels.length - 1]));
    }

    get length(): number { return this.rows.length; }

    row(index: number): number { return this.rows[index]; }

    begin(index: number): number { return this.levels[0].begin[index]; }

    /** What is to be drawn from `from` to `to`; groups of a width below `least` are one interval. */
    visit(from: number, to: number, least: number,
          draw: (begin: number, end: number, flags: number, index: number) => void): void {
        const top = this.levels.length - 1;
        for (let i = 0; i < this.levels[top].begin.length; i++) this.visitAt(top, i, from, to, least, draw);
    }

    /** The interval at a time, the one that began last; -1: none. */
    at(time: number, tolerance: number): number {
        let found = -1;
        this.visit(time - tolerance, time + tolerance, 0, (_begin, _end, _flags, index) => { found = index; });
        return found;
    }

    /** The first one that begins at or after a time. */
    firstFrom(time: number): number {
        let low = 0;
        let high = this.length;
        while (low < high) {
            const middle = (low + high) >> 1;
            if (this.levels[0].begin[middle] < time) low = middle + 1;
            else high = middle;
        }
        return low;
    }

    private visitAt(depth: number, i: number, from: number, to: number, least: number,
                    draw: (begin: number, end: number, flags: number, index: number) => void): void {
        const level = this.levels[depth];
        if (level.end[i] < from || level.begin[i] > to) return;
        if (depth === 0 || level.end[i] - level.begin[i] < least) {
            draw(level.begin[i], level.end[i], level.flags[i], depth === 0 ? i : -1);
            return;
        }
        const below = Math.min((i + 1) * group, this.levels[depth - 1].begin.length);
        for (let child = i * group; child < below; child++)
            this.visitAt(depth - 1, child, from, to, least, draw);
    }

    private above(below: Level): Level {
        const size = Math.ceil(below.begin.length / group);
        const level = {begin: new Float64Array(size), end: new Float64Array(size), flags: new Uint8Array(size)};
        for (let i = 0; i < below.begin.length; i++) {
            const into = Math.floor(i / group);
            if (i % group === 0) level.begin[into] = below.begin[i];
            level.end[into] = Math.max(i % group === 0 ? -Infinity : level.end[into], below.end[i]);
            level.flags[into] |= below.flags[i];
        }
        return level;
    }
}
