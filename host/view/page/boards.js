/** The page of several boards: the page of each, on one axis of time. */
import { fixed } from './axes.js';
import { boundText, dateAndTime, timeOfDay } from './units.js';
import { box, button, byId, element, fillSpeeds, fillWindows, input, setText } from './view.js';

const scrub = input('scrub');
const speed = byId('speed', HTMLSelectElement);
/** @type {HTMLIFrameElement[]} */
const frames = [];
/** @type {Shown} */
const shown = { frozen: false, edge: NaN, seconds: 20 };
let lastText = 0;
/** The moment at 0 of the line of time, in UTC. */
let origin = NaN;

/** @returns {Board[]} */
const boards = () => frames.flatMap(({ contentWindow }) => contentWindow?.vantor?.board ?? []);

/** @param {Board[]} all @returns {Moments[]} */
const momentsOf = (all) => all.flatMap((board) => board.moments() ?? []);

/** Of the boards with known time; without any, NaN. @param {Moments[]} all */
function ends(all) {
	const [first, last] = [Math.min(...all.map((one) => one.first)), Math.max(...all.map((one) => one.last))];
	return all.length > 0 ? { first, last } : { first: NaN, last: NaN };
}

/** The place in a recording of all boards; null for servers. */
function position() {
	const found = boards().find((board) => board.state()?.position)?.state();
	return found?.position ? { ...found.position, playing: found.connection === 'playing' } : null;
}

/** Asks for something that concerns the recording of all boards. @param {JsonObject} message */
function send(message) {
	boards().find((board) => board.state()?.controls)?.send(message);
}

/** @param {number} utc @param {number} before  how much of the time before is shown, in seconds */
function seek(utc, before = shown.seconds) {
	send({ type: 'seek', utc_s: utc, before });
}

/** @param {number} utc */
function freezeAt(utc) {
	const { first, last } = ends(momentsOf(boards()));
	shown.frozen = true;
	shown.edge = Math.min(Math.max(utc, first), last);
}

function toggle() {
	const place = position();
	if (place) {
		send({ type: place.playing ? 'pause' : 'play' });
	} else {
		shown.frozen = !shown.frozen;
	}
	showTexts();
}

/** @param {number} seconds */
function scroll(seconds) {
	const place = position();
	if (place) {
		seek((place.utc_s ?? NaN) + seconds);
	} else {
		freezeAt(shown.edge + seconds);
	}
}

/** @param {boolean} last */
function goToEnd(last) {
	const place = position();
	if (place) {
		seek((last ? place.end_utc_s : place.begin_utc_s) ?? NaN);
	} else if (last) {
		shown.frozen = false;
	} else {
		freezeAt(-Infinity);
	}
}

/** @param {number} number  from 1 */
function addBoard(number) {
	const frame = element('iframe');
	frame.src = `/${location.search}&board=${number}`;
	frame.title = `Board ${number}`;
	frames.push(frame);
	box('boards').append(frame);
}

/** @param {number} now */
function picture(now) {
	requestAnimationFrame(picture);
	const all = boards();
	for (const count = all[0]?.hello()?.boards ?? 1; frames.length < count;) {
		addBoard(frames.length + 1);
	}
	if (!shown.frozen) {
		shown.edge = ends(momentsOf(all)).last;
	}
	all.forEach((board) => board.show(shown));
	if (now - lastText > 200) {
		lastText = now;
		showTexts();
	}
}

function showTexts() {
	const all = boards();
	const moments = momentsOf(all);
	const unknown = frames.length - moments.length;
	const bound = Math.max(...moments.map((one) => one.bound).filter((one) => one > 0));
	const place = position();
	const playing = place ? place.playing : !shown.frozen;
	setText(box('name'), `${frames.length} boards`);
	setText(box('moment'), shown.edge ? `${dateAndTime(shown.edge)} UTC ${bound > 0 ? boundText(bound) : ''}` : 'unknown');
	setText(box('notes'), unknown > 0 ? `time of ${unknown} of ${frames.length} boards unknown: they show their latest frames` : '');
	setText(button('pause'), playing ? 'Pause' : place ? 'Play' : 'Continue');
	button('pause').ariaPressed = String(!playing);
	button('live').hidden = speed.hidden = place !== null;
	speed.hidden = !place;
	if (place?.utc_s && place.begin_utc_s && place.end_utc_s) {
		speed.value = String(place.speed);
		scrub.disabled = !all.some((board) => board.state()?.controls);
		showScrub(place.begin_utc_s, [place.begin_utc_s, place.end_utc_s], place.utc_s);
		setText(box('time'), `${fixed(place.utc_s - place.begin_utc_s, 2)} of ${fixed(place.end_utc_s - place.begin_utc_s, 2)} s`);
	} else if (moments.length > 0) {
		const { first, last } = ends(moments);
		showScrub(last, [first, last], shown.edge);
		setText(box('time'), shown.frozen ? `${fixed(last - shown.edge, 1)} s ago (${timeOfDay(shown.edge)})` : 'live');
	}
}

/** @param {number} zero @param {Span} range @param {number} utc  all in seconds */
function showScrub(zero, range, utc) {
	origin = zero;
	[scrub.min, scrub.max] = range.map((end) => String(end - zero));
	scrub.value = scrub.matches(':active') ? scrub.value : String(utc - zero);
}

/** Keys that act on all boards together. @type {{[key: string]: () => void}} */
const KEYS = {
	' ': toggle, '[': () => scroll(-1), ']': () => scroll(1), '{': () => scroll(-10), '}': () => scroll(10),
	Home: () => goToEnd(false), End: () => goToEnd(true),
};

/** Other keys go to each board. @param {KeyboardEvent} event */
function press(event) {
	const { key, shiftKey, target } = event;
	const isOwn = target instanceof HTMLSelectElement || (target === scrub && key.startsWith('Arrow'))
		|| (target instanceof HTMLButtonElement && key === ' ');
	if (event.ctrlKey || event.altKey || event.metaKey || isOwn) {
		return;
	}
	if (key in KEYS) {
		event.preventDefault();
		KEYS[key]();
	} else {
		frames.forEach(({ contentDocument }) => contentDocument?.dispatchEvent(new KeyboardEvent('keydown', { key, shiftKey })));
	}
}

window.vantorBoards = { toggle, scroll, goToEnd };
window.vantor = {
	numbers: () => ({ ...shown, boards: frames.map(({ contentWindow }) => contentWindow?.vantor?.numbers() ?? null) }),
};
fillSpeeds(1, (value) => send({ type: 'speed', value }));
fillWindows((value) => { shown.seconds = value; });
button('pause').onclick = toggle;
button('live').onclick = () => goToEnd(true);
scrub.oninput = () => (position() ? seek(origin + Number(scrub.value), 0) : freezeAt(origin + Number(scrub.value)));
scrub.onchange = () => position() && seek(origin + Number(scrub.value));
document.addEventListener('keydown', press);
// Otherwise, the space bar would press it again.
document.addEventListener('click', ({ detail, target }) => detail > 0 && target instanceof HTMLButtonElement && target.blur());
addBoard(1);
requestAnimationFrame(picture);
