/** @file
 * The server core's frame rate: set by the sensor, by the tick, or as fast as possible; with a clock that
 * wraps.
 */
#include "server_fixture.h"

namespace
{

class server_pace : public server_fixture
{
protected:
    /** Starts a stream at a rate in hertz; returns the tick period reported to the host. */
    uint32_t stream_at(const std::string &rate)
    {
        const message_t metadata =
            ask(R"({"command":"configure","configuration":{"update_rate":)" + rate + "}}");
        execute(R"({"command":"start"})");
        return metadata.members.value("tick_period", 77U);
    }

    /** Runs a step and stores how long to wait; returns whether it sent a frame. */
    bool step()
    {
        wait = zet_vantor_server_step();
        return !take_messages().empty();
    }

    /** The number of skipped frames that the server reports. */
    static uint64_t frames_skipped()
    {
        return ask(R"({"command":"stats"})").members.value("frames_left_out", UINT64_MAX);
    }

    /** Stops the stream; returns the number of its skipped frames that the server reports. */
    static uint64_t frames_skipped_in_stopped_stream()
    {
        return ask(R"({"command":"stop"})").members.value("frames_left_out", UINT64_MAX);
    }

    uint32_t wait = 0;
};

TEST_F(server_pace, keeps_an_update_rate_by_the_tick)
{
    start();
    EXPECT_EQ(stream_at("20"), 50000U);
    const uint32_t first = fake_port.tick;
    for (uint32_t frame = 0; frame < 100; ++frame)
    {
        EXPECT_EQ(fake_port.tick, first + frame * 50000U);
        EXPECT_TRUE(step());
        EXPECT_EQ(wait, 50000U);
        fake_port.tick += wait - 1;
        EXPECT_FALSE(step());
        EXPECT_EQ(wait, 1U);
        fake_port.tick += wait;
    }
}

TEST_F(server_pace, does_not_drift_when_measuring_and_waking_take_time)
{
    start();
    stream_at("20");
    const uint32_t first = fake_port.tick;
    fake_backend.during_frame = [] { fake_port.tick += 20000; };
    for (uint32_t frame = 0; frame < 100; ++frame)
    {
        fake_port.tick += 333;
        EXPECT_TRUE(step());
        EXPECT_EQ(fake_port.tick + wait, first + (frame + 1) * 50000U);
        fake_port.tick += wait;
    }
}

TEST_F(server_pace, skips_late_frames_and_does_not_send_them_later)
{
    start();
    stream_at("20");
    const uint32_t first = fake_port.tick;
    EXPECT_TRUE(step());
    fake_port.tick = first + 12 * 50000 + 1000;
    EXPECT_TRUE(step());
    EXPECT_EQ(wait, 49000U);
    fake_port.tick += 48999;
    EXPECT_FALSE(step());
    fake_port.tick += 1;
    EXPECT_TRUE(step());
    EXPECT_EQ(wait, 50000U);
}

TEST_F(server_pace, does_not_count_a_frame_on_time_as_skipped)
{
    start();
    stream_at("20");
    fake_backend.during_frame = [] { fake_port.tick += 50000; };
    for (int frame = 0; frame < 3; ++frame)
    {
        EXPECT_TRUE(step());
        EXPECT_EQ(frames_skipped(), 0U);
    }
    fake_backend.during_frame = [] {};
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 0U);
    fake_port.tick += wait + 49999;
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 0U);
}

TEST_F(server_pace, counts_the_skipped_frames_before_the_next_one)
{
    start();
    stream_at("20");
    const uint32_t first = fake_port.tick;
    fake_backend.during_frame = [] { fake_port.tick += 50001; };
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 1U);
    fake_port.tick += wait;
    fake_backend.during_frame = [] { fake_port.tick += 7 * 50000 + 1; };
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 8U);
    EXPECT_EQ(fake_port.tick + wait, first + (2 + 8) * 50000U);
    fake_backend.during_frame = [] {};
    // This frame is already late when its measurement begins. The skipped frames are counted only after it.
    fake_port.tick += wait + 3 * 50000;
    EXPECT_EQ(frames_skipped(), 8U);
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 10U);
    EXPECT_EQ(wait, 0U);
}

TEST_F(server_pace, counts_skipped_frames_when_the_tick_wraps)
{
    fake_port.tick = UINT32_MAX - 120000;
    start();
    stream_at("20");
    fake_backend.during_frame = [] { fake_port.tick += 4 * 50000; };
    EXPECT_TRUE(step());
    EXPECT_LT(fake_port.tick, 100000U);
    EXPECT_EQ(frames_skipped(), 3U);
}

