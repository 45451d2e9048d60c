/** @file
 * The neighbours of the backend as the tests see them: what they answer, what they were asked, when they
 * fail.
 *
 * The stand-ins implement the board layer, the sensor library and the server core's write operation. The JSON
 * utilities and cJSON are the real ones; the calls that the backend makes on them pass through observers
 * which record them and can refuse them.
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

/** A configuration: the values that the backend reads back, and its number in order of creation. */
struct zet_config
{
    int number;
    float frame_rate;
    float sweep_rate;
    uint16_t sweeps_per_frame;
    uint8_t num_subsweeps;
};

/** A sensor handle: the calibration steps still to take. */
struct zet_sensor
{
    zet_sensor_id_t id;
    int steps_left;
};

/** A processing and its number in order of creation. */
struct zet_processing
{
    int number;
};

namespace backend_tests
{

/** Everything that a test sets up and looks at. */
struct neighbours_t
{
    board_memory_t memory;
    call_log_t calls;
    call_log_t calls_at_failure; /**< the calls of the operation up to the failure that the test asked for */

    /** @name The board */
    /** @{ */
    uint16_t sensor_count = 3;
    zet_hal_k330_t implementation{};
    /** @} */

    /** @name The sensor library */
    /** @{ */
    std::set<zet_sensor_id_t> absent_sensors;
    zet_config config_defaults{0, 0.0F, 0.0F, 1, 1}; /**< of every new configuration */
    uint32_t buffer_size = 64;
    int calibration_steps = 1;
    bool complete_although_failed = false; /**< a refused calibration step sets its completion flag */
    std::map<zet_sensor_id_t, int16_t>
        temperatures;                               /**< at calibration; 20 plus the sensor id when not set */
    std::deque<zet_processing_metadata_t> metadata; /**< of the next processings; then default_metadata() */
    std::map<int, zet_processing_result_t> results; /**< by number of the processing */
    std::map<int, std::vector<zet_int16_complex_t>> frames; /**< samples, by number of the processing */
    std::deque<float> cca_values;                           /**< of the next assessments; then 0 */
    zet_cpd_k330_meas_session_parameters_t parameters{};    /**< as the callback left them */
    zet_probes_callback_rw_t *callback = nullptr;           /**< registered for probe 20 */
    void *client_reference = nullptr;                       /**< registered for probe 20 */
    int configs_created = 0;
    int processings_created = 0;
    /** @} */

    /** @name The server core */
    /** @{ */
    uint32_t next_tick = 1000; /**< grows by 10 with every reading */
    std::vector<std::string> documents;
    std::vector<uint8_t> payload;
    std::vector<const void *> payload_blocks; /**< the address of every payload write */
    /** @} */

    /** @name JSON */
    /** @{ */
    cJSON_Hooks hooks{};
    std::set<cJSON *> loose; /**< created by the backend and neither attached nor deleted */
    /** @} */

    /** Planned refusals: name of the operation, and how many calls are still to pass (0: the next one). */
    std::vector<std::pair<std::string, int>> refusals;
    std::map<std::string, int> times_called;
};

/** The neighbours of the running test. */
neighbours_t &neighbours();

/** Fresh neighbours, for a new test. */
void reset_neighbours();

/** Records one call. */
void record(call_kind_t kind, std::string_view name, std::initializer_list<std::string> arguments);

/**
 * Lets the N-th call from now on of one operation fail.
 *
 * @param operation  its name; for an operation that adds a JSON member, "name:key" names the member too
 * @param nth        1 for the next call
 */
void refuse(const std::string &operation, int nth = 1);

/** Counts a call of an operation and tells whether it has to fail. */
bool refused(const std::string &operation);

/** How often an operation that can fail was called. */
int times_called(const std::string &operation);

/** Frame layout of a processing for which the test sets none. */
zet_processing_metadata_t default_metadata();

/** The calibration result that the sensor library's stand-in gives a sensor. */
zet_cal_result_t calibration_of(zet_sensor_id_t sensor_id, int16_t temperature);

/** The same as hexadecimal text, words in little-endian order. */
std::string calibration_text(zet_sensor_id_t sensor_id, int16_t temperature);

/** The write operation and the tick source that the tests lend to the backend. */
void write_to_host(const void *data, uint32_t size);
uint32_t read_tick();

/** Deletes what the backend left loose, and tells how many documents that were. */
size_t delete_loose_json();

} // namespace backend_tests

#endif
