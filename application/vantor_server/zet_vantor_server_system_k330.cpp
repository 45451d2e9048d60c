/** @file
 * The sensor-system backend: from a configuration document to prepared sensors and a stream of frames.
 *
 * The file follows the life of a session: the record that contains everything; lifecycle and queries; the
 * configuration of a sensor; overrides of its measurement program; the frame message; the frame cycle; the
 * configuration of a session; the session metadata message.
 */
#include "zet_vantor_server_system_k330.h"

#include <cstddef>
#include <cstring>
#include <iterator>

#include "zet_cjson_utils.h"
#include "zet_config.h"
#include "zet_config_cca.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_definitions_k330.h"
#include "zet_diagnostic_log.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_integration_log.h"
#include "zet_nox_k330.h"
#include "zet_probes.h"
#include "zet_processing.h"
#include "zet_processing_cca.h"
#include "zet_sensor.h"
#include "zet_vantor_server_base_internal.h"
#include "zet_vantor_server_error_messages.h"
#include "zet_vantor_server_utils.h"

namespace
{

// Record -----------------------------------------------------------------------------------------------
// The state of the backend. Its arrays are allocated once at init, sized by the number of sensors on the
// board, and reused by every session.

constexpr size_t MAX_GROUP_COUNT = 10;
constexpr const char *module_tag = "vantor_server_system_k330";

/** One parameter to override. */
struct cpd_override_item_t
{
    uint32_t value;              /**< the new value, as given by the host */
    set_cpd_param_func set_func; /**< writes it */
};

/** The parameters that one item overrides. */
struct cpd_override_t
{
    uint32_t count;                                              /**< valid entries in items */
    cpd_override_item_t items[std::size(cpd_override_mappings)]; /**< in the order of the mapping table */
};

/** Clear-channel assessment of one item: its settings and its decisions for the next frame. */
struct cca_config_t
{
    bool enabled;
    float threshold;     /**< the channel is busy above this value */
    bool prepare_needed; /**< the transmitter was switched, so the sensor must be prepared again */
    bool tx_enable;      /**< measure the next frame with the transmitter on */
    bool debug;          /**< add the details to the frame message */
};

/** Result of the clear-channel assessment of the last frame. */
struct cca_result_t
{
    bool data_valid;   /**< the frame was measured with the transmitter on and a clear channel */
    float cca_value;   /**< strength of the interfering signals */
    bool cca_detected; /**< the value was above the threshold */
    bool tx_enabled;   /**< the frame was measured with the transmitter on */
};

/** One sensor measured with one configuration. The slot is in use exactly when config is not null. */
struct sensor_control_group_item_t
{
    zet_sensor_id_t sensor_id;
    zet_config_t *config;         /**< owned */
    cpd_override_t *cpd_override; /**< owned; null when nothing is overridden */
    cca_config_t cca_config;
    zet_processing_t *processing; /**< owned */
    zet_processing_metadata_t metadata;
    zet_processing_result_t result; /**< of the last frame */
    cca_result_t cca_result;        /**< of the last frame */
    void *buffer;                   /**< owned; the sensor library's work buffer */
    uint32_t buffer_size;           /**< in bytes */
    uint32_t sweep_tick;            /**< server tick after the interrupt of the last frame */
};

/** Items that are measured together. There may be free slots between those in use. */
struct sensor_control_group_t
{
    sensor_control_group_item_t *group_items; /**< owned; group_items_count slots */
};

/** State of a sensor that all its items share. */
struct sensor_info_t
{
    zet_sensor_t *sensor; /**< owned; null while the session does not use the sensor */
    zet_cal_result_t cal_result;
    bool calibration_complete; /**< cal_result is a usable calibration */
};

/** The groups, in the order in which they are measured, and the sensors by id minus 1. */
struct sensor_control_t
{
    sensor_control_group_t groups[MAX_GROUP_COUNT];
    sensor_info_t *sensor_info; /**< owned */
    zet_config_t **last_config; /**< owned; what each sensor was last prepared with in this session */
};

/** The complete backend. */
struct vantor_server_system_t
{
    size_t sensor_count;
    size_t group_items_count; /**< slots in every group */
    sensor_control_t sensor_control;
    float frame_rate;       /**< in hertz; 0 when no item has a frame rate */
    bool *sensor_connected; /**< owned; found out at init */
    bool enable_diagnostics;
};

vantor_server_system_t vantor_server_system;

cJSON_Hooks hooks = {zet_integration_mem_alloc, zet_integration_mem_free};

/** All slots of a group, in use or free, in order: a range for `for` loops. */
struct group_slots_t
{
    explicit group_slots_t(const sensor_control_group_t &group) : group_items(group.group_items)
    {
    }
    sensor_control_group_item_t *begin() const
    {
        return group_items;
    }
    sensor_control_group_item_t *end() const
    {
        return group_items + vantor_server_system.group_items_count;
    }

    sensor_control_group_item_t *group_items;
};

/** Returns the state of an item's sensor. */
sensor_info_t &item_sensor_info(const sensor_control_t *sensor_control,
                                const sensor_control_group_item_t *group_item)
{
    return sensor_control->sensor_info[group_item->sensor_id - 1];
}

/** Logs that memory is exhausted. Also used for all other failures to build a document. */
void log_out_of_memory()
{
    zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "Out of memory");
}

// Lifecycle and queries --------------------------------------------------------------------------------
// Setting up the record, ending a session, releasing everything, and the server core's queries.

/** Powers a sensor on and drives its enable line; the sensor is usable on return. */
void switch_sensor_on(zet_sensor_id_t sensor_id)
{
    zet_hal_integration_sensor_supply_on(sensor_id);
    zet_hal_integration_sensor_enable(sensor_id);
}

/** Releases a sensor's enable line and removes its power. */
void switch_sensor_off(zet_sensor_id_t sensor_id)
{
    zet_hal_integration_sensor_disable(sensor_id);
    zet_hal_integration_sensor_supply_off(sensor_id);
}

/** Registers the board with the sensor library; false when one of the two fails, which is logged. */
bool register_board()
{
    const zet_hal_k330_t *halptr = zet_hal_nox_integration_get_implementation();
    if (halptr == nullptr)
    {
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag,
                            "zet_hal_nox_integration_get_implementation() failed");
        return false;
    }
    if (!zet_nox_hal_register(halptr))
    {
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "zet_nox_hal_register() failed");
        return false;
    }
    return true;
}

/** Allocates memory for the record; null when memory is exhausted, which is logged. */
void *allocate(size_t size)
{
    void *memory = zet_integration_mem_alloc(size);
    if (memory == nullptr)
    {
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "zet_integration_mem_alloc failed");
    }
    return memory;
}

/** Same as allocate, but filled with zeros. */
void *allocate_zeroed(size_t size)
{
    void *memory = allocate(size);
    if (memory != nullptr)
    {
        std::memset(memory, 0, size);
    }
    return memory;
}

/** Allocates the record's arrays. On failure those allocated so far are kept; deinit releases them. */
bool allocate_record()
{
    vantor_server_system_t &system = vantor_server_system;
    sensor_control_t &sensor_control = system.sensor_control;

    sensor_control.sensor_info =
        static_cast<sensor_info_t *>(allocate_zeroed(system.sensor_count * sizeof(sensor_info_t)));
    if (sensor_control.sensor_info == nullptr)
    {
        return false;
    }
    sensor_control.last_config =
        static_cast<zet_config_t **>(allocate_zeroed(system.sensor_count * sizeof(zet_config_t *)));
    if (sensor_control.last_config == nullptr)
    {
        return false;
    }
    system.sensor_connected = static_cast<bool *>(allocate(system.sensor_count * sizeof(bool)));
    if (system.sensor_connected == nullptr)
    {
        return false;
    }
    for (sensor_control_group_t &group : sensor_control.groups)
    {
        group.group_items = static_cast<sensor_control_group_item_t *>(
            allocate_zeroed(system.group_items_count * sizeof(sensor_control_group_item_t)));
        if (group.group_items == nullptr)
        {
            return false;
        }
    }
    return true;
}

