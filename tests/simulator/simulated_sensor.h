/** @file
 * Helpers for the simulator's tests: a running simulator, a sensor that is ready to measure, its frames.
 */
#ifndef SIMULATED_SENSOR_H
#define SIMULATED_SENSOR_H

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "zet_config.h"
#include "zet_processing.h"
#include "zet_sensor.h"
#include "zet_simulator.h"
#include "zet_vantor_server.h"

/** The virtual clock, in microseconds. */
uint64_t now_us();

/** Lets time pass on the virtual clock. */
void advance_us(uint64_t duration_us);

/** A simulator that runs during the lifetime of the object, with its own memory. Collects the log. */
class simulation
{
public:
    explicit simulation(uint16_t sensor_count = 1, const zet_simulator_scene_t *scene = nullptr,
                        uint64_t seed = 1, zet_simulator_clock_t clock = zet_simulator_virtual_clock(),
                        bool (*wait_until_us)(uint64_t) = nullptr,
                        zet_simulator_observer_t observer = {nullptr, nullptr});
    /** Starts with options, of which the log is set here. */
    explicit simulation(zet_simulator_options_t options);
    ~simulation();
    simulation(const simulation &) = delete;
    simulation &operator=(const simulation &) = delete;

    /** Everything logged so far, one line each. */
    static const std::string &log();

    /** Empties the log. */
    static void clear_log();
};

/** Allocates all remaining memory of the board during the lifetime of the object. */
class exhausted_memory
{
public:
    exhausted_memory();
    ~exhausted_memory();
    exhausted_memory(const exhausted_memory &) = delete;
    exhausted_memory &operator=(const exhausted_memory &) = delete;

private:
    std::vector<void *> pieces;
};

/** How much of the board's memory is in use. */
zet_vantor_server_memory_t memory();

/** A frame as the application receives it. */
struct frame
{
    std::vector<std::complex<float>> samples;
    zet_processing_result_t result;
    float cca_value; /**< -1 without a clear-channel measurement */
};

/** A powered, calibrated sensor with its own configuration. */
class simulated_sensor
{
public:
    explicit simulated_sensor(zet_sensor_id_t sensor_id = 1);
    ~simulated_sensor();
    simulated_sensor(const simulated_sensor &) = delete;
    simulated_sensor &operator=(const simulated_sensor &) = delete;

    zet_config_t *config = nullptr;
    zet_sensor_t *sensor = nullptr;
    zet_processing_t *processing = nullptr;
    zet_processing_metadata_t metadata = {};
    zet_cal_result_t cal_result = {};
    std::vector<uint32_t> buffer;

    /** Size of the buffer in bytes. */
    [[nodiscard]] uint32_t buffer_size() const;

    /** Calibrates and resets the sensor. Returns the number of steps, 0 on failure. */
    int calibrate();

    /** Allocates the buffer, creates the processing, calibrates if not yet done, and prepares. */
    bool prepare();

    /** Enables the clear-channel measurement in each frame. */
    void enable_cca();

    /** Measures one frame. */
    bool measure(frame &measured);

    /** Measures one frame that must succeed. */
    frame measure();

private:
    zet_sensor_id_t id;
    bool calibrated = false;
    bool cca_enabled = false;
};

/** A scene with one target that does not move. */
zet_simulator_scene_t scene_with_target(float distance_m, float strength_m2);

/** A scene without targets. */
zet_simulator_scene_t empty_scene();

/** Index of the strongest sample. */
size_t strongest(const std::vector<std::complex<float>> &samples);

/** Standard deviation of complex samples. */
double deviation(const std::vector<std::complex<float>> &samples);

/** Phase from one sample to another, in turns, -0.5 to 0.5. */
double turns_between(std::complex<float> from, std::complex<float> to);

#endif
