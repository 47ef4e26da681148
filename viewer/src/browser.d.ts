// What the type checker's library does not know yet, as far as it is used.

declare class DecompressionStream {
    constructor(format: "deflate");
    readonly readable: ReadableStream<Uint8Array>;
    readonly writable: WritableStream<Uint8Array>;
}

declare module "d3-array" {
    /** Round values from start to stop, about count of them. */
    export function ticks(start: number, stop: number, count: number): number[];
    /** Of ascending values, by linear interpolation. */
    export function quantileSorted(values: ArrayLike<number>, p: number): number | undefined;
}
