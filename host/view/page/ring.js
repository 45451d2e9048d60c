/** The frames of the last minute, in memory of a fixed size. */

/** How long a frame is kept. */
const KEPT_SECONDS = 60;

const MOST_BYTES = 64 * 1024 * 1024;
const MOST_FRAMES = 60 * 1024;

/** Marks of a frame. */
export const GAP = 1;
export const INVALID = 2;

/** @param {number} bytes  of a frame @param {number} period  seconds between two frames; 0 if unknown */
export function capacityFor(bytes, period) {
	const wanted = period > 0 ? Math.ceil(KEPT_SECONDS / period) + 1 : MOST_FRAMES;
	return Math.max(2, Math.min(wanted, MOST_FRAMES, Math.floor(MOST_BYTES / Math.max(bytes, 4))));
}

/** Frames of equal size, numbered from 0; the latest ones remain. */
export class FrameRing {
	/** @param {number} bytes @param {number} period @param {number} items  in a frame */
	constructor(bytes, period, items) {
		this.frameBytes = bytes;
		this.items = items;
		this.capacity = capacityFor(bytes, period);
		this.samples = new Int16Array((this.capacity * bytes) / 2);
		this.bytes = new Uint8Array(this.samples.buffer);
		this.times = new Float64Array(this.capacity);
		this.ticks = new Uint32Array(this.capacity * items);
		this.marks = new Uint8Array(this.capacity * items);
		this.arrivals = new Float64Array(this.capacity);
		/** Of the first item, in seconds; NaN if unknown. */
		this.utcs = new Float64Array(this.capacity);
		this.bounds = new Float64Array(this.capacity);
		/** @type {Truth['items'][]} */
		this.truths = new Array(this.capacity).fill([]);
		this.clear();
	}

	/** Forgets all frames. Their numbers go on. */
	clear() {
		this.end = this.end ?? 0;
		this.start = this.end;
		/** From times to UTC, in seconds; NaN if unknown. */
		this.offset = NaN;
	}

	get first() {
		return Math.max(this.start, this.end - this.capacity);
	}

	/** The latest frame; before `first` if there is none. */
	get last() {
		return this.end - 1;
	}

	get size() {
		return this.samples.byteLength + this.capacity * (32 + 5 * this.items);
	}

	/** @param {number} number */
	slot(number) {
		return number % this.capacity;
	}

	/** @param {Frame} frame @param {number} seconds @param {boolean} gap @param {number} arrival  in milliseconds
	 * @param {Truth['items']} truth */
	push(frame, seconds, gap, arrival, truth = []) {
		const slot = this.slot(this.end);
		this.bytes.set(frame.payload.subarray(0, this.frameBytes), slot * this.frameBytes);
		this.times[slot] = seconds;
		this.arrivals[slot] = arrival;
		this.truths[slot] = truth;
		const utc = frame.items[0]?.utc_s ?? NaN;
		this.utcs[slot] = utc;
		this.offset = Number.isNaN(utc) ? this.offset : utc - seconds;
		this.bounds[slot] = frame.items[0]?.utc_bound_s ?? NaN;
		for (let i = 0; i < this.items; i++) {
			const info = frame.items[i];
			this.ticks[slot * this.items + i] = info.tick;
			this.marks[slot * this.items + i] = (gap ? GAP : 0) | (info.data_valid === false ? INVALID : 0);
		}
		this.end += 1;
	}

	/** The samples of a frame, until it is overwritten. @param {number} number */
	frame(number) {
		const length = this.frameBytes / 2;
		return this.samples.subarray(this.slot(number) * length, (this.slot(number) + 1) * length);
	}

	/** The time of a moment; NaN if that or its relation to the ring is unknown. @param {number} utc  in seconds */
	timeOf(utc) {
		return utc - this.offset;
	}

	/** @param {number} number */
	time(number) {
		return this.times[this.slot(number)];
	}

	/** When a frame was measured, in seconds since 1970; NaN if unknown. @param {number} number */
	utc(number) {
		return this.utcs[this.slot(number)];
	}

	/** How far the true time can be from it, in seconds. @param {number} number */
	bound(number) {
		return this.bounds[this.slot(number)];
	}

	/** @param {number} number @param {number} item */
	marksOf(number, item) {
		return this.marks[this.slot(number) * this.items + item];
	}

	/** @param {number} number @param {number} item */
	tick(number, item) {
		return this.ticks[this.slot(number) * this.items + item];
	}

	/** The targets in a frame, if they are known. @param {number} number @param {number} item @returns {Target[]} */
	targets(number, item) {
		return this.truths[this.slot(number)]?.[item] ?? [];
	}

	/** The latest frame until a time; the oldest one if all are later. @param {number} seconds */
	at(seconds) {
		let low = this.first;
		let high = this.last;
		while (low < high) {
			const middle = Math.ceil((low + high) / 2);
			if (this.time(middle) <= seconds + 1e-6) {
				low = middle;
			} else {
				high = middle - 1;
			}
		}
		return low;
	}
}
