/** @file
 * The messages of the server core to the host.
 */
#include "zet_vantor_server_messages.h"

#include "zet_log_levels.h"
#include "zet_vantor_server_state.h"

void zet_server_send(const void *data, uint32_t size)
{
    zet_server.bytes_sent += size;
    zet_server.port.link.write(data, size);
}

void zet_server_write_string(zet_json_writer_t *writer, const char *key, const char *value)
{
    zet_json_writer_key(writer, key);
    zet_json_writer_string(writer, value);
}

void zet_server_write_uint(zet_json_writer_t *writer, const char *key, uint64_t value)
{
    zet_json_writer_key(writer, key);
    zet_json_writer_uint(writer, value);
}

namespace
{

/** Begins a message with the given status. */
void begin_message(zet_json_writer_t *writer, const char *status)
{
    zet_json_writer_init(writer, zet_server_send);
    zet_json_writer_begin_object(writer);
    zet_server_write_string(writer, "status", status);
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
    zet_server_write_string(&writer, "level", zet_log_level_words[level]);
    zet_server_write_string(&writer, "module", module);
    zet_server_write_string(&writer, "message", text);
    if (lost > 0)
    {
        zet_server_write_uint(&writer, "lost", lost);
    }
    zet_server_write_uint(&writer, "payload_size", 0);
    zet_server_end_message(&writer);
}

} // namespace

void zet_server_end_message(zet_json_writer_t *writer)
{
    zet_json_writer_end_object(writer);
    zet_json_writer_finish(writer);
}

void zet_server_flush_log()
{
    for (uint32_t count = zet_log_ring_count(&zet_server.log); count > 0; --count)
    {
        zet_log_line_t line;
        zet_log_ring_take(&zet_server.log, &line);
        send_log_line(line.level, line.module, line.text, 0);
    }
    const uint32_t lost = zet_log_ring_take_lost(&zet_server.log);
    if (lost > 0)
    {
        send_log_line(ZET_LOG_LEVEL_WARNING, "vantor_server",
                      "Log lines were lost: set a less verbose level.", lost);
    }
}

void zet_server_begin_answer(zet_json_writer_t *writer, const char *command)
{
    zet_server_flush_log();
    begin_message(writer, "ok");
    zet_server_write_string(writer, "command", command);
    zet_server_write_uint(writer, "payload_size", 0);
}

void zet_server_answer(const char *command)
{
    zet_json_writer_t writer;
    zet_server_begin_answer(&writer, command);
    zet_server_end_message(&writer);
}

void zet_server_report_error(zet_server_error_t error, const char *message)
{
    zet_server_flush_log();
    ++zet_server.error_counts[error];
    zet_json_writer_t writer;
    begin_message(&writer, "error");
    zet_server_write_string(&writer, "code", zet_server_error_code(error));
    zet_server_write_string(&writer, "message", message);
    zet_server_write_uint(&writer, "payload_size", 0);
    zet_server_end_message(&writer);
}

void zet_server_report_error(zet_server_error_t error)
{
    zet_server_report_error(error, zet_server_error_message(error));
}
