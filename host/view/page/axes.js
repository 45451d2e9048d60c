/** Ranges, ticks and columns of axes. */

/** A round step. @param {number} width @param {number} most */
export function roundStep(width, most) {
	const least = width / Math.max(most, 1);
	const power = 10 ** Math.floor(Math.log10(least));
	return ([1, 2, 5].find((factor) => factor * power >= least * 0.999999) ?? 10) * power;
}

/** @param {Span} range @param {number} most */
export function ticksOf([low, high], most) {
	const step = roundStep(high - low, most);
	const first = Math.ceil(low / step - 1e-9);
	const count = Math.floor(high / step + 1e-9) - first + 1;
	return high > low ? Array.from({ length: count }, (_, k) => (first + k) * step) : [];
}

/** @param {number[]} ticks */
export function textsOf(ticks) {
	const digits = ticks.length > 1 ? Math.max(0, -Math.floor(Math.log10(ticks[1] - ticks[0]) + 1e-9)) : 0;
	return ticks.map((tick) => fixed(tick, digits));
}

/** A number with a true minus sign. @param {number} value @param {number} digits */
export function fixed(value, digits) {
	const text = value.toFixed(digits);
	return !Number.isFinite(value) ? '–' : Number(text) === 0 ? text.replace('-', '') : text.replace('-', '−');
}

/** Half a step beyond the points. @param {Layout} layout @returns {Span} */
export function distanceRange({ distances, steps }) {
	const low = Math.min(...distances.map((distance, i) => distance - steps[i] / 2));
	const high = Math.max(...distances.map((distance, i) => distance + steps[i] / 2));
	return [low, high > low ? high : low + 0.001];
}

/** The columns of a picture over distance. */
export class Columns {
	/** @param {Layout} layout @param {number} most  columns */
	constructor(layout, most = 1024) {
		const [low, high] = distanceRange(layout);
		const step = Math.min(...layout.steps.filter(Boolean), high - low);
		this.count = Math.max(1, Math.min(most, Math.round((high - low) / step)));
		/** First and last point of a column; -1 if the item does not measure there. */
		this.from = new Int32Array(this.count).fill(-1);
		this.to = new Int32Array(this.count).fill(-1);
		const width = (high - low) / this.count;
		for (const part of layout.item.subsweeps) {
			this.from.forEach((_, column) => this.cover(part, column, low + column * width, width));
		}
	}

	/** A column shows the points in it, or else the one whose half step reaches its middle.
	 * @param {SubSweep} part @param {number} column @param {number} begin @param {number} width */
	cover({ offset, points, start_m: start, step_m: step }, column, begin, width) {
		const place = (begin - start) / (step || width);
		const size = width / (step || width);
		let first = Math.ceil(place - 1e-6);
		let last = Math.ceil(place + size - 1e-6) - 1;
		if (last < first) {
			first = last = Math.round(place + size / 2);
		}
		if (this.from[column] < 0 && last >= 0 && first < points) {
			this.from[column] = offset + Math.max(0, first);
			this.to[column] = offset + Math.min(points - 1, last);
		}
	}

	/** The mean of the values of the points in a column; NaN if there is none.
	 * @param {Numbers} values @param {number} column @param {number} offset  of the first point */
	mean(values, column, offset = 0) {
		const from = this.from[column];
		let sum = from < 0 ? NaN : 0;
		for (let i = from; i <= this.to[column] && from >= 0; i++) {
			sum += values[offset + i];
		}
		return sum / (this.to[column] - from + 1);
	}
}

/** A range with room for noise and signal, in steps of 5 dB.
 * @param {Numbers} levels @returns {Span} */
export function levelRange(levels) {
	const sorted = Float64Array.from(levels).filter(Number.isFinite).sort();
	if (sorted.length === 0) {
		return [-80, 0];
	}
	const low = 5 * Math.floor((sorted[Math.floor(sorted.length * 0.05)] - 6) / 5);
	return [low, Math.max(5 * Math.ceil((sorted[sorted.length - 1] + 6) / 5), low + 30)];
}

/** @param {number} low @param {number} high @param {number} narrowest @returns {Span} */
export function roomyRange(low, high, narrowest) {
	const margin = Math.max((narrowest - (high - low)) / 2, (high - low) * 0.15);
	return Number.isFinite(margin) ? [low - margin, high + margin] : [-narrowest / 2, narrowest / 2];
}
