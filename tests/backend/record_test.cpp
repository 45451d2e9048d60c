/** @file
 * The backend's internal record: its layout, and state that other tests cannot see.
 *
 * This program includes the backend's source file, so that it can access the file-local record.
 */
#include "zet_vantor_server_system_k330.cpp" // NOLINT(bugprone-suspicious-include)

#include <algorithm>
#include <array>
#include <limits>
#include <type_traits>

#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

static_assert(MAX_GROUP_COUNT == 10);

// The fields of every record are in this order.
static_assert(offsetof(vantor_server_system_t, sensor_count) == 0);
static_assert(offsetof(vantor_server_system_t, sensor_count) <
              offsetof(vantor_server_system_t, group_items_count));
static_assert(offsetof(vantor_server_system_t, group_items_count) <
              offsetof(vantor_server_system_t, sensor_control));
static_assert(offsetof(vantor_server_system_t, sensor_control) <
              offsetof(vantor_server_system_t, frame_rate));
static_assert(offsetof(vantor_server_system_t, frame_rate) <
              offsetof(vantor_server_system_t, sensor_connected));
static_assert(offsetof(vantor_server_system_t, sensor_connected) <
              offsetof(vantor_server_system_t, enable_diagnostics));

static_assert(offsetof(sensor_control_t, groups) == 0);
static_assert(offsetof(sensor_control_t, groups) < offsetof(sensor_control_t, sensor_info));
static_assert(offsetof(sensor_control_t, sensor_info) < offsetof(sensor_control_t, last_config));
static_assert(std::extent_v<decltype(sensor_control_t::groups)> == MAX_GROUP_COUNT);

using item_t = sensor_control_group_item_t;
static_assert(offsetof(item_t, sensor_id) == 0);
static_assert(offsetof(item_t, sensor_id) < offsetof(item_t, config));
static_assert(offsetof(item_t, config) < offsetof(item_t, cpd_override));
static_assert(offsetof(item_t, cpd_override) < offsetof(item_t, cca_config));
static_assert(offsetof(item_t, cca_config) < offsetof(item_t, processing));
static_assert(offsetof(item_t, processing) < offsetof(item_t, metadata));
static_assert(offsetof(item_t, metadata) < offsetof(item_t, result));
static_assert(offsetof(item_t, result) < offsetof(item_t, cca_result));
static_assert(offsetof(item_t, cca_result) < offsetof(item_t, buffer));
static_assert(offsetof(item_t, buffer) < offsetof(item_t, buffer_size));
static_assert(offsetof(item_t, buffer_size) < offsetof(item_t, sweep_tick));

static_assert(offsetof(sensor_info_t, sensor) == 0);
static_assert(offsetof(sensor_info_t, sensor) < offsetof(sensor_info_t, cal_result));
static_assert(offsetof(sensor_info_t, cal_result) < offsetof(sensor_info_t, calibration_complete));

static_assert(offsetof(cca_config_t, enabled) < offsetof(cca_config_t, threshold));
static_assert(offsetof(cca_config_t, threshold) < offsetof(cca_config_t, prepare_needed));
static_assert(offsetof(cca_config_t, prepare_needed) < offsetof(cca_config_t, tx_enable));
static_assert(offsetof(cca_config_t, tx_enable) < offsetof(cca_config_t, debug));

static_assert(offsetof(cca_result_t, data_valid) < offsetof(cca_result_t, cca_value));
static_assert(offsetof(cca_result_t, cca_value) < offsetof(cca_result_t, cca_detected));
static_assert(offsetof(cca_result_t, cca_detected) < offsetof(cca_result_t, tx_enabled));

static_assert(offsetof(cpd_override_t, count) < offsetof(cpd_override_t, items));
static_assert(std::extent_v<decltype(cpd_override_t::items)> == 6);
static_assert(offsetof(cpd_override_item_t, value) < offsetof(cpd_override_item_t, set_func));

/** Tests on the record before initialisation. */
using record_after_init = backend_test;

/** Tests on the record during a session. */
class record_in_a_session : public ready_backend_test
{
protected:
    static item_t &item(size_t group, size_t slot)
    {
        return vantor_server_system.sensor_control.groups[group].group_items[slot];
    }

