/** Two handles that set the lowest and the highest level of a scale. */
import { fixed } from './axes.js';
import { drawColours } from './colours.js';
import { inUnit, LOWEST } from './units.js';
import { element, setText, view } from './view.js';

/** Limits of the handles, which are in dBFS in any unit: small levels need room. */
const HIGHEST = 0;
const NARROWEST = 3;

export class RangeBar {
	/** @param {HTMLElement} host @param {string} name @param {Layout} layout @param {boolean} coloured
	 * @param {() => void} changed  by a person */
	constructor(host, name, { item }, coloured, changed) {
		this.fullScale = item.full_scale;
		/** @type {Span} */
		this.range = [-80, 0];
		/** Whether the next levels set the range. */
		this.automatic = true;
		this.changed = changed;
		this.fill = element('canvas', 'fill');
		if (coloured) {
			drawColours(this.fill);
		}
		this.values = [element('span', 'value'), element('span', 'value')];
		this.inputs = ['Lowest', 'Highest'].map((end, which) => this.makeInput(`${end} ${name}`, which));
		this.unit = element('span', 'unit');
		const bar = element('div', 'range', '', this.fill, ...this.inputs, ...this.values, this.unit);
		bar.onpointerdown = (event) => event.stopPropagation();
		host.append(bar);
		this.showUnit();
	}

	/** @param {string} name @param {number} which  0: lowest, 1: highest */
	makeInput(name, which) {
		const input = element('input');
		Object.assign(input, { type: 'range', min: LOWEST, max: HIGHEST, ariaLabel: name });
		input.oninput = () => {
			const [low, high] = this.range;
			const level = Number(input.value);
			this.automatic = false;
			this.assign(which ? [low, Math.max(level, low + NARROWEST)] : [Math.min(level, high - NARROWEST), high]);
			this.changed();
		};
		return input;
	}

	/** @param {Span} range */
	assign([low, high]) {
		this.range = [Math.max(low, LOWEST), Math.min(high, HIGHEST)];
		const tops = this.range.map((level) => `${(100 * (HIGHEST - level)) / (HIGHEST - LOWEST)}%`);
		this.range.forEach((level, which) => {
			this.inputs[which].value = String(level);
			this.values[which].style.top = tops[which];
			const shown = inUnit(level, this.fullScale);
			setText(this.values[which], fixed(shown, view.unit === 'LSB' && shown < 10 ? 1 : 0));
			this.inputs[which].ariaValueText = `${this.values[which].textContent} ${view.unit}`;
		});
		this.fill.style.top = tops[1];
		this.fill.style.height = `calc(${tops[0]} - ${tops[1]})`;
	}

	showUnit() {
		setText(this.unit, view.unit);
		this.assign(this.range);
	}

	setAutomatic() {
		this.automatic = true;
		this.changed();
	}

	/** Sets the range if it is automatic. @param {() => Span} range @param {boolean} final  whether it remains */
	offer(range, final) {
		const { automatic } = this;
		if (automatic) {
			this.automatic = !final;
			this.assign(range());
		}
		return automatic;
	}
}
