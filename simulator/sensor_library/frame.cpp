/** @file
 * The contents of a frame: what the sensor sees while it is measured.
 */
#include "sensor_library/frame.h"

#include <cstring>

#include "board/board.h"
#include "common/noise.h"
#include "scene/scene.h"
#include "sensor_library/frame_buffer.h"
#include "sensor_library/hardware.h"
#include "sensor_library/synthesis.h"

namespace
{

using namespace zet_simulator;

/** Parts of a seed's key up to the first of these are those of sensors; then follow boards, and sessions. */
constexpr uint64_t first_board_part = uint64_t{1} << 32U;
constexpr uint64_t first_band_part = uint64_t{2} << 32U;

/** Returns the carrier frequency for a frequency control, as a multiple of the nominal frequency. */
double frequency_of(uint16_t control, uint16_t nominal)
{
    return 1.0 + static_cast<double>(control - nominal) / frequency_control_steps;
}

/** Measures all sweeps of a frame into the caller's buffer. */
void fill_frame(const zet_sensor &sensor, const measured_frame &measured, frame_head &head,
                zet_int16_complex_t *samples)
{
    const measurement_program &program = sensor.program;
    const double start_s = scene_time_s(measured.moment_us);
    view view = view_of_frame(sensor, measured.number, start_s);
    noise_source noise = noise_start(view.frame_key);
    head.temperature = scene_temperature(*view.scene, sensor.id, start_s);
    head.has_cca = program.listens;
    head.cca_value = program.listens ? synthesis_listen(view, noise) : 0.0F;

    const frame_signal undisturbed = signal_of_frame(sensor, view);
    uint32_t measurement = 0;
    for (uint32_t sweep = 0; sweep < program.sweeps_per_frame; ++sweep)
    {
        const double offset_us = program.timing.lead_us + sweep * program.timing.sweep_period_us;
        view.time_s = start_s + offset_us * 1.0e-6;
        const double drift = hardware_frequency_drift(view);
        for (uint32_t i = 0; i < program.num_subsweeps; ++i)
        {
            const subsweep_signal &subsweep = program.subsweeps[i];
            frame_signal frame = undisturbed;
            frame.tx_frequency += drift + hardware_frequency_noise(view, subsweep, measurement++);
            head.data_saturated |= synthesis_measure(frame, subsweep, view, noise, samples);
            samples += subsweep.num_points;
        }
    }
}

} // namespace

namespace zet_simulator
{

view view_of_frame(const zet_sensor &sensor, uint32_t frame_number, double time_s)
{
    const zet_simulator_scene_t &scene = board_scene();
    const zet_simulator_options_t &options = board_options();
    const uint64_t seed = scramble(options.seed);
    const uint64_t board = options.board > 0U ? key_of_part(seed, first_board_part + options.board) : seed;
    view view = {};
    view.scene = &scene;
    view.hardware = scene_find(scene.hardware, scene.hardware_count, sensor.id);
    view.sensor_id = sensor.id;
    view.time_s = time_s;
    view.band_key = key_of_part(board, first_band_part + board_session_number());
    view.session_key = key_of_part(key_of_part(board, sensor.id), sensor.session);
    view.frame_key = key_of_part(view.session_key, frame_number);
    return view;
}

frame_signal signal_of_frame(const zet_sensor &sensor, const view &start)
{
    const uint16_t nominal =
        nominal_frequency_control(sensor.id, scene_temperature(*start.scene, sensor.id, start.time_s));
    frame_signal frame = sensor.program.frame;
    if (start.hardware != nullptr)
    {
        const double kelvin = scene_celsius(*start.scene, sensor.id, start.time_s) -
                              static_cast<double>(sensor.program.calibration_temperature);
        hardware_apply(*start.hardware, kelvin, frame);
    }
    frame.tx_frequency = frequency_of(sensor.program.tx_control, nominal);
    frame.rx_frequency = frequency_of(sensor.program.rx_control, nominal);
    return frame;
}

void frame_write(const zet_sensor &sensor, const measured_frame &measured, void *buffer)
{
    frame_head head = {};
    head.magic = frame_magic;
    head.sample_count = sensor.program.sample_count;
    head.frame_number = measured.number;
    fill_frame(sensor, measured, head, samples_of(buffer));
    head.frame_delayed = measured.delayed || board_now_us() > measured.read_deadline_us;
    const int32_t moved = head.temperature - sensor.program.calibration_temperature;
    head.calibration_needed = moved >= calibration_temperature_span || moved <= -calibration_temperature_span;
    std::memcpy(buffer, &head, sizeof(head));
    if (const auto observe = board_options().observer.frame; observe != nullptr)
    {
        const zet_simulator_frame observed = {&sensor, &measured, board_find_sensor(sensor.id)->tick};
        observe(&observed);
    }
}

} // namespace zet_simulator
