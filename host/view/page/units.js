/** Levels in the unit that a person chose. */
import { view } from './view.js';

/** The lowest level that is shown, in dBFS; 0 in LSB. */
export const LOWEST = -110;

/** A level in dBFS, or in LSB. @param {number} level  in dBFS @param {number} fullScale */
export function inUnit(level, fullScale) {
	return view.unit === 'dBFS' ? level : level > LOWEST ? fullScale * 10 ** (level / 20) : 0;
}

/** The unit of a difference of levels. */
export function unitOfDifference() {
	return view.unit === 'dBFS' ? 'dB' : 'LSB';
}
