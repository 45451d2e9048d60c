/** Items and frames for tests. */

/** An item with one sub-sweep. */
export function itemOf({ points = 8, sweeps = 1, start = 0.2, step = 0.01, offset = 0, ...rest } = {}) {
  return {
    group: 0, index: 0, sensor: 1, profile: 3, gain: 16, sweeps, points, sweep_rate: 1000, wavelength_m: 0.005,
    full_scale: 32767, max_velocity_sweeps: 1.25, max_velocity_frames: 0.025,
    subsweeps: [{ offset, points, start_m: start, step_m: step }], ...rest,
  };
}

/** Samples of a frame: the function gives the real and the imaginary part of sample i. */
export function samplesOf(count, value) {
  const samples = new Int16Array(2 * count);
  for (let i = 0; i < count; i++) {
    const [re, im] = value(i);
    samples[2 * i] = Math.round(re);
    samples[2 * i + 1] = Math.round(im);
  }
  return samples;
}

/** A frame as a message. */
export function messageOf(items, samples) {
  const header = JSON.stringify({ result_info: [items], status: 'ok', payload_size: samples.byteLength });
  const head = new TextEncoder().encode(`${header}\n`);
  const message = new Uint8Array(head.length + samples.byteLength);
  message.set(head);
  message.set(new Uint8Array(samples.buffer), head.length);
  return message.buffer;
}

/** What a frame says about an item. */
export function infoOf(tick, rest = {}) {
  return { tick, data_saturated: false, temperature: 27, calibration_needed: false, frame_delayed: false, ...rest };
}
