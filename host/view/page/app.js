/** What the modules know of the session. */

/** @type {App} */
export const app = {
	hello: null, session: null, state: null, ring: null, clock: null, panels: [], unreadable: 0, connection: null,
};

/** @param {JsonObject} message */
export function send(message) {
	app.connection?.send(message);
}