/** Finds out which sensors are connected. Leaves every sensor powered off. */
void probe_connected_sensors()
{
    for (zet_sensor_id_t sensor_id = 1; sensor_id <= vantor_server_system.sensor_count; ++sensor_id)
    {
        switch_sensor_on(sensor_id);
        vantor_server_system.sensor_connected[sensor_id - 1] = zet_sensor_connected(sensor_id);
        switch_sensor_off(sensor_id);
    }
}

/** Frees memory of the board allocator, unless the pointer is null, and sets the pointer to null. */
template <typename type_t> void release(type_t *&memory)
{
    if (memory != nullptr)
    {
        zet_integration_mem_free(memory);
        memory = nullptr;
    }
}

/** Releases everything that a slot owns; the slot is free then. */
void release_group_item(sensor_control_group_item_t &group_item)
{
    if (group_item.config != nullptr)
    {
        zet_config_destroy(group_item.config);
        group_item.config = nullptr;
    }
    release(group_item.cpd_override);
    if (group_item.processing != nullptr)
    {
        zet_processing_destroy(group_item.processing);
        group_item.processing = nullptr;
    }
    release(group_item.buffer);
}

/** Destroys a sensor's handle and switches the sensor off. Its calibration is kept, but marked as invalid. */
void release_sensor(zet_sensor_id_t sensor_id)
{
    sensor_info_t &sensor_info = vantor_server_system.sensor_control.sensor_info[sensor_id - 1];
    zet_sensor_destroy(sensor_info.sensor);
    sensor_info.sensor = nullptr;
    sensor_info.calibration_complete = false;
    vantor_server_system.sensor_control.last_config[sensor_id - 1] = nullptr;
    switch_sensor_off(sensor_id);
    zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, "Powered off sensor id %lu",
                        static_cast<unsigned long>(sensor_id));
}

} // namespace

bool zet_vantor_server_system_init(zet_log_level_t nox_log_level)
{
    cJSON_InitHooks(&hooks);
    if (!register_board())
    {
        return false;
    }
    zet_nox_set_log_level(nox_log_level);

    const size_t count = zet_hal_integration_sensor_count();
    vantor_server_system = {};
    vantor_server_system.sensor_count = count;
    vantor_server_system.group_items_count = count;
    if (!allocate_record())
    {
        return false;
    }
    probe_connected_sensors();
    return true;
}

void zet_vantor_server_system_deinit(void)
{
    release(vantor_server_system.sensor_control.sensor_info);
    release(vantor_server_system.sensor_control.last_config);
    release(vantor_server_system.sensor_connected);
    for (sensor_control_group_t &group : vantor_server_system.sensor_control.groups)
    {
        release(group.group_items);
    }
}

void zet_vantor_server_system_destroy_session(void)
{
    zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, "Stopping all sensors");
    for (const sensor_control_group_t &group : vantor_server_system.sensor_control.groups)
    {
        for (sensor_control_group_item_t &group_item : group_slots_t(group))
        {
            release_group_item(group_item);
        }
    }
    for (zet_sensor_id_t sensor_id = 1; sensor_id <= vantor_server_system.sensor_count; ++sensor_id)
    {
        if (vantor_server_system.sensor_control.sensor_info[sensor_id - 1].sensor != nullptr)
        {
            release_sensor(sensor_id);
        }
    }
}

bool zet_vantor_server_system_is_on_demand(void)
{
    return vantor_server_system.frame_rate == 0.0F;
}

const char *zet_vantor_server_system_get_sensor_name(void)
{
    return "k330";
}

bool zet_vantor_server_system_is_sensor_connected(zet_sensor_id_t sensor_id)
{
    return sensor_id != 0 && sensor_id <= vantor_server_system.sensor_count &&
           vantor_server_system.sensor_connected[sensor_id - 1];
}

bool zet_vantor_server_system_execute_diagnostics_test(const cJSON * /*input*/,
                                                       const vantor_server_interface_t * /*server_if*/)
{
    return false;
}

uint32_t zet_vantor_server_system_k3_get_sensor_count(void)
{
    return static_cast<uint32_t>(vantor_server_system.sensor_count);
}

// Configuration of a sensor ----------------------------------------------------------------------------
// Converts a "config" object into a configuration of the sensor library. Only the shape, the words and the
// number of sub-sweeps are checked here; numbers are passed to the library truncated to the width of its
// setters, and the library checks them with the complete configuration.

