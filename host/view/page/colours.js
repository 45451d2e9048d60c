/** The colours of levels and of the page. */

/** Steps of the colour map, even in lightness (Oklab): from dark blue over green to light yellow. */
const STEPS = ['19053f', '132560', '00467b', '00698c', '008b90', '00ab89', '56c677', 'abdb5f', 'f6ea4d'];

/** The map for a style sheet. */
export const GRADIENT = `linear-gradient(to top, #${STEPS.join(', #')})`;

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

/** @param {CanvasRenderingContext2D} context @param {Box} box */
export function fillColours(context, { left, top, width, height }) {
	const gradient = context.createLinearGradient(0, top + height, 0, top);
	STEPS.forEach((step, i) => gradient.addColorStop(i / (STEPS.length - 1), `#${step}`));
	context.fillStyle = gradient;
	context.fillRect(left, top, width, height);
}

/** Turns levels in dBFS into pixels. A level that is not a number leaves the pixel transparent.
 * @param {ArrayLike<number>} levels @param {Uint32Array} pixels @param {number} offset @param {Span} range */
export function paint(levels, pixels, offset, [low, high]) {
	for (let i = 0; i < levels.length; i++) {
		const index = Math.min(Math.max(((levels[i] - low) / (high - low)) * 255, 0), 255);
		pixels[offset + i] = Number.isNaN(index) ? 0 : COLOURS[Math.floor(index)];
	}
}

/** Colours of the page, from the style sheet, which knows whether it is dark. @type {{[name: string]: string}} */
export const theme = {};

export function readTheme() {
	const style = getComputedStyle(document.documentElement);
	for (const name of ['text', 'faint', 'grid', 'back', 'live', 'held', 'mean', 'trace', 'a', 'b']) {
		theme[name] = style.getPropertyValue(`--${name}`).trim();
	}
}
