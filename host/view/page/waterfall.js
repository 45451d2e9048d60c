/** Level over distance and time: a row for each frame, in a ring. */
import { Columns, distanceRange, levelRange } from './axes.js';
import { Chart } from './chart.js';
import { paint } from './colours.js';
import { dbfs, meanLevels } from './mathematics.js';
import { RangeBar } from './range.js';
import { markTracks } from './truth.js';
import { contextOf, element, view } from './view.js';

/** Most rows; more frames share a row. */
const MOST_ROWS = 1024;

export class Waterfall {
	/** @param {HTMLElement} host @param {Panel} panel */
	constructor(host, panel) {
		this.panel = panel;
		this.analysis = panel.analysis;
		this.layout = panel.layout;
		this.columns = new Columns(this.layout);
		this.levels = new Float64Array(this.layout.points);
		this.means = new Float32Array(this.columns.count);
		this.row = new ImageData(this.columns.count, 1);
		this.pixels = new Uint32Array(this.row.data.buffer);
		this.canvas = element('canvas');
		this.context = contextOf(this.canvas);
		/** Rows written so far. */
		this.written = 0;
		this.seconds = 0;
		this.rowSeconds = 0;
		this.rows = 0;
		this.last = 0;
		this.lastTime = 0;
		this.chart = new Chart(host, ['distance in m', 'time in s'], () => this.paint());
		this.chart.setRange('x', distanceRange(this.layout));
		this.bar = new RangeBar(host, 'colour', this.layout, true, () => panel.recolour());
	}

	get size() {
		return 4 * this.canvas.width * this.canvas.height + 8 * this.layout.points + 12 * this.columns.count;
	}

	/** Sets the time of a row. @param {number} period  seconds between two frames
	 * @returns {boolean} whether the rows must be written again */
	fit(period) {
		const seconds = Math.max(period, view.seconds / MOST_ROWS);
		const other = view.seconds !== this.seconds || Math.abs(seconds / this.rowSeconds - 1) > 0.2;
		if (other) {
			this.seconds = view.seconds;
			this.rowSeconds = seconds;
			this.rows = Math.max(2, Math.round(view.seconds / seconds));
			this.canvas.width = this.columns.count;
			this.canvas.height = this.rows;
		}
		return other;
	}

	/** Sets automatic colours from the mean amplitudes. @param {boolean} final */
	offer(final) {
		const { count, sum } = this.analysis;
		return this.bar.offer(() => levelRange(sum.map((s) => dbfs(s / count, this.layout.item.full_scale))), final);
	}

	/** @param {number} number */
	rewrite(number) {
		const { ring } = this.analysis;
		this.context.clearRect(0, 0, this.canvas.width, this.canvas.height);
		const from = ring.at(ring.time(number) - view.seconds);
		this.lastTime = ring.time(from);
		for (let n = from; n <= number; n++) {
			this.write(n);
		}
	}

	/** Writes the row of a frame, and those since the frame before. @param {number} number */
	write(number) {
		const { analysis } = this;
		const steps = Math.round((analysis.ring.time(number) - this.lastTime) / this.rowSeconds);
		const gap = analysis.gap(number);
		this.paintRow(number);
		for (let i = Math.max(steps - this.rows, 0); i < steps; i++) {
			this.last += 1;
			if (gap) {
				this.context.clearRect(0, this.rowY(this.last), this.columns.count, 1);
			} else {
				this.context.putImageData(this.row, 0, this.rowY(this.last));
			}
		}
		this.lastTime += steps * this.rowSeconds;
		this.context.putImageData(this.row, 0, this.rowY(this.last));
		this.written += 1;
	}

	/** @param {number} row */
	rowY(row) {
		return this.rows - 1 - (row % this.rows);
	}

	/** @param {number} number */
	paintRow(number) {
		const { analysis, means, levels, columns, layout } = this;
		meanLevels(analysis.ring.frame(number), layout, levels);
		for (let i = 0; i < means.length; i++) {
			means[i] = analysis.valid(number) ? columns.mean(levels, i) : NaN;
			means[i] = means[i] >= 0 ? dbfs(means[i], layout.item.full_scale) : NaN;
		}
		paint(means, this.pixels, 0, this.bar.range);
	}

	draw() {
		this.chart.setRange('y', [-view.seconds, 0]);
		this.chart.redraw();
	}

	/** Draws the rows in two pieces of the ring. */
	paint() {
		this.chart.inside((to, context, { left, top: edge, width, height }) => {
			const { ring, shown, time } = this.panel;
			const top = edge + ((time - ring.time(shown)) / view.seconds) * height;
			context.imageSmoothingEnabled = this.rows > height;
			const newest = this.rowY(this.last);
			const row = height / this.rows;
			const { count } = this.columns;
			const upper = this.rows - newest;
			context.drawImage(this.canvas, 0, newest, count, upper, left, top, width, upper * row);
			context.drawImage(this.canvas, 0, 0, count, newest, left, top + upper * row, width, newest * row);
			markTracks(this.panel, this.chart, to);
			this.panel.mark(this.chart, to, true);
		});
	}
}
