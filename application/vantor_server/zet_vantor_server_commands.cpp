/** @file
 * The commands of the server core.
 */
#include "zet_vantor_server_commands.h"

#include <cstring>

#include <cjson/cJSON.h>

#include "zet_cjson_utils.h"
#include "zet_json_scanner.h"
#include "zet_log_levels.h"
#include "zet_vantor_server_baudrate.h"
#include "zet_vantor_server_groups.h"
#include "zet_vantor_server_messages.h"
#include "zet_vantor_server_numbers.h"
#include "zet_vantor_server_reports.h"
#include "zet_vantor_server_session.h"
#include "zet_vantor_server_state.h"
#include "zet_vantor_server_system_k330.h"

namespace
{

/** Seconds within which the host must confirm a new baud rate. */
constexpr uint64_t baudrate_trial_seconds = 2;

/** Any state. */
constexpr uint8_t any_state = SESSION_IDLE | SESSION_CONFIGURED | SESSION_STREAMING;

struct command_t;

/** Executes a command. Its members and the session's state have been checked. */
typedef void command_function_t(const command_t *self, const cJSON *command);

/** A command. */
struct command_t
{
    const char *name;            /**< value of its "command" member */
    const json_field_t *fields;  /**< the members that it accepts */
    const char *usage;           /**< error message when its members are wrong */
    uint8_t states;              /**< the states that allow it */
    command_function_t *execute; /**< executes it */
};

/** Reports to the host that the members of a command are wrong. */
void report_bad_argument(const command_t *command)
{
    zet_server_report_error(ZET_SERVER_ERROR_BAD_ARGUMENT, command->usage);
}

void execute_identify(const command_t *self, const cJSON * /*command*/)
{
    zet_server_describe(self->name);
}

void execute_ping(const command_t *self, const cJSON * /*command*/)
{
    zet_server.baudrate_on_trial = false;
    zet_server.confirmed_baudrate = zet_server.baudrate;
    zet_server_report_tick(self->name);
}

/**
 * Reports an error to the host if the backend must not get a configuration. Not inlined: the stack needs the
 * message only here.
 */
[[gnu::noinline]] bool accept_configuration(const cJSON *configuration)
{
    char message[zet_groups_message_size];
    if (!zet_groups_check(configuration, zet_vantor_server_system_k3_get_sensor_count(), message))
    {
        zet_server_report_error(ZET_SERVER_ERROR_CONFIGURATION_REFUSED, message);
        return false;
    }
    if (!zet_numbers_check(configuration, message))
    {
        zet_server_report_error(ZET_SERVER_ERROR_BAD_CONFIG, message);
        return false;
    }
    return true;
}

/** Sets up a session, completely or not at all: an error in any item ends it, and is reported to the host. */
bool set_up_session(const cJSON *configuration, float *update_rate)
{
    const char *message = nullptr;
    const bool accepted = zet_vantor_server_system_parse_configuration(configuration, update_rate, &message);
    if (zet_server_take_given_up_wait() && !accepted)
    {
        zet_vantor_server_system_destroy_session();
        return false;
    }
    if (!accepted || message != nullptr)
    {
        zet_server_fail_session(zet_server_error_of_backend(message, ZET_SERVER_ERROR_CONFIGURATION_REFUSED));
        return false;
    }
    return true;
}

void execute_configure(const command_t *self, const cJSON *command)
{
    const cJSON *configuration = cJSON_GetObjectItemCaseSensitive(command, "configuration");
    if (configuration == nullptr)
    {
        report_bad_argument(self);
        return;
    }
    float update_rate = -1.0F;
    if (!accept_configuration(configuration) || !set_up_session(configuration, &update_rate))
    {
        return;
    }
    const bool on_demand = zet_vantor_server_system_is_on_demand();
    zet_server.tick_period = on_demand ? zet_server_clock_period(&zet_server.clock, update_rate) : 0;
    zet_server_flush_log();
    if (!zet_vantor_server_system_send_session_metadata(zet_server_send, zet_server.tick_period))
    {
        zet_server_fail_session(ZET_SERVER_ERROR_METADATA_FAILED);
        return;
    }
    zet_server.state = SESSION_CONFIGURED;
}

void execute_start(const command_t *self, const cJSON * /*command*/)
{
    zet_server_answer(self->name);
    zet_server.state = SESSION_STREAMING;
    zet_server.next_frame = zet_server_clock_read(&zet_server.clock);
    zet_server.frames_left_out_before = zet_server.frames_left_out;
}

void execute_frame(const command_t * /*self*/, const cJSON * /*command*/)
{
    zet_server_measure_frame();
}

void execute_stop(const command_t *self, const cJSON * /*command*/)
{
    zet_server_end_stream();
    zet_json_writer_t writer;
    zet_server_begin_answer(&writer, self->name);
    zet_server_write_uint(&writer, "frames_left_out",
                          zet_server.frames_left_out - zet_server.frames_left_out_before);
    zet_server_end_message(&writer);
}

void execute_end(const command_t *self, const cJSON * /*command*/)
{
    zet_server_end_session();
    zet_server_answer(self->name);
}

/** The answer is still sent at the old baud rate. */
void execute_baudrate(const command_t *self, const cJSON *command)
{
    if (!zet_server_can_change_baudrate())
    {
        zet_server_report_error(ZET_SERVER_ERROR_BAUDRATE_FIXED);
        return;
    }
    int baudrate = 0;
    if (!get_json_int_value(command, "baudrate", &baudrate) || baudrate < 1 ||
        static_cast<uint32_t>(baudrate) > zet_server.port.link.max_baudrate)
    {
        report_bad_argument(self);
        return;
    }
    if (!zet_server_accept_baudrate(static_cast<uint32_t>(baudrate)))
    {
        return;
    }
    // Before the answer: once a host has the answer, it may send at the new baud rate.
    zet_server_discard_input();
    zet_server_answer(self->name);
    zet_server_change_baudrate(static_cast<uint32_t>(baudrate));
    zet_server.baudrate_on_trial = true;
    zet_server.trial_end =
        zet_server_clock_read(&zet_server.clock) + baudrate_trial_seconds * zet_server.clock.ticks_per_second;
}

/** Returns how many log levels a word of the "log" command enables; -1 when the word is unknown. */
int find_log_levels(const char *word)
{
    if (std::strcmp(word, "OFF") == 0)
    {
        return 0;
    }
    for (size_t i = 0; i < zet_log_level_words.size(); ++i)
    {
        if (std::strcmp(word, zet_log_level_words[i]) == 0)
        {
            return static_cast<int>(i) + 1;
        }
    }
    return -1;
}

void execute_log(const command_t *self, const cJSON *command)
{
    char *word = nullptr;
    const int levels = get_json_string_value(command, "level", &word) ? find_log_levels(word) : -1;
    if (levels < 0)
    {
        report_bad_argument(self);
        return;
    }
    zet_server.log_levels = static_cast<uint8_t>(levels);
    zet_server_answer(self->name);
}

void execute_stats(const command_t *self, const cJSON * /*command*/)
{
    zet_server_report_counts(self->name);
}

constexpr json_field_t plain_fields[] = {{"command", FIELD_TYPE_STRING}, {nullptr, FIELD_TYPE_NONE}};

constexpr json_field_t configure_fields[] = {
    {"command", FIELD_TYPE_STRING}, {"configuration", FIELD_TYPE_OBJECT}, {nullptr, FIELD_TYPE_NONE}};

constexpr json_field_t baudrate_fields[] = {
    {"command", FIELD_TYPE_STRING}, {"baudrate", FIELD_TYPE_INT}, {nullptr, FIELD_TYPE_NONE}};

constexpr json_field_t log_fields[] = {
    {"command", FIELD_TYPE_STRING}, {"level", FIELD_TYPE_ENUM}, {nullptr, FIELD_TYPE_NONE}};

constexpr const char *plain_usage = "Send \"command\" as the only member of this command, once.";

constexpr command_t commands[] = {
    {"identify", plain_fields, plain_usage, any_state, execute_identify},
    {"ping", plain_fields, plain_usage, any_state, execute_ping},
    {"configure", configure_fields,
     "Send \"configure\" with \"configuration\", the configuration document, as an object, and no other "
     "member.",
     SESSION_IDLE, execute_configure},
    {"start", plain_fields, plain_usage, SESSION_CONFIGURED, execute_start},
    {"frame", plain_fields, plain_usage, SESSION_CONFIGURED, execute_frame},
    {"stop", plain_fields, plain_usage, SESSION_STREAMING, execute_stop},
    {"end", plain_fields, plain_usage, any_state, execute_end},
    {"baudrate", baudrate_fields,
     "Send \"baudrate\" with \"baudrate\", a whole number from 1 to the \"max_baudrate\" that \"identify\" "
     "reports, and no other member.",
     SESSION_IDLE | SESSION_CONFIGURED, execute_baudrate},
    {"log", log_fields,
     "Send \"log\" with \"level\" set to \"OFF\", \"ERROR\", \"WARNING\", \"INFO\", \"VERBOSE\" or "
     "\"DEBUG\", and no other member.",
     any_state, execute_log},
    {"stats", plain_fields, plain_usage, any_state, execute_stats},
};

/** Finds a command by its name; null when there is none. */
const command_t *find_command(const char *name)
{
    for (const command_t &command : commands)
    {
        if (std::strcmp(command.name, name) == 0)
        {
            return &command;
        }
    }
    return nullptr;
}

/** Returns the message for a command that the state does not allow: what to send first. */
const char *wrong_state_message(const command_t *command)
{
    if (command->states == SESSION_IDLE)
    {
        return "There is already a session: send \"end\" first.";
    }
    if (command->states == SESSION_STREAMING)
    {
        return "No frames are streaming: send \"start\" first.";
    }
    return zet_server.state == SESSION_IDLE ? "There is no session: send \"configure\" first."
                                            : "Frames are streaming: send \"stop\" first.";
}

/** Executes a document from the host, if it is a valid command that the state allows. */
void execute_document(const cJSON *document)
{
    char *name = nullptr;
    if (!cJSON_IsObject(document) || !get_json_string_value(document, "command", &name))
    {
        zet_server_report_error(ZET_SERVER_ERROR_BAD_COMMAND);
        return;
    }
    const command_t *command = find_command(name);
    if (command == nullptr)
    {
        zet_server_report_error(ZET_SERVER_ERROR_UNKNOWN_COMMAND);
        return;
    }
    if (!json_validate(document, command->fields))
    {
        report_bad_argument(command);
        return;
    }
    if ((command->states & zet_server.state) == 0)
    {
        zet_server_report_error(ZET_SERVER_ERROR_WRONG_STATE, wrong_state_message(command));
        return;
    }
    command->execute(command, document);
}

/** Returns the error for the result of a scan. Not to be called for ZET_JSON_SCAN_OK. */
zet_server_error_t error_of_scan(zet_json_scan_result_t result)
{
    switch (result)
    {
    case ZET_JSON_SCAN_TRAILING_TEXT:
        return ZET_SERVER_ERROR_TRAILING_TEXT;
    case ZET_JSON_SCAN_TOO_DEEP:
        return ZET_SERVER_ERROR_NESTING_TOO_DEEP;
    case ZET_JSON_SCAN_TOO_MANY_VALUES:
        return ZET_SERVER_ERROR_TOO_MANY_VALUES;
    case ZET_JSON_SCAN_NOT_JSON:
    case ZET_JSON_SCAN_OK:
        break;
    }
    return ZET_SERVER_ERROR_BAD_JSON;
}

} // namespace

void zet_server_execute_line(const char *text, size_t length)
{
    if (length == 0)
    {
        return;
    }
    const zet_json_scan_result_t scanned = zet_json_scan(text, length, zet_server.port.max_values);
    if (scanned != ZET_JSON_SCAN_OK)
    {
        zet_server_report_error(error_of_scan(scanned));
        return;
    }
    // The parser accepts everything that the scanner accepts, unless memory is exhausted.
    cJSON *document = cJSON_ParseWithLength(text, length);
    if (document == nullptr)
    {
        zet_server_report_error(ZET_SERVER_ERROR_OUT_OF_MEMORY);
        return;
    }
    execute_document(document);
    cJSON_Delete(document);
}