    static sensor_info_t &sensor(zet_sensor_id_t sensor_id)
    {
        return vantor_server_system.sensor_control.sensor_info[sensor_id - 1];
    }

    /** Expects a slot to own no resources. */
    static void expect_free(const item_t &slot)
    {
        EXPECT_EQ(slot.config, nullptr);
        EXPECT_EQ(slot.cpd_override, nullptr);
        EXPECT_EQ(slot.processing, nullptr);
        EXPECT_EQ(slot.buffer, nullptr);
    }

    /** Moves an item to another slot, as if other items had failed. */
    static void move_item(item_t &from, item_t &to)
    {
        to = from;
        from = item_t{};
    }
};

/** Whether every byte of an object is 0. */
template <typename object_t> bool all_zero(const object_t &object)
{
    std::array<unsigned char, sizeof(object_t)> bytes{};
    std::memcpy(bytes.data(), &object, sizeof(object_t));
    return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
}

} // namespace

TEST_F(record_after_init, arrays_have_the_size_of_their_elements)
{
    ASSERT_TRUE(init());
    std::string expected = "zet_integration_mem_alloc(" + std::to_string(3 * sizeof(sensor_info_t)) +
                           ")\nzet_integration_mem_alloc(" + std::to_string(3 * sizeof(zet_config_t *)) +
                           ")\nzet_integration_mem_alloc(" + std::to_string(3 * sizeof(bool)) + ")\n";
    for (size_t group = 0; group < MAX_GROUP_COUNT; ++group)
    {
        expected += "zet_integration_mem_alloc(" + std::to_string(3 * sizeof(item_t)) + ")\n";
    }
    EXPECT_EQ(calls(call_kind_t::memory), expected);
}

TEST_F(record_after_init, arrays_are_zero_filled)
{
    ASSERT_TRUE(init());
    for (size_t index = 0; index < 3; ++index)
    {
        EXPECT_TRUE(all_zero(vantor_server_system.sensor_control.sensor_info[index]));
        EXPECT_EQ(vantor_server_system.sensor_control.last_config[index], nullptr);
        for (const sensor_control_group_t &group : vantor_server_system.sensor_control.groups)
        {
            EXPECT_TRUE(all_zero(group.group_items[index]));
        }
    }
}

TEST_F(record_after_init, does_not_change_when_the_board_is_refused)
{
    vantor_server_system.sensor_count = 17;
    vantor_server_system.frame_rate = 3.0F;
    vantor_server_system.enable_diagnostics = true;
    refuse("zet_nox_hal_register");
    EXPECT_FALSE(init());
    refuse("zet_hal_nox_integration_get_implementation");
    EXPECT_FALSE(init());
    EXPECT_EQ(vantor_server_system.sensor_count, 17U);
    EXPECT_EQ(vantor_server_system.frame_rate, 3.0F);
    EXPECT_TRUE(vantor_server_system.enable_diagnostics);
    deinit();
}

TEST_F(record_after_init, is_zeroed_and_the_sensors_are_counted_before_the_first_allocation)
{
    vantor_server_system.frame_rate = 3.0F;
    vantor_server_system.enable_diagnostics = true;
    memory().fail_allocation(1);
    EXPECT_FALSE(init());
    EXPECT_EQ(vantor_server_system.sensor_count, 3U);
    EXPECT_EQ(vantor_server_system.group_items_count, 3U);
    EXPECT_EQ(vantor_server_system.frame_rate, 0.0F);
    EXPECT_FALSE(vantor_server_system.enable_diagnostics);
    EXPECT_TRUE(all_zero(vantor_server_system.sensor_control));
    deinit();
}

