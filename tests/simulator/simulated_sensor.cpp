/** @file
 * Helpers for the simulator's tests.
 */
#include "simulated_sensor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "board_memory.h"
#include "zet_config_cca.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_nox_k330.h"
#include "zet_processing_cca.h"

namespace
{

std::array<std::byte, size_t{8} * 1024 * 1024> board_memory;

std::string &log_text()
{
    static std::string text;
    return text;
}

void collect(zet_log_level_t, const char *module, const char *text)
{
    log_text() += std::string(module) + ": " + text + "\n";
}

} // namespace

uint64_t now_us()
{
    return zet_simulator_virtual_clock().now_us();
}

void advance_us(uint64_t duration_us)
{
    zet_simulator_virtual_clock().sleep_until_us(now_us() + duration_us);
}

simulation::simulation(uint16_t sensor_count, const zet_simulator_scene_t *scene, uint64_t seed,
                       zet_simulator_clock_t clock, bool (*wait_until_us)(uint64_t),
                       zet_simulator_observer_t observer)
    : simulation(zet_simulator_options_t{.sensor_count = sensor_count,
                                         .seed = seed,
                                         .clock = clock,
                                         .log = nullptr,
                                         .log_level = ZET_LOG_LEVEL_DEBUG,
                                         .scene = scene,
                                         .wait_until_us = wait_until_us,
                                         .observer = observer,
                                         .scene_now_us = nullptr,
                                         .clock_error = 0.0,
                                         .board = 0})
{
}

simulation::simulation(zet_simulator_options_t options)
{
    clear_log();
    memory_lend(board_memory.data(), board_memory.size());
    options.log = collect;
    options.log_level = ZET_LOG_LEVEL_DEBUG;
    EXPECT_TRUE(zet_simulator_start(&options));
    EXPECT_TRUE(zet_nox_hal_register(zet_hal_nox_integration_get_implementation()));
    zet_nox_set_log_level(ZET_LOG_LEVEL_DEBUG);
}

simulation::~simulation()
{
    zet_simulator_stop();
    EXPECT_EQ(memory().live, 0U) << "bytes were not freed";
}

const std::string &simulation::log()
{
    return log_text();
}

void simulation::clear_log()
{
    log_text().clear();
}

exhausted_memory::exhausted_memory()
{
    while (memory().largest_free > 0)
    {
        pieces.push_back(zet_integration_mem_alloc(memory().largest_free));
    }
}

exhausted_memory::~exhausted_memory()
{
    for (void *piece : pieces)
    {
        zet_integration_mem_free(piece);
    }
}

zet_vantor_server_memory_t memory()
{
    zet_vantor_server_memory_t memory = {};
    memory_get(&memory);
    return memory;
}

simulated_sensor::simulated_sensor(zet_sensor_id_t sensor_id)
    : config(zet_config_create()), buffer(64), id(sensor_id)
{
    zet_hal_integration_sensor_supply_on(id);
    zet_hal_integration_sensor_enable(id);
    sensor = zet_sensor_create(id);
    EXPECT_NE(sensor, nullptr);
}

simulated_sensor::~simulated_sensor()
{
    zet_config_destroy(config);
    zet_processing_destroy(processing);
    zet_sensor_destroy(sensor);
    zet_hal_integration_sensor_disable(id);
    zet_hal_integration_sensor_supply_off(id);
}

uint32_t simulated_sensor::buffer_size() const
{
    return static_cast<uint32_t>(buffer.size() * sizeof(buffer[0]));
}

int simulated_sensor::calibrate()
{
    int steps = 0;
    bool complete = false;
    while (!complete)
    {
        ++steps;
        if (!zet_sensor_calibrate(sensor, &complete, &cal_result, buffer.data(), buffer_size()) ||
            (!complete && !zet_hal_integration_wait_for_sensor_interrupt(id, 1000)))
        {
            steps = 0;
            break;
        }
    }
    zet_hal_integration_sensor_disable(id);
    zet_hal_integration_sensor_enable(id);
    calibrated = complete;
    return steps;
}

bool simulated_sensor::prepare()
{
    uint32_t size = 0;
    if (!zet_nox_get_buffer_size(config, &size))
    {
        return false;
    }
    buffer.resize(size / sizeof(buffer[0]));
    zet_processing_destroy(processing);
    processing = zet_processing_create(config, &metadata);
    if (processing == nullptr || (!calibrated && calibrate() == 0))
    {
        return false;
    }
    return zet_sensor_prepare(sensor, config, &cal_result, buffer.data(), buffer_size());
}

bool simulated_sensor::measure(frame &measured)
{
    if (!zet_sensor_measure(sensor) || !zet_hal_integration_wait_for_sensor_interrupt(id, 5000) ||
        !zet_sensor_read(sensor, buffer.data(), buffer_size()))
    {
        return false;
    }
    measured.cca_value = -1.0F;
    if (cca_enabled)
    {
        EXPECT_TRUE(zet_processing_cca_check(processing, buffer.data(), &measured.cca_value));
    }
    zet_processing_execute(processing, buffer.data(), &measured.result);
    measured.samples.clear();
    for (uint32_t i = 0; i < metadata.frame_data_length; ++i)
    {
        const zet_int16_complex_t &sample = measured.result.frame[i];
        measured.samples.emplace_back(sample.real, sample.imag);
    }
    return true;
}

void simulated_sensor::enable_cca()
{
    cca_enabled = true;
    zet_config_enable_cca_set(config, true);
}

frame simulated_sensor::measure()
{
    frame measured = {};
    EXPECT_TRUE(measure(measured)) << simulation::log();
    return measured;
}

zet_simulator_scene_t scene_with_target(float distance_m, float strength_m2)
{
    zet_simulator_scene_t scene = {};
    scene.target_count = 1;
    scene.targets[0].distance_m = distance_m;
    scene.targets[0].strength_m2 = strength_m2;
    return scene;
}

zet_simulator_scene_t empty_scene()
{
    return {};
}

size_t strongest(const std::vector<std::complex<float>> &samples)
{
    const auto weaker = [](auto left, auto right) { return std::abs(left) < std::abs(right); };
    return static_cast<size_t>(std::max_element(samples.begin(), samples.end(), weaker) - samples.begin());
}

double deviation(const std::vector<std::complex<float>> &samples)
{
    std::complex<double> sum;
    double squares = 0.0;
    for (const std::complex<float> &sample : samples)
    {
        sum += std::complex<double>(sample);
        squares += std::norm(std::complex<double>(sample));
    }
    const auto count = static_cast<double>(samples.size());
    return std::sqrt(squares / count - std::norm(sum / count));
}

double turns_between(std::complex<float> from, std::complex<float> to)
{
    return static_cast<double>(std::arg(to * std::conj(from))) / (2.0 * M_PI);
}
