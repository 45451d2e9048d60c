/** @file
 * The server core and the baud rate of its link.
 */
#include "server_fixture.h"

namespace
{

constexpr uint32_t two_seconds = 2000000;

class server_link : public server_fixture
{
protected:
    void SetUp() override
    {
        server_fixture::SetUp();
        start(serial_port());
    }

    static void switch_to(uint32_t baudrate)
    {
        execute(R"({"command":"baudrate","baudrate":)" + std::to_string(baudrate) + "}");
    }

    using baudrates_t = std::vector<uint32_t>;
};

TEST_F(server_link, reports_its_highest_baud_rate)
{
    EXPECT_EQ(ask(R"({"command":"identify"})").members["max_baudrate"], 1000000);
}

TEST_F(server_link, answers_at_the_old_baud_rate_and_then_switches)
{
    zet_vantor_server_port_t port = serial_port();
    static std::string sent_before_switch;
    port.link.set_baudrate = [](uint32_t) { sent_before_switch = fake_port.sent; };
    zet_vantor_server_deinit();
    start(port);
    switch_to(921600);
    EXPECT_EQ(sent_before_switch, "{\"status\":\"ok\",\"command\":\"baudrate\",\"payload_size\":0}\n");
}

TEST_F(server_link, stays_at_a_confirmed_baud_rate)
{
    switch_to(921600);
    EXPECT_EQ(zet_vantor_server_step(), two_seconds);
    fake_port.tick += two_seconds - 1;
    EXPECT_EQ(zet_vantor_server_step(), 1U);
    execute(R"({"command":"ping"})");
    fake_port.tick += 10 * two_seconds;
    EXPECT_EQ(zet_vantor_server_step(), ZET_VANTOR_SERVER_IDLE);
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600}));
}

TEST_F(server_link, falls_back_without_a_ping_within_two_seconds)
{
    switch_to(921600);
    fake_port.tick += two_seconds - 1;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600}));
    fake_port.tick += 1;
    EXPECT_EQ(zet_vantor_server_step(), ZET_VANTOR_SERVER_IDLE);
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600, 115200}));
    EXPECT_TRUE(fake_port.sent.empty());
    fake_port.tick += 10 * two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates.size(), 2U);
}

TEST_F(server_link, is_not_idle_until_the_baud_rate_is_confirmed)
{
    switch_to(921600);
    EXPECT_FALSE(zet_vantor_server_is_idle());
    execute(R"({"command":"ping"})");
    EXPECT_TRUE(zet_vantor_server_is_idle());
    switch_to(1000000);
    EXPECT_FALSE(zet_vantor_server_is_idle());
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_TRUE(zet_vantor_server_is_idle());
}

TEST_F(server_link, accepts_no_other_command_as_a_confirmation)
{
    switch_to(921600);
    execute(R"({"command":"identify"})");
    execute(configure_command);
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600, 115200}));
}

TEST_F(server_link, falls_back_to_the_last_confirmed_baud_rate)
{
    switch_to(921600);
    execute(R"({"command":"ping"})");
    switch_to(460800);
    fake_port.tick += two_seconds / 2;
    switch_to(230400);
    EXPECT_EQ(zet_vantor_server_step(), two_seconds);
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600, 460800, 230400, 921600}));
}

TEST_F(server_link, falls_back_on_time_when_the_tick_wraps)
{
    zet_vantor_server_deinit();
    fake_port.tick = UINT32_MAX - two_seconds / 2;
    start(serial_port());
    switch_to(921600);
    fake_port.tick += two_seconds - 1;
    EXPECT_EQ(zet_vantor_server_step(), 1U);
    fake_port.tick += 1;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600, 115200}));
}

TEST_F(server_link, falls_back_while_streaming)
{
    switch_to(921600);
    execute(R"({"command":"configure","configuration":{"update_rate":0.1}})");
    execute(R"({"command":"start"})");
    EXPECT_EQ(zet_vantor_server_step(), two_seconds);
    fake_port.tick += two_seconds;
    EXPECT_EQ(zet_vantor_server_step(), 4 * two_seconds);
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600, 115200}));
    take_messages();
}

