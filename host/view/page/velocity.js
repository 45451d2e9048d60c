/** The picture of level over distance and velocity. */
import { Columns, distanceRange, levelRange } from './axes.js';
import { Chart } from './chart.js';
import { paint } from './colours.js';
import { VelocityMap } from './mathematics.js';
import { RangeBar } from './range.js';
import { markVelocities } from './truth.js';
import { contextOf, element } from './view.js';

export class VelocityPicture {
	/** @param {HTMLElement} host @param {Panel} panel */
	constructor(host, panel) {
		const { layout } = panel;
		this.map = new VelocityMap(layout);
		this.columns = new Columns(layout);
		const { length, velocities } = this.map;
		this.image = new ImageData(this.columns.count, length);
		this.pixels = new Uint32Array(this.image.data.buffer);
		this.row = new Float32Array(this.columns.count);
		this.canvas = element('canvas');
		this.canvas.width = this.columns.count;
		this.canvas.height = length;
		this.context = contextOf(this.canvas);
		this.chart = new Chart(host, ['distance in m', 'velocity in m/s'], () =>
			this.chart.inside((to, context, { left, top, width, height }) => {
				context.imageSmoothingEnabled = false;
				context.drawImage(this.canvas, left, top, width, height);
				markVelocities(panel, this.chart, to);
				panel.mark(this.chart, to, false);
			}));
		const half = layout.item.max_velocity_sweeps / length;
		this.chart.setRange('x', distanceRange(layout));
		this.chart.setRange('y', [velocities[0] - half, velocities[length - 1] + half]);
		this.bar = new RangeBar(host, 'velocity colour', layout, true, () => panel.touch());
	}

	get size() {
		return this.map.levels.byteLength + 2 * this.pixels.byteLength;
	}

	/** @param {Int16Array} samples @param {boolean} final  whether automatic colours remain */
	draw(samples, final) {
		const { map, columns, row } = this;
		map.compute(samples);
		this.bar.offer(() => levelRange(map.levels), final);
		for (let k = 0; k < map.length; k++) {
			for (let i = 0; i < row.length; i++) {
				row[i] = columns.mean(map.levels, i, k * map.layout.points);
			}
			paint(row, this.pixels, (map.length - 1 - k) * row.length, this.bar.range);
		}
		this.context.putImageData(this.image, 0, 0);
		this.chart.redraw();
	}
}
