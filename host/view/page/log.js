/** The last lines of the server's log. */
import { box, button, element, setText } from './view.js';

const MOST_LINES = 500;
let lines = 0;
let unseen = 0;

/** @param {Log} log */
export function addLine({ level, text }) {
	const list = box('lines');
	const bottom = list.scrollTop + list.clientHeight > list.scrollHeight - 20;
	const old = lines < MOST_LINES ? null : list.firstElementChild;
	const line = old instanceof HTMLElement ? old : element('li');
	line.className = level;
	setText(line, `${new Date().toLocaleTimeString('en-GB')}  ${level.padEnd(7)}  ${text}`);
	list.append(line);
	lines += old ? 0 : 1;
	if (bottom) {
		list.scrollTop = list.scrollHeight;
	}
	unseen += box('messages').hidden && (level === 'error' || level === 'warning') ? 1 : 0;
	showUnseen();
}

export function showUnseen() {
	unseen = box('messages').hidden ? unseen : 0;
	setText(button('log'), unseen > 0 ? `Log (${unseen})` : 'Log');
}