namespace
{

constexpr json_field_t allowed_config_fields[] = {
    {"frame_rate", FIELD_TYPE_FLOAT},
    {"start_point", FIELD_TYPE_INT},
    {"num_points", FIELD_TYPE_INT},
    {"step_length", FIELD_TYPE_INT},
    {"profile", FIELD_TYPE_INT},
    {"hwaas", FIELD_TYPE_INT},
    {"receiver_gain", FIELD_TYPE_INT},
    {"enable_tx", FIELD_TYPE_BOOLEAN},
    {"enable_loopback", FIELD_TYPE_BOOLEAN},
    {"phase_enhancement", FIELD_TYPE_BOOLEAN},
    {"iq_imbalance_compensation", FIELD_TYPE_BOOLEAN},
    {"sweeps_per_frame", FIELD_TYPE_INT},
    {"sweep_rate", FIELD_TYPE_FLOAT},
    {"continuous_sweep_mode", FIELD_TYPE_BOOLEAN},
    {"double_buffering", FIELD_TYPE_BOOLEAN},
    {"subtract_in_buffer", FIELD_TYPE_BOOLEAN},
    {"inter_frame_idle_state", FIELD_TYPE_ENUM},
    {"inter_sweep_idle_state", FIELD_TYPE_ENUM},
    {"prf", FIELD_TYPE_ENUM},
    {"subsweeps", FIELD_TYPE_ARRAY},
    {nullptr, FIELD_TYPE_NONE},
};

constexpr json_field_t allowed_subsweep_fields[] = {
    {"start_point", FIELD_TYPE_INT},
    {"num_points", FIELD_TYPE_INT},
    {"step_length", FIELD_TYPE_INT},
    {"profile", FIELD_TYPE_INT},
    {"hwaas", FIELD_TYPE_INT},
    {"receiver_gain", FIELD_TYPE_INT},
    {"enable_tx", FIELD_TYPE_BOOLEAN},
    {"enable_loopback", FIELD_TYPE_BOOLEAN},
    {"phase_enhancement", FIELD_TYPE_BOOLEAN},
    {"iq_imbalance_compensation", FIELD_TYPE_BOOLEAN},
    {"prf", FIELD_TYPE_ENUM},
    {nullptr, FIELD_TYPE_NONE},
};

/** The words of an enumeration, each at the index equal to its enumerator's value; null ends the list. */
constexpr const char *prf_words[] = {"19_5_MHz", "15_6_MHz", "13_0_MHz", "8_7_MHz",
                                     "6_5_MHz",  "5_2_MHz",  nullptr};
static_assert(std::size(prf_words) == ZET_CONFIG_PRF_5_2_MHZ + 2);

/** @copydoc prf_words */
constexpr const char *idle_state_words[] = {"deep_sleep", "sleep", "ready", nullptr};
static_assert(std::size(idle_state_words) == ZET_CONFIG_IDLE_STATE_READY + 2);

/** @copydoc prf_words */
constexpr const char *log_level_words[] = {"ERROR", "WARNING", "INFO", "VERBOSE", "DEBUG", nullptr};
static_assert(std::size(log_level_words) == ZET_LOG_LEVEL_DEBUG + 2);

// Results of read_word when there is no value.
constexpr int word_absent = -1;  /**< no such member, or not a string */
constexpr int word_unknown = -2; /**< not one of the words */

/** Reads a word of an enumeration; returns the enumerator's value or one of the two values above. */
int read_word(const cJSON *input, const char *key, const char *const *words)
{
    char *word = nullptr;
    if (!get_json_string_value(input, key, &word))
    {
        return word_absent;
    }
    for (int index = 0; words[index] != nullptr; ++index)
    {
        if (std::strcmp(words[index], word) == 0)
        {
            return index;
        }
    }
    return word_unknown;
}

/** Sets a value of a sub-sweep, truncated to the width of the library's setter. */
template <typename value_t, void (*set)(zet_config_t *, value_t, uint8_t)>
void set_truncated(zet_config_t *config, int value, uint8_t index)
{
    set(config, static_cast<value_t>(value), index);
}

/** An integer member of a sub-sweep. */
struct subsweep_int_t
{
    const char *key;
    void (*set)(zet_config_t *config, int value, uint8_t index);
};

/** A boolean member of a sub-sweep. */
struct subsweep_bool_t
{
    const char *key;
    void (*set)(zet_config_t *config, bool enabled, uint8_t index);
};

constexpr subsweep_int_t subsweep_ints[] = {
    {"start_point", set_truncated<int32_t, zet_config_subsweep_start_point_set>},
    {"num_points", set_truncated<uint16_t, zet_config_subsweep_num_points_set>},
    {"step_length", set_truncated<uint16_t, zet_config_subsweep_step_length_set>},
    {"profile", set_truncated<zet_config_profile_t, zet_config_subsweep_profile_set>},
    {"hwaas", set_truncated<uint16_t, zet_config_subsweep_hwaas_set>},
    {"receiver_gain", set_truncated<uint8_t, zet_config_subsweep_receiver_gain_set>},
};

constexpr subsweep_bool_t subsweep_bools[] = {
    {"enable_tx", zet_config_subsweep_enable_tx_set},
    {"enable_loopback", zet_config_subsweep_enable_loopback_set},
    {"phase_enhancement", zet_config_subsweep_phase_enhancement_set},
    {"iq_imbalance_compensation", zet_config_subsweep_iq_imbalance_compensation_set},
};

/**
 * Applies the sub-sweep members of an object to one sub-sweep. Absent members keep the library's default.
 *
 * @param found  receives whether the object has at least one such member; may be null
 * @return false when the pulse repetition frequency is an unknown word
 */
bool parse_subsweep_config(const cJSON *input, zet_config_t *config, uint8_t index, const char **error_msg,
                           bool *found)
{
    bool config_found = false;
    for (const subsweep_int_t &member : subsweep_ints)
    {
        int value = 0;
        if (get_json_int_value(input, member.key, &value))
        {
            member.set(config, value, index);
            config_found = true;
        }
    }
    for (const subsweep_bool_t &member : subsweep_bools)
    {
        bool value = false;
        if (get_json_bool_value(input, member.key, &value))
        {
            member.set(config, value, index);
            config_found = true;
        }
    }
    const int prf = read_word(input, "prf", prf_words);
    if (prf >= 0)
    {
        zet_config_subsweep_prf_set(config, static_cast<zet_config_prf_t>(prf), index);
    }
    if (found != nullptr)
    {
        *found = config_found || prf != word_absent;
    }
    if (prf == word_unknown)
    {
        *error_msg = error_invalid_prf;
        return false;
    }
    return true;
}

/** Applies the list of sub-sweeps and sets their number; an empty list sets it to 0. */
bool parse_subsweeps(const cJSON *subsweeps, zet_config_t *config, const char **error_msg)
{
    uint8_t index = 0;
    for (const cJSON *subsweep = subsweeps->child; subsweep != nullptr; subsweep = subsweep->next)
    {
        if (index == ZET_MAX_NUM_SUBSWEEPS)
        {
            *error_msg = error_too_many_subsweeps;
            return false;
        }
        if (!json_validate(subsweep, allowed_subsweep_fields))
        {
            *error_msg = error_bad_config;
            return false;
        }
        if (!parse_subsweep_config(subsweep, config, index, error_msg, nullptr))
        {
            return false;
        }
        ++index;
    }
    zet_config_num_subsweeps_set(config, index);
    return true;
}

/** Sets a rate from a number member, if there is one. */
void set_rate(const cJSON *input, const char *key, void (*set)(zet_config_t *, float), zet_config_t *config)
{
    float value = 0.0F;
    if (get_json_float_value(input, key, &value))
    {
        set(config, value);
    }
}

/** A boolean member that is not part of a sub-sweep. */
struct frame_switch_t
{
    const char *key;
    void (*set)(zet_config_t *config, bool enabled);
};

constexpr frame_switch_t frame_switches[] = {
    {"continuous_sweep_mode", zet_config_continuous_sweep_mode_set},
    {"double_buffering", zet_config_double_buffering_set},
    {"subtract_in_buffer", zet_config_subtract_in_buffer_set},
};

/** Sets an idle state from a string member, if there is one; false when it is an unknown word. */
bool set_idle_state(const cJSON *input, const char *key, void (*set)(zet_config_t *, zet_config_idle_state_t),
                    zet_config_t *config)
{
    const int idle_state = read_word(input, key, idle_state_words);
    if (idle_state >= 0)
    {
        set(config, static_cast<zet_config_idle_state_t>(idle_state));
    }
    return idle_state != word_unknown;
}

/** Applies the members that are not part of a sub-sweep. */
bool parse_frame_config(const cJSON *input, zet_config_t *config, const char **error_msg)
{
    set_rate(input, "frame_rate", zet_config_frame_rate_set, config);
    int sweeps_per_frame = 0;
    if (get_json_int_value(input, "sweeps_per_frame", &sweeps_per_frame))
    {
        zet_config_sweeps_per_frame_set(config, static_cast<uint16_t>(sweeps_per_frame));
    }
    set_rate(input, "sweep_rate", zet_config_sweep_rate_set, config);
    for (const frame_switch_t &member : frame_switches)
    {
        bool value = false;
        if (get_json_bool_value(input, member.key, &value))
        {
            member.set(config, value);
        }
    }
    if (!set_idle_state(input, "inter_frame_idle_state", zet_config_inter_frame_idle_state_set, config))
    {
        *error_msg = error_invalid_inter_frame_idle_state;
        return false;
    }
    if (!set_idle_state(input, "inter_sweep_idle_state", zet_config_inter_sweep_idle_state_set, config))
    {
        *error_msg = error_invalid_inter_sweep_idle_state;
        return false;
    }
    return true;
}

/** Applies a "config" object. Sub-sweep 0 is described by the object itself or by the list, not by both. */
bool parse_config(const cJSON *input, zet_config_t *config, const char **error_msg)
{
    const cJSON *subsweeps = cJSON_GetObjectItemCaseSensitive(input, "subsweeps");
    bool base_config_exists = false;
    if (!parse_subsweep_config(input, config, 0, error_msg, &base_config_exists))
    {
        return false;
    }
    if (subsweeps != nullptr)
    {
        if (base_config_exists)
        {
            *error_msg = error_double_subsweep_config;
            return false;
        }
        if (!parse_subsweeps(subsweeps, config, error_msg))
        {
            return false;
        }
    }
    return parse_frame_config(input, config, error_msg);
}

/**
 * Creates a sensor configuration from a "config" object.
 *
 * @return the configuration, owned by the caller; null on failure, with a message stored
 */
zet_config_t *create_config_sensor_control(const cJSON *input, const char **error_msg)
{
    if (!json_validate(input, allowed_config_fields))
    {
        *error_msg = error_bad_config;
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "Invalid config");
        return nullptr;
    }
    zet_config_t *config = zet_config_create();
    if (config == nullptr)
    {
        *error_msg = error_out_of_memory;
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "Failed creating config");
        return nullptr;
    }
    if (!parse_config(input, config, error_msg))
    {
        zet_config_destroy(config);
        return nullptr;
    }
    return config;
}

