/** The panel of one item: its plots and its cursors. */
import { Analysis, SETTLED_FRAMES } from './analysis.js';
import { fixed } from './axes.js';
import { theme } from './colours.js';
import { Cursors, describe } from './cursor.js';
import { LevelPlot } from './level.js';
import { FEWEST_SWEEPS, nearest } from './mathematics.js';
import { PhasePlot } from './phase.js';
import { VelocityPicture } from './velocity.js';
import { element, setText, view } from './view.js';
import { Waterfall } from './waterfall.js';

/** Milliseconds between two changes of the texts. */
const TEXT_PERIOD = 200;

export class Panel {
	/** @param {HTMLElement} host @param {Layout} layout @param {FrameRing} ring @param {number} index */
	constructor(host, layout, ring, index) {
		this.layout = layout;
		this.ring = ring;
		this.analysis = new Analysis(layout, ring, index);
		this.cursors = new Cursors(this.analysis);
		this.visible = true;
		/** Pictures drawn, and frames in them. */
		this.pictures = 0;
		this.frames = 0;
		/** The frame that is shown, the time at the right edge in seconds, and the arrival of the frame. */
		this.shown = -1;
		this.time = NaN;
		this.arrival = NaN;
		this.version = -1;
		this.textTime = 0;
		this.read = -1;
		this.readings = ['A', 'B', 'B−A'].map(() => element('span'));
		this.grid = element('div', 'plots');
		this.level = new LevelPlot(this.cell('Level', [['live', 'live'], ['held', 'held maximum'], ['mean', 'mean'], ['truth', 'truth']]), this);
		this.waterfall = new Waterfall(this.cell('Level over time', []), this);
		this.phase = new PhasePlot(this.cell('Phase at A', [['trace', 'positive: away'], ['noise', 'uncertain']]), this);
		this.velocity = layout.sweeps < FEWEST_SWEEPS ? null
			: new VelocityPicture(this.cell('Velocity in a frame', [['', 'positive: away']]), this);
		this.charts.forEach((chart) => this.attach(chart));
		this.root = this.build();
		host.append(this.root);
	}

	build() {
		const { sensor, group, index } = this.layout.item;
		const title = `Sensor ${sensor} (group ${group + 1}, item ${index + 1})`;
		const names = ['A', 'B', 'B−A'].map((name, i) => element('span', `reading ${'abd'[i]}`, name, this.readings[i]));
		const root = element('section', 'item', '', element('header', '', '', element('h2', '', title),
			element('span', 'settings', settingsOf(this.layout)), element('span', 'grow'), ...names), this.grid);
		root.tabIndex = 0;
		root.ariaLabel = title;
		root.classList.toggle('three', !this.velocity);
		return root;
	}

	/** A place for a plot. @param {string} title @param {[string, string][]} keys  class and name of each line */
	cell(title, keys) {
		const host = element('div', 'plot');
		const names = keys.map(([name, text]) => element('span', `key ${name}`, text));
		const caption = element('figcaption', '', title, ...names);
		caption.title = [title, ...keys.map(([, text]) => text)].join(', ');
		this.grid.append(element('figure', '', '', caption, host));
		return host;
	}

	/** Lets a person place cursors. @param {Chart} chart */
	attach(chart) {
		const { host } = chart;
		host.onpointerdown = ({ pointerId }) => host.setPointerCapture(pointerId);
		host.onpointermove = host.onpointerup = (event) => {
			if (host.hasPointerCapture(event.pointerId)) {
				this.place(chart, event);
			}
		};
	}

	/** @param {Chart} chart @param {PointerEvent} event */
	place(chart, { clientX, clientY, shiftKey }) {
		const { left, top, width, height } = chart.plot.bbox;
		const bounds = chart.host.getBoundingClientRect();
		const within = (/** @type {number} */ part) => Math.min(Math.max(part, 0), 1);
		const x = within(((clientX - bounds.left) * devicePixelRatio - left) / width);
		const y = within(((clientY - bounds.top) * devicePixelRatio - top) / height);
		const [low, high] = chart.ranges.x;
		const hasDistance = chart !== this.phase.chart;
		const hasTime = !hasDistance || chart === this.waterfall.chart;
		this.cursors.place(shiftKey ? 'b' : 'a',
			hasDistance ? nearest(this.layout.distances, low + x * (high - low)) : null,
			hasTime ? this.ring.time(this.ring.at(this.time - (hasDistance ? y : 1 - x) * view.seconds)) : null);
		this.touch();
	}

