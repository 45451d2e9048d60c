/** @file
 * Tests of the firmware's interface for a sensor library, exact to the microsecond.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "board.h"
#include "clock.h"
#include "fake_board.h"
#include "link.h"
#include "sensors.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_integration_log.h"

namespace
{

/** The bit of a sensor. */
constexpr uint32_t bit(uint32_t sensor_id)
{
    return 1U << (sensor_id - 1U);
}

struct runtime_sensors : testing::Test
{
    runtime_sensors()
    {
        reset_board();
        EXPECT_TRUE(sensors_start());
    }

    /** Waits for a signal, and checks how long the wait takes. */
    static bool wait(zet_sensor_id_t sensor_id, uint32_t timeout_ms, uint64_t expected_us)
    {
        const uint64_t begin_us = board.now_us();
        const bool signalled = zet_hal_integration_wait_for_sensor_interrupt(sensor_id, timeout_ms);
        EXPECT_EQ(board.now_us() - begin_us, expected_us);
        return signalled;
    }
};

TEST_F(runtime_sensors, switches_and_then_waits)
{
    zet_hal_integration_sensor_supply_on(2);
    zet_hal_integration_sensor_enable(2);
    zet_hal_integration_sensor_disable(2);
    zet_hal_integration_sensor_supply_off(2);
    EXPECT_EQ(board.now_us(), 700U + 5000U + 300U + 3U) << "delays are rounded up to a microsecond";
    EXPECT_THAT(board.calls,
                testing::ElementsAre(call_t{0, "supply 2 on"}, call_t{701, "enable 2 on"},
                                     call_t{5702, "enable 2 off"}, call_t{6003, "supply 2 off"}));
}

TEST_F(runtime_sensors, does_not_switch_the_enable_line_of_a_sensor_without_supply)
{
    zet_hal_integration_sensor_supply_on(1);
    zet_hal_integration_sensor_enable(2);
    zet_hal_integration_sensor_supply_off(1);
    zet_hal_integration_sensor_enable(1);
    EXPECT_EQ(board.now_us(), 701U);
    EXPECT_THAT(board.calls, testing::ElementsAre(call_t{0, "supply 1 on"}, call_t{701, "supply 1 off"}));
    zet_hal_integration_sensor_supply_on(2);
    zet_hal_integration_sensor_enable(2);
    EXPECT_THAT(board.calls, testing::SizeIs(4));
}

TEST_F(runtime_sensors, discards_signals_from_before_a_sensor_is_enabled)
{
    zet_hal_integration_sensor_supply_on(1);
    board.signal(bit(1) | bit(2));
    board.at(701 + 4999, [] { board.signal(bit(1)); });
    zet_hal_integration_sensor_enable(1);
    EXPECT_FALSE(wait(1, 0, 0));
    EXPECT_TRUE(wait(2, 0, 0)) << "the signal of another sensor must be kept";
}

TEST_F(runtime_sensors, keeps_a_signal_from_before_the_wait)
{
    board.signal(bit(3));
    board.advance_us(1000000);
    EXPECT_TRUE(wait(3, 1000, 0));
    EXPECT_FALSE(wait(3, 1, 1000)) << "a signal must end only one wait";
}

TEST_F(runtime_sensors, keeps_a_signal_when_another_sensor_is_disabled)
{
    zet_hal_integration_sensor_supply_on(2);
    board.signal(bit(3));
    zet_hal_integration_sensor_enable(2);
    zet_hal_integration_sensor_disable(2);
    EXPECT_TRUE(wait(3, 0, 0));
}

TEST_F(runtime_sensors, ends_a_wait_with_the_signal)
{
    board.at(250, [] { board.signal(bit(1)); });
    EXPECT_TRUE(wait(1, 1, 250));
    EXPECT_FALSE(wait(1, 0, 0));
}

TEST_F(runtime_sensors, accepts_a_signal_at_the_moment_of_the_time_out)
{
    board.at(1000, [] { board.signal(bit(1)); });
    EXPECT_TRUE(wait(1, 1, 1000));
    board.at(2001, [] { board.signal(bit(1)); });
    EXPECT_FALSE(wait(1, 1, 1000)) << "the signal is a microsecond too late";
    EXPECT_TRUE(wait(1, 1, 1)) << "it must end the next wait";
}

