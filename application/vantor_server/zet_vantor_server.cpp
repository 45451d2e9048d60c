/** @file
 * The server core: receives the host's commands, drives the backend and answers. The protocol is described in
 * docs/protocol.md.
 *
 * The file goes from the server's output to its input: messages, the session, the baud rate of the link, the
 * commands, and finally the functions that the port calls.
 */
#include "zet_vantor_server.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <cjson/cJSON.h>

#include "zet_cjson_utils.h"
#include "zet_json_scanner.h"
#include "zet_json_writer.h"
#include "zet_log_levels.h"
#include "zet_vantor_server_clock.h"
#include "zet_vantor_server_end_watch.h"
#include "zet_vantor_server_errors.h"
#include "zet_vantor_server_groups.h"
#include "zet_vantor_server_line.h"
#include "zet_vantor_server_log_ring.h"
#include "zet_vantor_server_system_k330.h"
#include "zet_vantor_server_text.h"

namespace
{

/** Version of the protocol in docs/protocol.md. */
constexpr uint32_t protocol_version = 1;

/** Seconds within which the host must confirm a new baud rate. */
constexpr uint64_t baudrate_trial_seconds = 2;

/** A baud rate may be off by at most one part in this number: 2 %. */
constexpr uint64_t baudrate_tolerance = 50;

/** States of a session. Each is one bit, so that a command can list the states that allow it. */
enum session_state_t : uint8_t
{
    SESSION_IDLE = 1,       /**< there is no session */
    SESSION_CONFIGURED = 2, /**< sensors are prepared; a frame is measured on request */
    SESSION_STREAMING = 4,  /**< frames are measured and sent continuously */
};

/** Any state. */
constexpr uint8_t any_state = SESSION_IDLE | SESSION_CONFIGURED | SESSION_STREAMING;

/** State of the server core. */
struct server_t
{
    zet_vantor_server_port_t port;  /**< what the port provides */
    vantor_server_interface_t link; /**< the same link, but counting bytes: for the backend */
    zet_server_clock_t clock;       /**< the time */
    zet_line_buffer_t line;         /**< the command being received */
    bool input_restarted;           /**< the rest of the input belongs to another baud rate or host */
    zet_end_watch_t end_watch;      /**< what is known of the input ahead */
    uint64_t bytes_executed;        /**< bytes received up to the end of the last line taken */

    zet_log_ring_t log; /**< log lines for the host */
    uint8_t log_levels; /**< number of levels that the host wants, the most severe first; 0 for none */

    session_state_t state; /**< state of the session */
    uint32_t tick_period;  /**< ticks between two frames; 0 when the server does not pace them */
    uint64_t next_frame;   /**< when the next frame of a paced stream is due */
    bool wait_given_up;    /**< the wait for a sensor ended because nobody needs the measurement */
    bool stream_abandoned; /**< no more frames are measured until the `end` ahead is executed */

    uint32_t baudrate;           /**< baud rate of the link */
    uint32_t confirmed_baudrate; /**< last baud rate that the host confirmed */
    bool baudrate_on_trial;      /**< the baud rate has not been confirmed yet */
    uint64_t trial_end;          /**< when the server returns to the confirmed baud rate */

    uint32_t hosts_dropped; /**< hosts that the port disconnected */
    const char *last_drop;  /**< why it did so the last time; null for never */

