/** The plot of phase and displacement over time, at cursor A. */
import { roomyRange } from './axes.js';
import { Chart } from './chart.js';
import { theme } from './colours.js';
import { millimetresPerRadian } from './mathematics.js';
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
		this.chart = new Chart(host, ['time in s', 'phase in rad', 'displacement in mm'], () => this.paint());
	}

	/** Draws if the line moved by a pixel.
	 * @param {number} shown @param {boolean} always */
	draw(shown, always) {
		const { time } = this.panel;
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

	/** Widens the range if needed; narrows it only if much of it is empty. */
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
			this.chart.stroke(this.path(to, false), theme.noise, 1.5);
			this.chart.stroke(this.path(to, true), theme.trace, 1.5);
			this.panel.eachCursor(({ seconds }, colour, name) =>
				seconds !== null && this.chart.mark(name, colour, to.x(seconds - this.time), null));
		});
	}

	/** @param {ToPixels} to @param {boolean} sure  only where it is certain */
	path(to, sure) {
		const { ring, certain } = this.analysis;
		const path = new Path2D();
		const step = Math.ceil((this.shown - this.first) / MOST_PHASES) || 1;
		let broken = true;
		for (let n = this.first; n <= this.shown; n += step) {
			const value = this.analysis.phase(n);
			const gap = broken || this.analysis.gap(n);
			broken = Number.isNaN(value) || (sure && !certain[ring.slot(n)]);
			if (!broken) {
				path[gap ? 'moveTo' : 'lineTo'](to.x(ring.time(n) - this.time), to.y(value));
			}
		}
		return path;
	}
}
