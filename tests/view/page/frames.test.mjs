import assert from 'node:assert/strict';
import { test } from 'node:test';
import { decodeFrame, FrameClock, nominalPeriod } from '../../../host/view/page/frames.js';
import { infoOf, messageOf, samplesOf } from './samples.mjs';

const session = { ticks_per_second: 1e6, tick_period: 50000, rate: 20 };

test('a frame is a line of JSON and its samples', () => {
  const samples = samplesOf(3, (i) => [i, -i]);
  const frame = decodeFrame(messageOf([infoOf(7), infoOf(8)], samples));
  assert.deepEqual(frame.items.map((item) => item.tick), [7, 8]);
  assert.deepEqual([...frame.payload], [...new Uint8Array(samples.buffer)]);
});

test('a message that is not a frame is refused', () => {
  const text = (value) => new TextEncoder().encode(value).buffer;
  assert.throws(() => decodeFrame(text('{"result_info":[]}')), SyntaxError);
  assert.throws(() => decodeFrame(text('{}\n')), /0 bytes/);
  assert.throws(() => decodeFrame(text('{"result_info":[[]],"payload_size":4}\nab')), /2 bytes/);
  assert.throws(() => decodeFrame(text('not JSON\n')), SyntaxError);
});

test('the period is that of the ticks, or of the rate, or unknown', () => {
  assert.equal(nominalPeriod(session), 0.05);
  assert.equal(nominalPeriod({ ...session, tick_period: null }), 0.05);
  assert.equal(nominalPeriod({ ticks_per_second: 0, tick_period: null, rate: 0 }), 0);
});

test('time goes on when ticks begin again at 0', () => {
  const clock = new FrameClock(session);
  clock.add(2 ** 32 - 20000);
  const placed = clock.add(30000);
  assert.ok(Math.abs(placed.seconds - 0.05) < 1e-12);
  assert.equal(placed.gap, false);
});

test('a missing frame is a gap', () => {
  const clock = new FrameClock(session);
  assert.equal(clock.add(0).gap, true);
  assert.equal(clock.add(50000).gap, false);
  assert.equal(clock.add(150000).gap, true);
  assert.equal(clock.add(200000).gap, false);
});

test('frames that are always left out are not a gap', () => {
  const clock = new FrameClock(session);
  const gaps = Array.from({ length: 6 }, (_, i) => clock.add(i * 250000).gap);
  assert.deepEqual(gaps, [true, true, false, false, false, false]);
});

test('an earlier frame begins a new time', () => {
  const clock = new FrameClock(session);
  clock.add(1000000);
  clock.add(1050000);
  assert.deepEqual(clock.add(500000), { seconds: 0, gap: true, restart: true });
});

test('without a clock, frames follow at the rate', () => {
  const clock = new FrameClock({ ticks_per_second: 0, tick_period: null, rate: 10 });
  clock.add(0);
  assert.ok(Math.abs(clock.add(0).seconds - 0.1) < 1e-12);
});

test('with an unknown rate, only a much longer step is a gap', () => {
  const clock = new FrameClock({ ticks_per_second: 1000, tick_period: null, rate: 0 });
  const gaps = [0, 10, 20, 60, 260].map((tick) => clock.add(tick).gap);
  assert.deepEqual(gaps, [true, false, false, false, true]);
});

test('frames that were not wanted are not missing', () => {
  const clock = new FrameClock({ ticks_per_second: 1000, tick_period: 50, rate: 20 });
  [0, 50, 100].forEach((tick) => clock.add(tick));
  assert.deepEqual([300, 500, 900].map((tick) => clock.add(tick, 4).gap), [false, false, true]);
});
