// What the tests use of Node.

declare module "node:test" {
    export default function test(name: string, body: () => void | Promise<void>): void;
}

declare module "node:assert/strict" {
    interface Assert {
        equal(actual: unknown, expected: unknown): void;
        deepEqual(actual: unknown, expected: unknown): void;
        throws(body: () => void, error: RegExp): void;
        ok(value: unknown): void;
    }
    const assert: Assert;
    export default assert;
}