// Overrides of the measurement program -----------------------------------------------------------------
// An item may override individual parameters of the program that the library loads into its sensor. They are
// raw 16-bit words and are not checked. The library passes the program to the probe callback at every
// prepare.

/** Logs an override with its full value, and stores the low 16 bits in the program. */
ZET_PRINTF_FORMAT(3, 0)
void override_parameter(uint16_t *parameter, uint32_t value, const char *log_format)
{
    zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, log_format, static_cast<unsigned long>(value));
    *parameter = static_cast<uint16_t>(value);
}

/** Defines the setter of one parameter. Only the first sub-sweep can be overridden. */
#define DEFINE_CPD_SETTER(parameter, field)                                                                  \
    void set_##parameter(zet_cpd_k330_meas_session_parameters_t *program_parameters, uint32_t parameter)     \
    {                                                                                                        \
        override_parameter(&program_parameters->field, parameter,                                            \
                           "Setting CPD program parameter " #parameter " to %lu");                           \
    }

DEFINE_CPD_SETTER(tx_duration, subsweeps[0].pulse_length.tx_duration)
DEFINE_CPD_SETTER(rx_duration, subsweeps[0].pulse_length.rx_duration)
DEFINE_CPD_SETTER(integrator_ctrl, subsweeps[0].integrator_ctrl)
DEFINE_CPD_SETTER(integration_repeats, subsweeps[0].integration_repeats)
DEFINE_CPD_SETTER(rx_freq_ctrl, calibration.rx_freq_ctrl)
DEFINE_CPD_SETTER(tx_freq_ctrl, calibration.tx_freq_ctrl)

#undef DEFINE_CPD_SETTER

} // namespace

const cpd_override_mapping_t cpd_override_mappings[6] = {
    {"tx_freq_ctrl", set_tx_freq_ctrl},
    {"rx_freq_ctrl", set_rx_freq_ctrl},
    {"integration_repeats", set_integration_repeats},
    {"integrator_ctrl", set_integrator_ctrl},
    {"rx_duration", set_rx_duration},
    {"tx_duration", set_tx_duration},
};

namespace
{

constexpr json_field_t allowed_cpd_fields[] = {
    {"tx_freq_ctrl", FIELD_TYPE_INT},
    {"rx_freq_ctrl", FIELD_TYPE_INT},
    {"integration_repeats", FIELD_TYPE_INT},
    {"integrator_ctrl", FIELD_TYPE_INT},
    {"rx_duration", FIELD_TYPE_INT},
    {"tx_duration", FIELD_TYPE_INT},
    {nullptr, FIELD_TYPE_NONE},
};

/**
 * Creates the list of overrides from a "cpd_overrides" object.
 *
 * @return the list, owned by the caller; null when the object is not valid or memory is exhausted, which is
 *         logged
 */
cpd_override_t *create_cpd_override(const cJSON *input)
{
    if (!json_validate(input, allowed_cpd_fields))
    {
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "Invalid cpd config");
        return nullptr;
    }
    auto *cpd_override = static_cast<cpd_override_t *>(zet_integration_mem_alloc(sizeof(cpd_override_t)));
    if (cpd_override == nullptr)
    {
        log_out_of_memory();
        return nullptr;
    }
    std::memset(cpd_override, 0, sizeof(*cpd_override));
    for (const cpd_override_mapping_t &mapping : cpd_override_mappings)
    {
        int int_value = 0;
        if (!get_json_int_value(input, mapping.name, &int_value))
        {
            continue;
        }
        cpd_override_item_t &item = cpd_override->items[cpd_override->count];
        item.set_func = mapping.set_func;
        item.value = static_cast<uint32_t>(int_value);
        zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, "Overriding %s with value 0x%lx", mapping.name,
                            static_cast<unsigned long>(item.value));
        ++cpd_override->count;
    }
    zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, "Found %lu override items",
                        static_cast<unsigned long>(cpd_override->count));
    return cpd_override;
}

/** Probe callback: writes the overrides of the registered item into the measurement program. */
bool zet_cpd_probes_callback(const zet_probes_header_t *header, void *data, uint32_t /*data_size*/,
                             void *client_reference)
{
    if (header->probe_id != ZET_PROBE_ID_MEAS_SESSION_PARAMETERS)
    {
        return true;
    }
    const auto *cpd_override = static_cast<const cpd_override_t *>(client_reference);
    auto *program_parameters = static_cast<zet_cpd_k330_meas_session_parameters_t *>(data);
    for (uint32_t i = 0; i < cpd_override->count; ++i)
    {
        cpd_override->items[i].set_func(program_parameters, cpd_override->items[i].value);
    }
    return true;
}

// Frame message ----------------------------------------------------------------------------------------
// A JSON header with the result of every configured item's measurement, then the samples of all items, sent
// directly from the memory where processing left them.

/** Returns whether none of a group's slots is in use. */
bool is_group_empty(sensor_control_group_t *group)
{
    for (const sensor_control_group_item_t &group_item : group_slots_t(*group))
    {
        if (group_item.config != nullptr)
        {
            return false;
        }
    }
    return true;
}

/** Adds an empty array; null when memory is exhausted. */
cJSON *add_empty_array(cJSON *item, const char *key)
{
    cJSON *array = cJSON_CreateArray();
    if (array != nullptr)
    {
        cJSON_AddItemToObject(item, key, array);
    }
    return array;
}

/** Returns the size of an item's frame in bytes. */
int frame_size(const sensor_control_group_item_t &group_item)
{
    return group_item.metadata.frame_data_length * static_cast<int>(sizeof(zet_int16_complex_t));
}

/** Fills an item's object; false when a member could not be added. */
bool fill_item_info(cJSON *item_info, const sensor_control_group_item_t &group_item)
{
    const zet_processing_result_t &result = group_item.result;
    const cca_config_t &cca_config = group_item.cca_config;
    const cca_result_t &cca_result = group_item.cca_result;

    bool filled = add_json_uint32_value(item_info, "tick", group_item.sweep_tick) &&
                  add_json_bool_value(item_info, "data_saturated", result.data_saturated) &&
                  add_json_int_value(item_info, "temperature", result.temperature) &&
                  add_json_bool_value(item_info, "calibration_needed", result.calibration_needed) &&
                  add_json_bool_value(item_info, "frame_delayed", result.frame_delayed);
    if (cca_config.enabled)
    {
        filled = add_json_bool_value(item_info, "data_valid", cca_result.data_valid) && filled;
    }
    if (cca_config.enabled && cca_config.debug)
    {
        filled = add_json_float_value(item_info, "cca_value", cca_result.cca_value) &&
                 add_json_bool_value(item_info, "cca_detected", cca_result.cca_detected) &&
                 add_json_bool_value(item_info, "tx_enabled", cca_result.tx_enabled) && filled;
    }
    return filled;
}

/** Adds an item's object to its group; false on failure. */
bool add_item_info(cJSON *group_infos, const sensor_control_group_item_t &group_item)
{
    cJSON *item_info = cJSON_CreateObject();
    if (item_info == nullptr)
    {
        return false;
    }
    const bool filled = fill_item_info(item_info, group_item);
    // Added even when it is incomplete, so that it is freed with the header.
    cJSON_AddItemToArray(group_infos, item_info);
    return filled;
}

