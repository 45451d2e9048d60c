/** Configurations and scenes for tests. */

/** A still target at 0.5 m. */
export const STILL = { targets: [{ distance_m: 0.5, strength_m2: 0.05 }] };

/** One item with a velocity map, at 20 frames per second. */
export function configuration(config = {}, items = 1) {
  return {
    groups: [Array.from({ length: items }, (_, i) => ({
      sensor_id: i + 1,
      config: { frame_rate: 20, start_point: 120, num_points: 100, step_length: 2, sweeps_per_frame: 8, hwaas: 16, ...config },
    }))],
  };
}