TEST_F(server_link, discards_input_received_at_the_old_baud_rate)
{
    send("{\"command\":\"baudrate\",\"baudrate\":921600}\n{\"command\":\"ping\"}\n{\"comm");
    EXPECT_EQ(take_messages().size(), 1U);
    EXPECT_EQ(fake_port.input_restarts, 1);
    execute(R"({"command":"ping"})");
    switch_to(9600);
    EXPECT_EQ(fake_port.input_restarts, 2);
    send("{\"comm");
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.input_restarts, 3);
    execute(R"({"command":"ping"})");
}

TEST_F(server_link, accepts_any_baud_rate_up_to_its_highest)
{
    for (const char *baudrate : {"0", "-1", "1000001", "1e400", "9600.5", "\"9600\"", "true", "null"})
    {
        EXPECT_EQ(refusal(R"({"command":"baudrate","baudrate":)" + std::string(baudrate) + "}"),
                  "bad_argument")
            << baudrate;
    }
    EXPECT_EQ(refusal(R"({"command":"baudrate"})"), "bad_argument");
    EXPECT_TRUE(fake_port.baudrates.empty());
    switch_to(1);
    switch_to(1000000);
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{1, 1000000}));
}

TEST_F(server_link, does_not_change_its_baud_rate_while_streaming)
{
    enter("configured");
    switch_to(921600);
    execute(R"({"command":"ping"})");
    execute(R"({"command":"start"})");
    EXPECT_EQ(refusal(R"({"command":"baudrate","baudrate":9600})"), "wrong_state");
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600}));
}

TEST_F(server_link, returns_to_its_initial_baud_rate_when_the_host_disconnects)
{
    switch_to(921600);
    execute(R"({"command":"ping"})");
    switch_to(460800);
    zet_vantor_server_link_lost();
    EXPECT_EQ(fake_port.baudrates, (baudrates_t{921600, 460800, 115200}));
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates.size(), 3U);
    zet_vantor_server_link_lost();
    EXPECT_EQ(fake_port.baudrates.size(), 3U);
    switch_to(9600);
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates.back(), 115200U);
}

/** A link to a board that can only produce certain baud rates. */
class server_real_rate : public server_fixture
{
protected:
    /** Starts a server that allows any baud rate that a command can request. */
    void start_with(uint32_t (*nearest)(uint32_t))
    {
        zet_vantor_server_port_t port = serial_port();
        port.link.max_baudrate = UINT32_MAX;
        port.nearest_baudrate = nearest;
        start(port);
    }

    /** Starts a server whose board produces this baud rate, whatever is requested. */
    void start_at(uint32_t real)
    {
        real_rate = real;
        start_with([](uint32_t asked) {
            requested_rate = asked;
            return real_rate;
        });
    }

    static message_t request(uint32_t baudrate)
    {
        return ask(R"({"command":"baudrate","baudrate":)" + std::to_string(baudrate) + "}");
    }

    /** Requests a baud rate that must be refused; returns the message. */
    static std::string refusal_of(uint32_t baudrate)
    {
        const message_t answer = request(baudrate);
        EXPECT_EQ(answer.members.value("code", ""), "bad_argument") << answer.line;
        EXPECT_TRUE(fake_port.baudrates.empty());
        EXPECT_EQ(fake_port.input_restarts, 0);
        EXPECT_TRUE(zet_vantor_server_is_idle());
        return answer.members.value("message", "");
    }

    static uint32_t real_rate;
    static uint32_t requested_rate;
};

uint32_t server_real_rate::real_rate;
uint32_t server_real_rate::requested_rate;