    uint64_t frames;                 /**< frames sent since the start */
    uint64_t frames_left_out;        /**< frames of paced streams that were due but not measured */
    uint64_t frames_left_out_before; /**< the same when the stream started */
    uint64_t bytes_sent;             /**< bytes sent since the start */
    uint64_t bytes_received;         /**< bytes received since the start */
    uint32_t error_counts[ZET_SERVER_ERROR_COUNT]; /**< errors reported to the host since the start */
};

server_t server;

// ---- messages ---------------------------------------------------------------------------------------------

/** Sends bytes to the host and counts them. */
void send_to_host(const void *data, uint32_t size)
{
    server.bytes_sent += size;
    server.port.link.write(data, size);
}

/** Writes a member that is a string. */
void write_string_member(zet_json_writer_t *writer, const char *key, const char *value)
{
    zet_json_writer_key(writer, key);
    zet_json_writer_string(writer, value);
}

/** Writes a member that is an unsigned integer. */
void write_uint_member(zet_json_writer_t *writer, const char *key, uint64_t value)
{
    zet_json_writer_key(writer, key);
    zet_json_writer_uint(writer, value);
}

/** Begins a message with the given status. */
void begin_message(zet_json_writer_t *writer, const char *status)
{
    zet_json_writer_init(writer, send_to_host);
    zet_json_writer_begin_object(writer);
    write_string_member(writer, "status", status);
}

/** Ends a message. */
void end_message(zet_json_writer_t *writer)
{
    zet_json_writer_end_object(writer);
    zet_json_writer_finish(writer);
}

/**
 * Sends a log line to the host.
 *
 * @param lost  number of lines that were lost before this one; 0 leaves the member out
 */
void send_log_line(zet_log_level_t level, const char *module, const char *text, uint32_t lost)
{
    zet_json_writer_t writer;
    begin_message(&writer, "log");
    write_string_member(&writer, "level", zet_log_level_words[level]);
    write_string_member(&writer, "module", module);
    write_string_member(&writer, "message", text);
    if (lost > 0)
    {
        write_uint_member(&writer, "lost", lost);
    }
    write_uint_member(&writer, "payload_size", 0);
    end_message(&writer);
}

/** Sends the waiting log lines. Lines logged by the sending itself wait for the next call. */
void flush_log()
{
    for (uint32_t count = zet_log_ring_count(&server.log); count > 0; --count)
    {
        zet_log_line_t line;
        zet_log_ring_take(&server.log, &line);
        send_log_line(line.level, line.module, line.text, 0);
    }
    const uint32_t lost = zet_log_ring_take_lost(&server.log);
    if (lost > 0)
    {
        send_log_line(ZET_LOG_LEVEL_WARNING, "vantor_server",
                      "Log lines were lost: set a less verbose level.", lost);
    }
}

/** Begins the answer to a command that was executed; members may follow. */
void begin_answer(zet_json_writer_t *writer, const char *command)
{
    flush_log();
    begin_message(writer, "ok");
    write_string_member(writer, "command", command);
    write_uint_member(writer, "payload_size", 0);
}

/** Answers a command that was executed and has no result. */
void answer(const char *command)
{
    zet_json_writer_t writer;
    begin_answer(&writer, command);
    end_message(&writer);
}

/** Reports an error to the host with the given message. */
void report_error(zet_server_error_t error, const char *message)
{
    flush_log();
    ++server.error_counts[error];
    zet_json_writer_t writer;
    begin_message(&writer, "error");
    write_string_member(&writer, "code", zet_server_error_code(error));
    write_string_member(&writer, "message", message);
    write_uint_member(&writer, "payload_size", 0);
    end_message(&writer);
}

/** Reports an error to the host with its standard message. */
void report_error(zet_server_error_t error)
{
    report_error(error, zet_server_error_message(error));
}

// ---- the session ------------------------------------------------------------------------------------------

/** Ends the session, if there is one. */
void end_session()
{
    if (server.state != SESSION_IDLE)
    {
        server.state = SESSION_IDLE;
        server.stream_abandoned = false;
        zet_vantor_server_system_destroy_session();
    }
}

/** Ends a session that could not be set up or has failed, and reports why. */
void fail_session(zet_server_error_t error)
{
    zet_vantor_server_system_destroy_session();
    server.state = SESSION_IDLE;
    report_error(error);
}

/** Returns whether the host has sent `end`, which no command precedes that needs the session. */
bool is_end_ahead()
{
    return zet_end_watch_finds_end(&server.end_watch, server.bytes_executed);
}

/** Returns whether the wait for a sensor has been given up since the last call. */
bool take_given_up_wait()
{
    return std::exchange(server.wait_given_up, false);
}

/** Lets the port free what a session has lost: the server needs no memory between commands without a session.
 */
void recover_memory()
{
    if (server.state == SESSION_IDLE && server.port.recover_memory != nullptr)
    {
        server.port.recover_memory();
    }
}

/** Ends an abandoned stream's session if the `end` ahead was executed, or dropped as a damaged line. */
void end_abandoned_stream()
{
    if (server.stream_abandoned && !is_end_ahead())
    {
        end_session();
    }
}

/** Measures one frame and sends it. A failure ends the session. */
void measure_frame()
{
    const char *message = nullptr;
    const bool ok = zet_vantor_server_system_read_data_frames(&server.link, &message);
    if (take_given_up_wait() && !ok)
    {
        // The commands before an `end` are still executed in the state that their host expects.
        server.stream_abandoned = true;
        end_abandoned_stream();
    }
    else if (!ok)
    {
        fail_session(zet_server_error_of_backend(message, ZET_SERVER_ERROR_NOX_DATA));
    }
    else
    {
        ++server.frames;
    }
}

/** Sets when the next frame of a paced stream is due, and counts the frames that were left out. */
void schedule_next_frame()
{
    const uint64_t due = server.next_frame;
    server.next_frame =
        zet_server_clock_next_due(due, server.tick_period, zet_server_clock_read(&server.clock));
    server.frames_left_out += (server.next_frame - due) / server.tick_period - 1;
}

/** Measures a frame if one is due. */
void continue_stream()
{
    if (server.stream_abandoned)
    {
        return;
    }
    if (server.tick_period == 0)
    {
        measure_frame();
    }
    else if (zet_server_clock_read(&server.clock) >= server.next_frame)
    {
        measure_frame();
        if (server.state == SESSION_STREAMING && !server.stream_abandoned)
        {
            schedule_next_frame();
        }
    }
}

// ---- the baud rate of the link ----------------------------------------------------------------------------

/** Returns whether the baud rate can be changed, and changed back in time. */
bool can_change_baudrate()
{
    return server.port.link.set_baudrate != nullptr && server.port.link.max_baudrate > 0 &&
           server.port.baudrate > 0 && server.clock.ticks_per_second > 0;
}

/** Discards all input that has been received but not executed. */
void discard_input()
{
    if (server.port.link.restart_input != nullptr)
    {
        server.port.link.restart_input();
    }
    zet_line_buffer_clear(&server.line);
    zet_end_watch_reset(&server.end_watch, server.bytes_received);
    server.bytes_executed = server.bytes_received;
    server.input_restarted = true;
}

/** Changes the baud rate of the link. */
void change_baudrate(uint32_t baudrate)
{
    server.port.link.set_baudrate(baudrate);
    server.baudrate = baudrate;
}

/** Returns to the last confirmed baud rate when the host has not confirmed the new one in time. */
void watch_baudrate()
{
    if (server.baudrate_on_trial && zet_server_clock_read(&server.clock) >= server.trial_end)
    {
        server.baudrate_on_trial = false;
        discard_input();
        change_baudrate(server.confirmed_baudrate);
    }
}

/** Returns whether the link works at a baud rate when its actual rate is another one. */
bool is_near_baudrate(uint32_t baudrate, uint32_t actual)
{
    const uint64_t difference = actual > baudrate ? actual - baudrate : baudrate - actual;
    return actual > 0 && difference * baudrate_tolerance <= baudrate;
}

/** Reports that the link cannot run at a baud rate, and the nearest possible rate; 0 when none is near. */
void report_impossible_baudrate(uint32_t baudrate, uint32_t nearest)
{
    char message[96];
    char *end = zet_append_text(message, "This link cannot run at ");
    end = zet_append_number(end, baudrate);
    if (nearest == 0)
    {
        zet_append_text(end, " baud or near it.");
    }
    else
    {
        end = zet_append_text(end, " baud; the nearest rate is ");
        end = zet_append_number(end, nearest);
        zet_append_text(end, ".");
    }
    report_error(ZET_SERVER_ERROR_BAD_ARGUMENT, message);
}

/** Returns whether the link can run at a baud rate; reports an error to the host if not. */
bool accept_baudrate(uint32_t baudrate)
{
    if (server.port.nearest_baudrate == nullptr)
    {
        return true;
    }
    const uint32_t nearest = server.port.nearest_baudrate(baudrate);
    const bool possible = is_near_baudrate(baudrate, nearest);
    if (!possible)
    {
        report_impossible_baudrate(baudrate, nearest);
    }
    return possible;
}

// ---- the commands -----------------------------------------------------------------------------------------

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
    report_error(ZET_SERVER_ERROR_BAD_ARGUMENT, command->usage);
}

