/** @file
 * What the server core reports about itself: the answers to `identify` and `stats`.
 */
#include "zet_vantor_server_reports.h"

#include <cstdint>

#include "zet_vantor_server_baudrate.h"
#include "zet_vantor_server_messages.h"
#include "zet_vantor_server_state.h"
#include "zet_vantor_server_system_k330.h"

namespace
{

/** Version of the protocol in docs/protocol.md. */
constexpr uint32_t protocol_version = 1;

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
    if (zet_server.port.get_memory == nullptr)
    {
        return;
    }
    zet_vantor_server_memory_t memory = {};
    zet_server.port.get_memory(&memory);
    zet_json_writer_key(writer, "memory");
    zet_json_writer_begin_object(writer);
    zet_server_write_uint(writer, "size", memory.size);
    zet_server_write_uint(writer, "live", memory.live);
    zet_server_write_uint(writer, "peak", memory.peak);
    zet_server_write_uint(writer, "largest_free", memory.largest_free);
    zet_server_write_uint(writer, "failures", memory.failures);
    zet_json_writer_end_object(writer);
    if (memory.stack_size > 0)
    {
        zet_json_writer_key(writer, "stack");
        zet_json_writer_begin_object(writer);
        zet_server_write_uint(writer, "size", memory.stack_size);
        zet_server_write_uint(writer, "peak", memory.stack_peak);
        zet_json_writer_end_object(writer);
    }
}

/** Writes a member that is a string, unless there is none. */
void write_optional_member(zet_json_writer_t *writer, const char *key, const char *value)
{
    if (value != nullptr)
    {
        zet_server_write_string(writer, key, value);
    }
}

/** Writes what is known about the board. */
void write_board(zet_json_writer_t *writer)
{
    const zet_vantor_server_board_t *board = zet_server.port.board;
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

/** Writes how often each error was reported; errors never reported are left out. */
void write_error_counts(zet_json_writer_t *writer)
{
    zet_json_writer_key(writer, "errors");
    zet_json_writer_begin_object(writer);
    for (uint8_t i = 0; i < ZET_SERVER_ERROR_COUNT; ++i)
    {
        if (zet_server.error_counts[i] > 0)
        {
            zet_server_write_uint(writer, zet_server_error_code(static_cast<zet_server_error_t>(i)),
                                  zet_server.error_counts[i]);
        }
    }
    zet_json_writer_end_object(writer);
}

} // namespace

void zet_server_describe(const char *command)
{
    const uint32_t sensor_count = zet_vantor_server_system_k3_get_sensor_count();
    zet_json_writer_t writer;
    zet_server_begin_answer(&writer, command);
    zet_server_write_string(&writer, "server_version", VANTOR_SERVER_VERSION);
    zet_server_write_uint(&writer, "protocol_version", protocol_version);
    zet_server_write_string(&writer, "sensor", zet_vantor_server_system_get_sensor_name());
    zet_server_write_uint(&writer, "sensor_count", sensor_count);
    write_connected_sensors(&writer, sensor_count);
    zet_server_write_uint(&writer, "ticks_per_second", zet_server.clock.ticks_per_second);
    zet_server_write_uint(&writer, "max_baudrate",
                          zet_server_can_change_baudrate() ? zet_server.port.link.max_baudrate : 0);
    write_optional_member(&writer, "last_drop", zet_server.last_drop);
    write_board(&writer);
    write_memory(&writer);
    zet_server_end_message(&writer);
}

void zet_server_report_tick(const char *command)
{
    zet_json_writer_t writer;
    zet_server_begin_answer(&writer, command);
    if (zet_server.clock.get_tick != nullptr)
    {
        zet_server_write_uint(&writer, "tick", zet_server.clock.get_tick());
    }
    zet_server_end_message(&writer);
}

void zet_server_report_counts(const char *command)
{
    zet_json_writer_t writer;
    zet_server_begin_answer(&writer, command);
    if (zet_server.clock.ticks_per_second > 0)
    {
        zet_json_writer_key(&writer, "uptime_s");
        zet_json_writer_thousandths(&writer, zet_server_clock_read(&zet_server.clock) * 1000U /
                                                 zet_server.clock.ticks_per_second);
    }
    zet_server_write_uint(&writer, "frames", zet_server.frames);
    zet_server_write_uint(&writer, "frames_left_out", zet_server.frames_left_out);
    zet_server_write_uint(&writer, "bytes_sent", zet_server.bytes_sent);
    zet_server_write_uint(&writer, "bytes_received", zet_server.bytes_received);
    write_error_counts(&writer);
    zet_server_write_uint(&writer, "hosts_dropped", zet_server.hosts_dropped);
    write_memory(&writer);
    zet_server_end_message(&writer);
}
