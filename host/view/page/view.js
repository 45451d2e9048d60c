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
	/** Changes when all panels must be drawn again. */
	version: 0,
};

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
