/** @file
 * Self-test: the baud rate of the link.
 */
#include "selftest/selftest.h"

#include <array>

namespace vantor::selftest
{
namespace
{

/** What to check if the baud rate does not change as it should. */
constexpr const char *look_at_baudrate =
    "whether set_baudrate of the port waits for the last bit before it sets the divider; over a network, "
    "whether the adapter follows the baud rate";

/** The baud rate for a link that does not have one, such as a link to an emulated board. */
constexpr uint32_t usual_baudrate = 115200;

/** Longer than a server waits for the ping at a new baud rate. */
constexpr std::chrono::milliseconds trial{3000};

/** The command that changes the baud rate. */
nlohmann::json baudrate_command(uint64_t baudrate)
{
    return {{"command", "baudrate"}, {"baudrate", baudrate}};
}

/** Sets the baud rate of the host's end; returns the previous one, or nothing if the link does not support
 * it.
 */
std::optional<uint32_t> set_line(bench &on, uint32_t baudrate)
{
    try
    {
        return on.line().set_baudrate(baudrate);
    }
    catch (const error &)
    {
        return std::nullopt;
    }
}

/** A change of the baud rate that both ends support. */
struct rate_change
{
    uint32_t before;
    uint32_t after;
};

/** Whether the server accepts a baud rate; if so, it waits for a ping to confirm it. */
bool server_accepts(bench &on, uint32_t baudrate)
{
    on.send(baudrate_command(baudrate).dump() + "\n");
    const std::string awaited = "the answer \"ok\" to \"baudrate\", or the error \"bad_argument\"";
    const auto header = on.next(awaited).header;
    const bool taken = header["status"] == "ok";
    check(taken || header.value("code", nlohmann::json()) == "bad_argument", awaited, describe(header));
    return taken;
}

/** Whether the host's end of the link supports a baud rate; stores the line's current rate in @p current. */
bool line_supports(bench &on, uint32_t baudrate, uint32_t &current)
{
    if (!on.traits().serial)
    {
        return true;
    }
    const auto before = set_line(on, baudrate);
    if (!before)
    {
        return false;
    }
    on.line().set_baudrate(*before);
    current = *before;
    return true;
}

/** Makes the server start to change its baud rate; the host's end does not change. */
rate_change begin_change(bench &on)
{
    constexpr std::array<uint32_t, 8> rates{57600, 230400, 38400, 460800, 921600, 19200, 9600, 115200};
    if (on.server().max_baudrate == 0)
    {
        throw case_skipped("the baud rate of this link is fixed");
    }
    rate_change change{.before = usual_baudrate, .after = 0};
    for (const auto rate : rates)
    {
        if (rate <= on.server().max_baudrate && line_supports(on, rate, change.before) &&
            rate != change.before && server_accepts(on, rate))
        {
            change.after = rate;
            return change;
        }
    }
    throw case_failed("a standard baud rate that both ends support", "none");
}

void change_and_return(bench &on)
{
    const auto change = begin_change(on);
    if (on.traits().serial)
    {
        on.line().set_baudrate(change.after);
    }
    on.ping();
    on.execute(baudrate_command(change.before));
    if (on.traits().serial)
    {
        on.line().set_baudrate(change.before);
    }
    on.ping();
}

void fall_back(bench &on)
{
    begin_change(on);
    const auto received = on.receive(trial);
    check(!received, "no message before a ping", received ? describe(received->header) : std::string());
    on.ping();
}

void refused_rate(bench &on)
{
    const auto highest = on.server().max_baudrate;
    if (highest == 0)
    {
        on.refuse(baudrate_command(usual_baudrate).dump() + "\n", "baudrate_fixed");
    }
    else
    {
        on.refuse(baudrate_command(uint64_t{highest} + 1).dump() + "\n", "bad_argument");
        on.refuse(baudrate_command(0).dump() + "\n", "bad_argument");
    }
    on.ping();
}

} // namespace

std::vector<selftest_case> baudrate_cases()
{
    return {
        {"a refused baud rate does not change the link", look_at_baudrate, refused_rate},
        {"the baud rate can be changed and changed back", look_at_baudrate, change_and_return},
        {"without a ping the baud rate falls back", look_at_baudrate, fall_back},
    };
}

} // namespace vantor::selftest