/** The samples that follow the header of a frame message. */
struct payload_t
{
    int size;           /**< in bytes */
    size_t group_count; /**< all are of items in this number of groups, from the first one on */
};

/**
 * Adds an array for every group that is not empty, with an object for every configured item: both messages
 * have this shape.
 *
 * @param add_item  adds an item's object to its group's array; false on failure
 * @param payload   the samples of the items are added to it
 */
bool add_groups(cJSON *array, sensor_control_t *sensor_control,
                bool (*add_item)(cJSON *, const sensor_control_group_item_t &), payload_t *payload)
{
    size_t count = 0;
    for (sensor_control_group_t &group : sensor_control->groups)
    {
        ++count;
        if (is_group_empty(&group))
        {
            continue;
        }
        cJSON *group_array = add_empty_array(array, "");
        if (group_array == nullptr)
        {
            return false;
        }
        for (const sensor_control_group_item_t &group_item : group_slots_t(group))
        {
            if (group_item.config == nullptr)
            {
                continue;
            }
            if (!add_item(group_array, group_item))
            {
                return false;
            }
            payload->size += frame_size(group_item);
        }
        payload->group_count = count;
    }
    return true;
}

/** Fills the header of a frame message; false on failure. */
bool fill_frame_header(cJSON *header, sensor_control_t *sensor_control, payload_t *payload)
{
    cJSON *result_info = add_empty_array(header, "result_info");
    return result_info != nullptr && add_groups(result_info, sensor_control, add_item_info, payload) &&
           add_json_string_value(header, "status", "ok") &&
           add_json_int_value(header, "payload_size", payload->size);
}

/** Sends the samples of every configured item in the first groups, one write per item. */
void send_payload(write_data_function_t *write_function, const sensor_control_t *sensor_control,
                  size_t group_count)
{
    for (size_t group = 0; group < group_count; ++group)
    {
        for (const sensor_control_group_item_t &group_item : group_slots_t(sensor_control->groups[group]))
        {
            if (group_item.config != nullptr)
            {
                const int write_len = frame_size(group_item);
                write_function(group_item.result.frame, static_cast<uint32_t>(write_len));
            }
        }
    }
}

/** Sends one frame message; false when its header could not be built or sent: no payload is sent then. */
bool send_sweep_data_sensor_control(write_data_function_t *write_function, sensor_control_t *sensor_control)
{
    cJSON *header = cJSON_CreateObject();
    if (header == nullptr)
    {
        log_out_of_memory();
        return false;
    }
    payload_t payload = {};
    if (!fill_frame_header(header, sensor_control, &payload))
    {
        log_out_of_memory();
        cJSON_Delete(header);
        return false;
    }
    const bool sent = zet_vantor_server_write_json(write_function, header);
    if (sent)
    {
        send_payload(write_function, sensor_control, payload.group_count);
    }
    cJSON_Delete(header);
    return sent;
}

// Frame cycle ------------------------------------------------------------------------------------------
// For each group in turn: prepare where needed, start every sensor, wait for each, then read, assess and
// process each. The sensors of a group measure at the same time.

/**
 * Prepares an item's sensor if it was last prepared with another configuration or its transmitter was
 * switched. A prepare that fails is recorded like one that succeeds, because the failure ends the frame.
 */
bool group_item_sensor_prepare(sensor_control_t *sensor_control, sensor_control_group_item_t *group_item)
{
    zet_config_t *&last_config = sensor_control->last_config[group_item->sensor_id - 1];
    cca_config_t &cca_config = group_item->cca_config;
    if (last_config == group_item->config && !(cca_config.enabled && cca_config.prepare_needed))
    {
        return true;
    }
    const sensor_info_t &sensor_info = item_sensor_info(sensor_control, group_item);
    const bool ok = zet_sensor_prepare(sensor_info.sensor, group_item->config, &sensor_info.cal_result,
                                       group_item->buffer, group_item->buffer_size);
    last_config = group_item->config;
    cca_config.prepare_needed = false;
    if (!ok)
    {
        zet_sensor_status(sensor_info.sensor);
    }
    return ok;
}

/** Starts an item's measurement. */
bool group_item_sensor_measure(sensor_control_t *sensor_control, sensor_control_group_item_t *group_item)
{
    zet_sensor_t *sensor = item_sensor_info(sensor_control, group_item).sensor;
    const bool ok = zet_sensor_measure(sensor);
    if (!ok)
    {
        zet_sensor_status(sensor);
    }
    return ok;
}

/**
 * Adds the duration of a number of periods, truncated to milliseconds; adds nothing when there is no rate.
 *
 * @param time_ms     the time so far
 * @param periods_ms  the number of periods times 1000
 * @param rate        periods in a second
 * @return the sum in milliseconds; UINT32_MAX when it does not fit
 */
[[gnu::noinline]] uint32_t add_duration_ms(uint32_t time_ms, float periods_ms, float rate)
{
    if (!(rate > 0.0F))
    {
        return time_ms;
    }
    const float duration = periods_ms / rate;
    if (!(duration < 4294967296.0F))
    {
        return UINT32_MAX;
    }
    const auto duration_ms = static_cast<uint32_t>(duration);
    return duration_ms < UINT32_MAX - time_ms ? time_ms + duration_ms : UINT32_MAX;
}

/** Returns the time-out of an item's interrupt: one second, plus the session's frame period, plus the sweeps
 * of a frame. */
uint32_t interrupt_timeout_ms(const sensor_control_group_item_t *group_item)
{
    const float sweep_rate_config = zet_config_sweep_rate_get(group_item->config);
    const uint16_t sweeps_per_frame = zet_config_sweeps_per_frame_get(group_item->config);
    const float sweep_rate =
        sweep_rate_config > 0.0F ? sweep_rate_config : group_item->metadata.max_sweep_rate;

    const uint32_t frame_ms = add_duration_ms(1000, 1000.0F, vantor_server_system.frame_rate);
    return add_duration_ms(frame_ms, static_cast<float>(sweeps_per_frame * 1000), sweep_rate);
}

/** Waits for the interrupt of an item's sensor; false when it does not come in time. */
bool group_item_sensor_wait_for_interrupt(sensor_control_t *sensor_control,
                                          sensor_control_group_item_t *group_item)
{
    const uint32_t timeout_ms = interrupt_timeout_ms(group_item);
    const bool ok = zet_hal_integration_wait_for_sensor_interrupt(group_item->sensor_id, timeout_ms);
    if (!ok)
    {
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "Sensor %lu interrupt timeout",
                            static_cast<unsigned long>(group_item->sensor_id));
        zet_sensor_status(item_sensor_info(sensor_control, group_item).sensor);
    }
    return ok;
}

/**
 * Assesses whether the channel was clear, and switches the transmitter for the next frame accordingly. Only a
 * frame that was measured with the transmitter on and a clear channel is valid. A value that is not a number
 * is neither above the threshold nor at most the threshold.
 */
bool group_item_process_cca(sensor_control_group_item_t *group_item)
{
    cca_config_t &cca = group_item->cca_config;
    cca_result_t &cca_result = group_item->cca_result;
    float cca_value = 0.0F;
    if (!zet_processing_cca_check(group_item->processing, group_item->buffer, &cca_value))
    {
        return false;
    }
    const bool detected = cca_value > cca.threshold;
    const bool clear = cca_value <= cca.threshold;
    if (cca.tx_enable ? detected : clear)
    {
        cca.prepare_needed = true;
        zet_config_enable_tx_set(group_item->config, !cca.tx_enable);
    }
    cca_result.data_valid = cca.tx_enable && !detected;
    cca_result.tx_enabled = cca.tx_enable;
    cca_result.cca_detected = detected;
    cca_result.cca_value = cca_value;
    cca.tx_enable = clear;
    return true;
}

