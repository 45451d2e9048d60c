import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Analysis } from '../../../host/view/page/analysis.js';
import { layoutsOf } from '../../../host/view/page/mathematics.js';
import { FrameRing } from '../../../host/view/page/ring.js';
import { infoOf, itemOf, samplesOf } from './samples.mjs';

const POINTS = 4;

/** A ring and an analysis of an item whose point 2 is the strongest. */
function setUp(capacitySeconds = 0.05) {
  const [layout] = layoutsOf([itemOf({ points: POINTS })]);
  const ring = new FrameRing(4 * POINTS, capacitySeconds, 1);
  return { ring, analysis: new Analysis(layout, ring, 0) };
}

/** Adds a frame: amplitude and phase of point 2; the other points have the amplitude 10. */
function push(ring, amplitude, phase, { gap = false, valid = true } = {}) {
  const samples = samplesOf(POINTS, (i) => (i === 2 ? [amplitude * Math.cos(phase), amplitude * Math.sin(phase)] : [10, 0]));
  const frame = { items: [infoOf(ring.end, valid ? {} : { data_valid: false })], payload: new Uint8Array(samples.buffer) };
  ring.push(frame, ring.end * 0.05, gap, 0);
}

const near = (actual, expected, tolerance = 1e-3) =>
  assert.ok(Math.abs(actual - expected) <= tolerance, `${actual} is not ${expected}`);

test('maximum and mean are those of all valid frames', () => {
  const { ring, analysis } = setUp();
  push(ring, 100, 0);
  push(ring, 300, 0);
  push(ring, 9000, 0, { valid: false });
  const seen = [];
  analysis.catchUp((number) => seen.push(number));
  assert.deepEqual(seen, [0, 1, 2]);
  assert.equal(analysis.count, 2);
  assert.equal(analysis.hold[2], 300);
  assert.equal(analysis.sum[2] / analysis.count, 200);
});

test('a reset begins maximum and mean again', () => {
  const { ring, analysis } = setUp();
  push(ring, 300, 0);
  analysis.catchUp(() => {});
  analysis.reset();
  push(ring, 100, 0);
  analysis.catchUp(() => {});
  assert.deepEqual([analysis.hold[2], analysis.count], [100, 1]);
});

test('the strongest echo is the point, until a person chooses one', () => {
  const { ring, analysis } = setUp();
  push(ring, 300, 0);
  analysis.catchUp(() => {});
  assert.equal(analysis.point, 2);
  analysis.setPoint(1);
  for (let i = 0; i < 20; i++) {
    push(ring, 300, 0);
  }
  analysis.catchUp(() => {});
  assert.equal(analysis.point, 1);
});

test('the phase goes on over half a turn', () => {
  const { ring, analysis } = setUp();
  for (let i = 0; i < 20; i++) {
    push(ring, 3000, 1 + i * 0.7);
  }
  analysis.catchUp(() => {});
  near(analysis.phase(0), 0);
  near(analysis.phase(19), 19 * 0.7);
});

test('the phase begins at 0 after a gap, and is unknown in a frame that is not valid', () => {
  const { ring, analysis } = setUp();
  [1, 1.5].forEach((phase) => push(ring, 3000, phase));
  push(ring, 3000, 2, { gap: true });
  push(ring, 3000, 2.5);
  push(ring, 3000, 3, { valid: false });
  push(ring, 3000, 3.1);
  analysis.catchUp(() => {});
  [0, 0.5, 0, 0.5].forEach((phase, i) => near(analysis.phase(i), phase));
  assert.ok(Number.isNaN(analysis.phase(4)));
  near(analysis.phase(5), 0);
});

test('another point has its phase in all frames of the ring', () => {
  const { ring, analysis } = setUp();
  for (let i = 0; i < 12; i++) {
    push(ring, 3000, i * 0.3);
  }
  analysis.catchUp(() => {});
  analysis.setPoint(1);
  near(analysis.phase(11), 0);
  analysis.setPoint(2);
  near(analysis.phase(11), 3.3);
  push(ring, 3000, 3.6);
  analysis.catchUp(() => {});
  near(analysis.phase(12), 3.6);
});

test('frames that left the ring are skipped', () => {
  const { ring, analysis } = setUp(30);
  for (let i = 0; i < 10; i++) {
    push(ring, 300, 0);
  }
  const seen = [];
  analysis.catchUp((number) => seen.push(number));
  assert.deepEqual(seen, [7, 8, 9]);
  assert.ok(Number.isNaN(analysis.phase(2)));
});

/** A number from -1 to 1, the same in every run. */
const noise = (i) => ((Math.sin(i * 12.9898) * 43758.5453) % 1 + 1) % 1 * 2 - 1;

/** The share of the frames in which the phase at point 2 is that of an echo. */
function certainShare(amplitudeOf, phaseOf) {
  const { ring, analysis } = setUp();
  for (let i = 0; i < 400; i++) {
    push(ring, amplitudeOf(i), phaseOf(i));
  }
  analysis.setPoint(2);
  analysis.catchUp(() => {});
  return analysis.certain.slice(0, 400).reduce((sum, certain) => sum + certain, 0) / 400;
}

test('the phase of an echo is certain, whether it moves or not', () => {
  const share = certainShare((i) => 1000 + 100 * noise(i), (i) => Math.sin(i / 5));
  assert.ok(share > 0.9, `${share}`);
});

test('the phase of noise is not certain', () => {
  const rayleigh = (i) => 1000 * Math.sqrt(-Math.log(0.5 + 0.4999 * noise(i)));
  const share = certainShare(rayleigh, (i) => Math.PI * noise(i + 0.5));
  assert.ok(share < 0.03, `${share}`);
});

test('a phase that may have turned by more than half a turn is not certain', () => {
  const steady = (i) => 1000 + 10 * noise(i);
  assert.ok(certainShare(steady, (i) => 1.4 * i) > 0.9);
  assert.equal(certainShare(steady, (i) => 1.8 * i), 0);
});
