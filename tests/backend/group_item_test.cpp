/** @file
 * An item of a group: sensor, clear-channel settings, buffer, calibration, processing, first prepare.
 */
#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

/** Documents with one group. */
class group_item : public ready_backend_test
{
protected:
    /** Expects an item to fail, and the sensor that it powered on to be powered off without a log line. */
    void expect_failed_and_powered_off(const std::string &item, const char *message)
    {
        EXPECT_FALSE(parse_group(item));
        EXPECT_EQ(error, message);
        EXPECT_TRUE(calls().ends_with(
            lines({"zet_hal_integration_sensor_disable(1)", "zet_hal_integration_sensor_supply_off(1)"})))
            << calls();
        EXPECT_EQ(neighbours().calls.count("[INFO] Powered off"), 0U);
        EXPECT_EQ(neighbours().calls.count("zet_sensor_destroy"), 0U) << "the handle is kept";
    }

    /** Expects an item with this "cca_enable" member, or without one, to be measured without assessment. */
    void expect_not_assessed(const std::string &member)
    {
        SCOPED_TRACE(member);
        ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_debug": true, "cca_threshold": 1)" +
                                member + "}"));
        EXPECT_EQ(neighbours().calls.count("zet_config_enable_"), 0U);
        EXPECT_EQ(calls(call_kind_t::json).find("cca_threshold"), std::string::npos)
            << "the keys are not read";
        ASSERT_TRUE(read_frame());
        EXPECT_EQ(neighbours().calls.count("zet_processing_cca_check"), 0U);
        EXPECT_EQ(sent_document().find("data_valid"), std::string::npos);
        destroy_session();
    }
};

const std::string plain_item = R"({"sensor_id": 1, "config": {}})";

/** Members, each with a leading comma, that do not enable the assessment. */
constexpr const char *not_enabled[] = {
    "",
    R"(, "cca_enable": false)",
    R"(, "cca_enable": null)",
    R"(, "cca_enable": 0)",
    R"(, "cca_enable": 1)",
    R"(, "cca_enable": "true")",
    R"(, "cca_enable": [true])",
    R"(, "cca_enable": {})",
    R"(, "CCA_enable": true)",
};

} // namespace

// Sensor

TEST_F(group_item, with_an_invalid_or_missing_sensor_id_is_refused)
{
    for (const char *member : {R"("sensor_id": 0,)", R"("sensor_id": 4,)", R"("sensor_id": -1,)",
                               R"("sensor_id": 1.5,)", R"("sensor_id": "1",)", ""})
    {
        SCOPED_TRACE(member);
        error = nullptr;
        EXPECT_FALSE(parse_group("{" + std::string(member) + R"( "config": {}})"));
        EXPECT_EQ(error, error_config_sensor_id_str);
        EXPECT_EQ(calls(), "");
    }
}

TEST_F(group_item, on_an_unconnected_sensor_is_refused)
{
    finish();
    neighbours().absent_sensors = {1};
    ASSERT_TRUE(init());
    EXPECT_FALSE(parse_group(plain_item));
    EXPECT_EQ(error, error_config_sensor_id_str);
    EXPECT_EQ(calls(), "");
}

TEST_F(group_item, ignores_unknown_keys)
{
    EXPECT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "name": "left"})"));
    EXPECT_EQ(error, nullptr);
}

TEST_F(group_item, powers_its_sensor_off_immediately_if_it_cannot_be_created)
{
    refuse("zet_sensor_create");
    EXPECT_FALSE(parse_group(plain_item));
    EXPECT_EQ(error, error_nox_create_sensor_str);
    EXPECT_EQ(calls(), lines({
                           "zet_hal_integration_sensor_supply_on(1)",
                           "zet_hal_integration_sensor_enable(1)",
                           "[INFO] Powered on sensor id 1",
                           "zet_sensor_create(1)",
                           "zet_hal_integration_sensor_disable(1)",
                           "zet_hal_integration_sensor_supply_off(1)",
                       }));
}

TEST_F(group_item, creates_the_sensor_if_an_earlier_item_could_not)
{
    refuse("zet_sensor_create");
    EXPECT_TRUE(parse_group(plain_item + ", " + plain_item));
    EXPECT_EQ(error, error_nox_create_sensor_str);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_supply_on(1)"), 2U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_create(1)"), 2U);
}

