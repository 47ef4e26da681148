// Numbers and bytes as text.

export function hexNumber(value: number, digits: number): string {
    return value.toString(16).toUpperCase().padStart(digits, "0");
}

/** "7E8", or eight digits for a 29-bit identifier. */
export function canId(id: number): string {
    return hexNumber(id, id > 0x7FF ? 8 : 3);
}

export function hexBytes(bytes: ArrayLike<number>, most = Infinity): string {
    const shown = Array.from(bytes).slice(0, most).map((byte) => hexNumber(byte, 2)).join(" ");
    return bytes.length > most ? `${shown} … (${bytes.length} bytes)` : shown;
}

/** Offset, sixteen bytes and their ASCII characters on each line. */
export function dump(bytes: ArrayLike<number>): string {
    const lines: string[] = [];
    for (let at = 0; at < bytes.length; at += 16) {
        const part = Array.from(bytes).slice(at, at + 16);
        const text = part.map((byte) => byte >= 0x20 && byte < 0x7F ? String.fromCharCode(byte) : ".");
        lines.push(`${hexNumber(at, 4)}  ${hexBytes(part).padEnd(47)}  ${text.join("")}`);
    }
    return lines.join("\n");
}

/** Bytes of hexadecimal text with or without blanks; null if it is something else. */
export function parseHex(text: string): number[] | null {
    const digits = text.replace(/\s+/g, "");
    if (digits.length === 0 || digits.length % 2 !== 0 || !/^[0-9a-f]+$/i.test(digits)) return null;
    return digits.match(/../g)!.map((pair) => parseInt(pair, 16));
}

/** A length of time in a unit that suits it. */
export function duration(us: number): string {
    if (us < 1000) return `${Math.round(us)} µs`;
    if (us < 1e6) return `${(us / 1e3).toFixed(us < 1e4 ? 2 : 1)} ms`;
    if (us < 120e6) return `${(us / 1e6).toFixed(us < 1e7 ? 2 : 1)} s`;
    const minutes = Math.floor(us / 60e6);
    if (minutes < 60) return `${minutes} min ${Math.round(us / 1e6 - minutes * 60)} s`;
    return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

const latestDate = 8.64e18;  // microseconds; the language's dates end there

/** Seconds since the beginning, with microseconds. */
export function seconds(us: number): string {
    return `${(us / 1e6).toFixed(6)} s`;
}

/** The calendar time of microseconds since 1970, UTC; what is beyond all calendars as seconds. */
export function calendarTime(us: number): string {
    if (Math.abs(us) > latestDate) return seconds(us);
    const text = new Date(Math.floor(us / 1e3)).toISOString();
    const rest = String(Math.floor(us % 1e3)).padStart(3, "0");
    return `${text.slice(0, 10)} ${text.slice(11, 23)}${rest} UTC`;
}

export function count(number: number, one: string, many = `${one}s`): string {
    return `${number.toLocaleString("en-US")} ${number === 1 ? one : many}`;
}
