/** @file
 * Writes the truth file.
 */
#include "truth.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "clock.h"
#include "zet_integration_log.h"
#include "zet_simulator_scene_json.h"
#include "zet_simulator_truth.h"

namespace
{

/** The file; the simulator passes no context to its observer. */
int descriptor = -1;

/** Identifies the session, in hexadecimal digits; in each of its lines. */
std::string session_id;

/** The members that every session has in common. */
std::string session_members;

/** Whether the last line was written. */
bool is_writable = true;

/** Adds a member with a number to an object; @p format  of real numbers, as for std::to_chars */
template <typename number_t, typename... format_t>
void add(std::string &object, const char *name, number_t value, format_t... format)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, format...).ptr;
    object += object.ends_with('{') ? "" : ",";
    object += std::string("\"") + name + "\":";
    object.append(digits.data(), end);
}

/** What a line of a session or a frame begins with. */
constexpr std::string_view session_begin = "{\"session\":";

/** Adds the number of a session and its id: servers count their sessions from the same number. */
void add_session(std::string &line, uint32_t number)
{
    add(line, "session", number);
    line += ",\"id\":\"" + session_id + "\"";
}

/** Returns 64 random bits as 16 hexadecimal digits. */
std::string random_id()
{
    std::array<unsigned char, 8> bytes{};
    // So few bytes are always complete, and this only fails if the system has no such call.
    static_cast<void>(getrandom(bytes.data(), bytes.size(), 0));
    std::string text;
    for (const unsigned char byte : bytes)
    {
        constexpr const char *digits = "0123456789abcdef";
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

/** Adds a time or a distance: in nanoseconds, or far less than the turn of a phase can show. */
void add_long(std::string &object, const char *name, double value)
{
    constexpr int digits = 12;
    add(object, name, value, std::chars_format::general, digits);
}

/** Adds a number that needs no more than single precision. */
void add_short(std::string &object, const char *name, double value)
{
    add(object, name, static_cast<float>(value));
}

/** Notes whether a line was written; warns when the first one is not. */
void note_result(bool written, int failure)
{
    if (!written && is_writable)
    {
        zet_integration_log(ZET_LOG_LEVEL_WARNING, "truth",
                            "Cannot write the truth: %s; its lines are missing", std::strerror(failure));
    }
    is_writable = written;
}

/** Writes a line completely, or not at all. */
void write_line(const std::string &line)
{
    const off_t before = lseek(descriptor, 0, SEEK_END);
    const ssize_t count = write(descriptor, line.data(), line.size());
    const int failure = count < 0 ? errno : ENOSPC;
    const bool written = count == static_cast<ssize_t>(line.size());
    if (!written && count > 0 && before >= 0 && ftruncate(descriptor, before) != 0)
    {
        // The reader leaves out what is left of the line, with the next one.
        note_result(false, errno);
        return;
    }
    note_result(written, failure);
}

/** Adds a target to a line. */
void add_target(std::string &line, const zet_simulator_target_truth_t &target)
{
    line += line.ends_with('[') ? "{" : ",{";
    add(line, "target", target.target);
    if (target.body > 0)
    {
        add(line, "body", target.body);
    }
    add_long(line, "distance_m", target.distance_m);
    add_short(line, "velocity_m_s", target.velocity_m_s);
    add_short(line, "amplitude", target.amplitude);
    add_short(line, "phase_rad", target.phase_rad);
    if (target.amplitude > 0.0 && target.noise_power > 0.0)
    {
        add_short(line, "snr_db",
                  10.0 * std::log10(target.amplitude * target.amplitude / target.noise_power));
    }
    line += "}";
}

/** Writes the line of a session. */
void write_session(uint32_t number)
{
    session_id = random_id();
    std::string line = "{";
    add_session(line, number);
    write_line(line + session_members + "}\n");
}

/** Writes the line of a frame. */
void write_frame(const zet_simulator_frame_t *frame)
{
    static zet_simulator_truth_t truth;
    zet_simulator_truth_of(frame, &truth);
    std::string line = "{";
    add_session(line, truth.session);
    add(line, "sensor", truth.sensor_id);
    add(line, "tick", truth.tick);
    add_long(line, "time_s", truth.time_s);
    add(line, "temperature", truth.temperature);
    add_short(line, "noise_power", truth.noise_power);
    add_short(line, "interference", truth.interference);
    line += ",\"targets\":[";
    for (uint8_t i = 0; i < truth.target_count; ++i)
    {
        add_target(line, truth.targets[i]);
    }
    write_line(line + "]}\n");
}

[[noreturn]] void refuse_file(const std::string &path, const std::string &reason)
{
    throw std::runtime_error("cannot write the truth to \"" + path + "\": " + reason);
}

/** Whether a file is empty or begins like a truth file, and not like a scene or a track. */
bool is_empty_or_truth()
{
    std::array<char, session_begin.size()> begin{};
    const ssize_t count = pread(descriptor, begin.data(), begin.size(), 0);
    return count == 0 || std::string_view(begin.data(), begin.size()) == session_begin;
}

/** Refuses a file that must not be replaced; locks it until the program ends. */
void claim_file(const std::string &path, const struct stat &status)
{
    if (!S_ISREG(status.st_mode))
    {
        refuse_file(path, "it is not a regular file");
    }
    if (!is_empty_or_truth())
    {
        refuse_file(path, "it has other content, which would be lost; give another name, or remove it");
    }
    // A file system without locks cannot be asked.
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    {
        refuse_file(path, "it is used by another vantor_server");
    }
}

/** Opens the file. Opening it does not wait, also if it is a pipe. */
void open_file(const std::string &path)
{
    constexpr mode_t readable = 0666;
    descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, readable);
    struct stat status = {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0)
    {
        refuse_file(path, std::strerror(errno));
    }
    claim_file(path, status);
    if (ftruncate(descriptor, 0) != 0)
    {
        refuse_file(path, std::strerror(errno));
    }
}

} // namespace

zet_simulator_observer_t write_truth(const options_t &options, const zet_simulator_scene_t &scene)
{
    // So that a file that becomes larger than the system allows is a failed write, like a full disk.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    open_file(options.truth_path);
    std::vector<char> text(zet_simulator_scene_to_json(&scene, nullptr, 0) + 1);
    zet_simulator_scene_to_json(&scene, text.data(), text.size());
    session_members.clear();
    session_members += ",\"seed\":" + std::to_string(options.seed);
    session_members += options.board > 0 ? ",\"board\":" + std::to_string(options.board) : "";
    if (options.scene_start_s)
    {
        add_long(session_members, "scene_start_s", *options.scene_start_s);
    }
    session_members += std::string(",\"clock\":\"") + (options.virtual_clock ? "virtual" : "real") + "\"";
    if (!options.virtual_clock)
    {
        constexpr int digits = 6;
        add_long(session_members, "clock_error_ppm", options.clock_error_ppm);
        add(session_members, "clock_start_utc_s", real_clock_zero_utc_s(), std::chars_format::fixed, digits);
    }
    session_members += ",\"sensors\":" + std::to_string(options.sensor_count);
    session_members += std::string(",\"scene\":") + text.data();
    return {write_session, write_frame};
}