TEST_F(record_after_init, keeps_the_arrays_allocated_before_a_failed_allocation)
{
    memory().fail_allocation(5);
    EXPECT_FALSE(init());
    EXPECT_NE(vantor_server_system.sensor_control.sensor_info, nullptr);
    EXPECT_NE(vantor_server_system.sensor_control.last_config, nullptr);
    EXPECT_NE(vantor_server_system.sensor_connected, nullptr);
    EXPECT_NE(vantor_server_system.sensor_control.groups[0].group_items, nullptr);
    EXPECT_EQ(vantor_server_system.sensor_control.groups[1].group_items, nullptr);
    EXPECT_EQ(vantor_server_system.sensor_control.groups[9].group_items, nullptr);
    deinit();
}

TEST_F(record_after_init, deinit_sets_every_pointer_to_null_and_keeps_the_counts)
{
    ASSERT_TRUE(init());
    deinit();
    EXPECT_EQ(vantor_server_system.sensor_connected, nullptr);
    EXPECT_TRUE(all_zero(vantor_server_system.sensor_control));
    EXPECT_EQ(vantor_server_system.sensor_count, 3U);
    EXPECT_EQ(vantor_server_system.group_items_count, 3U);
}

TEST_F(record_after_init, on_demand_depends_on_the_frame_rate_alone)
{
    const float saved = vantor_server_system.frame_rate;
    for (const float rate : {0.0F, -0.0F})
    {
        vantor_server_system.frame_rate = rate;
        EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
    }
    for (const float rate : {10.0F, -1.0F, 1e-45F, std::numeric_limits<float>::quiet_NaN()})
    {
        vantor_server_system.frame_rate = rate;
        EXPECT_FALSE(zet_vantor_server_system_is_on_demand());
    }
    vantor_server_system.frame_rate = saved;
}

TEST_F(record_in_a_session, empty_document_leaves_it_empty)
{
    vantor_server_system.enable_diagnostics = true;
    vantor_server_system.frame_rate = 5.0F;
    ASSERT_TRUE(parse("{}"));
    EXPECT_FALSE(vantor_server_system.enable_diagnostics);
    EXPECT_EQ(vantor_server_system.frame_rate, 0.0F);
    expect_free(item(0, 0));
}

TEST_F(record_in_a_session, diagnostics_are_set_even_if_the_log_level_is_invalid)
{
    EXPECT_FALSE(parse(R"({"enable_log": "warning", "enable_diagnostics": true})"));
    EXPECT_TRUE(vantor_server_system.enable_diagnostics);
    EXPECT_FALSE(parse(R"({"enable_log": "warning"})"));
    EXPECT_FALSE(vantor_server_system.enable_diagnostics);
}

TEST_F(record_in_a_session, diagnostics_are_set_even_if_the_calibration_list_is_invalid)
{
    EXPECT_FALSE(parse(R"({"calibration_info": [], "enable_diagnostics": true})"));
    EXPECT_TRUE(vantor_server_system.enable_diagnostics);
    EXPECT_FALSE(parse(R"({"calibration_info": [5], "enable_diagnostics": true})"));
    EXPECT_TRUE(vantor_server_system.enable_diagnostics);
}

TEST_F(record_in_a_session, refused_calibration_data_is_stored_but_not_marked_complete)
{
    const std::string text = calibration_text(1, 21);
    refuse("zet_sensor_validate_calibration");
    EXPECT_FALSE(parse(R"({"calibration_info": [{"sensor_id": 1, "data": ")" + text + R"("}]})"));
    EXPECT_EQ(sensor(1).cal_result.data[0], 1U);
    EXPECT_EQ(sensor(1).cal_result.data[59], (1U << 24U) + 59U);
    EXPECT_FALSE(sensor(1).calibration_complete);
}

TEST_F(record_in_a_session, unreadable_sensor_id_is_not_stored)
{
    EXPECT_FALSE(parse_group(R"({"sensor_id": 4, "config": {}})"));
    EXPECT_EQ(item(0, 0).sensor_id, 0U);
    EXPECT_FALSE(parse_group(R"({"sensor_id": 3})"));
    EXPECT_EQ(item(0, 0).sensor_id, 3U);
}

