/** The line of time: the last minute of a server, or a whole recording. */
import { fixed } from './axes.js';
import { app, send } from './app.js';
import { isLost, timeText } from './state.js';
import { dateAndTime } from './units.js';
import { above, box, button, byId, fill, fillSpeeds, fillWindows, input, redraw, setText, view } from './view.js';

const scrub = input('scrub');
const speed = byId('speed', HTMLSelectElement);
const every = byId('every', HTMLSelectElement);

export function startTimeline() {
	fillSpeeds(1, (value) => send({ type: 'speed', value }));
	fillWindows((value) => {
		view.seconds = value;
		redraw();
	});
	fill(every, 1, [1, 2, 5, 10, 20], (n) => (n > 1 ? `1 of ${n} frames` : 'all frames'), askEvery);
	scrub.oninput = () => (isRecording() ? seek : showAge)(Math.abs(Number(scrub.value)));
	scrub.onchange = () => isRecording() && seek(Number(scrub.value), view.seconds);
	button('live').onclick = () => goToEnd(true);
	button('pause').onclick = toggle;
}

/** Asks for all frames or some of them. */
export function askEvery() {
	view.every = Number(every.value);
	send({ type: 'every', frames: view.every });
}

function isRecording() {
	return app.hello?.kind === 'recording';
}

/** @param {number} frame @param {number} before  how much of the time before is shown, in seconds */
function seek(frame, before = 0) {
	send({ type: 'seek', frame: Math.round(frame), before });
}

/** Stops or continues the picture, or the recording. */
function toggle() {
	if (above) {
		above.toggle();
	} else if (!isRecording()) {
		freeze(!view.frozen);
	} else if (app.state?.position) {
		send({ type: app.state.connection === 'playing' ? 'pause' : 'play' });
	}
}

/** @param {boolean} frozen */
export function freeze(frozen) {
	if (frozen && !view.frozen) {
		view.at = app.ring?.last ?? -1;
	}
	view.frozen = frozen;
	redraw();
	showTimeline();
}

/** @param {number} age  in seconds */
function showAge(age) {
	freeze(true);
	if (app.ring && app.ring.last >= app.ring.first) {
		view.at = app.ring.at(app.ring.time(app.ring.last) - age);
	}
	redraw();
}

/** @param {number} seconds */
export function scroll(seconds) {
	const { ring, state } = app;
	if (above) {
		above.scroll(seconds);
	} else if (isRecording() && state?.position) {
		const { frame, frames, duration } = state.position;
		seek(Math.min(Math.max(frame + (seconds * frames) / Math.max(duration, 1e-9), 0), frames - 1), view.seconds);
	} else if (ring) {
		const shown = view.frozen ? Math.max(view.at, ring.first) : ring.last;
		showAge(Math.max(ring.time(ring.last) - ring.time(shown) - seconds, 0));
	}
}

/** Goes to an end of the line. @param {boolean} last */
export function goToEnd(last) {
	const { position } = app.state ?? {};
	if (above) {
		above.goToEnd(last);
	} else if (isRecording() && position) {
		seek(last ? position.frames - 1 : 0, view.seconds);
	} else if (last) {
		freeze(false);
	} else {
		showAge(Infinity);
	}
}

export function showTimeline() {
	const recording = isRecording();
	const playing = recording ? app.state?.connection === 'playing' : !view.frozen;
	setText(button('pause'), playing ? 'Pause' : recording ? 'Play' : 'Continue');
	button('pause').ariaPressed = String(!playing);
	button('live').hidden = recording;
	speed.hidden = !recording;
	if (recording) {
		showPosition(app.state?.position);
	} else if (app.ring && app.ring.last >= app.ring.first) {
		showLive(app.ring);
	}
}

/** @param {Position | null | undefined} position */
function showPosition(position) {
	if (!position) {
		return;
	}
	scrub.min = '0';
	scrub.max = String(position.frames - 1);
	scrub.disabled = !app.state?.controls;
	scrub.value = scrub.matches(':active') ? scrub.value : String(position.frame);
	speed.value = String(position.speed);
	setText(box('time'), `${fixed(position.seconds, 2)} of ${fixed(position.duration, 2)} s`);
}

/** @param {FrameRing} ring */
function showLive(ring) {
	const shown = view.frozen ? Math.max(view.at, ring.first) : ring.last;
	const isGone = view.frozen && view.at < shown;
	const age = ring.time(ring.last) - ring.time(shown);
	scrub.min = String(Math.min(ring.time(ring.first) - ring.time(ring.last), -1));
	scrub.max = '0';
	scrub.value = String(-age);
	setText(box('time'), isGone ? `more than ${fixed(age, 0)} s ago` : view.frozen ? `${fixed(age, 1)} s ago (${fixed(ring.time(shown), 2)} s)`
		: `${isLost() ? 'stopped' : 'live'} (${fixed(ring.time(shown), 1)} s)`);
}

/** The moment that is shown: in the session, and by the clock if that is known. */
export function momentText() {
	const [panel] = app.panels;
	const { seconds } = app.state?.position ?? { seconds: panel?.time ?? NaN };
	const clock = isRecording() ? Date.parse(app.hello?.recorded ?? '') + 1000 * seconds : performance.timeOrigin + (panel?.arrival ?? NaN);
	const day = Number.isNaN(clock) ? 'unknown time' : `${new Date(clock).toISOString().slice(0, 19).replace('T', ' ')} UTC`;
	return `${fixed(seconds, 2)} s  ·  ${timeText(dateAndTime) || day}`;
}