TEST_F(server_pace, reports_the_skipped_frames_of_a_stream_when_it_is_stopped)
{
    start();
    stream_at("20");
    fake_backend.during_frame = [] { fake_port.tick += 120000; };
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped_in_stopped_stream(), 2U);
    execute(R"({"command":"start"})");
    EXPECT_EQ(frames_skipped_in_stopped_stream(), 0U);
    execute(R"({"command":"start"})");
    EXPECT_TRUE(step());
    fake_port.tick += wait;
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped_in_stopped_stream(), 4U);
    EXPECT_EQ(frames_skipped(), 6U);
}

TEST_F(server_pace, counts_the_frames_between_the_last_one_and_stop)
{
    start();
    stream_at("20");
    EXPECT_TRUE(step());
    // The first frame after it is due now: it is left out only if the second one is due, too.
    fake_port.tick += 50000 + 49999;
    EXPECT_EQ(frames_skipped_in_stopped_stream(), 0U);
    execute(R"({"command":"start"})");
    EXPECT_TRUE(step());
    fake_port.tick += 50000 + 390 * 50000;
    EXPECT_EQ(frames_skipped(), 0U);
    EXPECT_EQ(frames_skipped_in_stopped_stream(), 390U);
    EXPECT_EQ(frames_skipped(), 390U);
}

TEST_F(server_pace, counts_the_frames_of_a_stream_without_a_frame)
{
    start();
    stream_at("20");
    fake_port.tick += 7 * 50000;
    EXPECT_EQ(frames_skipped_in_stopped_stream(), 7U);
}

TEST_F(server_pace, counts_the_frames_between_the_last_one_and_the_end_of_the_session)
{
    start();
    stream_at("20");
    EXPECT_TRUE(step());
    fake_port.tick += 50000 + 3 * 50000;
    execute(R"({"command":"end"})");
    EXPECT_EQ(frames_skipped(), 3U);
    fake_port.tick += 1000000;
    EXPECT_EQ(frames_skipped(), 3U);
    stream_at("20");
    EXPECT_TRUE(step());
    fake_port.tick += 50000 + 5 * 50000;
    zet_vantor_server_link_lost();
    EXPECT_EQ(frames_skipped(), 8U);
}

TEST_F(server_pace, does_not_count_frames_of_a_stream_that_nobody_paces)
{
    start();
    stream_at("0");
    EXPECT_TRUE(step());
    fake_port.tick += 1000000;
    EXPECT_EQ(frames_skipped_in_stopped_stream(), 0U);
}

TEST_F(server_pace, does_not_count_skipped_frames_while_the_stream_is_stopped)
{
    start();
    stream_at("20");
    fake_backend.during_frame = [] { fake_port.tick += 120000; };
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 2U);
    fake_backend.during_frame = [] {};
    execute(R"({"command":"stop"})");
    fake_port.tick += 1000000;
    EXPECT_FALSE(step());
    execute(R"({"command":"start"})");
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 2U);
    EXPECT_EQ(wait, 50000U);
}

TEST_F(server_pace, does_not_count_skipped_frames_after_the_session_failed)
{
    start();
    stream_at("20");
    fake_backend.frame_result = false;
    fake_backend.during_frame = [] { fake_port.tick += 1000000; };
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 0U);
}

TEST_F(server_pace, does_not_count_skipped_frames_if_the_sensor_sets_the_rate)
{
    start();
    fake_backend.sensor_paced = true;
    stream_at("20");
    fake_backend.during_frame = [] { fake_port.tick += 1000000; };
    EXPECT_TRUE(step());
    EXPECT_EQ(frames_skipped(), 0U);
}

TEST_F(server_pace, slows_down_when_a_frame_takes_longer_than_the_period)
{
    start();
    stream_at("20");
    fake_backend.during_frame = [] { fake_port.tick += 50001; };
    for (int frame = 0; frame < 10; ++frame)
    {
        EXPECT_TRUE(step());
        EXPECT_EQ(wait, 49999U);
        fake_port.tick += wait;
    }
}

TEST_F(server_pace, keeps_the_rate_when_a_frame_takes_exactly_the_period)
{
    start();
    stream_at("20");
    fake_backend.during_frame = [] { fake_port.tick += 50000; };
    for (int frame = 0; frame < 10; ++frame)
    {
        EXPECT_TRUE(step());
        EXPECT_EQ(wait, 0U);
    }
}

TEST_F(server_pace, keeps_the_rate_when_the_tick_wraps)
{
    fake_port.tick = UINT32_MAX - 120000;
    start();
    stream_at("20");
    for (int frame = 0; frame < 10; ++frame)
    {
        EXPECT_TRUE(step());
        EXPECT_EQ(wait, 50000U);
        fake_port.tick += wait;
    }
    EXPECT_LT(fake_port.tick, 500000U);
}

