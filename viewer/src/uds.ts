// What requests and answers say. All names come with the data.

import {hexBytes, hexNumber} from "./format";

export interface Names {
    services: Record<string, string>;
    subFunctions: Record<string, Record<string, string>>;
    negativeResponses: Record<string, string>;
    identifiers: Record<string, string>;
    routines: Record<string, string>;
}

const negativeResponse = 0x7F;
const positiveOffset = 0x40;
const routineControl = 0x31;
const withIdentifier = [0x22, 0x24, 0x2E, 0x2F];

export function serviceName(names: Names, service: number): string {
    return names.services[service] ?? `service 0x${hexNumber(service, 2)}`;
}

export function negativeName(names: Names, code: number): string {
    return `${names.negativeResponses[code] ?? "unknown code"} (0x${hexNumber(code, 2)})`;
}

/** The identifiers after the service; of a request all, of an answer the first. */
function identifiers(names: Names, bytes: ArrayLike<number>, most: number): string {
    const found: string[] = [];
    for (let at = 1; at + 1 < bytes.length && found.length < most; at += 2) {
        const id = bytes[at] << 8 | bytes[at + 1];
        const name = names.identifiers[id];
        found.push(hexNumber(id, 4) + (name ? ` ${name}` : ""));
    }
    return found.join(", ");
}

function parameters(names: Names, service: number, bytes: ArrayLike<number>, isAnswer: boolean): string {
    if (withIdentifier.includes(service))
        return identifiers(names, bytes, service === 0x22 && !isAnswer ? 8 : 1);
    const subNames = names.subFunctions[service];
    if (!subNames || bytes.length < 2) return "";
    const sub = bytes[1] & 0x7F;
    const words = [subNames[sub] ?? `sub-function 0x${hexNumber(sub, 2)}`];
    if (service === routineControl && bytes.length >= 4) {
        const id = bytes[2] << 8 | bytes[3];
        words.push(hexNumber(id, 4) + (names.routines[id] ? ` ${names.routines[id]}` : ""));
    }
    return words.join(" ");
}

/** "ReadDataByIdentifier F190 VINDataIdentifier" */
export function describeRequest(names: Names, bytes: ArrayLike<number>): string {
    if (bytes.length === 0) return "";
    return `${serviceName(names, bytes[0])} ${parameters(names, bytes[0], bytes, false)}`.trim();
}

export function describeAnswer(names: Names, bytes: ArrayLike<number>): string {
    if (bytes.length === 0) return "";
    if (bytes[0] === negativeResponse && bytes.length >= 3)
        return `negative response ${negativeName(names, bytes[2])} to ${serviceName(names, bytes[1])}`;
    const service = bytes[0] - positiveOffset;
    if (!names.services[service]) return hexBytes(bytes, 8);
    return `${serviceName(names, service)} ${parameters(names, service, bytes, true)}`.trim();
}
