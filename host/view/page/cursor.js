/** Two cursors, A and B, and what they read. */
import { fixed } from './axes.js';
import { dbfs, meanLevels, millimetresPerRadian } from './mathematics.js';
import { inUnit, timeOfDay, unitOfDifference } from './units.js';
import { view } from './view.js';

export class Cursors {
	/** @param {Analysis} analysis */
	constructor(analysis) {
		this.analysis = analysis;
		/** @type {number | null} */
		this.secondsA = null;
		/** @type {Cursor | null} */
		this.b = null;
		this.levels = new Float64Array(analysis.layout.points);
	}

	/** Where the phase is measured. @returns {Cursor} */
	get a() {
		return { point: this.analysis.point, seconds: this.secondsA };
	}

	/** Places a cursor; what is null remains.
	 * @param {'a' | 'b'} which @param {number | null} point @param {number | null} seconds */
	place(which, point, seconds) {
		const old = (which === 'b' && this.b) || this.a;
		const last = this.analysis.layout.points - 1;
		const placed = { point: Math.min(Math.max(point ?? old.point, 0), last), seconds: seconds ?? old.seconds };
		if (which === 'b') {
			this.b = placed;
			return;
		}
		this.secondsA = placed.seconds;
		if (placed.point !== this.analysis.point || !this.analysis.chosen) {
			this.analysis.setPoint(placed.point);
		}
	}

	clear() {
		this.b = null;
		this.secondsA = null;
	}

	/** What a cursor reads: at its time, or in the frame that is shown if that is earlier.
	 * @param {Cursor | null} cursor @param {number} shown @param {number} time  at the right edge */
	read(cursor, shown, time = this.analysis.ring.time(shown)) {
		const { ring, layout } = this.analysis;
		if (!cursor || shown < ring.first || shown > ring.last) {
			return null;
		}
		const { full_scale } = layout.item;
		const number = cursor.seconds === null ? shown : Math.min(ring.at(cursor.seconds), shown);
		meanLevels(ring.frame(number), layout, this.levels);
		return {
			metres: layout.distances[cursor.point],
			level: inUnit(dbfs(this.levels[cursor.point], full_scale), full_scale),
			seconds: ring.time(number) - time,
			utc: cursor.seconds === null ? NaN : ring.utc(number),
			displacement: cursor.point === this.analysis.point ? this.analysis.phase(number) * millimetresPerRadian(layout.item) : NaN,
		};
	}
}

/** @param {Reading | null} a @param {Reading | null} b */
export function describe(a, b) {
	return [textOf(a, view.unit), textOf(b, view.unit), textOf(a && b && difference(a, b), unitOfDifference())];
}

/** @param {Reading | null} reading @param {string} unit */
function textOf(reading, unit) {
	return reading ? `${fixed(reading.metres, 3)} m  ${fixed(reading.level, 1)} ${unit}  ${fixed(reading.seconds, 2)} s${
		Number.isNaN(reading.utc) ? '' : `  ${timeOfDay(reading.utc)} UTC`}${Number.isNaN(reading.displacement) ? '' : `  ${fixed(reading.displacement, 3)} mm`}` : '–';
}

/** @param {Reading} a @param {Reading} b */
export function difference(a, b) {
	const minus = (/** @type {keyof Reading} */ name) => b[name] - a[name];
	return { metres: minus('metres'), level: minus('level'), seconds: minus('seconds'), utc: NaN, displacement: minus('displacement') };
}
