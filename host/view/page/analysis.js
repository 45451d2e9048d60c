/** What is known of one item: its levels, and the phase at one of its points. */
import { greatest, meanLevels, phaseAt, phaseStep } from './mathematics.js';
import { GAP, INVALID } from './ring.js';

/** After this many frames, the strongest echo is known, and automatic ranges remain. */
export const SETTLED_FRAMES = 8;

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
		/** Unwrapped phase at the point in each frame of the ring, in radians; NaN if a frame is not valid. */
		this.phases = new Float64Array(ring.capacity);
		/** Frames in the held maximum and the mean. */
		this.count = 0;
		this.next = ring.first;
		this.point = 0;
		this.chosen = false;
		this.turned = 0;
		this.previous = NaN;
	}

	reset() {
		this.hold.fill(0);
		this.sum.fill(0);
		this.count = 0;
	}

	/** Adds the frames that arrived since the last call. @param {(number: number) => void} each */
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
	consume(number) {
		if (this.valid(number)) {
			meanLevels(this.ring.frame(number), this.layout, this.levels);
			this.count += 1;
			for (let i = 0; i < this.levels.length; i++) {
				this.sum[i] += this.levels[i];
				this.hold[i] = Math.max(this.hold[i], this.levels[i]);
			}
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

	/** Adds the phase of a frame. It begins at 0 again after a gap: nobody knows how far it turned meanwhile.
	 * @param {number} number */
	follow(number) {
		const phase = this.valid(number) ? phaseAt(this.ring.frame(number), this.layout, this.point) : NaN;
		const gap = (this.ring.marksOf(number, this.index) & GAP) !== 0;
		const first = gap || Number.isNaN(this.previous);
		this.turned = first ? 0 : this.turned + phaseStep(this.previous, phase);
		this.phases[this.ring.slot(number)] = Number.isNaN(phase) ? NaN : this.turned;
		this.previous = phase;
	}

	/** Measures the phase at another point. @param {number} point @param {boolean} chosen  whether it remains */
	setPoint(point, chosen = true) {
		this.chosen = this.chosen || chosen;
		this.point = Math.min(Math.max(point, 0), this.layout.points - 1);
		this.turned = 0;
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
