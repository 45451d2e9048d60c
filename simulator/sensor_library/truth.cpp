/** @file
 * What a sensor should have found in a frame.
 */
#include "zet_simulator_truth.h"

#include <cmath>
#include <optional>

#include "board/board.h"
#include "common/trigonometry.h"
#include "scene/scene.h"
#include "sensor_library/echoes.h"
#include "sensor_library/frame.h"
#include "sensor_library/hardware.h"
#include "sensor_library/synthesis.h"

namespace
{

using namespace zet_simulator;

/** Power of the error of rounding a complex sample to whole numbers. */
constexpr double rounding_power = 2.0 / 12.0;

constexpr double microsecond_s = 1.0e-6;
constexpr double pi = 3.14159265358979323846;

/** Returns the time of the scene at a sweep of a frame that began at another time; halves are between sweeps.
 */
double time_of_sweep(const measurement_program &program, double sweep, double start_s)
{
    return start_s + (program.timing.lead_us + sweep * program.timing.sweep_period_us) * microsecond_s;
}

/** Returns the mean interference over the sweeps of a frame. */
float mean_interference(const measurement_program &program, view view, double start_s)
{
    double sum = 0.0;
    for (uint32_t sweep = 0; sweep < program.sweeps_per_frame; ++sweep)
    {
        view.time_s = time_of_sweep(program, sweep, start_s);
        sum += static_cast<double>(hardware_interference(view));
    }
    return static_cast<float>(sum / program.sweeps_per_frame);
}

/** Returns the mean square of the magnitude of the noise in a sample. */
double noise_power_of(const subsweep_signal &subsweep, float interference)
{
    const auto amplitude = static_cast<double>(noise_amplitude_of(subsweep, interference));
    return 2.0 * amplitude * amplitude + rounding_power;
}

/** Returns whether a sub-sweep measures at a distance, in base steps. */
bool contains(const subsweep_signal &subsweep, double steps)
{
    const double last = (subsweep.num_points - 1) * subsweep.step_length;
    return steps >= subsweep.start_point && steps <= subsweep.start_point + last;
}

/** Returns the sub-sweep that measures at a distance, the first one when there is none. */
const subsweep_signal &subsweep_at(const measurement_program &program, double distance_m)
{
    for (uint32_t i = 0; i < program.num_subsweeps; ++i)
    {
        if (contains(program.subsweeps[i], distance_m / meters_per_step))
        {
            return program.subsweeps[i];
        }
    }
    return program.subsweeps[0];
}

/** Returns by how much the receiver turns the phase of a sample back, at a point in base steps. */
binary_angle receiver_phase_at(const frame_signal &frame, const subsweep_signal &subsweep, int32_t point)
{
    const binary_angle error_per_step = subsweep.phase_enhancement ? 0U : delay_error_per_step;
    const auto cell = static_cast<uint32_t>((point % delay_cell + delay_cell) % delay_cell);
    return phase_from_turns(frame.rx_frequency * point) + cell * error_per_step;
}

/** Returns the phase of an angle, -pi to pi. */
double radians_of(binary_angle angle)
{
    return static_cast<int32_t>(angle) * (pi / 2147483648.0);
}

/** Sets amplitude and phase of a target from its echo. */
void set_echo(const frame_signal &frame, const subsweep_signal &subsweep, const echo &echo,
              zet_simulator_target_truth_t &truth)
{
    const auto real = static_cast<double>(echo.real);
    const auto imag = static_cast<double>(echo.imag);
    const auto point = static_cast<int32_t>(
        std::lround(static_cast<double>(echo.centre) / subsweep.step_length) * subsweep.step_length);
    const double received = radians_of(receiver_phase_at(frame, subsweep, subsweep.start_point + point));
    truth.amplitude = std::sqrt(real * real + imag * imag);
    truth.phase_rad = std::remainder(std::atan2(imag, real) - received, 2.0 * pi);
}

/** Describes a target; returns whether the sensor can see it. */
bool describe(const measurement_program &program, const frame_signal &frame, const view &view,
              float interference, uint8_t index, zet_simulator_target_truth_t &truth)
{
    const std::optional<sight> seen = sight_of_target(view, index);
    if (!seen)
    {
        return false;
    }
    truth = {};
    truth.target = index;
#ifndef ZET_SIMULATOR_SMALL_SCENE
    truth.body = board_scene().targets[index].body;
#endif
    truth.distance_m = seen->distance_m;
    truth.velocity_m_s = seen->velocity_m_s;
    const subsweep_signal &subsweep = subsweep_at(program, truth.distance_m);
    truth.noise_power = noise_power_of(subsweep, interference);
    if (subsweep.transmits && !subsweep.loops_back)
    {
        set_echo(frame, subsweep, echo_of_target(frame, subsweep, view, index, *seen), truth);
    }
    return true;
}

} // namespace

void zet_simulator_truth_of(const zet_simulator_frame_t *frame, zet_simulator_truth_t *truth)
{
    const zet_sensor &sensor = *frame->sensor;
    const measurement_program &program = sensor.program;
    const zet_simulator_scene_t &scene = board_scene();
    const double start_s = scene_time_s(frame->measured->moment_us);
    const view start = view_of_frame(sensor, frame->measured->number, start_s);
    view middle = start;
    middle.time_s = time_of_sweep(program, (program.sweeps_per_frame - 1) / 2.0, start_s);
    const float interference = mean_interference(program, start, start_s);
    truth->session = board_session_number();
    truth->sensor_id = sensor.id;
    truth->tick = frame->tick;
    truth->time_s = time_of_sweep(program, 0.0, start_s);
    truth->temperature = scene_temperature(scene, sensor.id, start_s);
    truth->noise_power = noise_power_of(program.subsweeps[0], interference);
    truth->interference = static_cast<double>(interference);
    truth->target_count = 0;
    const frame_signal signal = signal_of_frame(sensor, start);
    for (uint8_t i = 0; i < scene.target_count; ++i)
    {
        if (describe(program, signal, middle, interference, i, truth->targets[truth->target_count]))
        {
            ++truth->target_count;
        }
    }
}