/** Writes which sensors are connected. */
void write_connected_sensors(zet_json_writer_t *writer, uint32_t sensor_count)
{
    zet_json_writer_key(writer, "connected_sensors");
    zet_json_writer_begin_array(writer);
    for (zet_sensor_id_t id = 1; id <= sensor_count; ++id)
    {
        if (zet_vantor_server_system_is_sensor_connected(id))
        {
            zet_json_writer_uint(writer, id);
        }
    }
    zet_json_writer_end_array(writer);
}

/** Writes the use of memory and stack, if the port knows it. */
void write_memory(zet_json_writer_t *writer)
{
    if (server.port.get_memory == nullptr)
    {
        return;
    }
    zet_vantor_server_memory_t memory = {};
    server.port.get_memory(&memory);
    zet_json_writer_key(writer, "memory");
    zet_json_writer_begin_object(writer);
    write_uint_member(writer, "size", memory.size);
    write_uint_member(writer, "live", memory.live);
    write_uint_member(writer, "peak", memory.peak);
    write_uint_member(writer, "largest_free", memory.largest_free);
    write_uint_member(writer, "failures", memory.failures);
    zet_json_writer_end_object(writer);
    if (memory.stack_size > 0)
    {
        zet_json_writer_key(writer, "stack");
        zet_json_writer_begin_object(writer);
        write_uint_member(writer, "size", memory.stack_size);
        write_uint_member(writer, "peak", memory.stack_peak);
        zet_json_writer_end_object(writer);
    }
}