TEST_F(server_pace, keeps_a_period_longer_than_half_the_range_of_the_tick)
{
    zet_vantor_server_port_t port = plain_port();
    port.link.ticks_per_second = 4000000000U;
    fake_port.tick = 3000000000U;
    start(port);
    EXPECT_EQ(stream_at("1"), 4000000000U);
    EXPECT_TRUE(step());
    uint64_t waited = 0;
    while (waited < 4000000000U)
    {
        fake_port.tick += wait;
        waited += wait;
        EXPECT_EQ(step(), waited == 4000000000U) << waited;
    }
    EXPECT_EQ(waited, 4000000000U);
}

TEST_F(server_pace, restarts_its_schedule_with_every_start)
{
    start();
    stream_at("20");
    EXPECT_TRUE(step());
    fake_port.tick += 10000;
    execute(R"({"command":"stop"})");
    EXPECT_FALSE(step());
    execute(R"({"command":"start"})");
    EXPECT_TRUE(step());
    EXPECT_EQ(wait, 50000U);
}

TEST_F(server_pace, lets_the_sensor_set_the_rate_when_a_frame_rate_is_configured)
{
    start();
    fake_backend.sensor_paced = true;
    EXPECT_EQ(stream_at("20"), 0U);
    for (int frame = 0; frame < 3; ++frame)
    {
        EXPECT_TRUE(step());
        EXPECT_EQ(wait, 0U);
    }
}

TEST_F(server_pace, runs_as_fast_as_possible_without_a_rate)
{
    start();
    for (const char *rate : {"-1", "0", "\"none\""})
    {
        EXPECT_EQ(stream_at(rate), 0U);
        EXPECT_TRUE(step());
        EXPECT_EQ(wait, 0U);
        EXPECT_TRUE(step());
        execute(R"({"command":"end"})");
    }
}

TEST_F(server_pace, runs_as_fast_as_possible_without_a_clock)
{
    zet_vantor_server_port_t port = plain_port();
    port.link.ticks_per_second = 0;
    start(port);
    EXPECT_EQ(stream_at("20"), 0U);
    EXPECT_TRUE(step());
    EXPECT_EQ(wait, 0U);
    EXPECT_TRUE(step());
}

TEST_F(server_pace, counts_every_wrap_of_the_tick_if_called_often_enough)
{
    start();
    for (int i = 0; i < 6; ++i)
    {
        EXPECT_EQ(zet_vantor_server_step(), ZET_VANTOR_SERVER_IDLE);
        fake_port.tick += UINT32_MAX / 2;
    }
    const double uptime = ask(R"({"command":"stats"})").members["uptime_s"];
    EXPECT_DOUBLE_EQ(uptime, 12884.901);
}

TEST_F(server_pace, reports_its_uptime_in_milliseconds)
{
    fake_port.tick = 99;
    start();
    const auto uptime = [] { return ask(R"({"command":"stats"})").line; };
    EXPECT_NE(uptime().find("\"uptime_s\":0,"), std::string::npos);
    fake_port.tick += 1500;
    EXPECT_NE(uptime().find("\"uptime_s\":0.001,"), std::string::npos);
    fake_port.tick += 12343500;
    EXPECT_NE(uptime().find("\"uptime_s\":12.345,"), std::string::npos);
}

TEST_F(server_pace, reports_its_uptime_to_the_millisecond_even_after_weeks)
{
    start();
    const auto pass = [](uint64_t milliseconds) {
        for (; milliseconds > 4000000U; milliseconds -= 4000000U)
        {
            fake_port.tick += 4000000000U;
            zet_vantor_server_step();
        }
        fake_port.tick += static_cast<uint32_t>(milliseconds) * 1000U;
    };
    const auto uptime = [] { return ask(R"({"command":"stats"})").line; };
    pass(2097152050U);
    EXPECT_NE(uptime().find("\"uptime_s\":2097152.05,"), std::string::npos);
    pass(200U);
    EXPECT_NE(uptime().find("\"uptime_s\":2097152.25,"), std::string::npos);
}

TEST_F(server_pace, limits_a_very_low_rate_to_the_longest_period)
{
    start();
    EXPECT_EQ(stream_at("1e-9"), UINT32_MAX);
    EXPECT_TRUE(step());
    fake_port.tick += UINT32_MAX - 1;
    EXPECT_FALSE(step());
    fake_port.tick += 1;
    EXPECT_TRUE(step());
}

} // namespace