TEST_F(runtime_sensors, times_out_exactly)
{
    for (const uint32_t timeout_ms : {0U, 1U, 1000U, 100000U, UINT32_MAX})
    {
        EXPECT_FALSE(wait(1, timeout_ms, timeout_ms * uint64_t{1000}));
    }
}

TEST_F(runtime_sensors, waits_only_for_the_requested_sensor)
{
    board.at(100, [] { board.signal(bit(2)); });
    board.at(200, [] { board.signal(bit(32)); });
    board.at(300, [] { board.signal(bit(1)); });
    EXPECT_TRUE(wait(1, 1, 300));
    EXPECT_TRUE(wait(32, 1, 0));
    EXPECT_TRUE(wait(2, 1, 0));
    for (const zet_sensor_id_t sensor_id : {1U, 2U, 32U})
    {
        EXPECT_FALSE(wait(sensor_id, 0, 0));
    }
}

TEST_F(runtime_sensors, times_out_exactly_even_if_another_sensor_signals)
{
    for (uint64_t time_us = 50; time_us < 3000; time_us += 50)
    {
        board.at(time_us, [] { board.signal(bit(2)); });
    }
    EXPECT_FALSE(wait(1, 1, 1000));
}

TEST_F(runtime_sensors, ends_a_wait_at_once_if_the_server_gives_it_up)
{
    board.poll_time_ns = 0;
    link_open();
    board.at(100, [] { board.receive("fra"); });
    board.at(200, [] { board.signal(bit(2)); });
    board.at(300, [] { board.receive("me"); });
    board.at(400, [] { board.receive("e"); });
    board.at(5000, [] { board.receive("nd"); });
    EXPECT_FALSE(wait(1, 1000, 5000));
    EXPECT_EQ(board.shown, "frameend");
    EXPECT_TRUE(wait(2, 1000, 0)) << "a signal that has come is not lost";
    EXPECT_FALSE(wait(1, 1000, 0));
    board.shown.clear();
    EXPECT_FALSE(wait(1, 1, 1000));
}

TEST_F(runtime_sensors, shows_the_server_all_bytes_that_wait_in_the_ring)
{
    link_open();
    board.receive("fifteen bytes..");
    EXPECT_FALSE(wait(1, 1, 1000));
    EXPECT_EQ(board.shown, "fifteen bytes..");
    EXPECT_FALSE(wait(1, 1, 1000));
    EXPECT_EQ(board.shown, "fifteen bytes..") << "each byte is shown once";
}

TEST_F(runtime_sensors, accepts_signals_of_several_sensors_in_one_interrupt)
{
    board.at(10, [] { board.signal(UINT32_MAX); });
    EXPECT_TRUE(wait(1, 1, 10));
    for (zet_sensor_id_t sensor_id = 2; sensor_id <= BOARD_SENSOR_COUNT; ++sensor_id)
    {
        EXPECT_TRUE(wait(sensor_id, 0, 0)) << sensor_id;
    }
}

TEST_F(runtime_sensors, accepts_signals_that_are_pending_at_the_start)
{
    reset_board();
    board.signal(bit(1));
    EXPECT_TRUE(sensors_start());
    EXPECT_TRUE(wait(1, 0, 0));
}

TEST_F(runtime_sensors, passes_the_board_to_the_library)
{
    EXPECT_EQ(zet_hal_integration_sensor_count(), 32);
    const zet_hal_k330_t *hal = zet_hal_nox_integration_get_implementation();
    ASSERT_NE(hal, nullptr);
    EXPECT_EQ(hal->max_spi_transfer_size, 1234);
    EXPECT_EQ(hal->mem_alloc, zet_integration_mem_alloc);
    EXPECT_EQ(hal->mem_free, zet_integration_mem_free);
    EXPECT_EQ(hal->log, zet_integration_log);
    EXPECT_EQ(hal->optimization.transfer16, nullptr);
    uint8_t bytes[] = {1, 2, 3};
    hal->transfer(7, bytes, 3);
    EXPECT_THAT(bytes, testing::ElementsAre(3, 2, 1));
    EXPECT_THAT(board.calls, testing::ElementsAre(call_t{0, "transfer 7 3"}));
}

TEST_F(runtime_sensors, use_real_time)
{
    EXPECT_FALSE(sensors_have_virtual_clock());
    board.advance_us(77);
    sensors_advance_clock(1000);
    EXPECT_EQ(sensors_now_us(), 77U);
}

} // namespace
