/** What is computed from samples, as in `vantor plot`. */

/** Fewest sweeps of a frame for a velocity map. */
export const FEWEST_SWEEPS = 4;

/** Most sweeps that are transformed together. */
const LONGEST_SEGMENT = 128;

/** The level of an amplitude, in dBFS. An amplitude below 0.1 counts as 0.1.
 * @param {number} amplitude @param {number} fullScale */
export function dbfs(amplitude, fullScale) {
	return 20 * Math.log10(Math.max(amplitude, 0.1) / fullScale);
}

/** Where the samples of an item are. @param {Item} item @param {number} offset  first sample in a frame */
export function layoutOf(item, offset) {
	const distances = new Float64Array(item.points);
	const steps = new Float64Array(item.points);
	for (const part of item.subsweeps) {
		for (let i = 0; i < part.points; i++) {
			distances[part.offset + i] = part.start_m + i * part.step_m;
			steps[part.offset + i] = part.step_m;
		}
	}
	return { item, offset, points: item.points, sweeps: item.sweeps, distances, steps };
}

/** @param {Item[]} items  in the order of the payload */
export function layoutsOf(items) {
	let offset = 0;
	return items.map((item) => {
		const layout = layoutOf(item, offset);
		offset += item.points * item.sweeps;
		return layout;
	});
}

/** The mean amplitude of each point over the sweeps of a frame, in LSB.
 * @param {Int16Array} samples @param {Layout} layout @param {Float64Array} levels  the result */
export function meanLevels(samples, { points, sweeps, offset }, levels) {
	levels.fill(0);
	for (let sweep = 0, at = 2 * offset; sweep < sweeps; sweep++) {
		for (let i = 0; i < points; i++, at += 2) {
			levels[i] += Math.sqrt(samples[at] * samples[at] + samples[at + 1] * samples[at + 1]) / sweeps;
		}
	}
}

/** The mean sample of a point over the sweeps of a frame: its phase in radians, and its amplitude.
 * @param {Int16Array} samples @param {Layout} layout @param {number} point */
export function meanAt(samples, { points, sweeps, offset }, point) {
	let re = 0;
	let im = 0;
	for (let sweep = 0; sweep < sweeps; sweep++) {
		const at = 2 * (offset + sweep * points + point);
		re += samples[at];
		im += samples[at + 1];
	}
	return [Math.atan2(im, re), Math.hypot(re, im) / sweeps];
}

/** The step between two phases: less than half a turn. @param {number} from @param {number} to */
export function phaseStep(from, to) {
	const turn = 2 * Math.PI;
	return to - from - turn * Math.round((to - from) / turn);
}

/** Displacement for a radian; positive: away. @param {Item} item */
export function millimetresPerRadian(item) {
	return (1000 * item.wavelength_m) / (4 * Math.PI);
}

/** @param {Numbers} values @param {number} wanted */
export function nearest(values, wanted) {
	return greatest(Float64Array.from(values, (value) => -Math.abs(value - wanted)));
}

/** @param {Numbers} values */
export function greatest(values) {
	let best = 0;
	for (let i = 1; i < values.length; i++) {
		best = values[i] > values[best] ? i : best;
	}
	return best;
}

/** Level over velocity and distance, from the sweeps of one frame. */
export class VelocityMap {
	/** @param {Layout} layout */
	constructor(layout) {
		this.layout = layout;
		this.length = Math.min(layout.sweeps, LONGEST_SEGMENT);
		this.re = new Float64Array(this.length);
		this.im = new Float64Array(this.length);
		this.powers = new Float64Array(this.length);
		this.cos = this.re.map((_, n) => Math.cos((2 * Math.PI * n) / this.length));
		this.sin = this.re.map((_, n) => -Math.sin((2 * Math.PI * n) / this.length));
		this.window = this.re.map((_, n) => 0.5 - 0.5 * Math.cos((2 * Math.PI * (n + 0.5)) / this.length));
		this.tonePower = this.window.reduce((sum, weight) => sum + weight, 0) ** 2;
		/** In dBFS: the points at the lowest velocity first. */
		this.levels = new Float32Array(this.length * layout.points);
		this.velocities = velocitiesOf(this.length, layout.item.max_velocity_sweeps);
	}

	/** @param {Int16Array} samples */
	compute(samples) {
		const { length, powers, layout: { points, sweeps, item } } = this;
		const segments = Math.floor(sweeps / length);
		for (let point = 0; point < points; point++) {
			powers.fill(0);
			for (let segment = 0; segment < segments; segment++) {
				this.addPowers(samples, segment * length, point);
			}
			for (let k = 0; k < length; k++) {
				this.levels[k * points + point] = dbfs(Math.sqrt(powers[k] / segments / this.tonePower), item.full_scale);
			}
		}
	}

	/** Adds the powers of a segment of sweeps at a point, from the lowest frequency.
	 * @param {Int16Array} samples @param {number} sweep  the first one @param {number} point */
	addPowers(samples, sweep, point) {
		const { length, re, im, cos, sin, layout: { points, offset } } = this;
		for (let n = 0; n < length; n++) {
			const at = 2 * (offset + (sweep + n) * points + point);
			re[n] = this.window[n] * samples[at];
			im[n] = this.window[n] * samples[at + 1];
		}
		for (let k = 0; k < length; k++) {
			const step = (k + Math.ceil(length / 2)) % length;
			let sumRe = 0;
			let sumIm = 0;
			for (let n = 0, turn = 0; n < length; n++) {
				sumRe += re[n] * cos[turn] - im[n] * sin[turn];
				sumIm += re[n] * sin[turn] + im[n] * cos[turn];
				turn += turn + step < length ? step : step - length;
			}
			this.powers[k] += sumRe * sumRe + sumIm * sumIm;
		}
	}

	/** The velocity with the highest level at a point, in m/s. @param {number} point */
	peakAt(point) {
		return this.velocities[greatest(this.velocities.map((_, k) => this.levels[k * this.layout.points + point]))];
	}
}

/** The velocities of a spectrum, in m/s. @param {number} length @param {number} bound  of those not ambiguous */
export function velocitiesOf(length, bound) {
	const centre = Math.floor(length / 2);
	return Float64Array.from({ length }, (_, k) => (2 * bound * (k - centre)) / length);
}
