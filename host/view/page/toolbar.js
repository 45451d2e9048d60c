/** The buttons, and the keys that press them. */
import { app, send } from './app.js';
import { savePicture } from './picture.js';
import { bytesText, countText, showFigure } from './state.js';
import { showUnseen } from './log.js';
import { goToEnd, momentText, scroll } from './timeline.js';
import { box, button, byId, element, input, redraw, setText, view } from './view.js';

/** Keys; those of the buttons follow. */
const KEYS = [
	['1 … 9', 'Choose a panel'], ['z', 'Show only the chosen panel, or all'],
	['← →', 'Move cursor A by a point; with Shift: cursor B'], ['↑ ↓', 'The same by a frame in time'],
	['Home', 'Show the oldest frame that is kept, or the first one of a recording'],
	['x', 'Remove cursor B and the times'], ['[ ]', 'Scroll by a second; with Shift: by 10 s'], ['Esc', 'Close what is open'],
];

export function startToolbar() {
	for (const name of /** @type {const} */ (['hold', 'mean', 'truth'])) {
		button(name).onclick = () => {
			view[name] = !view[name];
			button(name).ariaPressed = String(view[name]);
			document.body.classList.toggle(`no${name}`);
			redraw();
		};
	}
	button('unit').onclick = () => {
		view.unit = view.unit === 'dBFS' ? 'LSB' : 'dBFS';
		setText(button('unit'), view.unit);
		app.panels.forEach((panel) => {
			panel.restyle();
			panel.level.bar.setAutomatic();
		});
	};
	button('reset').onclick = () => app.panels.forEach((panel) => panel.analysis.reset());
	button('range').onclick = () => app.panels.forEach((panel) => panel.setAutomatic());
	button('png').onclick = () => {
		const { name = '', version = '', source = '' } = app.hello ?? {};
		savePicture([name, momentText(), `vantor ${version}`, source].join('  ·  '));
	};
	startCommands();
	startDrawers();
	document.addEventListener('keydown', press);
	// Otherwise, the space bar would press it again, and the keys of a list would choose from it.
	document.addEventListener('click', ({ detail, target }) =>
		detail > 0 && target instanceof Element && target.closest('button')?.blur());
	document.addEventListener('change', ({ target }) => target instanceof HTMLSelectElement && target.blur());
}

function startCommands() {
	button('record').onclick = () => {
		const name = input('recordName').value.trim();
		send(app.state?.recorder ? { type: 'stop_recording' } : { type: 'record', ...(name && { name }) });
	};
	button('keep').onclick = () => send({ type: 'keep', seconds: Number(input('seconds').value) });
	button('calibrate').onclick = () => send({ type: 'calibrate' });
	button('control').onclick = () => send({ type: 'take_control' });
}

function startDrawers() {
	for (const [name, id] of [['configure', 'configuration'], ['log', 'messages']]) {
		button(name).onclick = () => {
			box(id).hidden = !box(id).hidden;
			button(name).ariaExpanded = String(!box(id).hidden);
			showUnseen();
		};
	}
	for (const part of document.querySelectorAll('button')) {
		const key = part.dataset.key?.replace(' ', 'Space');
		if (key) {
			KEYS.push([key, part.title]);
			part.title += ` (${key})`;
		}
	}
	box('keyList').append(...KEYS.flatMap(([key, text]) => [element('dt', '', key), element('dd', '', text)]));
	const keys = byId('keys', HTMLDialogElement);
	button('help').onclick = () => (keys.open ? keys.close() : keys.showModal());
}

/** Shows what a viewer may do, and the recording. @param {State | null} state  null without a connection */
export function showToolbar(state) {
	const recorder = state?.recorder ?? null;
	const watching = !state?.controls || app.hello?.kind === 'recording';
	for (const name of ['record', 'keep', 'calibrate', 'apply']) {
		button(name).disabled = watching;
	}
	byId('fields', HTMLFieldSetElement).disabled = watching;
	button('control').hidden = !state || state.controls;
	button('calibrate').hidden = !state?.calibration_needed;
	setText(button('record'), recorder ? 'Stop' : 'Record');
	showFigure('recorder', !recorder ? '' : recorder.failure ?? `${countText(recorder.frames)} frames, ${countText(recorder.missing)
		} lost, ${bytesText(recorder.bytes)} in ${recorder.directory.split('/').pop()}`, Boolean(recorder?.failure || recorder?.missing));
	button('record').ariaPressed = String(recorder !== null);
}

/** @param {KeyboardEvent} event */
function press(event) {
	const { target, key } = event;
	if (event.ctrlKey || event.altKey || event.metaKey) {
		return;
	}
	if (key === 'Escape') {
		escape();
	} else if (!(target instanceof Element && target.closest('input:not([type=range]), select')) && act(event)) {
		event.preventDefault();
	}
}

function escape() {
	byId('keys', HTMLDialogElement).close();
	['configure', 'log'].map(button).forEach((open) => open.ariaExpanded === 'true' && open.click());
	/** @type {HTMLElement | null} */ (document.activeElement)?.blur();
}

/** @type {Moves} */
const MOVES = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] };

/** @type {Scrolls} */
const SCROLLS = { '[': -1, ']': 1, '{': -10, '}': 10 };

/** Keys that go to an end of the line of time. */
const ENDS = ['Home', 'End'];

/** Does what a key is for, if anything. @param {KeyboardEvent} event */
function act({ key, shiftKey, target }) {
	const panel = app.panels.find(({ root }) => root.contains(document.activeElement)) ?? app.panels[0];
	const pressed = document.querySelector(`button[data-key="${CSS.escape(key)}"]`);
	if (target instanceof HTMLInputElement && (key in MOVES || (ENDS.includes(key) && target.id !== 'scrub'))) {
		return false;
	}
	if (key in MOVES) {
		panel?.moveCursor(shiftKey ? 'b' : 'a', ...MOVES[key]);
	} else if (key in SCROLLS) {
		scroll(SCROLLS[key]);
	} else if (ENDS.includes(key)) {
		goToEnd(key === 'End');
	} else if (key >= '1' && key <= '9') {
		app.panels[Number(key) - 1]?.root.focus();
	} else if (key === 'x') {
		panel?.cursors.clear();
		panel?.touch();
	} else if (key === 'z') {
		app.panels.forEach((other) => { other.root.hidden = other !== panel && !other.root.hidden; });
	} else if (pressed instanceof HTMLButtonElement && !pressed.hidden && !(key === ' ' && target instanceof HTMLButtonElement)) {
		pressed.click();
	} else {
		return false;
	}
	return true;
}
