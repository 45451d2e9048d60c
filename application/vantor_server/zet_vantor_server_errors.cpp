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
    "The line is longer than the server's buffer and is dropped, up to its line feed: send a shorter line.";

constexpr const char *bad_json =
    "This line is not JSON: send one JSON object (RFC 8259, UTF-8) per line, ended by a line feed.";

constexpr const char *trailing_text =
    "There is text after the JSON document in this line: end every command with a line feed.";

constexpr const char *nesting_too_deep =
    "The command is nested too deep: use at most 16 levels of objects and arrays, the command included.";

constexpr const char *too_many_values =
    "The command contains more JSON values than the server has room for: send a shorter configuration.";

constexpr const char *bad_command =
    "This is not a command: send a JSON object with a member \"command\" that is a string.";

constexpr const char *unknown_command = "This command is unknown: set \"command\" to \"identify\", \"ping\", "
                                        "\"configure\", \"start\", \"frame\", "
                                        "\"stop\", \"end\", \"baudrate\", \"log\" or \"stats\".";

constexpr const char *bad_argument =
    "The members of the command are wrong: send each member once and with the right type, and no others.";

constexpr const char *wrong_state = "The state of the session does not allow this command.";

constexpr const char *baudrate_fixed =
    "The baud rate of this server's link is fixed: do not send \"baudrate\".";

constexpr const char *configuration_refused =
    "The configuration was refused: give every group in \"groups\" at least one item, and make every item an "
    "object. If this is so, memory is short: use fewer items or points.";

constexpr const char *metadata_failed =
    "The session metadata could not be built: use fewer group items if memory is short, and leave out a "
    "calibration that the sensor cannot read.";

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