TEST_F(record_in_a_session, group_g_and_item_i_of_the_document_fill_slot_i_of_group_g)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 3, "config": {}}],
        [5, {"sensor_id": 2, "config": {}}, {"sensor_id": 1, "config": {}, "cpd_overrides": {}}]]})"));
    EXPECT_EQ(item(0, 0).sensor_id, 3U);
    EXPECT_NE(item(0, 0).config, nullptr);
    expect_free(item(0, 1));
    expect_free(item(1, 0));
    EXPECT_EQ(item(1, 1).sensor_id, 2U);
    EXPECT_EQ(item(1, 1).cpd_override, nullptr);
    EXPECT_EQ(item(1, 1).buffer_size, 64U);
    EXPECT_EQ(item(1, 2).sensor_id, 1U);
    ASSERT_NE(item(1, 2).cpd_override, nullptr);
    EXPECT_EQ(item(1, 2).cpd_override->count, 0U);
    expect_free(item(2, 0));
}

TEST_F(record_in_a_session, unconnected_sensor_before_a_valid_item_leaves_its_slot_free)
{
    vantor_server_system.sensor_connected[0] = false;
    EXPECT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    EXPECT_EQ(error, error_config_sensor_id_str);
    expect_free(item(0, 0));
    EXPECT_NE(item(0, 1).config, nullptr);
}

TEST_F(record_in_a_session, with_eleven_groups_the_first_ten_are_set_up)
{
    const std::string group = R"([{"sensor_id": 1, "config": {}}])";
    std::string groups = group;
    for (int count = 2; count <= 11; ++count)
    {
        groups += ", " + group;
    }
    EXPECT_FALSE(parse(R"({"groups": [)" + groups + "]}"));
    for (size_t index = 0; index < MAX_GROUP_COUNT; ++index)
    {
        EXPECT_NE(item(index, 0).processing, nullptr);
    }
}

TEST_F(record_in_a_session, override_list_is_in_table_order)
{
    ASSERT_TRUE(parse_group(
        R"({"sensor_id": 1, "config": {}, "cpd_overrides": {"tx_duration": -2, "rx_freq_ctrl": 70000}})"));
    const cpd_override_t &list = *item(0, 0).cpd_override;
    ASSERT_EQ(list.count, 2U);
    EXPECT_EQ(list.items[0].value, 70000U);
    EXPECT_EQ(list.items[0].set_func, cpd_override_mappings[1].set_func);
    EXPECT_EQ(list.items[1].value, 0xFFFFFFFEU);
    EXPECT_EQ(list.items[1].set_func, cpd_override_mappings[5].set_func);
    EXPECT_TRUE(all_zero(list.items[2])) << "the list must be zero-filled";
}

TEST_F(record_in_a_session, callback_reads_the_number_of_overrides_before_each_one)
{
    static cpd_override_t list;
    static int writes;
    const set_cpd_param_func shortening = [](zet_cpd_k330_meas_session_parameters_t *, uint32_t) {
        writes += 1;
        list.count = 2;
    };
    list = {3, {{1, shortening}, {2, shortening}, {3, shortening}, {}, {}, {}}};
    writes = 0;
    zet_cpd_k330_meas_session_parameters_t parameters{};
    const zet_probes_header_t header{ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, 1, 0};
    EXPECT_TRUE(zet_cpd_probes_callback(&header, &parameters, sizeof(parameters), &list));
    EXPECT_EQ(writes, 2);
}

TEST_F(record_in_a_session, item_with_assessment_starts_with_transmitter_off_and_prepare_done)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true})"));
    const cca_config_t &cca = item(0, 0).cca_config;
    EXPECT_TRUE(cca.enabled);
    EXPECT_EQ(cca.threshold, 0.0F);
    EXPECT_FALSE(cca.tx_enable);
    EXPECT_FALSE(cca.debug);
    EXPECT_FALSE(cca.prepare_needed) << "the prepare at the end of the item clears it";
}

TEST_F(record_in_a_session, item_with_assessment_that_fails_before_its_prepare_still_needs_one)
{
    refuse("zet_processing_create");
    EXPECT_FALSE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true})"));
    EXPECT_TRUE(item(0, 0).cca_config.prepare_needed);
}

