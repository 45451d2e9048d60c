import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Analysis } from '../../../host/view/page/analysis.js';
import { Cursors, describe, difference } from '../../../host/view/page/cursor.js';
import { layoutsOf, millimetresPerRadian } from '../../../host/view/page/mathematics.js';
import { FrameRing } from '../../../host/view/page/ring.js';
import { boundText, dateAndTime, inUnit, timeOfDay } from '../../../host/view/page/units.js';
import { view } from '../../../host/view/page/view.js';
import { infoOf, itemOf, samplesOf } from './samples.mjs';

/** Cursors over ten frames of four points; the phase of all points turns by 0.2 with each frame. */
function setUp() {
  const [layout] = layoutsOf([itemOf({ points: 4, start: 1, step: 0.5 })]);
  const ring = new FrameRing(16, 0.1, 1);
  const analysis = new Analysis(layout, ring, 0);
  for (let n = 0; n < 10; n++) {
    const samples = samplesOf(4, (i) => [10 ** i * 3.2767 * Math.cos(n * 0.2), 10 ** i * 3.2767 * Math.sin(n * 0.2)]);
    ring.push({ items: [infoOf(n, n < 5 ? {} : { utc_s: 1e9 + n * 0.1, utc_bound_s: 0.001 })], payload: new Uint8Array(samples.buffer) }, n * 0.1, n === 0, 0);
  }
  analysis.catchUp(() => {});
  return { layout, analysis, cursors: new Cursors(analysis) };
}

const near = (actual, expected, tolerance) =>
  assert.ok(Math.abs(actual - expected) <= tolerance, `${actual} is not ${expected}`);

test('cursor A is where the phase is measured', () => {
  const { analysis, cursors } = setUp();
  cursors.place('a', 1, null);
  assert.equal(analysis.point, 1);
  assert.deepEqual(cursors.a, { point: 1, seconds: null });
});

test('a cursor remains between the first and the last point', () => {
  const { cursors } = setUp();
  cursors.place('b', 99, null);
  assert.equal(cursors.b.point, 3);
  cursors.place('b', -1, null);
  assert.equal(cursors.b.point, 0);
});

test('what is not given remains', () => {
  const { cursors } = setUp();
  cursors.place('b', 2, 0.5);
  cursors.place('b', null, 0.7);
  cursors.place('b', 1, null);
  assert.deepEqual(cursors.b, { point: 1, seconds: 0.7 });
  cursors.clear();
  assert.equal(cursors.b, null);
});

test('differences are in m, dB, s and mm', () => {
  const { layout, cursors } = setUp();
  cursors.place('a', 3, 0.2);
  cursors.place('b', 2, 0.7);
  const a = cursors.read(cursors.a, 9);
  const { metres, level, seconds, displacement: unknown } = difference(a, cursors.read(cursors.b, 9));
  near(metres, -0.5, 1e-9);
  near(level, -20, 0.02);
  near(seconds, 0.5, 1e-9);
  // The phase is measured only at cursor A.
  assert.ok(Number.isNaN(unknown));
  cursors.place('b', 3, 0.7);
  const { displacement } = difference(a, cursors.read(cursors.b, 9));
  near(displacement, 5 * 0.2 * millimetresPerRadian(layout.item), 1e-3);
});

test('texts have units, and a dash for a cursor that is not there', () => {
  const { cursors } = setUp();
  cursors.place('a', 3, 0.2);
  const a = cursors.read(cursors.a, 9);
  assert.match(describe(a, null)[0], /^2\.500 m {2}−\d+\.\d dBFS {2}−0\.70 s {2}\d\.\d{3} mm$/);
  assert.deepEqual(describe(a, null).slice(1), ['–', '–']);
  assert.match(describe(a, a)[2], /^0\.000 m {2}0\.0 dB {2}0\.00 s {2}0\.000 mm$/);
});

test('a frame that left the ring is not read', () => {
  const { cursors } = setUp();
  assert.equal(cursors.read(cursors.a, 10), null);
  assert.equal(cursors.read(cursors.a, -1), null);
});

test('levels and their differences are in the unit of the view', (t) => {
  t.after(() => { view.unit = 'dBFS'; });
  const { cursors } = setUp();
  cursors.place('a', 3, null);
  cursors.place('b', 2, null);
  view.unit = 'LSB';
  const [a, b] = [cursors.read(cursors.a, 9), cursors.read(cursors.b, 9)];
  // Samples are rounded to whole numbers.
  near(a.level, 3276.7, 1);
  near(b.level, 327.67, 1);
  const texts = describe(a, b);
  near(Number(/(\S+) LSB/.exec(texts[0])[1]), 3276.7, 1);
  near(Number(/−(\S+) LSB/.exec(texts[2])[1]), 2949, 2);
});

test('the lowest level is 0 LSB', (t) => {
  t.after(() => { view.unit = 'dBFS'; });
  assert.equal(inUnit(-20, 1000), -20);
  view.unit = 'LSB';
  near(inUnit(-20, 1000), 100, 1e-9);
  assert.equal(inUnit(-110, 32767), 0);
});

test('no cursor reads a frame after the one that is shown', () => {
  const { cursors } = setUp();
  cursors.place('b', 1, 0.8);
  near(cursors.read(cursors.b, 9).seconds, -0.1, 1e-9);
  assert.deepEqual(cursors.read(cursors.b, 4), cursors.read({ point: 1, seconds: null }, 4));
});

test('a cursor with a time reads UTC, if it is known', () => {
  const { cursors } = setUp();
  cursors.place('b', 3, 0.7);
  // 1,000,000,000 s are 31 years with 8 leap days, 251 days, 1 h, 46 min and 40 s.
  assert.match(describe(null, cursors.read(cursors.b, 9))[1], / {2}−0\.20 s {2}01:46:40\.7000 UTC( |$)/);
  cursors.place('b', 3, 0.2);
  assert.match(describe(null, cursors.read(cursors.b, 9))[1], / {2}−0\.70 s(?! {2}\S+ UTC)/);
  assert.ok(!describe(cursors.read(cursors.a, 9), null)[0].includes('UTC'));
});

test('times are rounded to what bounds need, and bounds include that', () => {
  assert.equal(dateAndTime(951782399.99994), '2000-02-28 23:59:59.9999');
  assert.equal(dateAndTime(951782399.99996), '2000-02-29 00:00:00.0000');
  assert.equal(timeOfDay(0.25), '00:00:00.2500');
  assert.equal(boundText(0.0003), '± 0.4 ms');
  assert.equal(boundText(0.02001), '± 20.1 ms');
});