TEST_F(group_item, on_a_sensor_that_a_failed_item_powered_off_does_not_power_it_on)
{
    EXPECT_TRUE(parse_group(R"({"sensor_id": 1, "config": {"prf": "x"}}, )" + plain_item));
    EXPECT_EQ(error, error_invalid_prf);
    EXPECT_EQ(calls(call_kind_t::board), lines({
                                             "zet_hal_integration_sensor_supply_on(1)",
                                             "zet_hal_integration_sensor_enable(1)",
                                             "zet_hal_integration_sensor_disable(1)",
                                             "zet_hal_integration_sensor_supply_off(1)",
                                             "zet_hal_integration_sensor_disable(1)",
                                             "zet_hal_integration_sensor_enable(1)",
                                         }))
        << "the handle exists, so the second item only resets the sensor after calibration";
    EXPECT_EQ(neighbours().calls.count("zet_sensor_create"), 1U);
}

TEST_F(group_item, that_fails_does_not_power_off_a_sensor_of_an_earlier_item)
{
    EXPECT_FALSE(parse_group(plain_item + R"(, {"sensor_id": 1, "config": {"prf": "x"}})"));
    EXPECT_EQ(error, error_invalid_prf);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_supply_off"), 0U);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_disable"), 1U)
        << "the reset after calibration";
}

// Configuration, overrides

TEST_F(group_item, without_a_configuration_object_is_refused)
{
    for (const char *member : {"", R"(, "config": 5)", R"(, "config": [])", R"(, "config": null)"})
    {
        error = nullptr;
        expect_failed_and_powered_off(R"({"sensor_id": 1)" + std::string(member) + "}", error_missing_config);
        EXPECT_EQ(neighbours().calls.count("zet_config_create"), 0U);
        destroy_session();
    }
}

TEST_F(group_item, with_a_bad_configuration_powers_its_sensor_off)
{
    expect_failed_and_powered_off(R"({"sensor_id": 1, "config": {"prf": "x"}})", error_invalid_prf);
}

TEST_F(group_item, with_bad_overrides_powers_its_sensor_off)
{
    expect_failed_and_powered_off(R"({"sensor_id": 1, "config": {}, "cpd_overrides": 5})", error_bad_config);
    EXPECT_EQ(neighbours().calls.count("zet_nox_get_buffer_size"), 0U);
}

// Clear-channel assessment

TEST_F(group_item, with_assessment_and_no_other_key_starts_with_transmitter_off_and_threshold_0)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true})"));
    const std::string all = calls();
    EXPECT_NE(all.find(lines({
                  "zet_config_create()",
                  "zet_config_enable_cca_set(config 1, true)",
                  "zet_config_enable_tx_set(config 1, false)",
                  "zet_nox_get_buffer_size(config 1)",
              })),
              std::string::npos)
        << all;
    EXPECT_TRUE(calls(call_kind_t::json)
                    .ends_with(lines({
                        R"(get_json_bool_value("cca_enable"))",
                        R"(get_json_float_value("cca_threshold"))",
                        R"(get_json_bool_value("cca_debug"))",
                        R"(is_json_node("max_update_rate"))",
                        R"(is_json_node("update_rate"))",
                    })));
    // A value just above the threshold of 0 keeps the transmitter off; no debug member is sent.
    neighbours().cca_values = {0.001F};
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_config_enable_tx_set"), 0U);
    EXPECT_NE(sent_document().find(R"("data_valid":false}]])"), std::string::npos) << sent_document();
}

TEST_F(group_item, reads_assessment_threshold_and_debug)
{
    ASSERT_TRUE(parse_group(
        R"({"sensor_id": 1, "config": {}, "cca_enable": true, "cca_threshold": 0.5, "cca_debug": true})"));
    neighbours().cca_values = {0.625F};
    ASSERT_TRUE(read_frame());
    EXPECT_NE(sent_document().find(
                  R"("data_valid":false,"cca_value":0.625,"cca_detected":true,"tx_enabled":false})"),
              std::string::npos)
        << sent_document();
}

TEST_F(group_item, assessment_key_of_the_wrong_type_keeps_its_default)
{
    ASSERT_TRUE(parse_group(
        R"({"sensor_id": 1, "config": {}, "cca_enable": true, "cca_threshold": "low", "cca_debug": 1})"));
    neighbours().cca_values = {0.0F};
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_config_enable_tx_set(config 1, true)"), 1U)
        << "0 does not exceed the default threshold 0";
    EXPECT_EQ(sent_document().find("cca_value"), std::string::npos);
}