TEST_F(record_in_a_session, item_without_assessment_does_not_change_the_other_settings)
{
    item(0, 0).cca_config = {true, 2.0F, true, true, true};
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": false, "cca_threshold": 1})"));
    const cca_config_t &cca = item(0, 0).cca_config;
    EXPECT_FALSE(cca.enabled);
    EXPECT_EQ(cca.threshold, 2.0F);
    EXPECT_TRUE(cca.tx_enable);
    EXPECT_TRUE(cca.debug);
}

TEST_F(record_in_a_session, failed_configuration_leaves_the_slot_free)
{
    EXPECT_FALSE(parse_config(R"({"prf": "x"})"));
    expect_free(item(0, 0));
    EXPECT_NE(sensor(1).sensor, nullptr) << "the sensor must keep its handle";
}

TEST_F(record_in_a_session, calibration_is_complete_after_success_and_not_after_a_failed_step)
{
    ASSERT_TRUE(parse_config("{}"));
    EXPECT_TRUE(sensor(1).calibration_complete);
    destroy_session();
    refuse("zet_sensor_calibrate");
    EXPECT_FALSE(parse_config("{}"));
    EXPECT_FALSE(sensor(1).calibration_complete);
    EXPECT_EQ(sensor(1).cal_result.data[0], 0U) << "the result must be cleared before the first step";
}

TEST_F(record_in_a_session, frame_rate_is_the_first_one_that_is_not_0)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {"frame_rate": 5}},
                               {"sensor_id": 3, "config": {"frame_rate": 7}})"));
    EXPECT_EQ(vantor_server_system.frame_rate, 5.0F);
}

TEST_F(record_in_a_session, refused_document_does_not_change_the_frame_rate)
{
    EXPECT_FALSE(parse(R"({"update_rate": 1, "groups": [[{"sensor_id": 1, "config": {"frame_rate": 8}}]]})"));
    EXPECT_EQ(vantor_server_system.frame_rate, 8.0F);
}

TEST_F(record_in_a_session, end_keeps_results_and_frees_resources)
{
    ASSERT_TRUE(parse(R"({"enable_diagnostics": true, "groups": [[
        {"sensor_id": 2, "config": {"frame_rate": 10}, "cpd_overrides": {}}]]})"));
    destroy_session();
    expect_free(item(0, 0));
    EXPECT_EQ(item(0, 0).sensor_id, 2U) << "no other field must change";
    EXPECT_EQ(item(0, 0).buffer_size, 64U);
    EXPECT_EQ(item(0, 0).metadata.frame_data_length, 4U);
    EXPECT_EQ(sensor(2).sensor, nullptr);
    EXPECT_FALSE(sensor(2).calibration_complete);
    EXPECT_EQ(sensor(2).cal_result.data[0], 2U) << "the result must be kept";
    EXPECT_EQ(vantor_server_system.sensor_control.last_config[1], nullptr);
    EXPECT_EQ(vantor_server_system.frame_rate, 10.0F);
    EXPECT_TRUE(vantor_server_system.enable_diagnostics);
    EXPECT_TRUE(vantor_server_system.sensor_connected[1]);
}

TEST_F(record_in_a_session, end_keeps_the_calibration_flag_of_a_sensor_without_a_handle)
{
    ASSERT_TRUE(
        parse(R"({"calibration_info": [{"sensor_id": 3, "data": ")" + calibration_text(3, 23) + R"("}]})"));
    destroy_session();
    EXPECT_TRUE(sensor(3).calibration_complete) << "only sensors with a handle must change";
}

TEST_F(record_in_a_session, end_also_frees_slots_without_a_configuration)
{
    ASSERT_TRUE(parse_config("{}"));
    zet_config_t *config = item(0, 0).config;
    item(0, 0).config = nullptr;
    destroy_session();
    expect_free(item(0, 0));
    EXPECT_EQ(neighbours().calls.count("zet_processing_destroy(processing 1)"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_integration_mem_free(block 1)"), 1U);
    zet_config_destroy(config);
}

TEST_F(record_in_a_session, tick_is_stored_for_both_items_even_if_the_wait_for_the_second_fails)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}},
                               {"sensor_id": 3, "config": {}})"));
    refuse("zet_hal_integration_wait_for_sensor_interrupt", 2);
    EXPECT_FALSE(read_frame());
    EXPECT_EQ(error, error_nox_data_str);
    EXPECT_EQ(item(0, 0).sweep_tick, 1000U);
    EXPECT_EQ(item(0, 1).sweep_tick, 1010U);
    EXPECT_EQ(item(0, 2).sweep_tick, 0U) << "the backend must not wait for the third";
    EXPECT_EQ(neighbours().calls.count("zet_sensor_read"), 0U);
}

