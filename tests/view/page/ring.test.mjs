import assert from 'node:assert/strict';
import { test } from 'node:test';
import { capacityFor, FrameRing, GAP, INVALID } from '../../../host/view/page/ring.js';
import { infoOf } from './samples.mjs';

const frameOf = (value, items = [infoOf(value)]) => ({ items, payload: new Uint8Array(4).fill(value) });

test('a ring has the frames of a minute, and at most 64 MiB', () => {
  assert.equal(capacityFor(640, 0.05), 1201);
  assert.equal(capacityFor(1024 * 1024, 0.001), 64);
  assert.ok(capacityFor(4, 0) * 4 <= 64 * 1024 * 1024);
});

test('the oldest frames are overwritten', () => {
  const ring = new FrameRing(4, 30, 1);
  for (let i = 0; i < 5; i++) {
    ring.push(frameOf(i), i * 30, false, i);
  }
  assert.deepEqual([ring.first, ring.last, ring.capacity], [2, 4, 3]);
  assert.deepEqual([2, 3, 4].map((number) => ring.frame(number)[0]), [0x0202, 0x0303, 0x0404]);
  assert.deepEqual([2, 3, 4].map((number) => ring.tick(number, 0)), [2, 3, 4]);
});

test('memory does not grow', () => {
  const ring = new FrameRing(4, 1, 1);
  const size = ring.size;
  for (let i = 0; i < 1000; i++) {
    ring.push(frameOf(i % 256), i, false, 0);
  }
  assert.equal(ring.size, size);
});

test('marks are those of each item', () => {
  const ring = new FrameRing(4, 1, 2);
  ring.push(frameOf(1, [infoOf(1), infoOf(2, { data_valid: false })]), 0, true, 0);
  assert.equal(ring.marksOf(0, 0), GAP);
  assert.equal(ring.marksOf(0, 1), GAP | INVALID);
});

test('a frame is found by its time', () => {
  const ring = new FrameRing(4, 10, 1);
  for (let i = 0; i < 20; i++) {
    ring.push(frameOf(i), i * 10, false, 0);
  }
  assert.equal(ring.at(171), 17);
  assert.equal(ring.at(170), 17);
  assert.equal(ring.at(-5), ring.first);
  assert.equal(ring.at(1e9), 19);
});

test('a cleared ring is empty, and numbers go on', () => {
  const ring = new FrameRing(4, 10, 1);
  ring.push(frameOf(1), 0, false, 0);
  ring.clear();
  assert.ok(ring.last < ring.first);
  ring.push(frameOf(2), 0, false, 0);
  assert.deepEqual([ring.first, ring.last], [1, 1]);
});

test('times are those of the first item, and unknown without them', () => {
  const ring = new FrameRing(4, 1, 2);
  ring.push(frameOf(1, [infoOf(1, { utc_s: 1e9 + 0.5, utc_bound_s: 0.0003 }), infoOf(2)]), 0, true, 0);
  ring.push(frameOf(2, [infoOf(1), infoOf(2)]), 1, true, 0);
  assert.deepEqual([ring.utc(0), ring.bound(0)], [1e9 + 0.5, 0.0003]);
  assert.ok(Number.isNaN(ring.utc(1)) && Number.isNaN(ring.bound(1)));
});

test('a moment has a time by the latest frame whose time in UTC is known', () => {
  const ring = new FrameRing(4, 1, 1);
  assert.ok(Number.isNaN(ring.timeOf(1e9)));
  ring.push(frameOf(1, [infoOf(1, { utc_s: 1e9, utc_bound_s: 0.001 })]), 5, true, 0);
  ring.push(frameOf(2), 6, true, 0);
  assert.equal(ring.timeOf(1e9 + 2), 7);
  ring.push(frameOf(3, [infoOf(3, { utc_s: 1e9 + 2.5, utc_bound_s: 0.001 })]), 7, true, 0);
  assert.equal(ring.timeOf(1e9 + 2), 6.5);
  ring.clear();
  assert.ok(Number.isNaN(ring.timeOf(1e9)));
});
