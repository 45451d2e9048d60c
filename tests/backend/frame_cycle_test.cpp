/** @file
 * The frame cycle: prepare, measure, wait, read and process, group by group.
 */
#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

/** Sessions that measure. */
class frame_cycle : public ready_backend_test
{
protected:
    /** Sets up one group on the sensors 1 and 2. */
    void parse_pair()
    {
        ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    }

    /** Expects the frame to fail with the message about sensor data, without sending anything. */
    void expect_failed_frame()
    {
        error = nullptr;
        EXPECT_FALSE(read_frame());
        EXPECT_EQ(error, error_nox_data_str);
        EXPECT_EQ(neighbours().calls.count("zet_vantor_server_write_json"), 0U);
        EXPECT_EQ(neighbours().calls.count("write("), 0U);
        EXPECT_EQ(calls(call_kind_t::json), "");
    }
};

} // namespace

TEST_F(frame_cycle, measures_the_items_of_a_group_together_and_the_groups_one_after_another)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}}],
                                     [{"sensor_id": 3, "config": {}}]]})"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(calls(), lines({
                           "zet_probes_register_callback(20, null, null)",
                           "zet_probes_register_callback(20, null, null)",
                           "zet_sensor_measure(sensor 1)",
                           "zet_sensor_measure(sensor 2)",
                           "zet_config_sweep_rate_get(config 1)",
                           "zet_config_sweeps_per_frame_get(config 1)",
                           "zet_hal_integration_wait_for_sensor_interrupt(1, 1000)",
                           "get_tick()",
                           "zet_config_sweep_rate_get(config 2)",
                           "zet_config_sweeps_per_frame_get(config 2)",
                           "zet_hal_integration_wait_for_sensor_interrupt(2, 1000)",
                           "get_tick()",
                           "zet_sensor_read(sensor 1, block 1, 64)",
                           "zet_processing_execute(processing 1, block 1)",
                           "zet_sensor_read(sensor 2, block 2, 64)",
                           "zet_processing_execute(processing 2, block 2)",
                           "zet_probes_register_callback(20, null, null)",
                           "zet_sensor_measure(sensor 3)",
                           "zet_config_sweep_rate_get(config 3)",
                           "zet_config_sweeps_per_frame_get(config 3)",
                           "zet_hal_integration_wait_for_sensor_interrupt(3, 1000)",
                           "get_tick()",
                           "zet_sensor_read(sensor 3, block 3, 64)",
                           "zet_processing_execute(processing 3, block 3)",
                           "zet_vantor_server_write_json(write)",
                           "write(frame 1, 16)",
                           "write(frame 2, 16)",
                           "write(frame 3, 16)",
                       }));
    EXPECT_EQ(error, nullptr);
}

TEST_F(frame_cycle, with_a_null_interface_only_prepares)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 1, "config": {}}],
                                     [{"sensor_id": 2, "config": {}}]]})"));
    ASSERT_TRUE(prepare_only());
    EXPECT_EQ(calls(), lines({
                           "zet_probes_register_callback(20, null, null)",
                           "zet_sensor_prepare(sensor 1, config 1, calibration of 1, block 1, 64)",
                           "zet_probes_register_callback(20, null, null)",
                           "zet_sensor_prepare(sensor 1, config 2, calibration of 1, block 2, 64)",
                           "zet_probes_register_callback(20, null, null)",
                       }))
        << "sensor 2 is already prepared with its configuration";
}

TEST_F(frame_cycle, with_a_null_interface_and_no_items_succeeds_without_a_call)
{
    ASSERT_TRUE(prepare_only());
    EXPECT_EQ(calls(), "");
}

TEST_F(frame_cycle, registers_the_probe_for_every_item_whether_or_not_a_prepare_follows)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cpd_overrides": {}},
                               {"sensor_id": 2, "config": {}},
                               {"sensor_id": 3, "config": {}, "cpd_overrides": {}})"));
    ASSERT_TRUE(prepare_only());
    EXPECT_EQ(calls(), lines({
                           "zet_probes_register_callback(20, callback, block 1)",
                           "zet_probes_register_callback(20, null, null)",
                           "zet_probes_register_callback(20, callback, block 4)",
                       }));
}

TEST_F(frame_cycle, registration_of_the_last_item_remains_after_the_session)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cpd_overrides": {}})"));
    ASSERT_TRUE(read_frame());
    EXPECT_NE(neighbours().callback, nullptr);
    destroy_session();
    EXPECT_NE(neighbours().callback, nullptr) << "the end of the session does not remove the registration";
}

