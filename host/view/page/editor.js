/** The form of the configuration. */
import { closest, fieldOf, getIn, leastOf, membersOf, pathOf, pointerOf, resolve, setIn, textOf, valueOf } from './form.js';
import { box, button, download, element, input, setText } from './view.js';

/** Milliseconds without typing until the document is checked. */
const CHECK_DELAY = 200;

export class Editor {
	/** @param {Send} send */
	constructor(send) {
		this.send = send;
		/** @type {Schema} */
		this.schema = {};
		/** @type {JsonObject} */
		this.document = {};
		this.changed = false;
		this.id = 0;
		this.timer = 0;
		/** The elements of the form, by pointer. @type {Map<string, HTMLElement>} */
		this.places = new Map();
		this.form = box('fields');
		button('apply').onclick = () => send({ type: 'apply', configuration: this.document });
		button('save').onclick = () => download('configuration.json',
			new Blob([`${JSON.stringify(this.document, null, 2)}\n`], { type: 'application/json' }));
		button('load').onclick = () => input('file').click();
		input('file').onchange = () => this.read();
	}

	/** Shows a configuration, unless a person is changing one. @param {JsonObject} configuration */
	offer(configuration) {
		if (!this.changed) {
			this.load(configuration);
		}
	}

	/** @param {JsonObject} configuration */
	load(configuration) {
		this.document = structuredClone(configuration);
		this.changed = false;
		this.build();
		this.check();
	}

	async read() {
		const text = await input('file').files?.[0]?.text();
		input('file').value = '';
		try {
			this.load({ ...JSON.parse(text ?? '') });
			this.changed = true;
		} catch (error) {
			this.show(`The file is not a configuration: ${error}`, [], []);
		}
	}

	/** Checks the document a moment after the last change. */
	change() {
		this.changed = true;
		clearTimeout(this.timer);
		this.timer = setTimeout(() => this.check(), CHECK_DELAY);
	}

	check() {
		this.id += 1;
		this.send({ type: 'check', id: this.id, configuration: this.document });
	}

	/** @param {Checked} checked */
	checked({ id, faults, plan }) {
		if (id === this.id) {
			this.show(faults.length > 0 ? 'The configuration has faults.' : '', faults, plan);
		}
	}

	/** Shows faults and figures. @param {string} text @param {Fault[]} faults @param {Figure[]} plan */
	show(text, faults, plan) {
		this.form.querySelectorAll('.fault').forEach((fault) => fault.remove());
		this.form.querySelectorAll('[aria-invalid]').forEach((field) => field.removeAttribute('aria-invalid'));
		setText(box('verdict'), text);
		faults.forEach((fault) => this.showFault(fault));
		if (plan.length > 0) {
			box('plan').replaceChildren(...plan.flatMap(([name, value]) => [element('dt', '', name), element('dd', '', value)]));
		}
		box('plan').classList.toggle('old', faults.length > 0);
	}

	/** @param {Fault} fault */
	showFault({ pointer, members, message, nearest }) {
		const known = closest(pointer, this.places.keys());
		const place = this.places.get(known) ?? this.form;
		const shown = element('p', 'fault', known === pointer ? message : `${pointer} ${message}`);
		if (typeof nearest === 'number') {
			shown.append(' ', this.action(`Use ${nearest}`, () => setIn(this.document, pathOf(pointer), nearest)));
		}
		place.append(shown);
		[pointer, ...members].map((field) => this.places.get(field)).forEach((field) => field instanceof HTMLLabelElement
			&& field.querySelector('input, select')?.setAttribute('aria-invalid', 'true'));
	}

	/** Makes the form again. */
	build() {
		const focused = document.activeElement?.closest('[data-pointer]')?.getAttribute('data-pointer') ?? '';
		this.places.clear();
		this.form.replaceChildren(...this.object(this.schema, []));
		this.places.get(focused)?.querySelector('input')?.focus();
	}

	/** The elements of an object: plain members first. @param {Schema} node @param {Path} path */
	object(node, path) {
		const made = membersOf(node, getIn(this.document, path)).map(([name, member]) =>
			this.member(name, resolve(this.schema, member), [...path, name]));
		const plain = (/** @type {Element} */ part) => Number(part.tagName !== 'LABEL');
		return made.sort((a, b) => plain(a) - plain(b));
	}

	/** @param {string} name @param {Schema} node @param {Path} path @returns {HTMLElement} */
	member(name, node, path) {
		if (node.type === 'array') {
			return this.list(name.replace(/s$/, ''), node, path);
		}
		if (node.type !== 'object') {
			return this.field(fieldOf(name, node), path);
		}
		const { title } = fieldOf(name, node);
		const fold = element('details', '', '', element('summary', '', title), ...this.object(node, path));
		fold.open = getIn(this.document, path) !== undefined;
		return this.place(fold, path, node.description);
	}

	/** @param {string} one  name of an element @param {Schema} node @param {Path} path */
	list(one, { items = {}, description }, path) {
		const values = /** @type {Json[]} */ (getIn(this.document, path) ?? []);
		const parts = values.map((_, i) => this.entry(`${one} ${i + 1}`, resolve(this.schema, items), [...path, i]));
		const add = this.action(`Add ${one}`, () => setIn(this.document, path, [...values, leastOf(this.schema, items)]));
		return this.place(element('div', '', '', ...parts, add), path, description);
	}

	/** @param {string} title @param {Schema} node @param {Path} path @returns {HTMLElement} */
	entry(title, node, path) {
		const parts = node.type === 'array' ? [this.list('item', node, path)] : this.object(node, path);
		const remove = this.action('Remove', () => setIn(this.document, path, undefined));
		remove.ariaLabel = `Remove ${title}`;
		return this.place(element('fieldset', '', '', element('legend', '', title), remove, ...parts), path);
	}

	/** @param {string} text @param {() => void} act */
	action(text, act) {
		const made = element('button', 'small', text);
		made.onclick = () => {
			act();
			this.build();
			this.change();
		};
		return made;
	}

	/** @param {Field} field @param {Path} path */
	field(field, path) {
		const { choices, fallback } = field;
		const entry = element(choices ? 'select' : 'input');
		if (entry instanceof HTMLInputElement) {
			entry.placeholder = fallback;
		} else {
			entry.append(new Option(fallback && `(${fallback})`, ''), ...(choices ?? []).map((choice) => new Option(textOf(choice))));
		}
		entry.value = textOf(getIn(this.document, path) ?? '');
		entry.oninput = () => {
			setIn(this.document, path, valueOf(field, entry.value));
			this.change();
		};
		entry.onfocus = () => setText(box('about'), field.about);
		const label = element('label', '', '', element('span', '', field.title), entry, element('small', '', field.unit));
		return this.place(label, path, field.about);
	}

	/** @param {HTMLElement} part @param {Path} path @param {string} about */
	place(part, path, about = '') {
		const pointer = pointerOf(path);
		this.places.set(pointer, part);
		part.dataset.pointer = pointer;
		part.title = about;
		return part;
	}
}
