/** The connection to `vantor view`, opened again whenever it ends. */

/** Milliseconds until an attempt to connect again. */
const FIRST_DELAY = 500;
const LONGEST_DELAY = 5000;

export class Connection {
	/** @param {string} address @param {Receiver} receiver */
	constructor(address, receiver) {
		this.address = address;
		this.receiver = receiver;
		this.delay = FIRST_DELAY;
		this.open();
	}

	open() {
		const { address, receiver } = this;
		this.socket = new WebSocket(address);
		this.socket.binaryType = 'arraybuffer';
		this.socket.onmessage = ({ data }) => {
			this.delay = FIRST_DELAY;
			return typeof data === 'string' ? receiver.text(JSON.parse(data)) : receiver.frame(data);
		};
		this.socket.onclose = ({ reason }) => {
			receiver.closed(reason);
			setTimeout(() => this.open(), this.delay);
			this.delay = Math.min(2 * this.delay, LONGEST_DELAY);
		};
	}

	/** @param {JsonObject} message */
	send(message) {
		if (this.socket?.readyState === WebSocket.OPEN) {
			this.socket.send(JSON.stringify(message));
		}
	}
}