/** Reads an item's frame, assesses the channel if that is enabled, and processes the frame. */
bool group_item_read_and_process_data(sensor_control_t *sensor_control,
                                      sensor_control_group_item_t *group_item)
{
    const zet_sensor_t *sensor = item_sensor_info(sensor_control, group_item).sensor;
    const bool ok = zet_sensor_read(sensor, group_item->buffer, group_item->buffer_size) &&
                    (!group_item->cca_config.enabled || group_item_process_cca(group_item));
    if (ok)
    {
        zet_processing_execute(group_item->processing, group_item->buffer, &group_item->result);
    }
    else
    {
        zet_sensor_status(sensor);
    }
    return ok;
}

/**
 * Registers the probe callback for an item and prepares its sensor if needed. An item without overrides
 * removes the registration, so that the overrides of another item never reach its sensor.
 */
bool group_item_register_and_prepare(sensor_control_t *sensor_control,
                                     sensor_control_group_item_t *group_item)
{
    zet_probes_callback_rw_t *callback =
        group_item->cpd_override != nullptr ? zet_cpd_probes_callback : nullptr;
    zet_probes_register_callback(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, callback, group_item->cpd_override);
    return group_item_sensor_prepare(sensor_control, group_item);
}

/** Waits for the configured items of a group, up to the first failure, and sets the tick of each of them. */
bool wait_for_group(sensor_control_t *sensor_control, const sensor_control_group_t &group,
                    get_tick_function_t *get_tick)
{
    for (sensor_control_group_item_t &group_item : group_slots_t(group))
    {
        if (group_item.config == nullptr)
        {
            continue;
        }
        const bool ok = group_item_sensor_wait_for_interrupt(sensor_control, &group_item);
        group_item.sweep_tick = get_tick != nullptr ? get_tick() : 0;
        if (!ok)
        {
            return false;
        }
    }
    return true;
}

/** Runs an operation on the configured items of a group, up to the first failure. */
bool for_each_item(sensor_control_t *sensor_control, const sensor_control_group_t &group,
                   bool (*operation)(sensor_control_t *, sensor_control_group_item_t *))
{
    for (sensor_control_group_item_t &group_item : group_slots_t(group))
    {
        if (group_item.config != nullptr && !operation(sensor_control, &group_item))
        {
            return false;
        }
    }
    return true;
}

/** Prepares a group and, if there is an interface, measures, waits for, reads and processes it. */
bool read_group(sensor_control_t *sensor_control, const sensor_control_group_t &group,
                const vantor_server_interface_t *server_if)
{
    if (!for_each_item(sensor_control, group, group_item_register_and_prepare))
    {
        return false;
    }
    if (server_if == nullptr)
    {
        return true;
    }
    return for_each_item(sensor_control, group, group_item_sensor_measure) &&
           wait_for_group(sensor_control, group, server_if->get_tick) &&
           for_each_item(sensor_control, group, group_item_read_and_process_data);
}

} // namespace

bool zet_vantor_server_system_read_data_frames(const vantor_server_interface_t *server_if,
                                               const char **error_msg)
{
    sensor_control_t *sensor_control = &vantor_server_system.sensor_control;
    for (const sensor_control_group_t &group : sensor_control->groups)
    {
        if (!read_group(sensor_control, group, server_if))
        {
            *error_msg = error_nox_data_str;
            return false;
        }
    }
    if (server_if != nullptr && !send_sweep_data_sensor_control(server_if->write, sensor_control))
    {
        *error_msg = error_send_data_str;
        return false;
    }
    return true;
}

// Configuration of a session ---------------------------------------------------------------------------
// The document is processed from top to bottom, and each part takes effect immediately. Nothing is undone on
// failure: the server core ends the session then.

namespace
{

/** Sets the sensor library's log level, if the document gives one; false when it is an unknown word. */
bool parse_log_level(const cJSON *input, const char **error_msg)
{
    if (!is_json_node(input, "enable_log"))
    {
        return true;
    }
    const int level = read_word(input, "enable_log", log_level_words);
    if (level == word_unknown)
    {
        *error_msg = error_config_faulty_log_settings_str;
        return false;
    }
    if (level >= 0)
    {
        zet_nox_set_log_level(static_cast<zet_log_level_t>(level));
    }
    return true;
}

/** Reads one calibration that the host has kept. On failure its bytes may already be stored. */
bool parse_calibration(const cJSON *calibration, const char **error_msg)
{
    if (!cJSON_IsObject(calibration))
    {
        zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "JSON format error");
        *error_msg = error_json_parse_str;
        return false;
    }
    int sensor_id = 0;
    if (!get_json_int_value(calibration, "sensor_id", &sensor_id) || sensor_id < 1 ||
        static_cast<size_t>(sensor_id) > vantor_server_system.sensor_count)
    {
        *error_msg = error_config_sensor_id_str;
        return false;
    }
    char *data = nullptr;
    if (!get_json_string_value(calibration, "data", &data))
    {
        *error_msg = error_config_calibration_data_str;
        return false;
    }
    sensor_info_t &sensor_info = vantor_server_system.sensor_control.sensor_info[sensor_id - 1];
    zet_cal_result_t *cal_result = &sensor_info.cal_result;
    if (!convert_hexstr2uint(data, reinterpret_cast<uint8_t *>(cal_result), sizeof(*cal_result)) ||
        !zet_sensor_validate_calibration(cal_result))
    {
        zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, "Invalid calibration data for sensor %d",
                            sensor_id);
        *error_msg = error_config_calibration_data_str;
        return false;
    }
    sensor_info.calibration_complete = true;
    return true;
}

/** Reads the calibrations that the host has kept, if the document lists any. */
bool parse_calibration_list(const cJSON *input, const char **error_msg)
{
    const cJSON *list = cJSON_GetObjectItemCaseSensitive(input, "calibration_info");
    if (list == nullptr)
    {
        return true;
    }
    if (cJSON_GetArraySize(list) == 0)
    {
        zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, "Invalid calibration list");
        *error_msg = error_config_calibration_list;
        return false;
    }
    for (const cJSON *calibration = list->child; calibration != nullptr; calibration = calibration->next)
    {
        if (!parse_calibration(calibration, error_msg))
        {
            return false;
        }
    }
    return true;
}

/** Powers a sensor on and creates its handle; leaves it powered off when that fails. */
bool create_sensor(sensor_info_t *sensor_info, zet_sensor_id_t sensor_id, const char **error_msg)
{
    switch_sensor_on(sensor_id);
    zet_integration_log(ZET_LOG_LEVEL_INFO, module_tag, "Powered on sensor id %lu",
                        static_cast<unsigned long>(sensor_id));
    sensor_info->sensor = zet_sensor_create(sensor_id);
    if (sensor_info->sensor == nullptr)
    {
        *error_msg = error_nox_create_sensor_str;
        switch_sensor_off(sensor_id);
        return false;
    }
    return true;
}

/** Creates an item's configuration and overrides. The configuration is kept when the overrides fail. */
bool parse_group_item_config(const cJSON *group_item, sensor_control_group_item_t *group_item_info,
                             const char **error_msg)
{
    const cJSON *config = cJSON_GetObjectItemCaseSensitive(group_item, "config");
    if (!cJSON_IsObject(config))
    {
        *error_msg = error_missing_config;
        return false;
    }
    group_item_info->config = create_config_sensor_control(config, error_msg);
    if (group_item_info->config == nullptr)
    {
        return false;
    }
    group_item_info->cpd_override = nullptr;
    const cJSON *cpd_overrides = cJSON_GetObjectItemCaseSensitive(group_item, "cpd_overrides");
    if (cpd_overrides != nullptr)
    {
        group_item_info->cpd_override = create_cpd_override(cpd_overrides);
        if (group_item_info->cpd_override == nullptr)
        {
            *error_msg = error_bad_config;
            return false;
        }
    }
    return true;
}

