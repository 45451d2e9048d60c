/** Reads frames: a line of JSON, then the samples. */

const LINE_FEED = 10;
const decoder = new TextDecoder();

/** Splits a message. @param {ArrayBuffer} buffer @returns {Frame} */
export function decodeFrame(buffer) {
	const bytes = new Uint8Array(buffer);
	const end = bytes.indexOf(LINE_FEED);
	const header = JSON.parse(decoder.decode(bytes.subarray(0, end)));
	const payload = bytes.subarray(end + 1);
	if (!Array.isArray(header.result_info) || header.payload_size !== payload.length) {
		throw new Error(`${payload.length} bytes of samples instead of ${header.payload_size}`);
	}
	return { items: header.result_info.flat(), payload };
}

/** How many steps between frames are remembered. */
const REMEMBERED_STEPS = 8;

/** Places frames on an axis of time by their ticks, and finds gaps. */
export class FrameClock {
	/** @param {Clock} session */
	constructor(session) {
		this.ticksPerSecond = session.ticks_per_second;
		this.period = nominalPeriod(session);
		this.last = NaN;
		this.seconds = 0;
		this.frames = 0;
		this.steps = new Float64Array(REMEMBERED_STEPS).fill(Infinity);
	}

	/** Adds a frame. @param {number} tick @param {number} every  one of how many frames arrives @returns {PlacedFrame} */
	add(tick, every = 1) {
		const first = Number.isNaN(this.last);
		const step = this.stepTo(tick);
		const restart = step <= 0 && !first;
		const gap = first || restart || step > this.longest(every);
		this.seconds = restart ? 0 : this.seconds + step;
		if (step > 0) {
			this.steps[this.frames % REMEMBERED_STEPS] = step;
		}
		this.frames += 1;
		return { seconds: this.seconds, gap, restart };
	}

	/** @param {number} tick */
	stepTo(tick) {
		const last = this.last;
		this.last = tick;
		if (Number.isNaN(last)) {
			return 0;
		}
		// Ticks have 32 bits, and begin again at 0.
		return this.ticksPerSecond > 0 ? ((tick - last) | 0) / this.ticksPerSecond : this.period || 1;
	}

	/** The time between two frames as they arrive, in seconds; 0 if unknown. */
	get spacing() {
		const usual = Math.min(...this.steps);
		return Math.max(this.period, usual === Infinity ? 0 : usual);
	}

	/** The longest step without a gap, in seconds. A slow server leaves out frames regularly: then the shortest recent
	 * step is the period. @param {number} every */
	longest(every) {
		return this.period === 0 ? 8 * (this.spacing || Infinity) : 1.5 * Math.max(this.spacing, every * this.period);
	}
}

/** Seconds between two frames; 0 if unknown. @param {Clock} session */
export function nominalPeriod(session) {
	if (session.tick_period && session.ticks_per_second > 0) {
		return session.tick_period / session.ticks_per_second;
	}
	return session.rate > 0 ? 1 / session.rate : 0;
}
