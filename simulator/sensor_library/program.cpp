/** @file
 * The measurement program: what a prepare computes and loads into the sensor.
 */
#include "sensor_library/program.h"

#include "board/board.h"
#include "sensor_library/frame_buffer.h"
#include "sensor_library/sensor.h"

namespace zet_simulator
{

measurement_program program_of(const zet_sensor &sensor, const zet_config &config,
                               const parameter_block &block, const calibration &calibration)
{
    measurement_program program = {};
    program.config = &config;
    program.config_revision = config.revision;
    program.reset_count = board_find_sensor(sensor.id)->reset_count;
    program.sample_count = samples_per_frame(config);
    program.sweeps_per_frame = config.sweeps_per_frame;
    program.num_subsweeps = config.num_subsweeps;
    program.listens = block.run_cca_measurement != 0U;
    program.double_buffering = block.frame_double_buffer != 0U;
    program.tx_control = block.calibration.tx_freq_ctrl;
    program.rx_control = block.calibration.rx_freq_ctrl;
    program.calibration_temperature = calibration.temperature;
    program.timing = timing_of(config, block);
    program.frame = frame_signal_of(block, config.subtract_in_buffer);
    const int32_t detuning = program.tx_control - program.rx_control;
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        program.subsweeps[i] = signal_of(config.subsweeps[i], block.subsweeps[i], detuning);
    }
    return program;
}

bool program_is_loaded(const zet_sensor &sensor, const char *operation)
{
    const measurement_program &program = sensor.program;
    const auto id = static_cast<unsigned long>(sensor.id);
    if (program.config == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu is not prepared", operation, id);
        return false;
    }
    if (program.reset_count != board_find_sensor(sensor.id)->reset_count)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu was reset since it was prepared; prepare it again",
                    operation, id);
        return false;
    }
    const zet_config *config = config_find(program.config, operation);
    if (config == nullptr)
    {
        return false;
    }
    if (config->revision != program.config_revision)
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "%s: the configuration of sensor %lu was changed since it was prepared; prepare it again",
                    operation, id);
        return false;
    }
    return true;
}

} // namespace zet_simulator
