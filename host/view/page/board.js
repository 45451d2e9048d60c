/** What the page of several boards asks of the page of one. */
import { app, send } from './app.js';
import { redraw, view } from './view.js';

/** @type {Board} */
export const board = {
	hello: () => app.hello,
	state: () => app.state,
	send,

	moments() {
		const { ring, panels: [panel] } = app;
		if (!ring || !panel || ring.last < ring.first || Number.isNaN(ring.offset)) {
			return null;
		}
		return { first: ring.time(ring.first) + ring.offset, last: ring.time(ring.last) + ring.offset, bound: ring.bound(panel.shown) };
	},

	show({ frozen, edge, seconds }) {
		const { ring } = app;
		const time = ring?.timeOf(edge) ?? NaN;
		if (frozen && ring) {
			view.at = !Number.isNaN(time) ? ring.at(time) : view.frozen ? view.at : ring.last;
		}
		if (frozen !== view.frozen || seconds !== view.seconds) {
			redraw();
		}
		Object.assign(view, { frozen, edge, seconds });
	},
};
