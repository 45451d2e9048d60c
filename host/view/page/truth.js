/** Marks where the targets are that simulated sensors see. */
import { theme } from './colours.js';
import { view } from './view.js';

/** Most moments of a track. */
const MOST_MOMENTS = 128;

/** @param {Panel} panel @param {Chart} chart @param {(path: Path2D, targets: Target[]) => void} add
 * @param {number[]} dashes */
function mark({ ring, shown, analysis }, chart, add, dashes = []) {
	if (view.truth) {
		const path = new Path2D();
		add(path, ring.targets(shown, analysis.index));
		chart.stroke(path, theme.truth, 1.2, dashes);
	}
}

/** @param {Panel} panel @param {Chart} chart @param {ToPixels} to */
export function markDistances(panel, chart, to) {
	const { top, height } = chart.plot.bbox;
	mark(panel, chart, (path, targets) => targets.forEach(({ distance_m: distance }) => {
		path.moveTo(to.x(distance), top);
		path.lineTo(to.x(distance), top + height);
	}), [2, 4]);
}

/** @param {Panel} panel @param {Chart} chart @param {ToPixels} to */
export function markVelocities(panel, chart, to) {
	const arm = 5 * devicePixelRatio;
	mark(panel, chart, (path, targets) => targets.forEach(({ distance_m: distance, velocity_m_s: velocity }) => {
		const [x, y] = [to.x(distance), to.y(velocity)];
		path.moveTo(x - arm, y);
		path.lineTo(x + arm, y);
		path.moveTo(x, y - arm);
		path.lineTo(x, y + arm);
	}));
}

/** Marks distances over time. @param {Panel} panel @param {Chart} chart @param {ToPixels} to */
export function markTracks({ ring, shown, time: now, analysis }, chart, to) {
	if (!view.truth) {
		return;
	}
	const { ctx } = chart.plot;
	const first = ring.at(now - view.seconds);
	const step = Math.ceil((shown - first + 1) / MOST_MOMENTS);
	ctx.fillStyle = theme.truth;
	// Many small rectangles are filled much faster than a path of them is drawn.
	for (let number = first + ((shown - first) % step); number <= shown; number += step) {
		const y = to.y(ring.time(number) - now);
		ring.targets(number, analysis.index).forEach(({ distance_m: distance }) => ctx.fillRect(to.x(distance) - 1, y - 1, 2, 2));
	}
}
