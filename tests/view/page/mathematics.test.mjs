import assert from 'node:assert/strict';
import { test } from 'node:test';
import {
  dbfs, greatest, layoutsOf, meanLevels, millimetresPerRadian, nearest, meanAt, phaseStep, velocitiesOf, VelocityMap,
} from '../../../host/view/page/mathematics.js';
import { itemOf, samplesOf } from './samples.mjs';

const near = (actual, expected, tolerance = 1e-9) =>
  assert.ok(Math.abs(actual - expected) <= tolerance, `${actual} is not ${expected}`);

test('full scale is 0 dBFS, and very low amplitudes have a floor', () => {
  near(dbfs(32767, 32767), 0);
  near(dbfs(3276.7, 32767), -20);
  near(dbfs(0, 32767), 20 * Math.log10(0.1 / 32767));
});

test('layouts follow one another in the order of the payload', () => {
  const layouts = layoutsOf([itemOf({ points: 4, sweeps: 3 }), itemOf({ points: 5 })]);
  assert.deepEqual(layouts.map((layout) => layout.offset), [0, 12]);
  near(layouts[0].distances[3], 0.23);
});

test('distances of sub-sweeps have their own start and step', () => {
  const [layout] = layoutsOf([itemOf({
    points: 5,
    subsweeps: [{ offset: 0, points: 2, start_m: 1, step_m: 0.5 }, { offset: 2, points: 3, start_m: 0.1, step_m: 0.2 }],
  })]);
  [1, 1.5, 0.1, 0.3, 0.5].forEach((distance, i) => near(layout.distances[i], distance));
});

test('a level is the mean of the magnitudes over the sweeps', () => {
  const [, layout] = layoutsOf([itemOf({ points: 1 }), itemOf({ points: 2, sweeps: 2 })]);
  const samples = samplesOf(5, (i) => [[9, 9], [3, 4], [0, 0], [0, -15], [8, 6]][i]);
  const levels = new Float64Array(2);
  meanLevels(samples, layout, levels);
  assert.deepEqual([...levels], [10, 5]);
});

test('phase and amplitude are those of the mean sample', () => {
  const [layout] = layoutsOf([itemOf({ points: 2, sweeps: 2 })]);
  const samples = samplesOf(4, (i) => [[7, 7], [100, 0], [7, 7], [0, 100]][i]);
  const [phase, amplitude] = meanAt(samples, layout, 1);
  near(phase, Math.PI / 4);
  near(amplitude, Math.hypot(50, 50));
});

test('a phase step is the short way round', () => {
  near(phaseStep(3, -3), 2 * Math.PI - 6);
  near(phaseStep(-3, 3), 6 - 2 * Math.PI);
  near(phaseStep(0.5, 0.2), -0.3);
});

test('a whole turn of the phase is half a wavelength', () => {
  near(2 * Math.PI * millimetresPerRadian(itemOf()), 2.5);
});

test('nearest and greatest find an index', () => {
  assert.equal(nearest([0, 1, 2, 3], 1.6), 2);
  assert.equal(greatest([1, 5, 2]), 1);
});

for (const length of [4, 7, 12, 32, 45, 128]) {
  test(`a map of ${length} sweeps has the powers of the windowed transform`, () => {
    const [layout] = layoutsOf([itemOf({ points: 1, sweeps: length })]);
    const samples = samplesOf(length, (i) => [9000 * Math.sin(i * i + 1), 9000 * Math.cos(3 * i)]);
    const map = new VelocityMap(layout);
    map.compute(samples);
    const weights = Array.from({ length }, (_, n) => 0.5 - 0.5 * Math.cos((2 * Math.PI * (n + 0.5)) / length));
    const sum = weights.reduce((total, weight) => total + weight, 0);
    for (let k = 0; k < length; k++) {
      let re = 0;
      let im = 0;
      for (let n = 0; n < length; n++) {
        const angle = (-2 * Math.PI * (k - Math.floor(length / 2)) * n) / length;
        re += weights[n] * (samples[2 * n] * Math.cos(angle) - samples[2 * n + 1] * Math.sin(angle));
        im += weights[n] * (samples[2 * n] * Math.sin(angle) + samples[2 * n + 1] * Math.cos(angle));
      }
      near(map.levels[k], dbfs(Math.hypot(re, im) / sum, 32767), 1e-3);
    }
  });
}

test('velocities are centred on 0, positive away from the sensor', () => {
  assert.deepEqual([...velocitiesOf(4, 1)], [-1, -0.5, 0, 0.5]);
  assert.deepEqual([...velocitiesOf(5, 1)].map((v) => Math.round(v * 10)), [-8, -4, 0, 4, 8]);
});

test('a tone in the sweeps is a peak of its amplitude at its velocity', () => {
  const [layout] = layoutsOf([itemOf({ points: 3, sweeps: 32 })]);
  const tone = (sweep) => [8000 * Math.cos((2 * Math.PI * 5 * sweep) / 32), 8000 * Math.sin((2 * Math.PI * 5 * sweep) / 32)];
  const samples = samplesOf(96, (i) => (i % 3 === 1 ? tone(Math.floor(i / 3)) : [0, 0]));
  const map = new VelocityMap(layout);
  map.compute(samples);
  near(map.peakAt(1), (2 * 1.25 * 5) / 32);
  near(map.levels[(16 + 5) * 3 + 1], dbfs(8000, 32767), 1e-3);
  near(map.levels[(16 + 5) * 3 + 0], dbfs(0, 32767), 1e-3);
});

test('long frames are divided into segments of 128 sweeps', () => {
  const [layout] = layoutsOf([itemOf({ points: 1, sweeps: 300 })]);
  const map = new VelocityMap(layout);
  map.compute(samplesOf(300, (i) => (i < 128 ? [8000, 0] : [0, 0])));
  assert.equal(map.length, 128);
  near(map.levels[64], dbfs(8000 / Math.SQRT2, 32767), 1e-3);
});
