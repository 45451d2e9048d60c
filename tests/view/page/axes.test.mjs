import assert from 'node:assert/strict';
import { test } from 'node:test';
import {
  Columns, distanceRange, fixed, levelRange, roomyRange, roundStep, textsOf, ticksOf,
} from '../../../host/view/page/axes.js';
import { COLOURS } from '../../../host/view/page/colours.js';
import { layoutOf } from '../../../host/view/page/mathematics.js';
import { itemOf } from './samples.mjs';

test('steps are round', () => {
  assert.equal(roundStep(10, 5), 2);
  assert.ok(Math.abs(roundStep(0.07, 3) - 0.05) < 1e-12);
});

test('ticks are multiples of the step, with a true minus sign', () => {
  assert.deepEqual(textsOf(ticksOf([-1, 1], 4)), ['−1.0', '−0.5', '0.0', '0.5', '1.0']);
  assert.deepEqual(ticksOf([1, 1], 4), []);
});

test('a number that is unknown is a dash', () => {
  assert.equal(fixed(NaN, 2), '–');
  assert.equal(fixed(-0.001, 2), '0.00');
});

test('distances reach half a step beyond the points', () => {
  const [low, high] = distanceRange(layoutOf(itemOf({ points: 3, start: 1, step: 0.5 }), 0));
  assert.deepEqual([low, high], [0.75, 2.25]);
});

test('a column is a point', () => {
  const columns = new Columns(layoutOf(itemOf({ points: 5 }), 0));
  assert.deepEqual([...columns.from], [0, 1, 2, 3, 4]);
  assert.deepEqual([...columns.to], [0, 1, 2, 3, 4]);
});

test('points share columns if there are too many', () => {
  const columns = new Columns(layoutOf(itemOf({ points: 8 }), 0), 4);
  assert.deepEqual([...columns.from], [0, 2, 4, 6]);
  assert.equal(columns.mean([1, 3, 0, 0, 0, 0, 0, 0], 0), 2);
});

test('there is nothing between two sub-sweeps', () => {
  const layout = layoutOf(itemOf({
    points: 4,
    subsweeps: [{ offset: 0, points: 2, start_m: 0, step_m: 1 }, { offset: 2, points: 2, start_m: 4, step_m: 1 }],
  }), 0);
  assert.deepEqual([...new Columns(layout).from], [0, 1, -1, -1, 2, 3]);
});

test('a column has one point, also if its width is not quite that of a step', () => {
  const layout = layoutOf(itemOf({
    points: 7,
    subsweeps: [{ offset: 0, points: 4, start_m: 0, step_m: 2 }, { offset: 4, points: 3, start_m: 9, step_m: 3 }],
  }), 0);
  const columns = new Columns(layout);
  assert.deepEqual([...columns.from], [0, 1, 2, 3, 4, 4, 5, 6, 6]);
  assert.deepEqual(columns.from, columns.to);
});

test('a range of levels has room for noise and signal', () => {
  assert.deepEqual(levelRange([-60, -61, -59, -20]), [-70, -10]);
  assert.deepEqual(levelRange([-60, -60]), [-70, -40]);
  assert.deepEqual(levelRange([]), [-80, 0]);
});

test('a range is at least as wide as noise', () => {
  assert.deepEqual(roomyRange(1, 1, 0.5), [0.75, 1.25]);
  assert.deepEqual(roomyRange(Infinity, -Infinity, 1), [-0.5, 0.5]);
});

test('the lightness of the colours rises evenly', () => {
  const linear = (byte) => (byte / 255 <= 0.04045 ? byte / 255 / 12.92 : ((byte / 255 + 0.055) / 1.055) ** 2.4);
  const lightness = (pixel) => {
    const [r, g, b] = [pixel & 255, (pixel >> 8) & 255, (pixel >> 16) & 255].map(linear);
    const l = Math.cbrt(0.4122214708 * r + 0.5363325363 * g + 0.0514459929 * b);
    const m = Math.cbrt(0.2119034982 * r + 0.6806995451 * g + 0.1073969566 * b);
    const s = Math.cbrt(0.0883024619 * r + 0.2817188376 * g + 0.6299787005 * b);
    return 0.2104542553 * l + 0.793617785 * m - 0.0040720468 * s;
  };
  const steps = [0, 32, 64, 96, 128, 160, 192, 224, 255].map((index) => lightness(COLOURS[index]));
  for (let i = 1; i < steps.length; i++) {
    const step = steps[i] - steps[i - 1];
    assert.ok(step > 0.05 && step < 0.13, `step ${i} is ${step}`);
  }
});
