/** Levels in the unit that a person chose. */
import { view } from './view.js';

/** The lowest level that is shown, in dBFS; 0 in LSB. */
export const LOWEST = -110;

/** A level in dBFS, or in LSB. @param {number} level  in dBFS @param {number} fullScale */
export function inUnit(level, fullScale) {
	return view.unit === 'dBFS' ? level : level > LOWEST ? fullScale * 10 ** (level / 20) : 0;
}

/** A moment with as many digits as bounds need. @param {number} utc  in seconds */
export function dateAndTime(utc) {
	const seconds = Math.round(utc * 1e4) / 1e4;
	return new Date(1000 * Math.floor(seconds)).toISOString().slice(0, 19).replace('T', ' ') + (seconds % 1).toFixed(4).slice(1);
}

/** @param {number} utc  in seconds */
export const timeOfDay = (utc) => dateAndTime(utc).slice(11);

/** A bound that includes the rounding of the time. @param {number} bound  in seconds */
export function boundText(bound) {
	return `± ${(Math.ceil(bound * 1e4 + 0.5) / 10).toFixed(1)} ms`;
}

/** The unit of a difference of levels. */
export function unitOfDifference() {
	return view.unit === 'dBFS' ? 'dB' : 'LSB';
}
