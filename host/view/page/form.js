/** From a schema to a form, and paths into a document. */

/** Units of members. @type {Names} */
const UNITS = {
	max_update_rate: 'Hz', update_rate: 'Hz', frame_rate: 'Hz', sweep_rate: 'Hz', start_point: 'base steps',
	step_length: 'base steps', num_points: 'points', hwaas: 'pulses', receiver_gain: 'steps', sweeps_per_frame: 'sweeps',
};

/** Members that a form does not show. */
const HIDDEN = ['$schema', 'calibration_info', 'update_rate'];

/** Follows a reference to a definition. @param {Schema} schema @param {Schema} node @returns {Schema} */
export function resolve(schema, node) {
	const found = schema.$defs?.[node.$ref?.split('/').pop() ?? ''];
	return found ? resolve(schema, found) : node;
}

/** The members of an object that a form shows. @param {Schema} node @param {Value} present */
export function membersOf(node, present) {
	const used = getIn(present, ['update_rate']) !== undefined;
	return Object.entries(node.properties ?? {}).filter(([name]) => !HIDDEN.includes(name) || (used && name === HIDDEN[2]));
}

/** @param {string} name @param {Schema} node @returns {Field} */
export function fieldOf(name, node) {
	const { minimum, maximum = Infinity, description } = node;
	const limits = minimum !== undefined && maximum < 1e9 ? `${minimum} to ${maximum}.` : '';
	return {
		title: name.replaceAll('_', ' '),
		unit: UNITS[name] ?? '',
		about: [description, limits].filter(Boolean).join(' '),
		choices: node.type === 'boolean' ? [true, false] : node.enum,
		fallback: node.default === undefined ? '' : textOf(node.default),
	};
}

/** @param {Json} value */
export function textOf(value) {
	return value === true ? 'on' : value === false ? 'off' : String(value);
}

/** The value of an input. What is not one remains a text, for the checker to refuse.
 * @param {Field} field @param {string} input @returns {Value} */
export function valueOf({ choices }, input) {
	const text = input.trim();
	const value = choices ? choices.find((choice) => textOf(choice) === text) : Number(text);
	return text === '' ? undefined : value === undefined || Number.isNaN(value) ? text : value;
}

/** The least value that a schema allows. @param {Schema} schema @param {Schema} reference @returns {Json} */
export function leastOf(schema, reference) {
	const { type, items = {}, minItems = 0, required = [], properties = {}, ...node } = resolve(schema, reference);
	if (type === 'array') {
		return minItems > 0 ? [leastOf(schema, items)] : [];
	}
	return type === 'object' ? Object.fromEntries(required.map((name) => [name, leastOf(schema, properties[name])]))
		: node.default ?? node.minimum ?? '';
}

/** @param {Value} value @param {Path} path @returns {Value} */
export function getIn(value, path) {
	return path.reduce((at, name) => /** @type {any} */ (at)?.[name], value);
}

/** Sets or removes the value at a path; objects on the way are made.
 * @param {JsonObject} document @param {Path} path @param {Value} value */
export function setIn(document, path, value) {
	const last = path[path.length - 1];
	/** @type {any} */
	let at = document;
	for (const name of path.slice(0, -1)) {
		at = at[name] ??= {};
	}
	if (value !== undefined) {
		at[last] = value;
	} else if (Array.isArray(at)) {
		at.splice(Number(last), 1);
	} else {
		delete at[last];
	}
}

/** @param {Path} path */
export function pointerOf(path) {
	return path.map((name) => `/${String(name).replaceAll('~', '~0').replaceAll('/', '~1')}`).join('');
}

/** @param {string} pointer @returns {Path} */
export function pathOf(pointer) {
	return pointer.split('/').slice(1).map((name) => name.replaceAll('~1', '/').replaceAll('~0', '~'));
}

/** The longest pointer that contains another one. @param {string} pointer @param {Iterable<string>} known */
export function closest(pointer, known) {
	const containing = [...known].filter((candidate) => `${pointer}/`.startsWith(`${candidate}/`));
	return containing.sort((a, b) => b.length - a.length)[0] ?? '';
}