/** Writes a member that is a string, unless there is none. */
void write_optional_member(zet_json_writer_t *writer, const char *key, const char *value)
{
    if (value != nullptr)
    {
        write_string_member(writer, key, value);
    }
}

/** Writes what is known about the board. */
void write_board(zet_json_writer_t *writer)
{
    const zet_vantor_server_board_t *board = server.port.board;
    if (board == nullptr)
    {
        return;
    }
    zet_json_writer_key(writer, "board");
    zet_json_writer_begin_object(writer);
    write_optional_member(writer, "name", board->name);
    write_optional_member(writer, "id", board->id);
    write_optional_member(writer, "reset_cause", board->reset_cause);
    write_optional_member(writer, "last_fault", board->last_fault);
    write_optional_member(writer, "sensors", board->sensors);
    zet_json_writer_end_object(writer);
}

void execute_identify(const command_t *self, const cJSON * /*command*/)
{
    const uint32_t sensor_count = zet_vantor_server_system_k3_get_sensor_count();
    zet_json_writer_t writer;
    begin_answer(&writer, self->name);
    write_string_member(&writer, "server_version", VANTOR_SERVER_VERSION);
    write_uint_member(&writer, "protocol_version", protocol_version);
    write_string_member(&writer, "sensor", zet_vantor_server_system_get_sensor_name());
    write_uint_member(&writer, "sensor_count", sensor_count);
    write_connected_sensors(&writer, sensor_count);
    write_uint_member(&writer, "ticks_per_second", server.clock.ticks_per_second);
    write_uint_member(&writer, "max_baudrate", can_change_baudrate() ? server.port.link.max_baudrate : 0);
    write_optional_member(&writer, "last_drop", server.last_drop);
    write_board(&writer);
    write_memory(&writer);
    end_message(&writer);
}

