/** @file
 * Every error that can be reported to the host: its stable code and its message.
 */
#include "zet_vantor_server_errors.h"

#include <cstddef>
#include <iterator>

#include "zet_vantor_server_error_messages.h"

namespace
{

constexpr const char *line_too_long =
    "Send a shorter line: the server dropped it, and will drop what follows up to the next line feed.";

constexpr const char *bad_json =
    "Send one JSON object (RFC 8259, UTF-8) per line, closed by a line feed; this line is not JSON.";

constexpr const char *trailing_text =
    "Close every command by a line feed: this line goes on after its JSON document.";

constexpr const char *nesting_too_deep = "Nest objects and arrays at most 16 deep, the command included.";

constexpr const char *too_many_values =
    "Send a shorter configuration: the command holds more JSON values than the server has room for.";

constexpr const char *bad_command = "Send a JSON object whose member \"command\" is a string.";

constexpr const char *unknown_command =
    "Set \"command\" to \"identify\", \"ping\", \"configure\", \"start\", \"frame\", \"stop\", \"end\", "
    "\"baudrate\", \"log\" or \"stats\".";

constexpr const char *bad_argument =
    "Give the command the members that it takes, each once and of the right type, and no others.";

constexpr const char *wrong_state = "Send the command when the session is in a state that allows it.";

constexpr const char *baudrate_fixed =
    "Leave \"baudrate\" out: the baud rate of this server's link is fixed.";

constexpr const char *configuration_refused =
    "Give every group of \"groups\" at least one item and make every item an object; if they are, memory is "
    "short: use fewer items or points.";

constexpr const char *metadata_failed =
    "The description of the session could not be built: use fewer group items, because memory is short, or "
    "leave out a calibration that the sensor cannot read.";

/** One error. */
struct error_row_t
{
    const char *code;           /**< what the host's program checks */
    const char *const *message; /**< address of the message; those of the backend are defined elsewhere */
};

/** The errors, in the order of zet_server_error_t. */
constexpr error_row_t error_rows[] = {
    {"line_too_long", &line_too_long},
    {"bad_json", &bad_json},
    {"trailing_text", &trailing_text},
    {"nesting_too_deep", &nesting_too_deep},
    {"too_many_values", &too_many_values},
    {"bad_command", &bad_command},
    {"unknown_command", &unknown_command},
    {"bad_argument", &bad_argument},
    {"wrong_state", &wrong_state},
    {"baudrate_fixed", &baudrate_fixed},
    {"configuration_refused", &configuration_refused},
    {"metadata_failed", &metadata_failed},
    {"json_parse", &error_json_parse_str},
    {"send_data", &error_send_data_str},
    {"missing_config", &error_missing_config},
    {"bad_config", &error_bad_config},
    {"config_faulty_update_rate", &error_config_faulty_update_rate_str},
    {"config_faulty_log_settings", &error_config_faulty_log_settings_str},
    {"config_groups", &error_config_groups_str},
    {"config_group_items", &error_config_group_items_str},
    {"config_sensor_id", &error_config_sensor_id_str},
    {"config_calibration_data", &error_config_calibration_data_str},
    {"config_calibration_list", &error_config_calibration_list},
    {"config_max_update_rate_with_frame_rate", &error_config_max_update_rate_with_frame_rate_str},
    {"config_multiple_groups_with_frame_rate", &error_config_multiple_groups_with_frame_rate_str},
    {"double_subsweep_config", &error_double_subsweep_config},
    {"too_many_subsweeps", &error_too_many_subsweeps},
    {"invalid_inter_frame_idle_state", &error_invalid_inter_frame_idle_state},
    {"invalid_inter_sweep_idle_state", &error_invalid_inter_sweep_idle_state},
    {"invalid_prf", &error_invalid_prf},
    {"nox_create_sensor", &error_nox_create_sensor_str},
    {"nox_get_buffer_size", &error_nox_get_buffer_size_str},
    {"nox_create_processing", &error_nox_create_processing_str},
    {"nox_sensor_calibration", &error_nox_sensor_calibration_str},
    {"nox_data", &error_nox_data_str},
    {"out_of_memory", &error_out_of_memory},
};
static_assert(std::size(error_rows) == ZET_SERVER_ERROR_COUNT, "one row for each error");

} // namespace

const char *zet_server_error_code(zet_server_error_t error)
{
    return error_rows[error].code;
}

const char *zet_server_error_message(zet_server_error_t error)
{
    return *error_rows[error].message;
}

zet_server_error_t zet_server_error_of_backend(const char *message, zet_server_error_t otherwise)
{
    for (size_t i = ZET_SERVER_ERROR_JSON_PARSE; i < ZET_SERVER_ERROR_COUNT; ++i)
    {
        if (*error_rows[i].message == message)
        {
            return static_cast<zet_server_error_t>(i);
        }
    }
    return otherwise;
}
