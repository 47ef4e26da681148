// How much of a CAN bus's time frames take.

/** Bits of a classical frame with its gap, without stuff bits, which depend on its content. */
export function frameBits(length: number, is29Bit: boolean): number {
    return (is29Bit ? 67 : 47) + 8 * Math.min(8, length);
}

/** Sums over frames that are ordered by time. */
export class BusLoad {
    private readonly bits: Float64Array;

    constructor(private readonly times: Float64Array, bits: (index: number) => number) {
        this.bits = new Float64Array(times.length + 1);
        for (let i = 0; i < times.length; i++) this.bits[i + 1] = this.bits[i] + bits(i);
    }

    get length(): number { return this.times.length; }

    time(index: number): number { return this.times[index]; }

    firstFrom(time: number): number {
        let low = 0;
        let high = this.times.length;
        while (low < high) {
            const middle = (low + high) >> 1;
            if (this.times[middle] < time) low = middle + 1;
            else high = middle;
        }
        return low;
    }

    count(from: number, to: number): number { return this.firstFrom(to) - this.firstFrom(from); }

    /** The part of a time that the frames in it take, at a bit rate; above 1 where it is too low. */
    load(from: number, to: number, bitRate: number): number {
        const bits = this.bits[this.firstFrom(to)] - this.bits[this.firstFrom(from)];
        return bits / bitRate / ((to - from) / 1e6);
    }
}