TEST_F(group_item, without_assessment_does_not_change_the_configuration)
{
    for (const char *member : not_enabled)
    {
        expect_not_assessed(member);
    }
}

TEST_F(group_item, assessment_is_disabled_again_in_the_next_session)
{
    for (const char *member : not_enabled)
    {
        ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true})"));
        ASSERT_TRUE(read_frame());
        ASSERT_EQ(neighbours().calls.count("zet_processing_cca_check"), 1U) << "enabled again";
        destroy_session();
        expect_not_assessed(member);
    }
}

TEST_F(group_item, assessment_settings_are_reset_in_the_next_session)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true, "cca_debug": true,
                                "cca_threshold": 9})"));
    destroy_session();
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true})"));
    neighbours().cca_values = {1.0F};
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_config_enable_tx_set"), 0U) << "the threshold is 0 again";
    EXPECT_EQ(sent_document().find("cca_value"), std::string::npos);
}

// Buffer

TEST_F(group_item, whose_buffer_size_cannot_be_read_is_refused)
{
    refuse("zet_nox_get_buffer_size");
    expect_failed_and_powered_off(plain_item, error_nox_get_buffer_size_str);
    EXPECT_EQ(neighbours().calls.count("zet_integration_mem_alloc"), 0U);
}

TEST_F(group_item, whose_buffer_cannot_be_allocated_fails_with_a_log_line_and_no_message)
{
    // After the handles of the sensor and of the configuration.
    memory().fail_allocation(3);
    expect_failed_and_powered_off(plain_item, nullptr);
    EXPECT_EQ(calls(call_kind_t::log), lines({"[INFO] Powered on sensor id 1", "[ERROR] Out of memory"}));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate"), 0U);
}

TEST_F(group_item, buffer_has_the_size_that_the_library_requires)
{
    neighbours().buffer_size = 1234;
    ASSERT_TRUE(parse_group(plain_item));
    EXPECT_EQ(calls(call_kind_t::memory), "zet_integration_mem_alloc(1234)\n");
    EXPECT_EQ(
        neighbours().calls.count("zet_sensor_prepare(sensor 1, config 1, calibration of 1, block 1, 1234)"),
        1U);
}

// Calibration

TEST_F(group_item, waits_for_an_interrupt_after_each_calibration_step)
{
    neighbours().calibration_steps = 3;
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {"sweep_rate": 100.0, "sweeps_per_frame": 32}})"));
    const std::string all = calls();
    EXPECT_NE(all.find(lines({
                  "zet_integration_mem_alloc(64)",
                  "zet_sensor_calibrate(sensor 1, false, no calibration, block 1, 64)",
                  "zet_config_sweep_rate_get(config 1)",
                  "zet_config_sweeps_per_frame_get(config 1)",
                  "zet_hal_integration_wait_for_sensor_interrupt(1, 1320)",
                  "zet_sensor_calibrate(sensor 1, false, calibration of 1, block 1, 64)",
                  "zet_config_sweep_rate_get(config 1)",
                  "zet_config_sweeps_per_frame_get(config 1)",
                  "zet_hal_integration_wait_for_sensor_interrupt(1, 1320)",
                  "zet_sensor_calibrate(sensor 1, false, calibration of 1, block 1, 64)",
                  "zet_diagnostic_log_enable(false)",
                  "zet_hal_integration_sensor_disable(1)",
                  "zet_hal_integration_sensor_enable(1)",
                  "zet_processing_create(config 1)",
              })),
              std::string::npos)
        << all;
}

TEST_F(group_item, calibration_may_take_any_number_of_steps)
{
    neighbours().calibration_steps = 5000;
    ASSERT_TRUE(parse_group(plain_item));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate"), 5000U);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_wait_for_sensor_interrupt"), 4999U);
}