TEST_F(record_in_a_session, failed_prepare_is_remembered_as_the_last_one)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 1, "config": {}}]]})"));
    refuse("zet_sensor_prepare");
    EXPECT_FALSE(read_frame());
    EXPECT_EQ(vantor_server_system.sensor_control.last_config[0], item(0, 0).config);
}

TEST_F(record_in_a_session, prepare_flag_is_used_only_with_assessment_enabled)
{
    ASSERT_TRUE(parse_config("{}"));
    item(0, 0).cca_config.prepare_needed = true;
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare"), 0U);
    EXPECT_TRUE(item(0, 0).cca_config.prepare_needed);
    item(0, 0).cca_config.enabled = true;
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare"), 1U);
}

TEST_F(record_in_a_session, assessment_switches_the_transmitter_on_and_then_marks_data_valid)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true, "cca_threshold": 0.5})"));
    const cca_config_t &cca = item(0, 0).cca_config;
    const cca_result_t &result = item(0, 0).cca_result;
    neighbours().cca_values = {0.2F, 0.3F};
    ASSERT_TRUE(read_frame());
    EXPECT_TRUE(cca.prepare_needed);
    EXPECT_TRUE(cca.tx_enable);
    EXPECT_FALSE(result.data_valid);
    EXPECT_FALSE(result.cca_detected);
    EXPECT_FALSE(result.tx_enabled);
    EXPECT_EQ(result.cca_value, 0.2F);
    ASSERT_TRUE(read_frame());
    EXPECT_FALSE(cca.prepare_needed) << "the frame started with a prepare, so no other one is needed";
    EXPECT_TRUE(result.data_valid);
    EXPECT_TRUE(result.tx_enabled);
}

TEST_F(record_in_a_session, failed_assessment_does_not_change_settings_or_result)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cca_enable": true, "cca_threshold": 0.5})"));
    item(0, 0).cca_result = {true, 7.0F, true, true};
    refuse("zet_processing_cca_check");
    EXPECT_FALSE(read_frame());
    EXPECT_FALSE(item(0, 0).cca_config.prepare_needed);
    EXPECT_FALSE(item(0, 0).cca_config.tx_enable);
    EXPECT_TRUE(item(0, 0).cca_result.data_valid);
    EXPECT_EQ(item(0, 0).cca_result.cca_value, 7.0F);
}

TEST_F(record_in_a_session, messages_omit_an_empty_group_between_others)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 3, "config": {}}]]})"));
    move_item(item(1, 0), item(2, 1));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(sent_document(),
              R"({"result_info":[[{"tick":1000,"data_saturated":false,"temperature":0,)"
              R"("calibration_needed":false,"frame_delayed":false}],)"
              R"([{"tick":1010,"data_saturated":false,"temperature":0,"calibration_needed":false,)"
              R"("frame_delayed":false}]],"status":"ok","payload_size":32})");
    ASSERT_TRUE(send_metadata());
    const std::string document = sent_document();
    EXPECT_NE(document.find(R"("metadata":[[{"calibration_temperature":21,)"), std::string::npos);
    EXPECT_NE(document.find(R"(]}],[{"calibration_temperature":23,)"), std::string::npos);
    EXPECT_EQ(document.find("[]"), std::string::npos);
}

TEST_F(record_in_a_session, sensor_of_an_item_may_have_an_incomplete_calibration_result)
{
    ASSERT_TRUE(parse_config("{}"));
    sensor(1).calibration_complete = false;
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[],"metadata":[[{"calibration_temperature":21,)"),
              std::string::npos);
}

} // namespace backend_tests
