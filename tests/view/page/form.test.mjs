import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import {
  closest, fieldOf, getIn, leastOf, membersOf, pathOf, pointerOf, resolve, setIn, valueOf,
} from '../../../host/view/page/form.js';

const schema = JSON.parse(readFileSync(new URL('../../../docs/configuration.schema.json', import.meta.url)));
const definition = (name) => resolve(schema, { $ref: `#/$defs/${name}` });
const field = (name) => fieldOf(name, definition(name));

test('a reference is followed', () => {
  assert.equal(definition('num_points').maximum, 4095);
  assert.equal(resolve(schema, schema.properties.groups), schema.properties.groups);
});

test('members without use in a form are left out', () => {
  const names = (present) => membersOf(schema, present).map(([name]) => name);
  assert.ok(names({}).includes('groups') && names({}).includes('max_update_rate'));
  assert.ok(!names({}).includes('$schema') && !names({}).includes('calibration_info'));
  assert.ok(!names({}).includes('update_rate'));
  assert.ok(names({ update_rate: 20 }).includes('update_rate'));
});

test('a field has a title, a unit, its default and its limits', () => {
  const { title, unit, fallback, about } = field('num_points');
  assert.deepEqual([title, unit, fallback], ['num points', 'points', '160']);
  assert.match(about, /Number of points\. 1 to 4095\./);
});

test('every number with a unit is a member of the schema', () => {
  const source = readFileSync(new URL('../../../host/view/page/form.js', import.meta.url), 'utf8');
  const units = source.slice(source.indexOf('UNITS'), source.indexOf('};'));
  const names = [...units.matchAll(/(\w+): '/g)].map((match) => match[1]);
  assert.ok(names.length > 5);
  names.forEach((name) => assert.ok(schema.$defs[name] || schema.properties[name], name));
});

test('an empty input removes the member', () => {
  assert.equal(valueOf(field('num_points'), '  '), undefined);
});

test('a number is a number, other text is left to the checker', () => {
  assert.equal(valueOf(field('num_points'), ' 12 '), 12);
  assert.equal(valueOf(field('sweep_rate'), '1.5e3'), 1500);
  assert.equal(valueOf(field('num_points'), 'many'), 'many');
});

test('a choice has the value of the schema', () => {
  assert.deepEqual(field('enable_tx').choices, [true, false]);
  assert.equal(valueOf(field('enable_tx'), 'off'), false);
  assert.equal(valueOf(field('prf'), '13_0_MHz'), '13_0_MHz');
});

test('a new element has what is required', () => {
  assert.deepEqual(leastOf(schema, { $ref: '#/$defs/item' }), { sensor_id: 1, config: {} });
  assert.deepEqual(leastOf(schema, schema.properties.groups.items), [{ sensor_id: 1, config: {} }]);
  assert.deepEqual(leastOf(schema, { $ref: '#/$defs/subsweep' }), {});
});

test('values are set, and objects on the way are made', () => {
  const document = { groups: [[{ sensor_id: 1 }]] };
  setIn(document, ['groups', 0, 0, 'config', 'num_points'], 5);
  assert.deepEqual(document, { groups: [[{ sensor_id: 1, config: { num_points: 5 } }]] });
  assert.equal(getIn(document, ['groups', 0, 0, 'config', 'num_points']), 5);
  assert.equal(getIn(document, ['groups', 3, 0, 'config']), undefined);
});

test('values are removed, also from arrays', () => {
  const document = { update_rate: 20, groups: [[1, 2], [3]] };
  setIn(document, ['update_rate'], undefined);
  setIn(document, ['groups', 0, 0], undefined);
  assert.deepEqual(document, { groups: [[2], [3]] });
});

test('a nearest value is set at its pointer', () => {
  const document = { groups: [[{ sensor_id: 1, config: { num_points: 9000 } }]] };
  setIn(document, pathOf('/groups/0/0/config/num_points'), 4095);
  assert.equal(document.groups[0][0].config.num_points, 4095);
});

test('pointers are escaped', () => {
  assert.equal(pointerOf(['a/b', 0, 'c~d']), '/a~1b/0/c~0d');
  assert.deepEqual(pathOf('/a~1b/0/c~0d'), ['a/b', '0', 'c~d']);
});

test('a fault is shown at the nearest part of the form', () => {
  const known = ['', '/groups', '/groups/0/0', '/groups/0/0/config', '/groups/0/0/sensor_id', '/group'];
  assert.equal(closest('/groups/0/0/config/subsweeps/2', known), '/groups/0/0/config');
  assert.equal(closest('/groups/0/0/sensor_id', known), '/groups/0/0/sensor_id');
  assert.equal(closest('/other', known), '');
});
