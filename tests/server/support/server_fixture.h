/** @file
 * A server core between a stand-in backend and a stand-in host, with a clock that moves when told.
 */
#ifndef SERVER_FIXTURE_H
#define SERVER_FIXTURE_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "fake_backend.h"
#include "fake_memory.h"
#include "zet_vantor_server.h"

/** One message of the server. */
struct message_t
{
    std::string line;       /**< its text, without the line feed */
    nlohmann::json members; /**< the same, parsed */
    std::string payload;    /**< what followed */
};

/** What the server's port sees. */
struct fake_port_t
{
    std::string sent;                /**< bytes for the host that have not been looked at */
    uint32_t tick = 0;               /**< the clock */
    std::vector<uint32_t> baudrates; /**< those that were set */
    int input_restarts = 0;          /**< how often pending input was discarded */
    zet_vantor_server_memory_t memory = {65536, 1024, 9216, 64500, 0, 11264, 3120};
    zet_vantor_server_board_t board = {"example board", "0042", "watchdog", "hard fault at 0x08001234",
                                       "simulated"};
};

extern fake_port_t fake_port;

/** Takes all complete messages out of what was sent. Anything that is no message fails the test. */
std::vector<message_t> take_messages();

/** A port with a clock of 1 MHz, a line of 4096 bytes, 1000 values and a fixed baud rate. */
zet_vantor_server_port_t plain_port();

/** The same with a baud rate of 115200 that can be changed up to 1000000 baud. */
zet_vantor_server_port_t serial_port();

/** A configuration that the stand-in accepts. */
constexpr std::string_view configure_command =
    R"({"command":"configure","configuration":{"groups":[[{"sensor_id":1,"config":{}}]]}})";

class server_fixture : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /** Starts the server. */
    void start(const zet_vantor_server_port_t &port = plain_port());

    /** Sends bytes. */
    static void send(std::string_view bytes);

    /** Sends a line and returns the one message that must come. */
    static message_t ask(std::string_view line);

    /** Sends a line that must be refused; returns the code. */
    static std::string refusal(std::string_view line);

    /** Sends a line that must be obeyed. */
    static void obey(std::string_view line);

    /** Brings the session into a state: "idle", "configured" or "streaming". */
    static void enter(std::string_view state);

    /** Number of times that an operation of the backend was called. */
    static long calls(std::string_view name);

    bool started = false;
};

#endif
