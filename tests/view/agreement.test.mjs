/** The page computes the same from a session as `vantor plot` from its recording. */
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { Analysis } from '../../host/view/page/analysis.js';
import { Columns } from '../../host/view/page/axes.js';
import { decodeFrame, FrameClock, nominalPeriod } from '../../host/view/page/frames.js';
import {
  dbfs, layoutsOf, meanLevels, millimetresPerRadian, nearest, VelocityMap,
} from '../../host/view/page/mathematics.js';
import { FrameRing, GAP } from '../../host/view/page/ring.js';

const { VANTOR, PLOT_FIGURES } = process.env;
const FRAMES = 60;
const DISTANCE_M = 0.8;

/** Items with an even and an odd number of sweeps, several sub-sweeps, frames that are not valid, one sweep, and more
 * sweeps than are transformed together. */
const CONFIGURATION = {
  max_update_rate: 50,
  groups: [
    [
      { sensor_id: 1, config: { sweeps_per_frame: 16, start_point: 200, num_points: 120, step_length: 2 }, cca_enable: true },
      {
        sensor_id: 2,
        config: {
          sweeps_per_frame: 5,
          subsweeps: [
            { start_point: 100, num_points: 40, step_length: 2, profile: 1 },
            { start_point: 260, num_points: 80, step_length: 4, profile: 3 },
          ],
        },
      },
    ],
    [{ sensor_id: 2, config: { start_point: 280, num_points: 60, step_length: 2 } }],
    [{ sensor_id: 1, config: { sweeps_per_frame: 300, start_point: 310, num_points: 9, step_length: 3 } }],
  ],
};

/** A target that swings by many turns of the phase, one that passes quickly, another transmitter, and a read that is so
 * slow that frames are left out: a gap. */
const SCENE = {
  targets: [
    { distance_m: 0.8, strength_m2: 0.02, oscillation_amplitude_m: 0.004, oscillation_frequency_hz: 1 },
    { distance_m: 0.6, strength_m2: 0.005, velocity_m_s: 0.5 },
  ],
  interferers: [{ strength: 20, start_s: 0.3, duration_s: 0.1 }],
  faults: [{ kind: 'slow_link', skip: 163, count: 1, bytes_per_second: 80000 }],
};

const directory = mkdtempSync(join(tmpdir(), 'vantor-agreement-'));
after(() => rmSync(directory, { recursive: true }));
const inside = (name) => join(directory, name);

/** Records the scene, and reads the frames and what `vantor plot` computes. */
function record() {
  writeFileSync(inside('scene.json'), JSON.stringify(SCENE));
  writeFileSync(inside('configuration.json'), JSON.stringify(CONFIGURATION));
  execFileSync(VANTOR, ['record', inside('configuration.json'), '--frames', String(FRAMES), '--output', inside('recording'),
    '--connect', `sim:--clock virtual --scene ${inside('scene.json')}`], { stdio: ['ignore', 'ignore', 'inherit'] });
  execFileSync(PLOT_FIGURES, [inside('recording'), String(DISTANCE_M), directory]);
  return { ...JSON.parse(readFileSync(inside('figures.json'))), messages: splitMessages(readFileSync(inside('frames.bin'))) };
}

/** The messages in a file. @param {Buffer} bytes */
function splitMessages(bytes) {
  const messages = [];
  for (let at = 0; at < bytes.length;) {
    const begin = bytes.indexOf('\n', at) + 1;
    const end = begin + JSON.parse(bytes.subarray(at, begin)).payload_size;
    messages.push(Uint8Array.from(bytes.subarray(at, end)).buffer);
    at = end;
  }
  return messages;
}

const { clock, items, messages } = record();
const layouts = layoutsOf(items.map(({ item }) => item));

/** The frames as the page keeps them. */
const ring = new FrameRing(layouts.reduce((sum, { points, sweeps }) => sum + 4 * points * sweeps, 0), nominalPeriod(clock),
  items.length);
const analyses = layouts.map((layout, index) => new Analysis(layout, ring, index));
const places = new FrameClock(clock);
for (const message of messages) {
  const frame = decodeFrame(message);
  const { seconds, gap } = places.add(frame.items[0].tick);
  ring.push(frame, seconds, gap, 0);
}
analyses.forEach((analysis, index) => {
  analysis.setPoint(items[index].point);
  analysis.catchUp(() => {});
});

