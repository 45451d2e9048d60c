/** @file
 * Shared parts of the stand-in: contract violations, live objects, the link to the sensors.
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

/** The header of every object. */
struct object_t
{
    object_kind_t magic;
    uint32_t serial; /**< unlike an address, never used twice */
    object_t *next;
};

/** Number of bytes before and after a transfer that must not change. */
constexpr size_t guard_size = 8;

/** Counts and logs a contract violation; always returns false. */
[[gnu::format(printf, 1, 2)]] bool refuse(const char *format, ...);

/** Logs a line that is not about a contract violation; always returns false. */
[[gnu::format(printf, 2, 3)]] bool log(zet_log_level_t level, const char *format, ...);

/** Logs a line of the diagnostic log, if it is enabled. */
[[gnu::format(printf, 1, 2)]] void log_diagnostics(const char *format, ...);

/** Checks that the board's record is registered. */
bool is_registered(const char *operation);

/** Allocates memory through the board's record. Logs an error and returns null if out of memory. */
void *allocate(size_t size, const char *operation);

/** Converts a number for the format %lu. */
inline unsigned long number(uint32_t value)
{
    return value;
}

/** The power state of a sensor, set by its lines. */
enum class power_t
{
    off,
    half_on, /**< either supplied or enabled */
    on,      /**< also if the lines are not watched */
};

/** Resets the state of all lines. */
void reset_lines();

/** Checks that an id is that of a sensor. */
bool is_sensor_id(zet_sensor_id_t sensor_id, const char *operation);

/** The power state of a sensor, set by its lines. */
power_t power_of(zet_sensor_id_t sensor_id);

/** Checks that a sensor is supplied and enabled. */
bool is_on(zet_sensor_id_t sensor_id, const char *operation);

/** Prevents a sensor from being prepared until it is reset. */
void require_reset(zet_sensor_id_t sensor_id);

/** Checks that a sensor was reset since its calibration. */
bool is_reset(zet_sensor_id_t sensor_id, const char *operation);

/** Resets a sensor to its state at power-on. */
void reset_state(zet_sensor_id_t sensor_id);

/** Adds an object to the list of live objects. */
void adopt(object_t *created, object_kind_t kind);

/** The first live object. */
object_t *live_objects();

/** Finds a live object. If there is none of this kind, counts a contract violation and returns null. */
object_t *find_object(const void *handle, object_kind_t kind, const char *operation);

/** Destroys an object. */
void destroy(object_t *found);

/** Creates an object; returns null if out of memory. */
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

/** Finds the object of a handle. If it is not alive, counts a contract violation and returns null. */
template <typename type_t> type_t *find(const void *handle, const char *operation)
{
    return static_cast<type_t *>(find_object(handle, type_t::kind, operation));
}

/** Destroys the object of a handle. Ignores null. */
template <typename type_t> void destroy_handle(const void *handle, const char *operation)
{
    type_t *found = handle != nullptr ? find<type_t>(handle, operation) : nullptr;
    if (found != nullptr)
    {
        destroy(found);
    }
}

/**
 * Transfers bytes to and from a sensor, in pieces of at most the board's longest transfer.
 *
 * @param data  the bytes, with guard_size bytes before and after them that are restored
 * @return false if the board wrote outside of a piece
 */
bool exchange(zet_sensor_id_t sensor_id, uint8_t *data, size_t size);

/** Passes the measurement-session parameter block to its probe. Returns whether the block may be used. */
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

/** The header of a frame in a work buffer. The samples follow. */
struct frame_head_t
{
    uint32_t magic;
    uint32_t config_serial;
    uint32_t sample_count;
    uint32_t has_cca;
};

/** Marks a buffer that contains a frame that was read but not processed. */
constexpr uint32_t frame_magic = 0x4D415246;

/** Size of the work buffer that a calibration needs, in bytes. */
constexpr uint32_t calibration_buffer_size = 256;

/** Number of samples in a frame. The layout must be valid. */
uint32_t samples_per_frame(const zet_config &config);

/** Size of the work buffer for frames with this number of samples. */
uint32_t buffer_size_for(uint32_t samples);

/** Checks a complete configuration. An error is logged, but not counted as a contract violation. */
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