void execute_ping(const command_t *self, const cJSON * /*command*/)
{
    server.baudrate_on_trial = false;
    server.confirmed_baudrate = server.baudrate;
    answer(self->name);
}

/** Reports an error to the host if the groups are wrong. Not inlined: the stack needs the message only here.
 */
[[gnu::noinline]] bool accept_groups(const cJSON *configuration)
{
    char message[zet_groups_message_size];
    const bool accepted =
        zet_groups_check(configuration, zet_vantor_server_system_k3_get_sensor_count(), message);
    if (!accepted)
    {
        report_error(ZET_SERVER_ERROR_CONFIGURATION_REFUSED, message);
    }
    return accepted;
}

/** A session is set up completely or not at all: an error in any item ends it. */
void execute_configure(const command_t *self, const cJSON *command)
{
    const cJSON *configuration = cJSON_GetObjectItemCaseSensitive(command, "configuration");
    if (configuration == nullptr)
    {
        report_bad_argument(self);
        return;
    }
    if (!accept_groups(configuration))
    {
        return;
    }
    float update_rate = -1.0F;
    const char *message = nullptr;
    const bool accepted = zet_vantor_server_system_parse_configuration(configuration, &update_rate, &message);
    if (take_given_up_wait() && !accepted)
    {
        zet_vantor_server_system_destroy_session();
        return;
    }
    if (!accepted || message != nullptr)
    {
        fail_session(zet_server_error_of_backend(message, ZET_SERVER_ERROR_CONFIGURATION_REFUSED));
        return;
    }
    const bool on_demand = zet_vantor_server_system_is_on_demand();
    server.tick_period = on_demand ? zet_server_clock_period(&server.clock, update_rate) : 0;
    flush_log();
    if (!zet_vantor_server_system_send_session_metadata(send_to_host, server.tick_period))
    {
        fail_session(ZET_SERVER_ERROR_METADATA_FAILED);
        return;
    }
    server.state = SESSION_CONFIGURED;
}

void execute_start(const command_t *self, const cJSON * /*command*/)
{
    answer(self->name);
    server.state = SESSION_STREAMING;
    server.next_frame = zet_server_clock_read(&server.clock);
    server.frames_left_out_before = server.frames_left_out;
}

void execute_frame(const command_t * /*self*/, const cJSON * /*command*/)
{
    measure_frame();
}

void execute_stop(const command_t *self, const cJSON * /*command*/)
{
    server.state = SESSION_CONFIGURED;
    zet_json_writer_t writer;
    begin_answer(&writer, self->name);
    write_uint_member(&writer, "frames_left_out", server.frames_left_out - server.frames_left_out_before);
    end_message(&writer);
}

void execute_end(const command_t *self, const cJSON * /*command*/)
{
    end_session();
    answer(self->name);
}

/** The answer is still sent at the old baud rate. */
void execute_baudrate(const command_t *self, const cJSON *command)
{
    if (!can_change_baudrate())
    {
        report_error(ZET_SERVER_ERROR_BAUDRATE_FIXED);
        return;
    }
    int baudrate = 0;
    if (!get_json_int_value(command, "baudrate", &baudrate) || baudrate < 1 ||
        static_cast<uint32_t>(baudrate) > server.port.link.max_baudrate)
    {
        report_bad_argument(self);
        return;
    }
    if (!accept_baudrate(static_cast<uint32_t>(baudrate)))
    {
        return;
    }
    // Before the answer: once a host has the answer, it may send at the new baud rate.
    discard_input();
    answer(self->name);
    change_baudrate(static_cast<uint32_t>(baudrate));
    server.baudrate_on_trial = true;
    server.trial_end =
        zet_server_clock_read(&server.clock) + baudrate_trial_seconds * server.clock.ticks_per_second;
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
    server.log_levels = static_cast<uint8_t>(levels);
    answer(self->name);
}