TEST_F(group_item, calibration_clears_the_result_of_the_last_session)
{
    ASSERT_TRUE(parse_group(plain_item));
    destroy_session();
    ASSERT_TRUE(parse_group(plain_item));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate(sensor 1, false, no calibration,"), 1U);
}

TEST_F(group_item, calibration_enables_the_diagnostic_log_if_configured)
{
    ASSERT_TRUE(parse(R"({"enable_diagnostics": true, "groups": [[{"sensor_id": 1, "config": {}}]]})"));
    const std::string all = calls();
    EXPECT_NE(all.find(lines({
                  "zet_integration_mem_alloc(64)",
                  "zet_diagnostic_log_enable(true)",
                  "zet_sensor_calibrate(sensor 1, false, no calibration, block 1, 64)",
                  "zet_diagnostic_log_enable(false)",
                  "zet_hal_integration_sensor_disable(1)",
              })),
              std::string::npos)
        << all;
}

TEST_F(group_item, whose_calibration_fails_does_not_read_the_status)
{
    refuse("zet_sensor_calibrate");
    EXPECT_FALSE(parse_group(plain_item));
    EXPECT_EQ(error, error_nox_sensor_calibration_str);
    const std::string all = calls();
    EXPECT_TRUE(all.ends_with(lines({
        "zet_sensor_calibrate(sensor 1, false, no calibration, block 1, 64)",
        "zet_diagnostic_log_enable(false)",
        "zet_hal_integration_sensor_disable(1)",
        "zet_hal_integration_sensor_enable(1)",
        "zet_hal_integration_sensor_disable(1)",
        "zet_hal_integration_sensor_supply_off(1)",
    }))) << all;
}

TEST_F(group_item, whose_second_calibration_step_fails_is_refused)
{
    neighbours().calibration_steps = 3;
    refuse("zet_sensor_calibrate", 2);
    expect_failed_and_powered_off(plain_item, error_nox_sensor_calibration_str);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate"), 2U);
    EXPECT_EQ(neighbours().calls.count("zet_processing_create"), 0U);
}

TEST_F(group_item, calibration_that_fails_with_its_completion_flag_set_is_still_a_failure)
{
    neighbours().complete_although_failed = true;
    refuse("zet_sensor_calibrate");
    expect_failed_and_powered_off(plain_item, error_nox_sensor_calibration_str);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate"), 1U);
}

TEST_F(group_item, whose_calibration_interrupt_is_missing_reads_the_status_and_fails)
{
    neighbours().calibration_steps = 2;
    refuse("zet_hal_integration_wait_for_sensor_interrupt");
    EXPECT_FALSE(parse_group(plain_item));
    EXPECT_EQ(error, error_nox_sensor_calibration_str);
    const std::string all = calls();
    EXPECT_TRUE(all.ends_with(lines({
        "zet_hal_integration_wait_for_sensor_interrupt(1, 1000)",
        "[ERROR] Sensor 1 interrupt timeout",
        "zet_sensor_status(sensor 1)",
        "zet_diagnostic_log_enable(false)",
        "zet_hal_integration_sensor_disable(1)",
        "zet_hal_integration_sensor_enable(1)",
        "zet_hal_integration_sensor_disable(1)",
        "zet_hal_integration_sensor_supply_off(1)",
    }))) << all;
}

TEST_F(group_item, calibrates_the_sensor_if_an_earlier_item_could_not)
{
    refuse("zet_sensor_calibrate");
    EXPECT_TRUE(parse_group(plain_item + ", " + plain_item));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate"), 2U);
    EXPECT_EQ(error, error_nox_sensor_calibration_str);
}

// Processing and prepare

TEST_F(group_item, whose_processing_cannot_be_created_fails)
{
    refuse("zet_processing_create");
    expect_failed_and_powered_off(plain_item, error_nox_create_processing_str);
    EXPECT_EQ(neighbours().calls.count("zet_probes_register_callback"), 0U);
}

TEST_F(group_item, whose_sensor_cannot_be_prepared_fails)
{
    refuse("zet_sensor_prepare");
    expect_failed_and_powered_off(plain_item, error_nox_data_str);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_status(sensor 1)"), 1U);
}

TEST_F(group_item, prepares_all_items_so_far_but_each_configuration_once)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    const std::string all = calls(call_kind_t::sensor_library);
    EXPECT_NE(all.find(lines({
                  "zet_processing_create(config 2)",
                  "zet_probes_register_callback(20, null, null)",
                  "zet_probes_register_callback(20, null, null)",
                  "zet_sensor_prepare(sensor 2, config 2, calibration of 2, block 2, 64)",
              })),
              std::string::npos)
        << all;
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1"), 1U);
}

TEST_F(group_item, that_failed_after_its_configuration_is_still_prepared_and_measured)
{
    refuse("zet_nox_get_buffer_size");
    EXPECT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    EXPECT_EQ(error, error_nox_get_buffer_size_str);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1, config 1, no calibration, null, 0)"),
              1U);
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_processing_execute(null, null)"), 1U);
    EXPECT_EQ(neighbours().calls.count("write(null, 0)"), 1U);
}

} // namespace backend_tests
