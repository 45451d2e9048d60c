/** The plot of phase and displacement over time, at cursor A. */
import { roomyRange } from './axes.js';
import { Chart } from './chart.js';
import { theme } from './colours.js';
import { millimetresPerRadian } from './mathematics.js';
import { GAP } from './ring.js';
import { view } from './view.js';

/** The narrowest range, in radians: noise does not look like a signal. */
const NARROWEST = 0.5;

/** Most phases in the line. */
const MOST_PHASES = 4000;

export class PhasePlot {
	/** @param {HTMLElement} host @param {Panel} panel */
	constructor(host, panel) {
		this.panel = panel;
		this.analysis = panel.analysis;
		this.shown = -1;
		this.time = NaN;
		this.chart = new Chart(host, { x: 'time in s', y: 'phase in rad', right: 'displacement in mm' }, () => this.paint());
	}

	/** Draws if the line moved by a pixel: between that, nobody can see a difference.
	 * @param {number} shown @param {boolean} always */
	draw(shown, always) {
		const time = this.analysis.ring.time(shown);
		const pixel = view.seconds / this.chart.plot.bbox.width;
		if (always || !(Math.abs(time - this.time) < pixel)) {
			this.time = time;
			this.shown = shown;
			this.chart.setRange('x', [-view.seconds, 0]);
			this.setRange();
			this.chart.redraw();
		}
	}

	/** Number of the first frame in the plot. */
	get first() {
		return this.analysis.ring.at(this.time - view.seconds);
	}

	/** Widens the range if needed; makes it narrower only if much of it is empty, so that it is calm. */
	setRange() {
		let low = Infinity;
		let high = -Infinity;
		for (let n = this.first; n <= this.shown; n++) {
			const phase = this.analysis.phase(n);
			low = phase < low ? phase : low;
			high = phase > high ? phase : high;
		}
		const old = this.chart.ranges.y;
		if (!old || low < old[0] || high > old[1] || old[1] - old[0] > 3 * Math.max(high - low, NARROWEST)) {
			const range = roomyRange(low, high, NARROWEST);
			const scale = millimetresPerRadian(this.analysis.layout.item);
			this.chart.setRange('y', range);
			this.chart.setRange('right', [range[0] * scale, range[1] * scale]);
		}
	}

	paint() {
		this.chart.inside((to) => {
			this.chart.stroke(this.path(to), theme.trace, 1.5);
			this.panel.eachCursor(({ seconds }, colour, name) =>
				seconds !== null && this.chart.mark(name, colour, to.x(seconds - this.time), null));
		});
	}

	/** @param {ToPixels} to */
	path(to) {
		const { ring, index } = this.analysis;
		const path = new Path2D();
		const step = Math.ceil((this.shown - this.first) / MOST_PHASES) || 1;
		let broken = true;
		for (let n = this.first; n <= this.shown; n += step) {
			const value = this.analysis.phase(n);
			const gap = broken || (ring.marksOf(n, index) & GAP) !== 0;
			broken = Number.isNaN(value);
			if (!broken) {
				path[gap ? 'moveTo' : 'lineTo'](to.x(ring.time(n) - this.time), to.y(value));
			}
		}
		return path;
	}
}