/** Writes how often each error was reported; errors never reported are left out. */
void write_error_counts(zet_json_writer_t *writer)
{
    zet_json_writer_key(writer, "errors");
    zet_json_writer_begin_object(writer);
    for (uint8_t i = 0; i < ZET_SERVER_ERROR_COUNT; ++i)
    {
        if (server.error_counts[i] > 0)
        {
            write_uint_member(writer, zet_server_error_code(static_cast<zet_server_error_t>(i)),
                              server.error_counts[i]);
        }
    }
    zet_json_writer_end_object(writer);
}

void execute_stats(const command_t *self, const cJSON * /*command*/)
{
    zet_json_writer_t writer;
    begin_answer(&writer, self->name);
    if (server.clock.ticks_per_second > 0)
    {
        zet_json_writer_key(&writer, "uptime_s");
        zet_json_writer_thousandths(&writer, zet_server_clock_read(&server.clock) * 1000U /
                                                 server.clock.ticks_per_second);
    }
    write_uint_member(&writer, "frames", server.frames);
    write_uint_member(&writer, "frames_left_out", server.frames_left_out);
    write_uint_member(&writer, "bytes_sent", server.bytes_sent);
    write_uint_member(&writer, "bytes_received", server.bytes_received);
    write_error_counts(&writer);
    write_uint_member(&writer, "hosts_dropped", server.hosts_dropped);
    write_memory(&writer);
    end_message(&writer);
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
    return server.state == SESSION_IDLE ? "There is no session: send \"configure\" first."
                                        : "Frames are streaming: send \"stop\" first.";
}

