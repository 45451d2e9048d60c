/** @file
 * The neighbours of the backend (the modules that it calls) in tests: what they return, which calls they
 * recorded, and when they fail.
 *
 * The stand-ins implement the board layer, the sensor library and the server core's write function. The JSON
 * utilities and cJSON are the real ones; calls from the backend go through wrappers which record them and can
 * make them fail.
 */
#ifndef NEIGHBOURS_H
#define NEIGHBOURS_H

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <cjson/cJSON.h>

#include "board_memory.h"
#include "call_log.h"
#include "zet_cpd_k330_meas_session_generated.h"
#include "zet_hal_definitions_k330.h"
#include "zet_probes.h"
#include "zet_processing.h"
#include "zet_sensor.h"

/** A configuration: the values that the backend reads back, and its number in the order of creation. */
struct zet_config
{
    int number;
    float frame_rate;
    float sweep_rate;
    uint16_t sweeps_per_frame;
    uint8_t num_subsweeps;
};

/** A sensor handle, with the number of calibration steps left. */
struct zet_sensor
{
    zet_sensor_id_t id;
    int steps_left;
};

/** A processing instance, with its number in the order of creation. */
struct zet_processing
{
    int number;
};

namespace backend_tests
{

/** Everything that a test sets up and checks. */
struct neighbours_t
{
    board_memory_t memory;
    call_log_t calls;
    call_log_t calls_at_failure; /**< the calls of the operation up to the requested failure */

    /** @name The board */
    /** @{ */
    uint16_t sensor_count = 3;
    zet_hal_k330_t implementation{};
    /** @} */

    /** @name The sensor library */
    /** @{ */
    std::set<zet_sensor_id_t> absent_sensors;
    zet_config config_defaults{0, 0.0F, 0.0F, 1, 1}; /**< the values of a new configuration */
    uint32_t buffer_size = 64;
    int calibration_steps = 1;
    bool complete_although_failed = false; /**< a failed calibration step sets its completion flag */
    /** At calibration, by sensor id; default: 20 plus the id. */
    std::map<zet_sensor_id_t, int16_t> temperatures;
    /** Of the next processing instances; then default_metadata(). */
    std::deque<zet_processing_metadata_t> metadata;
    std::map<int, zet_processing_result_t> results; /**< by number of the processing instance */
    /** Samples, by number of the processing instance. */
    std::map<int, std::vector<zet_int16_complex_t>> frames;
    std::deque<float> cca_values;                        /**< results of the next assessments; then 0 */
    zet_cpd_k330_meas_session_parameters_t parameters{}; /**< after the callback */
    zet_probes_callback_rw_t *callback = nullptr;        /**< registered for probe 20 */
    void *client_reference = nullptr;                    /**< registered for probe 20 */
    int configs_created = 0;
    int processings_created = 0;
    /** @} */

    /** @name The server core */
    /** @{ */
    uint32_t next_tick = 1000; /**< grows by 10 each time it is read */
    std::vector<std::string> documents;
    std::vector<uint8_t> payload;
    std::vector<const void *> payload_blocks; /**< the address of every payload write */
    /** @} */

    /** @name JSON */
    /** @{ */
    cJSON_Hooks hooks{};
    std::set<cJSON *> unattached; /**< created by the backend and neither attached nor deleted */
    /** @} */

    /** Requested failures: name of the function, and how many calls still succeed first. */
    std::vector<std::pair<std::string, int>> refusals;
    std::map<std::string, int> times_called;
};

/** The neighbours of the running test. */
neighbours_t &neighbours();

/** Resets the neighbours for a new test. */
void reset_neighbours();

/** Records one call. */
void record(call_kind_t kind, std::string_view name, std::initializer_list<std::string> arguments);

/**
 * Makes the N-th call of a function from now fail.
 *
 * @param operation  its name, or "name:key" for a function that adds a JSON member
 * @param nth        1 for the next call
 */
void refuse(const std::string &operation, int nth = 1);

/** Counts a call of a function and returns whether it has to fail. */
bool refused(const std::string &operation);

/** How often a function that can fail was called. */
int times_called(const std::string &operation);

/** The frame layout of a processing instance if the test does not set one. */
zet_processing_metadata_t default_metadata();

/** The calibration result of a sensor in the sensor library's stand-in. */
zet_cal_result_t calibration_of(zet_sensor_id_t sensor_id, int16_t temperature);

/** The same as hexadecimal text, in little-endian words. */
std::string calibration_text(zet_sensor_id_t sensor_id, int16_t temperature);

/** The write function and the tick source that the tests pass to the backend. */
void write_to_host(const void *data, uint32_t size);
uint32_t read_tick();

/** Deletes the documents that the backend leaked, and returns their number. */
size_t delete_leaked_json();

} // namespace backend_tests

#endif
