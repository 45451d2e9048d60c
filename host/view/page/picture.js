/** Saves what the panels show as a picture, whose name states when that was done. */
import { theme } from './colours.js';
import { box, contextOf, download, element, FONT } from './view.js';

/** @param {string} title */
export function savePicture(title) {
	const panels = box('panels');
	const bounds = panels.getBoundingClientRect();
	const time = new Date().toISOString().slice(0, 19);
	const canvas = element('canvas');
	canvas.width = bounds.width * devicePixelRatio;
	canvas.height = (bounds.height + 24) * devicePixelRatio;
	const context = contextOf(canvas);
	context.scale(devicePixelRatio, devicePixelRatio);
	context.fillStyle = theme.back;
	context.fillRect(0, 0, bounds.width, bounds.height + 24);
	context.font = FONT;
	context.textBaseline = 'middle';
	context.fillStyle = theme.text;
	context.fillText(title, 10, 12, bounds.width - 20);
	context.translate(-bounds.left, 24 - bounds.top);
	for (const part of panels.querySelectorAll('canvas')) {
		const { left, top, width, height } = part.getBoundingClientRect();
		context.drawImage(part, left, top, width, height);
	}
	drawTexts(panels, context);
	canvas.toBlob((blob) => blob && download(`vantor-${time.replaceAll(':', '-')}.png`, blob));
}

/** Draws all texts in place. @param {HTMLElement} root @param {CanvasRenderingContext2D} context */
function drawTexts(root, context) {
	const walker = document.createTreeWalker(root, NodeFilter.SHOW_TEXT);
	const range = new Range();
	while (walker.nextNode()) {
		const { currentNode: { parentElement, textContent } } = walker;
		range.selectNode(walker.currentNode);
		const { left, top, height } = range.getBoundingClientRect();
		if (parentElement && height > 0) {
			context.fillStyle = getComputedStyle(parentElement).color;
			context.fillText(textContent ?? '', left, top + height / 2);
		}
	}
}
