// Elements made of text. What comes from a trace becomes text nodes only, never markup.

type Child = Node | string;

export function element(name: string, attributes: Record<string, string> = {}, ...children: Child[]): HTMLElement {
    const made = document.createElement(name);
    for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
    made.append(...children);
    return made;
}

export function button(text: string, onClick: () => void, attributes: Record<string, string> = {}): HTMLElement {
    const made = element("button", {type: "button", ...attributes}, text);
    made.addEventListener("click", onClick);
    return made;
}

export function byId(id: string): HTMLElement {
    const found = document.getElementById(id);
    if (!found) throw new Error(`the page has no ${id}`);
    return found;
}

/** Cells are text or elements; those of columns that are named in numeric are aligned to the right. */
export function table(caption: string, head: string[], rows: Child[][], numeric: number[] = []): HTMLElement {
    const cell = (tag: string, child: Child, column: number): HTMLElement =>
        element(tag, {...(numeric.includes(column) ? {class: "number"} : {}),
                      ...(tag === "th" ? {scope: "col"} : {})}, child);
    const made = element("table", {}, element("caption", {}, caption),
        element("thead", {}, element("tr", {}, ...head.map((text, i) => cell("th", text, i)))),
        element("tbody", {}, ...rows.map((row) => element("tr", {}, ...row.map((child, i) => cell("td", child, i))))));
    return element("div", {class: "table", tabindex: "0", role: "region", "aria-label": caption}, made);
}

const colours = new Map<string, string>();

/** The page's colours, which follow its theme. */
export function colour(name: string): string {
    let value = colours.get(name);
    if (value === undefined) {
        value = getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
        colours.set(name, value);
    }
    return value;
}

/** Call it when the theme has changed. */
export function forgetColours(): void { colours.clear(); }

/** A canvas's drawing context in CSS pixels, cleared; null while the canvas is not seen. */
export function context(canvas: HTMLCanvasElement, width: number, height: number): CanvasRenderingContext2D | null {
    const scale = window.devicePixelRatio || 1;
    if (width < 1 || height < 1) return null;
    const [w, h] = [Math.round(width * scale), Math.round(height * scale)];
    if (canvas.width !== w || canvas.height !== h) {
        canvas.width = w;
        canvas.height = h;
        canvas.style.width = `${width}px`;
        canvas.style.height = `${height}px`;
    }
    const drawing = canvas.getContext("2d");
    if (!drawing) return null;
    drawing.setTransform(scale, 0, 0, scale, 0, 0);
    drawing.clearRect(0, 0, width, height);
    return drawing;
}