	get charts() {
		return [this.level, this.phase, this.waterfall, this.velocity].flatMap((plot) => (plot ? [plot.chart] : []));
	}

	get size() {
		return 9 * this.ring.capacity + 48 * this.layout.points + this.waterfall.size + (this.velocity?.size ?? 0);
	}

	touch() {
		this.version = -1;
		this.textTime = 0;
	}

	/** Lets the rows be painted again. */
	recolour() {
		this.shown = -1;
		this.touch();
	}

	resize() {
		this.charts.forEach((chart) => chart.resize());
		this.touch();
	}

	get bars() {
		return [this.level, this.waterfall, this.velocity].flatMap((plot) => (plot ? [plot.bar] : []));
	}

	restyle() {
		this.level.restyle();
		this.bars.forEach((bar) => bar.showUnit());
		this.charts.forEach((chart) => chart.showLabels());
		this.touch();
	}

	setAutomatic() {
		this.bars.forEach((bar) => bar.setAutomatic());
	}

	/** Draws what changed. @param {number} now @param {number} period  seconds between frames */
	draw(now, period) {
		const { ring, waterfall, analysis } = this;
		let again = waterfall.fit(period) || this.shown < 0;
		const from = this.shown;
		let written = 0;
		analysis.catchUp((number) => {
			this.frames += 1;
			if (!again && !view.frozen) {
				waterfall.write(number);
				written += 1;
			}
		});
		const shown = view.frozen ? view.at : ring.last;
		const time = ring.timeOf(view.edge) || ring.time(shown);
		if ((shown === from && time === this.time && this.version === view.version && !again) || shown < ring.first || shown > ring.last) {
			this.drawReadings(now, false);
			return false;
		}
		this.shown = shown;
		this.time = time;
		this.arrival = ring.arrivals[ring.slot(shown)];
		const settled = analysis.count >= SETTLED_FRAMES;
		again = (analysis.count > 0 && waterfall.offer(settled)) || again || shown - from !== written;
		if (again) {
			waterfall.rewrite(shown);
		}
		this.drawPlots(now, settled);
		return true;
	}

	/** @param {number} now @param {boolean} settled */
	drawPlots(now, settled) {
		const { shown, ring, velocity } = this;
		const touched = this.version !== view.version;
		this.version = view.version;
		this.pictures += 1;
		this.level.take(shown, settled);
		this.level.draw();
		this.waterfall.draw();
		this.phase.draw(shown, touched);
		velocity?.draw(ring.frame(shown), settled);
		this.drawReadings(now, touched);
	}

	/** @param {DrawCursor} draw */
	eachCursor(draw) {
		draw(this.cursors.a, theme.a, 'A');
		if (this.cursors.b) {
			draw(this.cursors.b, theme.b, 'B');
		}
	}

	/** @param {Chart} chart @param {ToPixels} to @param {boolean} timed  whether the plot is also over time */
	mark(chart, to, timed) {
		this.eachCursor(({ point, seconds }, colour, name) => chart.mark(name, colour, to.x(this.layout.distances[point]),
			timed && seconds !== null ? to.y(seconds - this.time) : null));
	}

	/** @param {number} now @param {boolean} touched */
	drawReadings(now, touched) {
		if (!touched && (this.read === this.shown || now - this.textTime < TEXT_PERIOD)) {
			return;
		}
		this.textTime = now;
		this.read = this.shown;
		const { a, b } = this.cursors;
		describe(this.cursors.read(a, this.shown, this.time), this.cursors.read(b, this.shown, this.time))
			.forEach((text, i) => setText(this.readings[i], text));
	}

	/** @param {'a' | 'b'} which @param {number} points @param {number} frames */
	moveCursor(which, points, frames) {
		const old = (which === 'b' && this.cursors.b) || this.cursors.a;
		const from = old.seconds === null ? this.shown : this.ring.at(old.seconds);
		const number = Math.max(Math.min(from + frames, this.shown), this.ring.first);
		this.cursors.place(which, old.point + points, frames === 0 ? null : this.ring.time(number));
		this.touch();
	}
}

/** @param {Layout} layout */
function settingsOf({ item }) {
	const sweeps = item.sweeps === 1 ? '1 sweep'
		: `${item.sweeps} sweeps${item.sweep_rate > 0 ? ` at ${fixed(item.sweep_rate, 0)} Hz` : ''}`;
	return `profile ${item.profile}  ·  gain ${item.gain}  ·  ${item.points} points  ·  ${sweeps}`;
}