/** Reads an item's clear-channel settings. An assessed item starts with the transmitter off. */
void parse_group_item_cca(const cJSON *group_item, sensor_control_group_item_t *group_item_info)
{
    cca_config_t &cca_config = group_item_info->cca_config;
    if (!get_json_bool_value(group_item, "cca_enable", &cca_config.enabled))
    {
        cca_config.enabled = false;
    }
    if (!cca_config.enabled)
    {
        return;
    }
    cca_config.threshold = 0.0F;
    cca_config.prepare_needed = true;
    cca_config.tx_enable = false;
    cca_config.debug = false;
    zet_config_enable_cca_set(group_item_info->config, true);
    zet_config_enable_tx_set(group_item_info->config, false);
    get_json_float_value(group_item, "cca_threshold", &cca_config.threshold);
    get_json_bool_value(group_item, "cca_debug", &cca_config.debug);
}

/** Allocates the work buffer that an item's configuration needs. */
bool allocate_buffer(sensor_control_group_item_t *group_item_info, const char **error_msg)
{
    if (!zet_nox_get_buffer_size(group_item_info->config, &group_item_info->buffer_size))
    {
        *error_msg = error_nox_get_buffer_size_str;
        return false;
    }
    group_item_info->buffer = zet_integration_mem_alloc(group_item_info->buffer_size);
    if (group_item_info->buffer == nullptr)
    {
        log_out_of_memory();
        return false;
    }
    return true;
}

/** Calibrates an item's sensor step by step, then resets it: otherwise it could not measure. */
bool calibrate_sensor(sensor_info_t *sensor_info, sensor_control_group_item_t *group_item_info,
                      const char **error_msg)
{
    std::memset(&sensor_info->cal_result, 0, sizeof(sensor_info->cal_result));
    if (vantor_server_system.enable_diagnostics)
    {
        zet_diagnostic_log_enable(true);
    }
    bool ok = false;
    do
    {
        ok = zet_sensor_calibrate(sensor_info->sensor, &sensor_info->calibration_complete,
                                  &sensor_info->cal_result, group_item_info->buffer,
                                  group_item_info->buffer_size);
        if (ok && !sensor_info->calibration_complete)
        {
            ok = group_item_sensor_wait_for_interrupt(&vantor_server_system.sensor_control, group_item_info);
        }
    } while (ok && !sensor_info->calibration_complete);
    zet_diagnostic_log_enable(false);
    if (!ok)
    {
        *error_msg = error_nox_sensor_calibration_str;
    }
    zet_hal_integration_sensor_disable(group_item_info->sensor_id);
    zet_hal_integration_sensor_enable(group_item_info->sensor_id);
    return ok;
}

/** Creates an item's processing. */
bool create_processing(sensor_control_group_item_t *group_item_info, const char **error_msg)
{
    group_item_info->processing = zet_processing_create(group_item_info->config, &group_item_info->metadata);
    if (group_item_info->processing == nullptr)
    {
        *error_msg = error_nox_create_processing_str;
        return false;
    }
    return true;
}

/** Sets up an item whose sensor has a handle, and prepares the sensors of all items so far. */
bool set_up_group_item(const cJSON *group_item, sensor_info_t *sensor_info,
                       sensor_control_group_item_t *group_item_info, const char **error_msg)
{
    if (!parse_group_item_config(group_item, group_item_info, error_msg))
    {
        return false;
    }
    parse_group_item_cca(group_item, group_item_info);
    return allocate_buffer(group_item_info, error_msg) &&
           (sensor_info->calibration_complete || calibrate_sensor(sensor_info, group_item_info, error_msg)) &&
           create_processing(group_item_info, error_msg) &&
           zet_vantor_server_system_read_data_frames(nullptr, error_msg);
}

/**
 * Reads one item and sets it up. A sensor that this item powered on is powered off again when the item fails;
 * its handle is kept until the end of the session.
 */
[[gnu::noinline]] bool parse_group_item_sensor_control(const cJSON *group_item, sensor_info_t *sensor_info,
                                                       sensor_control_group_item_t *group_item_info,
                                                       const char **error_msg)
{
    int int_value = 0;
    if (!get_json_int_value(group_item, "sensor_id", &int_value) ||
        !zet_vantor_server_system_is_sensor_connected(static_cast<zet_sensor_id_t>(int_value)))
    {
        *error_msg = error_config_sensor_id_str;
        return false;
    }
    const auto sensor_id = static_cast<zet_sensor_id_t>(int_value);
    group_item_info->sensor_id = sensor_id;

    sensor_info_t *item_sensor = &sensor_info[sensor_id - 1];
    bool sensor_enabled = false;
    if (item_sensor->sensor == nullptr)
    {
        if (!create_sensor(item_sensor, sensor_id, error_msg))
        {
            return false;
        }
        sensor_enabled = true;
    }
    const bool ok = set_up_group_item(group_item, item_sensor, group_item_info, error_msg);
    if (!ok && sensor_enabled)
    {
        switch_sensor_off(sensor_id);
    }
    return ok;
}

/** Reads a group: all its items, even if one fails; the result is that of the last item. */
bool parse_group_sensor_control(const cJSON *group, sensor_info_t *sensor_info,
                                sensor_control_group_t *group_info, const char **error_msg)
{
    bool ok = false;
    size_t index = 0;
    for (const cJSON *group_item = group->child; group_item != nullptr; group_item = group_item->next)
    {
        if (index == vantor_server_system.group_items_count)
        {
            *error_msg = error_config_group_items_str;
            return false;
        }
        if (cJSON_IsObject(group_item))
        {
            ok = parse_group_item_sensor_control(group_item, sensor_info, &group_info->group_items[index],
                                                 error_msg);
        }
        else
        {
            zet_integration_log(ZET_LOG_LEVEL_ERROR, module_tag, "JSON format error");
            ok = false;
        }
        ++index;
    }
    return ok;
}

/** Reads the groups, if the document has any, and counts them. */
bool parse_groups(const cJSON *input, size_t *group_count, const char **error_msg)
{
    sensor_control_t &sensor_control = vantor_server_system.sensor_control;
    const cJSON *groups = cJSON_GetObjectItemCaseSensitive(input, "groups");
    const cJSON *group = nullptr;
    cJSON_ArrayForEach(group, groups)
    {
        if (*group_count == MAX_GROUP_COUNT)
        {
            *error_msg = error_config_groups_str;
            return false;
        }
        if (cJSON_GetArraySize(group) == 0 ||
            !parse_group_sensor_control(group, sensor_control.sensor_info,
                                        &sensor_control.groups[*group_count], error_msg))
        {
            return false;
        }
        ++*group_count;
    }
    return true;
}

/** Finds the session's frame rate: the first one that is not 0 among the items of the groups read. */
bool find_frame_rate(size_t group_count)
{
    vantor_server_system.frame_rate = 0.0F;
    for (size_t group = 0; group < group_count; ++group)
    {
        for (const sensor_control_group_item_t &group_item :
             group_slots_t(vantor_server_system.sensor_control.groups[group]))
        {
            if (group_item.config == nullptr)
            {
                continue;
            }
            vantor_server_system.frame_rate = zet_config_frame_rate_get(group_item.config);
            if (vantor_server_system.frame_rate != 0.0F)
            {
                return true;
            }
        }
    }
    return false;
}

