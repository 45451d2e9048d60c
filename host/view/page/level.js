/** The plot of level over distance: live, held maximum and mean. */
import { distanceRange, levelRange } from './axes.js';
import { Chart } from './chart.js';
import { theme } from './colours.js';
import { dbfs, meanLevels } from './mathematics.js';
import { RangeBar } from './range.js';
import { markDistances } from './truth.js';
import { inUnit, LOWEST } from './units.js';
import { view } from './view.js';

export class LevelPlot {
	/** @param {HTMLElement} host @param {Panel} panel */
	constructor(host, panel) {
		this.panel = panel;
		this.analysis = panel.analysis;
		this.layout = panel.layout;
		this.live = new Float64Array(this.layout.points);
		this.held = new Float64Array(this.layout.points);
		this.mean = new Float64Array(this.layout.points);
		this.chart = new Chart(host, ['distance in m', 'level in dBFS'], () => this.paint());
		this.chart.setRange('x', distanceRange(this.layout));
		this.bar = new RangeBar(host, 'level', this.layout, false, () => panel.touch());
	}

	/** Takes the levels of a frame. @param {number} number @param {boolean} final  whether an automatic range remains */
	take(number, final) {
		const { analysis } = this;
		if (analysis.valid(number)) {
			meanLevels(analysis.ring.frame(number), this.layout, this.live);
		}
		if (!view.frozen) {
			this.held.set(analysis.hold);
			analysis.sum.forEach((sum, i) => { this.mean[i] = sum / Math.max(analysis.count, 1); });
		}
		this.bar.offer(() => this.automaticRange(), final);
	}

	/** @returns {Span} */
	automaticRange() {
		const { full_scale: scale } = this.layout.item;
		return view.unit === 'LSB' ? [LOWEST, Math.ceil(dbfs(Math.max(...this.held), scale) + 1)]
			: levelRange([...this.mean, ...this.held].map((level) => dbfs(level, scale)));
	}

	/** Shows another unit. */
	restyle() {
		this.chart.labels[1] = `level in ${view.unit}`;
	}

	draw() {
		const { full_scale: scale } = this.layout.item;
		const [low, high] = this.bar.range;
		this.chart.setRange('y', [inUnit(low, scale), inUnit(high, scale)]);
		this.chart.redraw();
	}

	paint() {
		const { chart } = this;
		chart.inside((to) => {
			if (view.hold) {
				chart.stroke(this.path(this.held, to), theme.held, 1);
			}
			if (view.mean) {
				chart.stroke(this.path(this.mean, to), theme.mean, 1);
			}
			chart.stroke(this.path(this.live, to), theme.live, 1.5);
			markDistances(this.panel, chart, to);
			this.panel.mark(chart, to, false);
		});
	}

	/** @param {Float64Array} levels @param {ToPixels} to */
	path(levels, to) {
		const { distances, item } = this.layout;
		const path = new Path2D();
		const y = (/** @type {number} */ i) => to.y(view.unit === 'dBFS' ? dbfs(levels[i], item.full_scale) : levels[i]);
		for (const { offset, points } of item.subsweeps) {
			const wide = points === 1 ? 6 : 0;
			path.moveTo(to.x(distances[offset]) - wide, y(offset));
			path.lineTo(to.x(distances[offset]) + wide, y(offset));
			for (let i = offset + 1; i < offset + points; i++) {
				path.lineTo(to.x(distances[i]), y(i));
			}
		}
		return path;
	}
}
