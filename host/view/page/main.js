/** Connects messages, panels and pictures. */
import { app, send } from './app.js';
import { board } from './board.js';
import { readTheme } from './colours.js';
import { Connection } from './connection.js';
import { Editor } from './editor.js';
import { decodeFrame, FrameClock, nominalPeriod } from './frames.js';
import { addLine } from './log.js';
import { layoutsOf } from './mathematics.js';
import { countPicture, numbers, pictureRate } from './numbers.js';
import { Panel } from './panel.js';
import { FrameRing } from './ring.js';
import { isLost, showFigure, showNothing, showState } from './state.js';
import { askEvery, freeze, showTimeline, startTimeline } from './timeline.js';
import { showToolbar, startToolbar } from './toolbar.js';
import { above, box, button, element, setCutText, view } from './view.js';

/** Least milliseconds between two pictures, for 60 a second. */
const PICTURE_PERIOD = 15;

/** Milliseconds for which a note remains. */
const NOTE_PERIOD = 8000;

const main = box('panels');
const editor = new Editor(send);
let lastPicture = 0;
let lastText = 0;
let done = '';
let doneTime = 0;
let trouble = '';

/** Of the frame that follows. @type {Truth['items']} */
let truth = [];

/** @param {Session} session */
function startSession(session) {
	const [old, now] = [app.session, session].map((one) => JSON.stringify([one?.items, one?.rate]));
	const { ring } = app;
	// The page of several boards goes to a place without frames.
	const jumped = app.hello?.kind === 'recording' && session.number > (app.session?.number ?? 0);
	app.session = session;
	app.clock = new FrameClock(session);
	editor.changed &&= app.state?.controls ?? true;
	editor.offer(session.configuration);
	if (old !== now || jumped || !ring || ring.last < ring.first) {
		build(session);
	}
}

/** The time of the first frame of a session, after those before it. @param {FrameRing} ring @param {Frame} frame */
function resumed(ring, { items: [item] }) {
	const { last } = ring;
	const pause = (item?.utc_s ?? NaN) - ring.utc(last) || (performance.now() - ring.arrivals[ring.slot(last)]) / 1000;
	return last < ring.first ? 0 : ring.time(last) + Math.max(pause, 0);
}

/** @param {Session} session */
function build(session) {
	const { items } = session;
	const layouts = layoutsOf(items);
	const bytes = items.reduce((sum, item) => sum + 4 * item.points * item.sweeps, 0);
	const ring = new FrameRing(bytes, nominalPeriod(session), items.length);
	app.panels.forEach(({ root, charts }) => {
		looker.unobserve(root);
		charts.forEach(({ plot }) => plot.destroy());
	});
	main.replaceChildren();
	button('truth').hidden = true;
	app.ring = ring;
	app.panels = layouts.map((layout, index) => new Panel(main, layout, ring, index));
	app.panels.forEach(({ root }) => looker.observe(root));
	if (items.length === 0) {
		main.append(element('p', '', 'This session measures nothing: add an item to the configuration.'));
	}
	freeze(false);
	resize();
}

/** @param {ArrayBuffer} data */
function receiveFrame(data) {
	const { ring, clock } = app;
	try {
		const frame = decodeFrame(data);
		if (!ring || !clock || frame.payload.length !== ring.frameBytes || frame.items.length !== ring.items) {
			throw new Error('not of this session');
		}
		if (clock.frames === 0) {
			clock.seconds = resumed(ring, frame);
		}
		const { seconds, gap, restart } = clock.add(frame.items[0]?.tick ?? 0, view.every);
		if (restart) {
			ring.clear();
			app.panels.forEach((panel) => panel.recolour());
		}
		ring.push(frame, seconds, gap, performance.now(), truth);
	} catch {
		app.unreadable += 1;
	}
	truth = [];
}

