/** @file
 * The server core and the speed of its link.
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
        obey(R"({"command":"baudrate","baudrate":)" + std::to_string(baudrate) + "}");
    }

    using speeds = std::vector<uint32_t>;
};

TEST_F(server_link, tells_its_highest_speed)
{
    EXPECT_EQ(ask(R"({"command":"identify"})").members["max_baudrate"], 1000000);
}

TEST_F(server_link, answers_at_the_old_speed_and_switches_then)
{
    zet_vantor_server_port_t port = serial_port();
    static std::string sent_before_switch;
    port.link.set_baudrate = [](uint32_t) { sent_before_switch = fake_port.sent; };
    zet_vantor_server_deinit();
    start(port);
    switch_to(921600);
    EXPECT_EQ(sent_before_switch, "{\"status\":\"ok\",\"command\":\"baudrate\",\"payload_size\":0}\n");
}

TEST_F(server_link, stays_at_a_speed_that_is_confirmed)
{
    switch_to(921600);
    EXPECT_EQ(zet_vantor_server_step(), two_seconds);
    fake_port.tick += two_seconds - 1;
    EXPECT_EQ(zet_vantor_server_step(), 1U);
    obey(R"({"command":"ping"})");
    fake_port.tick += 10 * two_seconds;
    EXPECT_EQ(zet_vantor_server_step(), ZET_VANTOR_SERVER_IDLE);
    EXPECT_EQ(fake_port.baudrates, (speeds{921600}));
}

TEST_F(server_link, goes_back_when_no_ping_comes_within_two_seconds)
{
    switch_to(921600);
    fake_port.tick += two_seconds - 1;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (speeds{921600}));
    fake_port.tick += 1;
    EXPECT_EQ(zet_vantor_server_step(), ZET_VANTOR_SERVER_IDLE);
    EXPECT_EQ(fake_port.baudrates, (speeds{921600, 115200}));
    EXPECT_TRUE(fake_port.sent.empty());
    fake_port.tick += 10 * two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates.size(), 2U);
}

TEST_F(server_link, is_not_idle_while_a_speed_is_not_confirmed)
{
    switch_to(921600);
    EXPECT_FALSE(zet_vantor_server_is_idle());
    obey(R"({"command":"ping"})");
    EXPECT_TRUE(zet_vantor_server_is_idle());
    switch_to(1000000);
    EXPECT_FALSE(zet_vantor_server_is_idle());
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_TRUE(zet_vantor_server_is_idle());
}

TEST_F(server_link, takes_no_other_command_for_a_confirmation)
{
    switch_to(921600);
    obey(R"({"command":"identify"})");
    obey(configure_command);
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (speeds{921600, 115200}));
}

TEST_F(server_link, goes_back_to_the_last_speed_that_was_confirmed)
{
    switch_to(921600);
    obey(R"({"command":"ping"})");
    switch_to(460800);
    fake_port.tick += two_seconds / 2;
    switch_to(230400);
    EXPECT_EQ(zet_vantor_server_step(), two_seconds);
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (speeds{921600, 460800, 230400, 921600}));
}

TEST_F(server_link, goes_back_in_time_when_the_tick_wraps)
{
    zet_vantor_server_deinit();
    fake_port.tick = UINT32_MAX - two_seconds / 2;
    start(serial_port());
    switch_to(921600);
    fake_port.tick += two_seconds - 1;
    EXPECT_EQ(zet_vantor_server_step(), 1U);
    fake_port.tick += 1;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.baudrates, (speeds{921600, 115200}));
}

TEST_F(server_link, goes_back_while_it_streams)
{
    switch_to(921600);
    obey(R"({"command":"configure","configuration":{"update_rate":0.1}})");
    obey(R"({"command":"start"})");
    EXPECT_EQ(zet_vantor_server_step(), two_seconds);
    fake_port.tick += two_seconds;
    EXPECT_EQ(zet_vantor_server_step(), 4 * two_seconds);
    EXPECT_EQ(fake_port.baudrates, (speeds{921600, 115200}));
    take_messages();
}

TEST_F(server_link, forgets_with_every_switch_what_came_at_the_old_speed)
{
    send("{\"command\":\"baudrate\",\"baudrate\":921600}\n{\"command\":\"ping\"}\n{\"comm");
    EXPECT_EQ(take_messages().size(), 1U);
    EXPECT_EQ(fake_port.input_restarts, 1);
    obey(R"({"command":"ping"})");
    switch_to(9600);
    EXPECT_EQ(fake_port.input_restarts, 2);
    send("{\"comm");
    fake_port.tick += two_seconds;
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.input_restarts, 3);
    obey(R"({"command":"ping"})");
}

TEST_F(server_link, takes_any_speed_up_to_its_highest)
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
    EXPECT_EQ(fake_port.baudrates, (speeds{1, 1000000}));
}

TEST_F(server_link, does_not_change_its_speed_while_it_streams)
{
    enter("configured");
    switch_to(921600);
    obey(R"({"command":"ping"})");
    obey(R"({"command":"start"})");
    EXPECT_EQ(refusal(R"({"command":"baudrate","baudrate":9600})"), "wrong_state");
    EXPECT_EQ(fake_port.baudrates, (speeds{921600}));
}

TEST_F(server_link, returns_to_its_first_speed_when_the_host_goes_away)
{
    switch_to(921600);
    obey(R"({"command":"ping"})");
    switch_to(460800);
    zet_vantor_server_link_lost();
    EXPECT_EQ(fake_port.baudrates, (speeds{921600, 460800, 115200}));
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

class server_fixed_link : public server_fixture
{
};

TEST_F(server_fixed_link, says_that_its_speed_is_fixed)
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
