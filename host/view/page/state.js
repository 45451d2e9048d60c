/** The strip of figures. */
import { app } from './app.js';
import { fixed } from './axes.js';
import { boundText, timeOfDay } from './units.js';
import { box, element, setText } from './view.js';

/** @type {Map<string, Cell>} */
const cells = new Map();

/** Whether no frames can arrive. */
export function isLost() {
	return ['lost', 'reconnecting'].includes(app.state?.connection ?? 'lost');
}

/** Shows a figure; hides it without a text. @param {string} name @param {string} text @param {boolean} alarming */
export function showFigure(name, text, alarming = false) {
	let cell = cells.get(name);
	if (!cell) {
		const value = element('span');
		cell = [element('span', 'figure', name, value), value];
		cells.set(name, cell);
		box('figures').append(cell[0]);
	}
	setText(cell[1], text);
	cell[0].title = text;
	cell[0].hidden = text === '';
	cell[0].classList.toggle('alarming', alarming);
}

/** @param {number} bytes */
export function bytesText(bytes) {
	const power = Math.min(3, Math.floor(Math.log10(Math.max(bytes, 1)) / 3));
	return `${fixed(bytes / 1000 ** power, power ? 1 : 0)} ${['B', 'kB', 'MB', 'GB'][power]}`;
}

/** @param {number} count */
export function countText(count) {
	return String(count).replace(/\B(?=(\d{3})+$)/g, '\u2009');
}

/** Shows that nothing is known any more. */
export function showNothing() {
	[...cells.keys()].forEach((name) => showFigure(name, ''));
	showFigure('vantor view', 'not connected', true);
}

/** When the frame that is shown was measured; empty if unknown. @param {(utc: number) => string} text */
export function timeText(text = timeOfDay) {
	const [panel] = app.panels;
	const utc = panel?.ring.utc(panel.shown);
	return utc ? `${text(utc)} UTC ${boundText(panel.ring.bound(panel.shown))}` : '';
}

/** @param {State} state */
export function showState(state) {
	showFigure('vantor view', '');
	showFigure(app.hello?.kind ?? '', state.connection, isLost());
	const due = state.rate_due > 0 ? ` of ${Number(state.rate_due.toFixed(2))}` : '';
	showFigure('rate', `${fixed(state.rate, 1)}${due} /s`, state.rate < 0.9 * state.rate_due);
	showFigure('measured', timeText());
	const { missing: lost, dropped, delayed, saturated, invalid, memory, stack } = state;
	for (const [name, count] of Object.entries({ lost, dropped, delayed, saturated, 'channel busy': invalid })) {
		showFigure(name, countText(count), count > 0);
	}
	showFigure('sensors in °C', state.temperatures.map(({ celsius }) => fixed(celsius, 0)).join('  '));
	showFigure('calibration', state.calibration_needed ? 'needed' : '', true);
	for (const [name, use] of Object.entries({ memory, stack })) {
		showFigure(name, use ? `${bytesText(use.peak)} of ${bytesText(use.size)}` : '');
	}
	showFigure('viewers', `${state.viewers}, you are viewer ${app.hello?.viewer}`);
}