/** Both sides compute in double precision, in another order. */
const DOUBLE = 1e-9;
/** Magnitudes of samples, which `vantor plot` computes in single precision and averages in double precision. */
const MAGNITUDES = 1e-7;
/** The maps of `vantor plot` are in single precision. */
const SINGLE = 1e-6;
/** Levels near -100 dBFS in single precision, averaged. */
const DECIBELS = 1e-3;

function near(actual, expected, tolerance, what) {
  assert.ok(Math.abs(actual - expected) <= tolerance, `${what}: the page has ${actual}, the picture ${expected}`);
}

/** The frames in which an item is valid. @param {Analysis} analysis */
const validFrames = (analysis) => messages.map((_, number) => number).filter((number) => analysis.valid(number));

test('the recording has what is compared', () => {
  assert.equal(messages.length, FRAMES);
  assert.equal(analyses.length, 4);
  const valid = validFrames(analyses[0]).length;
  assert.ok(valid > FRAMES / 2 && valid < FRAMES - 2, `${valid} frames are valid`);
  const phases = items[1].track.map(([, phase]) => phase ?? 0);
  assert.ok(Math.max(...phases) - Math.min(...phases) > 4 * Math.PI, 'the phase turns');
  const gaps = messages.filter((_, number) => (ring.marksOf(number, 1) & GAP) !== 0);
  assert.equal(gaps.length, 2, 'before the first frame, and one more');
});

items.forEach(({ item, ...figures }, index) => {
  const analysis = analyses[index];
  const layout = layouts[index];
  const name = `item ${index + 1}`;

  test(`${name}: level over distance`, () => {
    assert.equal(figures.profile.length, layout.points);
    figures.profile.forEach((level, i) => near(analysis.sum[i] / analysis.count, level, MAGNITUDES * level, `point ${i}`));
  });

  test(`${name}: level over distance and time`, () => {
    const columns = new Columns(layout);
    const low = layout.distances.reduce((least, metres, i) => Math.min(least, metres - layout.steps[i] / 2), Infinity);
    const high = layout.distances.reduce((most, metres, i) => Math.max(most, metres + layout.steps[i] / 2), -Infinity);
    const levels = new Float64Array(layout.points);
    assert.equal(figures.strips.length, Math.round(ring.time(FRAMES - 1) / figures.stripSeconds) + 1);
    for (let number = 0; number < FRAMES; number++) {
      const strip = figures.strips[Math.round(ring.time(number) / figures.stripSeconds)];
      assert.equal(strip.length > 0, analysis.valid(number), `frame ${number}`);
      meanLevels(ring.frame(number), layout, levels);
      strip.forEach((level, bin) => {
        const column = Math.floor(((figures.bins[bin] - low) / (high - low)) * columns.count);
        near(columns.mean(levels, column), level, SINGLE * level, `frame ${number}, ${figures.bins[bin]} m`);
      });
    }
  });

  test(`${name}: phase and displacement over time`, () => {
    assert.equal(nearest(layout.distances, DISTANCE_M), figures.point);
    const shown = figures.track.filter(([, phase]) => phase !== null);
    const valid = validFrames(analysis);
    assert.equal(shown.length, valid.length);
    shown.forEach(([seconds, phase], i) => {
      near(ring.time(valid[i]), seconds, DOUBLE, `time of frame ${valid[i]}`);
      near(analysis.phase(valid[i]), phase, DOUBLE, `phase of frame ${valid[i]}`);
    });
    messages.forEach((_, number) => assert.equal(Number.isNaN(analysis.phase(number)), !analysis.valid(number)));
    near(millimetresPerRadian(item), figures.millimetresPerRadian, DOUBLE, 'displacement of a radian');
  });

  if (item.sweeps === 1) {
    return;
  }
  test(`${name}: level over distance and velocity`, () => {
    const map = new VelocityMap(layout);
    figures.velocities.forEach((velocity, k) => near(map.velocities[k], velocity, DOUBLE, `velocity ${k}`));
    assert.equal(map.length, figures.velocities.length);
    const powers = new Float64Array(map.levels.length);
    const valid = validFrames(analysis);
    for (const number of valid) {
      map.compute(ring.frame(number));
      map.levels.forEach((level, i) => { powers[i] += 10 ** (level / 10) / valid.length; });
    }
    figures.map.forEach((levels, k) => levels.forEach((level, point) =>
      near(10 * Math.log10(powers[k * layout.points + point]), level, DECIBELS, `velocity ${k}, point ${point}`)));
    assert.ok(Math.max(...figures.map.flat()) > dbfs(100, item.full_scale), 'there is an echo');
  });
});
