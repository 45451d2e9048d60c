/** @file
 * A server core between a stand-in backend and a stand-in host, with a clock set by the test.
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
    std::string payload;    /**< the bytes after the line */
};

/** The port of the server in tests. */
struct fake_port_t
{
    std::string sent;                /**< bytes for the host that the test has not read yet */
    uint32_t tick = 0;               /**< the clock */
    std::vector<uint32_t> baudrates; /**< baud rates that were set */
    int recoveries = 0;              /**< how often lost memory was recovered */
    size_t live_at_recovery = 0;     /**< blocks in use then, at most */
    int input_restarts = 0;          /**< how often pending input was discarded */
    zet_vantor_server_memory_t memory = {65536, 1024, 9216, 64500, 0, 11264, 3120};
    zet_vantor_server_board_t board = {"example board", "0042", "watchdog", "hard fault at 0x08001234",
                                       "simulated"};
};

extern fake_port_t fake_port;

/** Removes and returns the messages sent so far. The test fails if anything else was sent. */
std::vector<message_t> take_messages();

/** A port with a clock of 1 MHz, lines up to 4096 bytes, up to 1000 values, and a fixed baud rate. */
zet_vantor_server_port_t plain_port();

/** The same at 115200 baud, which can be changed up to 1000000 baud. */
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

    /** Sends a line and returns the answer, which must be one message. */
    static message_t ask(std::string_view line);

    /** Sends a line that must be refused; returns the error code. */
    static std::string refusal(std::string_view line);

    /** Sends a command that must succeed. */
    static void execute(std::string_view line);

    /** Brings the session into a state: "idle", "configured" or "streaming". */
    static void enter(std::string_view state);

    /** How often a function of the backend was called. */
    static long calls(std::string_view name);

    bool started = false;
};

#endif
