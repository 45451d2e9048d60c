/** @file
 * What the parts of the stand-in share: broken contracts, live objects, the link to the sensors.
 */
#ifndef STAND_IN_LIBRARY_H
#define STAND_IN_LIBRARY_H

#include <cstddef>
#include <cstdint>
#include <new>

#include "stand_in.h"
#include "zet_config.h"
#include "zet_processing.h"

namespace stand_in
{

/** The first word of a live object. */
enum class object_kind_t : uint32_t
{
    config = 0x464E4F43,
    sensor = 0x534E4553,
    processing = 0x434F5250,
};

/** The head of every object that is handed out. */
struct object_t
{
    object_kind_t magic;
    uint32_t serial; /**< unlike the address never used twice */
    object_t *next;
};

/** Bytes around a transfer that must stay as they are. */
constexpr size_t guard_size = 8;

/** Counts and logs a broken contract; always false. */
[[gnu::format(printf, 1, 2)]] bool refuse(const char *format, ...);

/** Logs a line that is not about a broken contract; always false. */
[[gnu::format(printf, 2, 3)]] bool log(zet_log_level_t level, const char *format, ...);

/** Logs a line of the diagnostic log, when it is on. */
[[gnu::format(printf, 1, 2)]] void log_diagnostics(const char *format, ...);

/** Checks that the board's record is registered. */
bool is_registered(const char *operation);

/** Allocates memory through the board's record; null, with a log line, when there is none. */
void *allocate(size_t size, const char *operation);

/** A number for a log line. */
inline unsigned long number(uint32_t value)
{
    return value;
}

/** What the lines of a sensor make of it. */
enum class power_t
{
    off,
    half_on, /**< supplied or enabled */
    on,      /**< also where the lines are not seen */
};

/** Forgets how all lines were switched. */
void forget_lines();

/** Checks that an id names a sensor of the board. */
bool is_sensor_id(zet_sensor_id_t sensor_id, const char *operation);

/** What the lines of a sensor make of it. */
power_t power_of(zet_sensor_id_t sensor_id);

/** Checks that a sensor is supplied and enabled. */
bool is_on(zet_sensor_id_t sensor_id, const char *operation);

/** Makes a sensor unfit to be prepared until it is reset. */
void require_reset(zet_sensor_id_t sensor_id);

/** Checks that a sensor was reset since its calibration. */
bool is_reset(zet_sensor_id_t sensor_id, const char *operation);

/** Returns a sensor to its state at power-on. */
void forget_state(zet_sensor_id_t sensor_id);

/** Adds an object to the live ones. */
void adopt(object_t *created, object_kind_t kind);

/** The first live object. */
object_t *live_objects();

/** Finds a live object; null, as a broken contract, when the handle is not one of its kind. */
object_t *find_object(const void *handle, object_kind_t kind, const char *operation);

/** Ends the life of an object. */
void destroy(object_t *found);

/** Creates an object; null when memory is exhausted. */
template <typename type_t> type_t *create(const char *operation)
{
    void *memory = allocate(sizeof(type_t), operation);
    if (memory == nullptr)
    {
        return nullptr;
    }
    auto *created = new (memory) type_t{};
    adopt(created, type_t::kind);
    return created;
}

/** Finds the object behind a handle; null, as a broken contract, when it is not alive. */
template <typename type_t> type_t *find(const void *handle, const char *operation)
{
    return static_cast<type_t *>(find_object(handle, type_t::kind, operation));
}

/** Destroys what a handle names; null does nothing. */
template <typename type_t> void destroy_handle(const void *handle, const char *operation)
{
    type_t *found = handle != nullptr ? find<type_t>(handle, operation) : nullptr;
    if (found != nullptr)
    {
        destroy(found);
    }
}

/**
 * Exchanges bytes with a sensor, in pieces of at most the board's longest transfer.
 *
 * @param data  the bytes, with guard_size bytes before and behind them that are only borrowed
 * @return false when the board wrote outside of a piece
 */
bool exchange(zet_sensor_id_t sensor_id, uint8_t *data, size_t size);

/** Offers the measurement-session parameter block to its probe; true when it may be used. */
bool fire_probe(zet_sensor_id_t sensor_id, zet_cpd_k330_meas_session_parameters_t &block);

/** Checks a work buffer. */
bool is_buffer_usable(const void *buffer, uint32_t size, uint32_t needed_size, const char *operation);

/** Settings of one sub-sweep. */
struct subsweep_t
{
    int32_t start_point = 80;
    uint16_t num_points = 160;
    uint16_t step_length = 1;
    uint16_t hwaas = 8;
    zet_config_profile_t profile = ZET_CONFIG_PROFILE_3;
    zet_config_prf_t prf = ZET_CONFIG_PRF_15_6_MHZ;
    uint8_t receiver_gain = 16;
    bool enable_tx = true;
    bool enable_loopback = false;
    bool phase_enhancement = false;
    bool iq_imbalance_compensation = false;
};

/** The head of a frame in a work buffer; the samples follow. */
struct frame_head_t
{
    uint32_t magic;
    uint32_t config_serial;
    uint32_t sample_count;
    uint32_t has_cca;
};

/** Marks a buffer with a frame that was read and not processed. */
constexpr uint32_t frame_magic = 0x4D415246;

/** Bytes of a work buffer that a calibration needs. */
constexpr uint32_t calibration_buffer_size = 256;

/** Samples of a frame; needs a valid layout. */
uint32_t samples_per_frame(const zet_config &config);

/** Size of the work buffer for frames of a number of samples. */
uint32_t buffer_size_for(uint32_t samples);

/** Checks a whole configuration. A fault is logged, but does not break a contract. */
bool is_config_valid(const zet_config &config);

/** Layout of the frames of a valid configuration. */
zet_processing_metadata_t metadata_of(const zet_config &config);

} // namespace stand_in

/** A configuration. */
struct zet_config : stand_in::object_t
{
    static constexpr auto kind = stand_in::object_kind_t::config;

    stand_in::subsweep_t subsweeps[ZET_MAX_NUM_SUBSWEEPS];
    float sweep_rate = 0.0F;
    float frame_rate = 0.0F;
    uint16_t sweeps_per_frame = 1;
    uint8_t num_subsweeps = 1;
    zet_config_idle_state_t inter_frame_idle_state = ZET_CONFIG_IDLE_STATE_DEEP_SLEEP;
    zet_config_idle_state_t inter_sweep_idle_state = ZET_CONFIG_IDLE_STATE_READY;
    bool continuous_sweep_mode = false;
    bool double_buffering = false;
    bool subtract_in_buffer = false;
    bool enable_tx = true;
    bool enable_cca = false;
};

#endif