TEST_F(server_real_rate, is_accepted_within_two_percent_of_the_requested_one)
{
    for (const uint32_t real : {100000U, 98000U, 102000U, 99999U, 100001U})
    {
        start_at(real);
        fake_port.baudrates.clear();
        EXPECT_EQ(request(100000).members["status"], "ok") << real;
        EXPECT_EQ(requested_rate, 100000U);
        EXPECT_EQ(fake_port.baudrates, (std::vector<uint32_t>{100000})) << real;
        zet_vantor_server_deinit();
        started = false;
    }
}

TEST_F(server_real_rate, is_refused_beyond_two_percent)
{
    for (const uint32_t real : {97999U, 102001U, 1U, UINT32_MAX})
    {
        start_at(real);
        EXPECT_EQ(refusal_of(100000),
                  "This link cannot run at 100000 baud; the nearest rate is " + std::to_string(real) + ".");
        zet_vantor_server_deinit();
        started = false;
    }
}

TEST_F(server_real_rate, may_not_exist)
{
    start_at(0);
    EXPECT_EQ(refusal_of(1000000), "This link cannot run at 1000000 baud or near it.");
    EXPECT_EQ(refusal_of(1), "This link cannot run at 1 baud or near it.");
}

TEST_F(server_real_rate, is_compared_without_overflow)
{
    // The largest number that a command can contain.
    constexpr uint32_t largest = INT32_MAX;
    start_at(UINT32_MAX);
    EXPECT_EQ(refusal_of(largest),
              "This link cannot run at 2147483647 baud; the nearest rate is 4294967295.");
    real_rate = largest / 50 * 49;
    EXPECT_EQ(request(largest).members["status"], "error");
    real_rate = largest - largest / 50;
    EXPECT_EQ(request(largest).members["status"], "ok");
    real_rate = largest + largest / 50;
    EXPECT_EQ(request(largest).members["status"], "ok");
    real_rate = largest + largest / 50 + 1;
    EXPECT_EQ(request(largest).members["status"], "error");
}

TEST_F(server_real_rate, is_not_checked_when_the_board_supports_any_rate)
{
    start_with(nullptr);
    EXPECT_EQ(request(12345).members["status"], "ok");
    EXPECT_EQ(fake_port.baudrates, (std::vector<uint32_t>{12345}));
}

TEST_F(server_real_rate, is_not_checked_when_the_link_does_not_allow_the_rate)
{
    start_at(1);
    requested_rate = 0;
    EXPECT_EQ(refusal(R"({"command":"baudrate","baudrate":0})"), "bad_argument");
    EXPECT_EQ(requested_rate, 0U);
}

TEST_F(server_real_rate, that_is_refused_does_not_change_a_pending_confirmation)
{
    start_with([](uint32_t asked) { return asked == 921600 ? asked : 115200U; });
    EXPECT_EQ(request(921600).members["status"], "ok");
    EXPECT_EQ(request(1000000).members["code"], "bad_argument");
    EXPECT_EQ(zet_vantor_server_step(), two_seconds);
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (std::vector<uint32_t>{921600, 115200}));
}

class server_fixed_link : public server_fixture
{
};

TEST_F(server_fixed_link, reports_that_its_baud_rate_is_fixed)
{
    zet_vantor_server_port_t ports[5];
    std::fill(std::begin(ports), std::end(ports), serial_port());
    ports[0].link.set_baudrate = nullptr;
    ports[1].link.max_baudrate = 0;
    ports[2].baudrate = 0;
    ports[3].link.ticks_per_second = 0;
    ports[4].link.get_tick = nullptr;
    for (const zet_vantor_server_port_t &port : ports)
    {
        start(port);
        EXPECT_EQ(refusal(R"({"command":"baudrate","baudrate":9600})"), "baudrate_fixed");
        EXPECT_EQ(ask(R"({"command":"identify"})").members["max_baudrate"], 0);
        zet_vantor_server_deinit();
        started = false;
    }
    EXPECT_TRUE(fake_port.baudrates.empty());
}

} // namespace
