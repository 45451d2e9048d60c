/** The figures that the page publishes, for tests. */
import { app } from './app.js';
import { millimetresPerRadian } from './mathematics.js';
import { view } from './view.js';

/** Milliseconds from arrival to canvas, and when. */
const latencies = new Float64Array(512);
const pictures = new Float64Array(512);
let counted = 0;

/** @param {number} arrival @param {number} now */
export function countPicture(arrival, now) {
	latencies[counted % latencies.length] = now - arrival;
	pictures[counted % pictures.length] = now;
	counted += 1;
}

export function pictureRate() {
	const now = performance.now();
	return pictures.reduce((sum, time) => sum + (time > now - 1000 && time > 0 ? 1 : 0), 0);
}

/** Not exceeded by 99 of 100 pictures. */
function latency() {
	const sorted = latencies.slice(0, counted).sort();
	return sorted[Math.ceil(sorted.length * 0.99) - 1] ?? null;
}

/** @param {Panel} panel */
function panelNumbers({ layout, analysis, cursors, level, waterfall, velocity, ...panel }) {
	const { ring, shown } = panel;
	const phase = analysis.phase(shown);
	return {
		item: layout.item,
		visible: panel.visible,
		pictures: panel.pictures,
		frames: panel.frames,
		count: analysis.count,
		tick: shown >= ring.first && shown <= ring.last ? ring.tick(shown, analysis.index) : null,
		utc: ring.utc(shown),
		bound: ring.bound(shown),
		edge: panel.time + ring.offset,
		truth: ring.targets(shown, analysis.index),
		level: Array.from(level.live),
		held: Array.from(level.held),
		mean: Array.from(level.mean),
		mapRows: waterfall.written,
		point: analysis.point,
		phase,
		displacement: phase * millimetresPerRadian(layout.item),
		velocity: velocity && {
			peak: velocity.map.peakAt(analysis.point),
			velocities: Array.from(velocity.map.velocities),
			levels: Array.from(velocity.map.levels),
		},
		ranges: { level: level.bar.range, colour: waterfall.bar.range, velocity: velocity?.bar.range ?? null },
		cursors: { a: cursors.a, b: cursors.b, readings: panel.readings.map((part) => part.textContent) },
	};
}

export function numbers() {
	const { ring, state, session, hello, panels } = app;
	return {
		panels: panels.map(panelNumbers),
		session: session?.number,
		viewer: hello?.viewer,
		pictures: counted,
		pictureRate: pictureRate(),
		latency: latency(),
		frames: ring?.end,
		kept: ring ? ring.end - ring.first : 0,
		unreadable: app.unreadable,
		bytes: (ring?.size ?? 0) + panels.reduce((sum, panel) => sum + panel.size, 0),
		frozen: view.frozen,
		seconds: view.seconds,
		unit: view.unit,
		state,
	};
}