/** Executes a document from the host, if it is a valid command that the state allows. */
void execute_document(const cJSON *document)
{
    char *name = nullptr;
    if (!cJSON_IsObject(document) || !get_json_string_value(document, "command", &name))
    {
        report_error(ZET_SERVER_ERROR_BAD_COMMAND);
        return;
    }
    const command_t *command = find_command(name);
    if (command == nullptr)
    {
        report_error(ZET_SERVER_ERROR_UNKNOWN_COMMAND);
        return;
    }
    if (!json_validate(document, command->fields))
    {
        report_bad_argument(command);
        return;
    }
    if ((command->states & server.state) == 0)
    {
        report_error(ZET_SERVER_ERROR_WRONG_STATE, wrong_state_message(command));
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

/** Executes a line from the host. */
void execute_line(const char *text, size_t length)
{
    if (length == 0)
    {
        return;
    }
    const zet_json_scan_result_t scanned = zet_json_scan(text, length, server.port.max_values);
    if (scanned != ZET_JSON_SCAN_OK)
    {
        report_error(error_of_scan(scanned));
        return;
    }
    // The parser accepts everything that the scanner accepts, unless memory is exhausted.
    cJSON *document = cJSON_ParseWithLength(text, length);
    if (document == nullptr)
    {
        report_error(ZET_SERVER_ERROR_OUT_OF_MEMORY);
        return;
    }
    execute_document(document);
    cJSON_Delete(document);
}

/** Looks ahead at the received bytes that were not shown before. */
void look_at_unseen(const char *data, size_t size)
{
    if (server.bytes_received > server.end_watch.seen)
    {
        const auto unseen = static_cast<size_t>(server.bytes_received - server.end_watch.seen);
        zet_vantor_server_look_ahead(data + (size - unseen), unseen);
    }
}

/** Returns the ticks from now to a time; 0 when it has passed. */
uint64_t ticks_until(uint64_t time)
{
    const uint64_t now = zet_server_clock_read(&server.clock);
    return time > now ? time - now : 0;
}

/** Returns the ticks until work is due. */
uint32_t ticks_until_work()
{
    const bool streaming = server.state == SESSION_STREAMING && !server.stream_abandoned;
    if (streaming && server.tick_period == 0)
    {
        return 0;
    }
    uint64_t wait = ZET_VANTOR_SERVER_IDLE;
    if (streaming)
    {
        wait = std::min(wait, ticks_until(server.next_frame));
    }
    if (server.baudrate_on_trial)
    {
        wait = std::min(wait, ticks_until(server.trial_end));
    }
    return static_cast<uint32_t>(wait);
}

} // namespace

// ---- what the port calls ----------------------------------------------------------------------------------

bool zet_vantor_server_init(const zet_vantor_server_port_t *port)
{
    server = {};
    server.port = *port;
    server.link = port->link;
    server.link.write = send_to_host;
    server.state = SESSION_IDLE;
    server.baudrate = port->baudrate;
    server.confirmed_baudrate = port->baudrate;
    zet_line_buffer_init(&server.line, port->line, port->line_size);
    zet_end_watch_reset(&server.end_watch, 0);
    zet_server_clock_start(&server.clock, &port->link);
    if (!zet_vantor_server_system_init(port->nox_log_level))
    {
        zet_vantor_server_system_deinit();
        return false;
    }
    return true;
}

void zet_vantor_server_deinit(void)
{
    end_session();
    zet_vantor_server_system_deinit();
}

void zet_vantor_server_receive(const char *data, size_t size)
{
    (void)zet_server_clock_read(&server.clock);
    server.bytes_received += size;
    look_at_unseen(data, size);
    server.input_restarted = false;
    while (size > 0 && !server.input_restarted)
    {
        const zet_line_event_t event = zet_line_buffer_take(&server.line, &data, &size);
        server.bytes_executed = server.bytes_received - size;
        if (event == ZET_LINE_TOO_LONG)
        {
            report_error(ZET_SERVER_ERROR_LINE_TOO_LONG);
        }
        else if (event == ZET_LINE_COMPLETE)
        {
            execute_line(server.line.text, server.line.length);
        }
        end_abandoned_stream();
        recover_memory();
    }
    flush_log();
}

uint32_t zet_vantor_server_step(void)
{
    (void)zet_server_clock_read(&server.clock);
    watch_baudrate();
    if (server.state == SESSION_STREAMING)
    {
        continue_stream();
    }
    flush_log();
    return ticks_until_work();
}

bool zet_vantor_server_is_idle(void)
{
    return server.state == SESSION_IDLE && !server.baudrate_on_trial &&
           zet_line_buffer_is_between_lines(&server.line);
}

void zet_vantor_server_link_lost(void)
{
    end_session();
    recover_memory();
    server.log_levels = 0;
    zet_log_ring_clear(&server.log);
    server.baudrate_on_trial = false;
    server.confirmed_baudrate = server.port.baudrate;
    discard_input();
    if (server.baudrate != server.port.baudrate)
    {
        change_baudrate(server.port.baudrate);
    }
}

void zet_vantor_server_drop_host(const char *reason)
{
    zet_vantor_server_link_lost();
    ++server.hosts_dropped;
    server.last_drop = reason;
}

void zet_vantor_server_look_ahead(const char *data, size_t size)
{
    zet_end_watch_look(&server.end_watch, data, size, server.bytes_executed);
}

bool zet_vantor_server_gives_up_wait(zet_vantor_server_host_t host)
{
    const bool nothing_ahead = !zet_end_watch_finds_line(&server.end_watch, server.bytes_executed);
    const bool stream_is_over =
        server.state == SESSION_STREAMING &&
        (is_end_ahead() || (host == ZET_VANTOR_SERVER_HOST_FINISHED && nothing_ahead));
    server.wait_given_up = stream_is_over || host == ZET_VANTOR_SERVER_HOST_GONE;
    return server.wait_given_up;
}

bool zet_vantor_server_has_given_up_wait(void)
{
    return server.wait_given_up;
}

void zet_vantor_server_log(zet_log_level_t level, const char *module, const char *text)
{
    if (level < server.log_levels && !server.wait_given_up)
    {
        zet_log_ring_put(&server.log, level, module, text);
    }
}
