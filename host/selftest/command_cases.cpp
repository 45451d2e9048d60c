/** @file
 * Self-test: commands and answers.
 */
#include "selftest/selftest.h"

#include <algorithm>
#include <limits>

#include "client/json_members.h"

namespace vantor::selftest
{
namespace
{

using nlohmann::json;

/** A name in quotation marks. */
std::string quoted(const char *name)
{
    std::string text = "\"";
    text += name;
    text += '"';
    return text;
}

/** Checks that a member is a whole number within bounds. */
void check_number(const json &object, const char *name, int64_t least, int64_t most)
{
    const auto found = object.find(name);
    const bool whole = found != object.end() && found->is_number_integer();
    check(whole && *found >= least && *found <= most,
          quoted(name) + ": a whole number from " + std::to_string(least) + " to " + std::to_string(most),
          found == object.end() ? "no such member" : describe(*found));
}

/** Checks that a member is a non-empty string. */
void check_text(const json &object, const char *name)
{
    const auto found = object.find(name);
    check(found != object.end() && found->is_string() && *found != "", quoted(name) + ": a string",
          found == object.end() ? "no such member" : describe(*found));
}

/** Largest value of a 32-bit counter. */
constexpr int64_t largest = std::numeric_limits<uint32_t>::max();

/** Checks which sensors a server reports as connected. */
void check_sensors(const json &identity)
{
    check_number(identity, "sensor_count", 1, std::numeric_limits<uint16_t>::max());
    const auto &connected = array_member(identity, "connected_sensors");
    const std::string expected = "\"connected_sensors\": ascending numbers of sensors, at least one";
    check(!connected.empty(), expected, describe(connected));
    json before = 0;
    for (const auto &id : connected)
    {
        check(id.is_number_unsigned() && id > before && id <= identity["sensor_count"], expected,
              describe(connected));
        before = id;
    }
}

/** Checks what a server reports about its memory. */
void check_memory(const json &memory)
{
    check_number(memory, "size", 1, largest);
    check_number(memory, "peak", 0, memory["size"]);
    check_number(memory, "live", 0, memory["peak"]);
    check_number(memory, "largest_free", 0, memory["size"].get<int64_t>() - memory["live"].get<int64_t>());
    check_number(memory, "failures", 0, largest);
}

/** Checks what a server reports about its board. */
void check_board(const json &board)
{
    check(board.is_object(), "\"board\": an object", describe(board));
    for (const char *name : {"name", "id", "reset_cause", "last_fault", "sensors"})
    {
        check(!board.contains(name) || board[name].is_string(), quoted(name) + ": a string", describe(board));
    }
}

void identify(bench &on)
{
    const auto identity = on.execute({{"command", "identify"}}).header;
    check_text(identity, "server_version");
    check_number(identity, "protocol_version", protocol_version, protocol_version);
    check_text(identity, "sensor");
    check_sensors(identity);
    check_number(identity, "ticks_per_second", 0, largest);
    check_number(identity, "max_baudrate", 0, largest);
    if (identity.contains("board"))
    {
        check_board(identity["board"]);
    }
    if (identity.contains("memory"))
    {
        check_memory(identity["memory"]);
    }
    if (identity.contains("stack"))
    {
        check_number(identity["stack"], "size", 1, largest);
        check_number(identity["stack"], "peak", 1, identity["stack"]["size"]);
    }
}

void ping(bench &on)
{
    for (int i = 0; i < 10; ++i)
    {
        on.ping();
    }
}

/** Several commands sent at once are answered one by one, in order. */
void commands_ahead(bench &on)
{
    on.send("{\"command\":\"ping\"}\n{\"command\":\"bing\"}\r\n\n{\"command\":\"end\"}\n");
    for (const char *awaited : {"ping", "unknown_command", "end"})
    {
        const auto header = on.next(awaited).header;
        const auto key = header["status"] == "ok" ? "command" : "code";
        check(header.value(key, json()) == awaited, awaited, describe(header));
    }
}

/** Receives frames of a stream. */
void receive_frames(bench &on, int count)
{
    for (int i = 0; i < count; ++i)
    {
        on.next_frame();
    }
}

void session(bench &on)
{
    on.configure(small_session(on));
    for (int round = 0; round < 2; ++round)
    {
        on.execute({{"command", "start"}});
        receive_frames(on, 3);
        on.end_stream("stop");
        // No frame must arrive before this answer.
        on.ping();
    }
    on.execute({{"command", "end"}});
}

void frames_on_demand(bench &on)
{
    on.configure(small_session(on));
    for (int i = 0; i < 3; ++i)
    {
        on.measure();
        on.ping();
    }
    on.execute({{"command", "end"}});
}

/** The next session uses the calibration that a session reports. */
void calibrations(bench &on)
{
    constexpr size_t digits = 480;
    const auto first = on.configure(small_session(on)).document.value("calibration_info", json());
    const auto sensor = on.sensors().front();
    check(first.is_array() && first.size() == 1 && first[0].value("sensor_id", json()) == sensor &&
              first[0].value("data", std::string()).size() == digits,
          "\"calibration_info\" with 480 digits for sensor " + std::to_string(sensor), describe(first));
    on.execute({{"command", "end"}});
    auto configuration = small_session(on);
    configuration["calibration_info"] = first;
    const auto second = on.configure(configuration).document.value("calibration_info", json());
    check(second.is_array() && second.size() == 1 && second[0].value("data", json()) == first[0]["data"],
          "the calibration that was sent", describe(second));
    on.measure();
}

/** The statistics before and after some commands agree with the bytes transferred. */
void statistics(bench &on)
{
    const auto first = on.statistics();
    const auto sent = on.bytes_sent();
    on.ping();
    on.refuse("{\"command\":\"bing\"}\n", "unknown_command");
    on.configure(small_session(on));
    on.measure();
    on.execute({{"command", "end"}});
    const auto last = on.statistics();
    const auto check_growth = [&](const char *name, uint64_t expected) {
        check_number(first.header, name, 0, std::numeric_limits<int64_t>::max());
        check_number(last.header, name, 0, std::numeric_limits<int64_t>::max());
        const auto growth = last.header[name].get<uint64_t>() - first.header[name].get<uint64_t>();
        check(growth == expected, quoted(name) + " grows by " + std::to_string(expected),
              "it grows by " + std::to_string(growth));
    };
    check_growth("bytes_received", on.bytes_sent() - sent);
    check_growth("bytes_sent", last.position - first.position);
    check_growth("frames", 1);
    check_growth("frames_left_out", 0);
    const auto errors = [](const message &statistics) {
        return statistics.header.value("/errors/unknown_command"_json_pointer, uint64_t{0});
    };
    check(errors(last) == errors(first) + 1, "\"errors\" counts the error \"unknown_command\"",
          describe(last.header));
}

/** The server sends log lines of at least the requested level, and none after the level was set to "OFF". */
void log_lines(bench &on)
{
    on.forward_log("INFO");
    on.configure(small_session(on));
    on.execute({{"command", "end"}});
    const auto lines = on.take_log();
    check(!lines.empty(), "log lines while a session is set up", "none");
    for (const auto &line : lines)
    {
        check(line.level == "INFO" || line.level == "WARNING" || line.level == "ERROR",
              "only log lines of INFO or more severe", line.level + " " + line.module + ": " + line.text);
    }
    on.forward_log("OFF");
    on.configure(small_session(on));
    on.execute({{"command", "end"}});
    const auto more = on.take_log();
    check(more.empty(), "no log lines after the level was set to OFF",
          std::to_string(more.size()) + " lines");
}

} // namespace

std::vector<selftest_case> command_cases()
{
    return {
        {"\"identify\" describes the server",
         "the record that the port passes to zet_vantor_server_init, and the connections of the sensors",
         identify},
        {"\"ping\" is answered", "whether the port sends everything the server writes, without delay", ping},
        {"several commands sent at once are answered in order",
         "whether the port keeps the bytes that arrive while the server is busy", commands_ahead},
        {"a session runs from \"configure\" to \"end\"",
         "interrupt line and supply of the sensor, and the server's log", session},
        {"frames are measured on demand", "interrupt line of the sensor, and the server's log",
         frames_on_demand},
        {"a calibration can be reused", "transfers from and to the sensor, and memory for long commands",
         calibrations},
        {"\"stats\" counts what was sent and received", "whether the port loses or duplicates bytes",
         statistics},
        {"the log level selects which lines are sent",
         "whether the board passes its log to zet_vantor_server_log", log_lines},
    };
}

} // namespace vantor::selftest
