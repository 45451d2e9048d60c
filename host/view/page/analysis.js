/** The levels of one item, and the phase at a point. */
import { greatest, meanAt, meanLevels, phaseStep } from './mathematics.js';
import { GAP, INVALID } from './ring.js';

/** After this many frames, strongest echo and ranges are fixed. */
export const SETTLED_FRAMES = 8;

/** The phase is that of an echo if its amplitude is this many times its usual change from frame to frame. */
const CERTAIN = 5;

/** Over how many changes the usual one is the mean. */
const CHANGES = 16;

export class Analysis {
	/** @param {Layout} layout @param {FrameRing} ring @param {number} index  of the item in a frame */
	constructor(layout, ring, index) {
		this.layout = layout;
		this.ring = ring;
		this.index = index;
		/** Mean amplitude of each point in the latest frame, in LSB. */
		this.levels = new Float64Array(layout.points);
		this.hold = new Float64Array(layout.points);
		this.sum = new Float64Array(layout.points);
		/** Unwrapped phase in radians at the point in each frame; NaN in one that is not valid. */
		this.phases = new Float64Array(ring.capacity);
		/** Whether the phase is that of an echo, and turned by less than a quarter. */
		this.certain = new Uint8Array(ring.capacity);
		/** Frames in the held maximum and the mean. */
		this.count = 0;
		this.next = ring.first;
		this.point = 0;
		this.chosen = false;
		this.turned = 0;
		this.previous = NaN;
		this.amplitude = 0;
		/** Mean square of the last changes of the amplitude, and their number. */
		this.change = 0;
		this.changes = 0;
	}

	reset() {
		this.hold.fill(0);
		this.sum.fill(0);
		this.count = 0;
	}

	/** Adds the frames that arrived since the last call. @param {TakeNumber} each */
	catchUp(each) {
		for (let number = Math.max(this.next, this.ring.first); number <= this.ring.last; number++) {
			this.next = number + 1;
			this.consume(number);
			each(number);
		}
	}

	/** @param {number} number */
	valid(number) {
		return (this.ring.marksOf(number, this.index) & INVALID) === 0;
	}

	/** @param {number} number */
	gap(number) {
		return (this.ring.marksOf(number, this.index) & GAP) !== 0;
	}

	/** @param {number} number */
	consume(number) {
		if (this.valid(number)) {
			meanLevels(this.ring.frame(number), this.layout, this.levels);
			this.count += 1;
			this.levels.forEach((level, i) => {
				this.sum[i] += level;
				this.hold[i] = Math.max(this.hold[i], level);
			});
			this.choosePoint();
		}
		this.follow(number);
	}

	/** Follows the strongest echo until it is known, or a person chose a point. */
	choosePoint() {
		if (!this.chosen && (this.count === 1 || this.count === SETTLED_FRAMES)) {
			this.setPoint(greatest(this.sum), this.count === SETTLED_FRAMES);
		}
	}

	/** Adds the phase of a frame. It begins at 0 again after a gap.
	 * @param {number} number */
	follow(number) {
		const [phase, amplitude] = this.valid(number) ? meanAt(this.ring.frame(number), this.layout, this.point) : [NaN, NaN];
		const first = this.gap(number) || Number.isNaN(this.previous);
		const step = first ? 0 : phaseStep(this.previous, phase);
		this.turned = first ? 0 : this.turned + step;
		if (!Number.isNaN(this.turned) && !first) {
			this.changes = Math.min(this.changes + 1, CHANGES);
			this.change += ((amplitude - this.amplitude) ** 2 - this.change) / this.changes;
		}
		const slot = this.ring.slot(number);
		this.phases[slot] = Number.isNaN(phase) ? NaN : this.turned;
		this.certain[slot] = Number(this.changes > 0 && amplitude > CERTAIN * Math.sqrt(this.change) && Math.abs(step) < Math.PI / 2);
		this.previous = phase;
		this.amplitude = amplitude;
	}

	/** Measures the phase at another point. @param {number} point @param {boolean} chosen  whether it remains */
	setPoint(point, chosen = true) {
		this.chosen = this.chosen || chosen;
		this.point = point;
		this.changes = 0;
		this.previous = NaN;
		for (let number = this.ring.first; number < this.next; number++) {
			this.follow(number);
		}
	}

	/** @param {number} number */
	phase(number) {
		return number >= this.ring.first && number < this.next ? this.phases[this.ring.slot(number)] : NaN;
	}
}
