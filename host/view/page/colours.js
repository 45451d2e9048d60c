/** The colours of levels and of the page. */
import { contextOf } from './view.js';

/** Steps of the colour map, even in lightness (Oklab). */
const STEPS = ['19053f', '132560', '00467b', '00698c', '008b90', '00ab89', '56c677', 'abdb5f', 'f6ea4d'];

/** The map as 256 pixels, red in the lowest byte. */
export const COLOURS = Uint32Array.from({ length: 256 }, (_, index) => {
	const place = (index / 255) * (STEPS.length - 1);
	const step = Math.min(Math.floor(place), STEPS.length - 2);
	const part = (/** @type {number} */ from) => {
		const [a, b] = [STEPS[step], STEPS[step + 1]].map((text) => parseInt(text.slice(from, from + 2), 16));
		return Math.round(a + (b - a) * (place - step));
	};
	return ((255 << 24) | (part(4) << 16) | (part(2) << 8) | part(0)) >>> 0;
});

/** Draws the map, its highest colour at the top. @param {HTMLCanvasElement} canvas */
export function drawColours(canvas) {
	const image = new ImageData(1, COLOURS.length);
	new Uint32Array(image.data.buffer).set(COLOURS.slice().reverse());
	canvas.width = 1;
	canvas.height = COLOURS.length;
	contextOf(canvas).putImageData(image, 0, 0);
}

/** Turns levels in dBFS into pixels; NaN into a transparent one.
 * @param {Numbers} levels @param {Uint32Array} pixels @param {number} offset @param {Span} range */
export function paint(levels, pixels, offset, [low, high]) {
	for (let i = 0; i < levels.length; i++) {
		const index = Math.min(Math.max(((levels[i] - low) / (high - low)) * 255, 0), 255);
		pixels[offset + i] = Number.isNaN(index) ? 0 : COLOURS[Math.floor(index)];
	}
}

/** Colours of the page, from the style sheet. @type {Names} */
export const theme = {};

export function readTheme() {
	const style = getComputedStyle(document.documentElement);
	for (const name of ['text', 'faint', 'grid', 'back', 'live', 'held', 'mean', 'trace', 'noise', 'truth', 'a', 'b']) {
		theme[name] = style.getPropertyValue(`--${name}`).trim();
	}
}