/** Checks that a session has a frame rate or an update rate, not both, and reads the update rate. */
bool parse_rates(const cJSON *input, size_t group_count, float *max_update_rate, const char **error_msg)
{
    const bool frame_rate_set = find_frame_rate(group_count);
    const bool update_rate_given =
        is_json_node(input, "max_update_rate") || is_json_node(input, "update_rate");
    if (frame_rate_set)
    {
        if (update_rate_given)
        {
            *error_msg = error_config_max_update_rate_with_frame_rate_str;
            return false;
        }
        if (group_count > 1)
        {
            *error_msg = error_config_multiple_groups_with_frame_rate_str;
            return false;
        }
        return true;
    }
    if (!update_rate_given)
    {
        return true;
    }
    float temp_float = 0.0F;
    if (!get_json_float_value(input, "max_update_rate", &temp_float) &&
        !get_json_float_value(input, "update_rate", &temp_float))
    {
        *error_msg = error_config_faulty_update_rate_str;
        return false;
    }
    *max_update_rate = temp_float;
    return true;
}

} // namespace

bool zet_vantor_server_system_parse_configuration(const cJSON *input, float *max_update_rate,
                                                  const char **error_msg)
{
    *max_update_rate = -1.0F;
    const bool ok = parse_log_level(input, error_msg) && parse_calibration_list(input, error_msg);
    vantor_server_system.enable_diagnostics = false;
    get_json_bool_value(input, "enable_diagnostics", &vantor_server_system.enable_diagnostics);
    size_t group_count = 0;
    return ok && parse_groups(input, &group_count, error_msg) &&
           parse_rates(input, group_count, max_update_rate, error_msg);
}

// Session metadata message -----------------------------------------------------------------------------
// Sent once before the first frame: the calibrations, which the host can keep and send back, and the layout
// of every item's frames, in the same shape as the frame messages.

namespace
{

constexpr size_t cal_result_blob_str_size = 2 * sizeof(zet_cal_result_t) + 1;

/**
 * Appends the calibration of one sensor. An entry that fails is neither added nor freed.
 *
 * @param cal_result_blob_str  buffer for the text, cal_result_blob_str_size bytes
 */
bool add_calibration_info(cJSON *calibration_info, size_t sensor_index, char *cal_result_blob_str)
{
    zet_cal_result_t *cal_result = &vantor_server_system.sensor_control.sensor_info[sensor_index].cal_result;
    zet_cal_info_t cal_info = {};
    if (!zet_sensor_get_cal_info(cal_result, &cal_info))
    {
        return false;
    }
    auto *data_array = reinterpret_cast<uint8_t *>(cal_result);
    convert_uint2hexstr(data_array, sizeof(*cal_result), cal_result_blob_str);
    cal_result_blob_str[cal_result_blob_str_size - 1] = '\0';

    cJSON *cal_info_obj = cJSON_CreateObject();
    return cal_info_obj != nullptr &&
           add_json_uint32_value(cal_info_obj, "sensor_id", static_cast<uint32_t>(sensor_index + 1)) &&
           add_json_int_value(cal_info_obj, "temperature", cal_info.temperature) &&
           add_json_string_value(cal_info_obj, "data", cal_result_blob_str) &&
           cJSON_AddItemToArray(calibration_info, cal_info_obj) != 0;
}

/** Adds the calibrations of all calibrated sensors. Only a failure of the last one is reported. */
bool add_calibration_list(cJSON *document)
{
    cJSON *calibration_info = cJSON_AddArrayToObject(document, "calibration_info");
    if (calibration_info == nullptr)
    {
        return false;
    }
    auto *cal_result_blob_str = static_cast<char *>(zet_integration_mem_alloc(cal_result_blob_str_size));
    if (cal_result_blob_str == nullptr)
    {
        return false;
    }
    bool success = true;
    for (size_t i = 0; i < vantor_server_system.sensor_count; ++i)
    {
        if (vantor_server_system.sensor_control.sensor_info[i].calibration_complete)
        {
            success = add_calibration_info(calibration_info, i, cal_result_blob_str);
        }
    }
    zet_integration_mem_free(cal_result_blob_str);
    return success;
}

/** Adds the members that describe an item's complete frames. */
bool add_frame_layout(cJSON *item, const sensor_control_group_item_t &group_item)
{
    const sensor_info_t &sensor_info = item_sensor_info(&vantor_server_system.sensor_control, &group_item);
    const zet_processing_metadata_t &metadata = group_item.metadata;
    zet_cal_info_t cal_info = {};
    const bool calibrated = zet_sensor_get_cal_info(&sensor_info.cal_result, &cal_info);
    const float base_step_length_m = zet_processing_points_to_meter(1);
    return calibrated && add_json_int_value(item, "calibration_temperature", cal_info.temperature) &&
           add_json_int_value(item, "frame_data_length", metadata.frame_data_length) &&
           add_json_int_value(item, "sweep_data_length", metadata.sweep_data_length) &&
           add_json_float_value(item, "max_sweep_rate", metadata.max_sweep_rate) &&
           add_json_bool_value(item, "high_speed_mode", metadata.high_speed_mode) &&
           add_json_float_value(item, "base_step_length_m", base_step_length_m);
}

/** Adds an item's object to its group. */
bool add_item_metadata(cJSON *group_array, const sensor_control_group_item_t &group_item)
{
    const zet_processing_metadata_t &metadata = group_item.metadata;
    cJSON *subsweep_data_offset_array = nullptr;
    cJSON *subsweep_data_length_array = nullptr;
    cJSON *item = cJSON_AddObjectToObject(group_array, "unused");
    bool success = item != nullptr && add_frame_layout(item, group_item);
    if (success)
    {
        subsweep_data_offset_array = add_empty_array(item, "subsweep_data_offset");
        subsweep_data_length_array = add_empty_array(item, "subsweep_data_length");
        success = subsweep_data_offset_array != nullptr && subsweep_data_length_array != nullptr;
    }
    for (uint8_t subsweep = 0; subsweep < zet_config_num_subsweeps_get(group_item.config) && success;
         ++subsweep)
    {
        success =
            add_json_int_value(subsweep_data_offset_array, "unused",
                               metadata.subsweep_data_offset[subsweep]) &&
            add_json_int_value(subsweep_data_length_array, "unused", metadata.subsweep_data_length[subsweep]);
    }
    return success;
}

/** Adds the layout of every configured item's frames. */
bool add_metadata_list(cJSON *document)
{
    cJSON *metadata = cJSON_AddArrayToObject(document, "metadata");
    payload_t no_payload = {};
    return metadata != nullptr &&
           add_groups(metadata, &vantor_server_system.sensor_control, add_item_metadata, &no_payload);
}

/** Fills the session metadata message; false on failure, also when the document is null. */
bool fill_session_metadata(cJSON *document, uint32_t tick_period)
{
    return add_json_string_value(document, "status", "ok") &&
           add_json_uint32_value(document, "tick_period", tick_period) &&
           add_json_int_value(document, "payload_size", 0) &&
           (vantor_server_system.sensor_count == 0 || add_calibration_list(document)) &&
           add_metadata_list(document);
}

} // namespace

bool zet_vantor_server_system_send_session_metadata(write_data_function_t *write_function,
                                                    uint32_t tick_period)
{
    cJSON *document = cJSON_CreateObject();
    bool success = fill_session_metadata(document, tick_period);
    if (success)
    {
        success = zet_vantor_server_write_json(write_function, document);
    }
    else
    {
        log_out_of_memory();
    }
    if (document != nullptr)
    {
        cJSON_Delete(document);
    }
    return success;
}