TEST_F(frame_cycle, sensor_with_a_single_configuration_is_prepared_once_in_a_session)
{
    ASSERT_TRUE(parse_config("{}"));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare"), 1U);
    for (int frame = 0; frame < 3; ++frame)
    {
        ASSERT_TRUE(read_frame());
        EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare"), 0U);
    }
}

TEST_F(frame_cycle, sensor_in_two_groups_is_prepared_before_each_of_its_measurements)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 1, "config": {}}]]})"));
    for (int frame = 0; frame < 2; ++frame)
    {
        ASSERT_TRUE(read_frame());
        EXPECT_EQ(calls(call_kind_t::sensor_library),
                  lines({
                      "zet_probes_register_callback(20, null, null)",
                      "zet_sensor_prepare(sensor 1, config 1, calibration of 1, block 1, 64)",
                      "zet_sensor_measure(sensor 1)",
                      "zet_config_sweep_rate_get(config 1)",
                      "zet_config_sweeps_per_frame_get(config 1)",
                      "zet_sensor_read(sensor 1, block 1, 64)",
                      "zet_processing_execute(processing 1, block 1)",
                      "zet_probes_register_callback(20, null, null)",
                      "zet_sensor_prepare(sensor 1, config 2, calibration of 1, block 2, 64)",
                      "zet_sensor_measure(sensor 1)",
                      "zet_config_sweep_rate_get(config 2)",
                      "zet_config_sweeps_per_frame_get(config 2)",
                      "zet_sensor_read(sensor 1, block 2, 64)",
                      "zet_processing_execute(processing 2, block 2)",
                  }));
    }
}

TEST_F(frame_cycle, session_without_items_still_sends_a_message)
{
    ASSERT_TRUE(parse("{}"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(calls(), lines({"zet_vantor_server_write_json(write)"}));
    EXPECT_EQ(sent_document(), R"({"result_info":[],"status":"ok","payload_size":0})");
}

TEST_F(frame_cycle, group_without_items_is_skipped_without_a_call)
{
    ASSERT_TRUE(parse_config("{}"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_probes_register_callback"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_measure"), 1U);
}

TEST_F(frame_cycle, stamps_every_item_right_after_its_wait)
{
    parse_pair();
    neighbours().next_tick = 4294967290U;
    ASSERT_TRUE(read_frame());
    EXPECT_NE(sent_document().find(R"({"tick":4294967290,)"), std::string::npos);
    EXPECT_NE(sent_document().find(R"({"tick":4,)"), std::string::npos) << "the tick wraps";
}

TEST_F(frame_cycle, without_a_tick_source_the_tick_is_0)
{
    parse_pair();
    ASSERT_TRUE(read_frame());
    interface.get_tick = nullptr;
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("get_tick"), 0U);
    EXPECT_EQ(sent_document().substr(0, 27), R"({"result_info":[[{"tick":0,)");
    EXPECT_EQ(sent_document().rfind(R"({"tick":0,)"), sent_document().find(R"(},{"tick":0,)") + 2);
}

// Failures

TEST_F(frame_cycle, failed_prepare_ends_the_frame)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}}],
                                     [{"sensor_id": 1, "config": {}}]]})"));
    refuse("zet_sensor_prepare");
    expect_failed_frame();
    EXPECT_EQ(calls(), lines({
                           "zet_probes_register_callback(20, null, null)",
                           "zet_sensor_prepare(sensor 1, config 1, calibration of 1, block 1, 64)",
                           "zet_sensor_status(sensor 1)",
                       }));
}

TEST_F(frame_cycle, failed_prepare_is_not_repeated_in_the_next_frame)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 1, "config": {}}]]})"));
    refuse("zet_sensor_prepare");
    expect_failed_frame();
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1, config 1"), 0U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1, config 2"), 1U);
}

TEST_F(frame_cycle, failed_prepare_with_a_null_interface_fails_the_call)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 1, "config": {}}]]})"));
    refuse("zet_sensor_prepare");
    EXPECT_FALSE(prepare_only());
    EXPECT_EQ(error, error_nox_data_str);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_status(sensor 1)"), 1U);
}

TEST_F(frame_cycle, failed_measure_ends_the_frame)
{
    parse_pair();
    refuse("zet_sensor_measure");
    expect_failed_frame();
    EXPECT_EQ(calls(), lines({
                           "zet_probes_register_callback(20, null, null)",
                           "zet_probes_register_callback(20, null, null)",
                           "zet_sensor_measure(sensor 1)",
                           "zet_sensor_status(sensor 1)",
                       }));
}

