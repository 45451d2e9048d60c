/** What a person sees: shared by all panels. */

export const view = {
	/** Whether the picture stands still, and at which frame. */
	frozen: false,
	at: -1,
	/** @type {'dBFS' | 'LSB'} */
	unit: 'dBFS',
	hold: true,
	mean: false,
	truth: true,
	/** On the axes of time. */
	seconds: 20,
	/** One of how many frames arrives. */
	every: 1,
	/** The moment at the right edge of the axes of time, in UTC; NaN for that of the frame that is shown. */
	edge: NaN,
	/** Changes when all panels must be drawn again. */
	version: 0,
};

/** The page of several boards that contains this one. @type {Axis | null} */
export const above = globalThis.parent?.vantorBoards ?? null;

export function redraw() {
	view.version += 1;
}

/** The margins of every plot, in CSS pixels. */
export const MARGIN = { left: 52, right: 62, top: 6 };

export const FONT = '11px system-ui, sans-serif';

/** Makes an element. @template {keyof HTMLElementTagNameMap} Tag @param {Tag} tag @param {string} [name]  of its class
 * @param {string} [text] @param {Element[]} children */
export function element(tag, name = '', text = '', ...children) {
	const made = document.createElement(tag);
	made.className = name;
	made.textContent = text;
	made.append(...children);
	return made;
}

/** @template {HTMLElement} Kind @param {string} id @param {new () => Kind} kind */
export function byId(id, kind) {
	const found = document.getElementById(id);
	if (!(found instanceof kind)) {
		throw new Error(id);
	}
	return found;
}

/** @param {string} id */
export const button = (id) => byId(id, HTMLButtonElement);
/** @param {string} id */
export const input = (id) => byId(id, HTMLInputElement);
/** @param {string} id */
export const box = (id) => byId(id, HTMLElement);

/** @param {Element} target @param {string} text */
export function setText(target, text) {
	if (target.textContent !== text) {
		target.textContent = text;
	}
}

/** Sets a text that may be cut: the whole one is its title. @param {HTMLElement} target @param {string} text */
export function setCutText(target, text) {
	setText(target, text);
	target.title = text;
}

/** Fills a list. @param {HTMLSelectElement} select @param {number} chosen @param {number[]} values
 * @param {(value: number) => string} text @param {TakeNumber} changed */
export function fill(select, chosen, values, text, changed) {
	select.replaceChildren(...values.map((value) => new Option(text(value), String(value))));
	select.value = String(chosen);
	select.onchange = () => changed(Number(select.value));
}

/** @param {number} chosen  speed @param {TakeNumber} changed */
export function fillSpeeds(chosen, changed) {
	fill(byId('speed', HTMLSelectElement), chosen, [0.1, 0.25, 0.5, 1, 2, 4, 8, 16], (value) => `× ${value}`, changed);
}

/** @param {TakeNumber} changed */
export function fillWindows(changed) {
	fill(byId('window', HTMLSelectElement), view.seconds, [5, 10, 20, 30, 60], (value) => `${value} s`, changed);
}

/** @param {string} name @param {Blob} content */
export function download(name, content) {
	const link = document.createElement('a');
	link.href = URL.createObjectURL(content);
	link.download = name;
	link.click();
	setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

/** @param {HTMLCanvasElement} canvas */
export function contextOf(canvas) {
	return /** @type {CanvasRenderingContext2D} */ (canvas.getContext('2d'));
}
