/** @file
 * Fuzzing of the server core: for any bytes, in pieces of any size, and with any failures, every message is
 * complete, the backend is called in the right order, and nothing is leaked.
 *
 * An input byte from 0x00 to 0x07 is an external event, any other is a byte from the host.
 */
#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include <cjson/cJSON.h>

#include "fake_backend.h"
#include "fake_memory.h"
#include "zet_vantor_server.h"
#include "zet_vantor_server_error_messages.h"

namespace
{

std::string sent;
uint32_t tick = 0;
std::array<char, 513> line;

/** What the server receives next, and was not shown before. */
std::string_view ahead;

/** Whether a frame is measured, unless its wait is given up. */
bool frames_succeed;

/** Aborts if a check fails. */
void check(bool passed)
{
    if (!passed)
    {
        std::abort();
    }
}

/** Removes the first message from the sent text. It must be complete. */
std::string_view take_message(std::string_view rest)
{
    const size_t end = rest.find('\n');
    check(end != std::string_view::npos);
    cJSON *message = cJSON_ParseWithLength(rest.data(), end);
    const cJSON *size = cJSON_GetObjectItemCaseSensitive(message, "payload_size");
    check(cJSON_IsString(cJSON_GetObjectItemCaseSensitive(message, "status")) && cJSON_IsNumber(size));
    const size_t length = end + 1 + static_cast<size_t>(size->valueint);
    check(length <= rest.size());
    cJSON_Delete(message);
    rest.remove_prefix(length);
    return rest;
}

/** Checks that the sent text is a sequence of complete messages. */
void check_sent()
{
    fail_allocation(0);
    for (std::string_view rest = sent; !rest.empty();)
    {
        rest = take_message(rest);
    }
    sent.clear();
}

zet_vantor_server_port_t make_port()
{
    zet_vantor_server_port_t port = {};
    port.link.write = [](const void *data, uint32_t size) {
        sent.append(static_cast<const char *>(data), size);
        zet_vantor_server_log(ZET_LOG_LEVEL_DEBUG, "link", "bytes were sent");
    };
    port.link.set_baudrate = [](uint32_t) {};
    port.link.max_baudrate = 1000000;
    port.baudrate = 115200;
    port.link.get_tick = [] { return tick; };
    port.link.ticks_per_second = 1000;
    port.line = line.data();
    port.line_size = line.size();
    port.max_values = 32;
    return port;
}

/** Measures a frame: shows the server what will be received next, as a wait for a sensor does. */
void measure()
{
    const std::string_view shown = std::exchange(ahead, {});
    zet_vantor_server_look_ahead(shown.data(), shown.size());
    fake_backend.frame_result =
        !zet_vantor_server_gives_up_wait(ZET_VANTOR_SERVER_HOST_CONNECTED) && frames_succeed;
}

/** Runs an external event. */
void run_event(uint8_t event)
{
    switch (event)
    {
    case 0:
        tick += zet_vantor_server_step();
        break;
    case 1:
        zet_vantor_server_step();
        break;
    case 2:
        zet_vantor_server_link_lost();
        break;
    case 3:
        fail_allocation(1 + fake_memory.allocations % 50);
        break;
    case 4:
        frames_succeed = !frames_succeed;
        break;
    case 5:
        fake_backend.parse_result = !fake_backend.parse_result;
        break;
    case 6:
        fake_backend.parse_message = fake_backend.parse_message == nullptr ? error_bad_config : nullptr;
        break;
    default:
        fake_backend.metadata_result = !fake_backend.metadata_result;
        break;
    }
}

/** Returns the bytes of the input up to the next event. */
std::string_view piece_of(std::string_view input)
{
    const auto *const event =
        std::ranges::find_if(input, [](char byte) { return static_cast<unsigned char>(byte) <= 7U; });
    return {input.data(), static_cast<size_t>(event - input.data())};
}

/** Runs the input. Bytes up to the next event are received in one piece. */
void play(std::string_view input)
{
    while (!input.empty())
    {
        const std::string_view piece = piece_of(input);
        ahead = {};
        zet_vantor_server_receive(piece.data(), piece.size());
        check_sent();
        input.remove_prefix(piece.size());
        if (!input.empty())
        {
            ahead = piece_of(input.substr(1));
            run_event(static_cast<uint8_t>(input.front()));
            input.remove_prefix(1);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fake_backend = {};
    fake_memory = {};
    frames_succeed = true;
    fake_backend.during_frame = measure;
    const zet_vantor_server_port_t port = make_port();
    check(zet_vantor_server_init(&port));
    play(std::string_view(reinterpret_cast<const char *>(data), size));
    fail_allocation(0);
    sent.clear();
    // The next host must be served after any input.
    zet_vantor_server_link_lost();
    constexpr std::string_view ping = "{\"command\":\"ping\"}\n";
    zet_vantor_server_receive(ping.data(), ping.size());
    check(sent.starts_with("{\"status\":\"ok\",\"command\":\"ping\",\"payload_size\":0,\"tick\":"));
    check_sent();
    zet_vantor_server_deinit();
    check(fake_backend.violations.empty());
    check(fake_memory.live == 0);
    sent.clear();
    return 0;
}