/** @param {Message} message */
function receiveText(message) {
	switch (message.type) {
		case 'hello':
			app.hello = message;
			editor.schema = message.schema;
			setCutText(box('name'), above && message.id ? `${message.name} ${message.id}` : message.name);
			setCutText(box('source'), message.source);
			askEvery();
			document.title = `${message.name} – vantor view`;
			break;
		case 'session':
			startSession(message);
			break;
		case 'state':
			receiveState(message);
			break;
		case 'log':
			addLine(message);
			break;
		case 'truth':
			truth = message.items;
			button('truth').hidden = false;
			break;
		case 'checked':
			editor.checked(message);
			break;
		case 'done':
			editor.changed = editor.changed && message.for !== 'apply';
			note(message.for === 'every' ? '' : message.text);
			break;
		case 'failed':
			// Faults are shown in the form, until they are corrected.
			note(message.faults ? '' : message.message);
			if (message.for === 'apply') {
				editor.show(message.message, message.faults ?? [], []);
			}
			break;
	}
}

/** @param {State} state */
function receiveState(state) {
	app.state = state;
	trouble = isLost() ? `The connection to the server is lost${state.reason ? ` (${state.reason})` : ''}. Connecting again.` : '';
	showState(state);
	showFigure('unreadable', app.unreadable > 0 ? String(app.unreadable) : '', true);
	showFigure('pictures', `${pictureRate()} /s`);
	showToolbar(state);
	showNotes();
}

/** @param {string} reason */
function closed(reason) {
	app.state = null;
	trouble = `No connection to vantor view${reason ? `: ${reason}` : ''}. If you start it again, open the address that it prints.`;
	showNothing();
	showToolbar(null);
	showNotes();
}

/** @param {string} text */
function note(text) {
	done = text;
	doneTime = performance.now();
	showNotes();
}

/** Shows what was done, is wrong, or is to do. */
function showNotes() {
	const { state } = app;
	const advice = state?.calibration_needed ? 'The temperature changed: calibrate again.' : '';
	setCutText(box('done'), performance.now() - doneTime < NOTE_PERIOD ? done : '');
	setCutText(box('notes'), trouble || (state?.controls === false
		? `You are watching; ${state.controller ? `viewer ${state.controller}` : 'nobody'} controls. ${advice}` : advice));
	box('notice').hidden = box('notes').textContent === '';
	document.body.classList.toggle('lost', isLost());
}

/** @param {number} now */
function picture(now) {
	requestAnimationFrame(picture);
	if (now - lastPicture < PICTURE_PERIOD || !app.clock) {
		return;
	}
	const period = app.clock.spacing || 0.05;
	const drawn = app.panels.filter((panel) => panel.visible && panel.draw(now, period));
	if (drawn.length > 0) {
		const { arrival } = drawn[0];
		lastPicture = now;
		// uPlot draws in microtasks that are queued before this one.
		queueMicrotask(() => countPicture(arrival, performance.now()));
	}
	if (now - lastText > 200) {
		lastText = now;
		showTimeline();
	}
}

function resize() {
	main.classList.toggle('large', app.panels.length === 1 || main.clientWidth < 1000);
	app.panels.filter(({ visible }) => visible).forEach((panel) => panel.resize());
}

const looker = new IntersectionObserver((entries) => {
	for (const { target, isIntersecting } of entries) {
		const panel = app.panels.find(({ root }) => root === target);
		if (panel) {
			panel.visible = isIntersecting;
		}
	}
	resize();
}, { root: main });

readTheme();
startToolbar();
startTimeline();
matchMedia('(prefers-color-scheme: dark)').onchange = () => {
	readTheme();
	app.panels.forEach((panel) => panel.restyle());
};
new ResizeObserver(resize).observe(main);
document.body.classList.toggle('below', above !== null);
window.vantor = { numbers, board };
app.connection = new Connection(`${location.origin.replace('http', 'ws')}/stream${location.search}`, {
	text: receiveText, frame: receiveFrame, closed,
});
requestAnimationFrame(picture);
