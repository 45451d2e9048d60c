/** A plot: uPlot draws axes and grid, its owner the rest. */
import { textsOf, ticksOf } from './axes.js';
import { theme } from './colours.js';
import { FONT, MARGIN } from './view.js';

/** Below this height, there is room only for units. */
const LOW_HEIGHT = 130;

/** @param {string} label @param {string} scale @param {number} space @param {ChartAxis} more @returns {ChartAxis} */
function axisOf(label, scale, space, more) {
	return {
		label, scale, font: FONT, labelFont: FONT, labelGap: 0, gap: 2,
		splits: (plot, _axis, low, high) =>
			ticksOf([low, high], (scale === 'x' ? plot.bbox.width : plot.bbox.height) / devicePixelRatio / space),
		values: (_plot, ticks) => textsOf(ticks),
		stroke: () => theme.faint,
		grid: { stroke: () => theme.grid, width: 1 },
		ticks: { stroke: () => theme.grid, width: 1, size: 4 },
		...more,
	};
}

export class Chart {
	/** @param {HTMLElement} host @param {string[]} labels @param {() => void} draw */
	constructor(host, labels, draw) {
		this.host = host;
		this.labels = labels;
		/** @type {{[scale: string]: Span}} */
		this.ranges = {};
		const axes = [axisOf(labels[0], 'x', 60, { size: 19, labelSize: 13 }),
			axisOf(labels[1], 'y', 26, { size: MARGIN.left - 15, labelSize: 15 })];
		if (labels[2]) {
			const sizes = { size: MARGIN.right - 18, labelSize: 18 };
			axes.push(axisOf(labels[2], 'right', 26, { side: 1, grid: { show: false }, ...sizes }));
		}
		this.plot = new uPlot({
			width: 200, height: 100, padding: [MARGIN.top, labels[2] ? 0 : MARGIN.right, 0, 0],
			cursor: { show: false }, legend: { show: false },
			scales: { x: { time: false, auto: false }, y: { auto: false }, right: { auto: false } },
			series: [{}, { scale: 'y' }, { scale: 'right' }],
			axes,
			hooks: { draw: [() => this.ranges.x && this.ranges.y && draw()] },
		}, [[0, 1], [null, null], [null, null]], host);
	}

	resize() {
		const { clientWidth: width, clientHeight: height } = this.host;
		if (width > 0 && (width !== this.plot.width || height !== this.plot.height)) {
			this.plot.setSize({ width, height });
			this.showLabels();
		}
	}

	showLabels() {
		this.plot.axes.forEach((axis, i) => {
			const label = this.labels[i];
			axis.label = i > 0 && this.plot.height < LOW_HEIGHT ? label.split(' ').pop() : label;
		});
		this.plot.redraw(false, true);
	}

	/** @param {'x' | 'y' | 'right'} scale @param {Span} range */
	setRange(scale, range) {
		const old = this.ranges[scale];
		if (old?.[0] !== range[0] || old[1] !== range[1]) {
			this.ranges[scale] = range;
			this.plot.setScale(scale, { min: range[0], max: range[1] });
		}
	}

	redraw() {
		this.plot.redraw(false);
	}

	/** Draws inside the axes only. @param {DrawInside} draw */
	inside(draw) {
		const { ctx, bbox } = this.plot;
		const { x: [x0, x1], y: [y0, y1] } = this.ranges;
		ctx.save();
		ctx.beginPath();
		ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
		ctx.clip();
		draw({
			x: (value) => bbox.left + ((value - x0) / (x1 - x0)) * bbox.width,
			y: (value) => bbox.top + ((y1 - value) / (y1 - y0)) * bbox.height,
		}, ctx, bbox);
		ctx.restore();
	}

	/** @param {Path2D} path @param {string} colour @param {number} width  in CSS pixels @param {number[]} dashes */
	stroke(path, colour, width, dashes = []) {
		const { ctx } = this.plot;
		ctx.strokeStyle = colour;
		ctx.lineWidth = width * devicePixelRatio;
		ctx.setLineDash(dashes.map((dash) => dash * devicePixelRatio));
		ctx.stroke(path);
	}

	/** Draws a cursor. @param {string} name @param {string} colour
	 * @param {number | null} x @param {number | null} y  in pixels of the canvas; null for no line */
	mark(name, colour, x, y) {
		const { ctx, bbox } = this.plot;
		const path = new Path2D();
		if (x !== null) {
			path.moveTo(x, bbox.top);
			path.lineTo(x, bbox.top + bbox.height);
		}
		if (y !== null) {
			path.moveTo(bbox.left, y);
			path.lineTo(bbox.left + bbox.width, y);
		}
		this.stroke(path, theme.back, 2.5);
		this.stroke(path, colour, 1.2, [4, 3]);
		const size = 12 * devicePixelRatio;
		ctx.font = `${size}px system-ui, sans-serif`;
		ctx.textAlign = 'center';
		ctx.textBaseline = 'middle';
		const left = Math.min(x ?? bbox.left, bbox.left + bbox.width - size);
		const top = bbox.top + (name === 'A' ? 0 : size);
		ctx.fillStyle = colour;
		ctx.fillRect(left, top, size, size);
		ctx.fillStyle = theme.back;
		ctx.fillText(name, left + size / 2, top + size / 2);
	}
}