TEST_F(frame_cycle, failed_measure_of_the_second_item_does_not_stop_the_first)
{
    parse_pair();
    refuse("zet_sensor_measure", 2);
    expect_failed_frame();
    EXPECT_EQ(neighbours().calls.count("zet_sensor_status(sensor 2)"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_"), 0U) << "the backend neither waits nor resets";
}

TEST_F(frame_cycle, missing_interrupt_ends_the_frame_after_the_tick_was_read)
{
    parse_pair();
    refuse("zet_hal_integration_wait_for_sensor_interrupt");
    expect_failed_frame();
    EXPECT_TRUE(calls().ends_with(lines({
        "zet_hal_integration_wait_for_sensor_interrupt(1, 1000)",
        "[ERROR] Sensor 1 interrupt timeout",
        "zet_sensor_status(sensor 1)",
        "get_tick()",
    }))) << calls();
}

TEST_F(frame_cycle, when_the_interrupt_of_the_second_item_is_missing_no_data_of_the_group_is_read)
{
    parse_pair();
    refuse("zet_hal_integration_wait_for_sensor_interrupt", 2);
    expect_failed_frame();
    EXPECT_TRUE(calls().ends_with(lines({
        "zet_hal_integration_wait_for_sensor_interrupt(2, 1000)",
        "[ERROR] Sensor 2 interrupt timeout",
        "zet_sensor_status(sensor 2)",
        "get_tick()",
    }))) << calls();
    EXPECT_EQ(neighbours().calls.count("get_tick"), 2U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_read"), 0U);
}

TEST_F(frame_cycle, failed_read_ends_the_frame)
{
    parse_pair();
    refuse("zet_sensor_read");
    expect_failed_frame();
    EXPECT_TRUE(
        calls().ends_with(lines({"zet_sensor_read(sensor 1, block 1, 64)", "zet_sensor_status(sensor 1)"})))
        << calls();
}

TEST_F(frame_cycle, failed_assessment_ends_the_frame)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true})"));
    refuse("zet_processing_cca_check");
    expect_failed_frame();
    EXPECT_TRUE(calls().ends_with(lines({
        "zet_sensor_read(sensor 1, block 1, 64)",
        "zet_processing_cca_check(processing 1, block 1)",
        "zet_sensor_status(sensor 1)",
    }))) << calls();
}

TEST_F(frame_cycle, after_a_failure_in_one_group_later_groups_are_not_measured)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 2, "config": {}}]]})"));
    refuse("zet_sensor_read");
    expect_failed_frame();
    EXPECT_EQ(neighbours().calls.count("zet_sensor_measure(sensor 2)"), 0U);
    EXPECT_EQ(neighbours().calls.count("zet_probes_register_callback"), 1U);
}

TEST_F(frame_cycle, frame_after_a_failed_one_succeeds)
{
    parse_pair();
    refuse("zet_sensor_read");
    expect_failed_frame();
    EXPECT_TRUE(read_frame());
    EXPECT_EQ(neighbours().documents.size(), 1U);
}

TEST_F(frame_cycle, message_that_cannot_be_sent_is_reported)
{
    parse_pair();
    refuse("zet_vantor_server_write_json");
    EXPECT_FALSE(read_frame());
    EXPECT_EQ(error, error_send_data_str);
}

TEST_F(frame_cycle, does_not_set_the_error_message_on_success)
{
    parse_pair();
    error = error_bad_config;
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(error, error_bad_config);
    ASSERT_TRUE(prepare_only());
    EXPECT_EQ(error, error_bad_config);
}

// Memory

TEST_F(frame_cycle, allocates_nothing_but_the_json_of_the_header)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}, "cca_enable": true, "cca_debug": true}],
            [{"sensor_id": 1, "config": {}, "cpd_overrides": {"tx_duration": 3}}]]})"));
    const size_t live = memory().live_blocks();
    const size_t before = memory().json_allocations();
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(calls(call_kind_t::memory), "") << "the backend itself must neither allocate nor free";
    const size_t of_one_frame = memory().json_allocations() - before;
    EXPECT_GT(of_one_frame, 0U);
    EXPECT_EQ(memory().live_blocks(), live) << "the header is released";
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(memory().json_allocations() - before, 2 * of_one_frame);
}

} // namespace backend_tests
