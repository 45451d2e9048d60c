/** @file
 * Initialisation, queries, the end of a session, and deinitialisation.
 */
#include <limits>

#include "support/backend_fixture.h"
#include "zet_integration.h"

namespace backend_tests
{

namespace
{

using initialisation = backend_test;
using queries = ready_backend_test;
using session_end = ready_backend_test;
using deinitialisation = backend_test;

/** The number of arrays that init allocates. */
constexpr size_t arrays_of_init = 13;

} // namespace

TEST_F(initialisation, makes_its_calls_in_order)
{
    neighbours().sensor_count = 2;
    ASSERT_TRUE(init(ZET_LOG_LEVEL_VERBOSE));
    EXPECT_EQ(neighbours().calls.text({call_kind_t::json, call_kind_t::board, call_kind_t::sensor_library,
                                       call_kind_t::log, call_kind_t::link}),
              lines({
                  "cJSON_InitHooks()",
                  "zet_hal_nox_integration_get_implementation()",
                  "zet_nox_hal_register(\"implementation\")",
                  "zet_nox_set_log_level(3)",
                  "zet_hal_integration_sensor_count()",
                  "zet_hal_integration_sensor_supply_on(1)",
                  "zet_hal_integration_sensor_enable(1)",
                  "zet_sensor_connected(1)",
                  "zet_hal_integration_sensor_disable(1)",
                  "zet_hal_integration_sensor_supply_off(1)",
                  "zet_hal_integration_sensor_supply_on(2)",
                  "zet_hal_integration_sensor_enable(2)",
                  "zet_sensor_connected(2)",
                  "zet_hal_integration_sensor_disable(2)",
                  "zet_hal_integration_sensor_supply_off(2)",
              }));
}

TEST_F(initialisation, allocates_three_arrays_and_ten_groups_between_sensor_count_and_connection_check)
{
    ASSERT_TRUE(init());
    EXPECT_EQ(neighbours().calls.count("zet_integration_mem_alloc("), arrays_of_init);
    const std::string all = calls();
    EXPECT_LT(all.find("zet_hal_integration_sensor_count"), all.find("zet_integration_mem_alloc"));
    EXPECT_LT(all.rfind("zet_integration_mem_alloc"), all.find("zet_hal_integration_sensor_supply_on"));
}

TEST_F(initialisation, routes_cjson_to_the_board_allocator)
{
    ASSERT_TRUE(init());
    EXPECT_EQ(neighbours().hooks.malloc_fn, zet_integration_mem_alloc);
    EXPECT_EQ(neighbours().hooks.free_fn, zet_integration_mem_free);
}

TEST_F(initialisation, checks_the_connection_of_every_sensor_and_powers_it_off_again)
{
    neighbours().absent_sensors = {1, 3};
    ASSERT_TRUE(init());
    for (const char *operation :
         {"zet_hal_integration_sensor_supply_on", "zet_hal_integration_sensor_enable", "zet_sensor_connected",
          "zet_hal_integration_sensor_disable", "zet_hal_integration_sensor_supply_off"})
    {
        EXPECT_EQ(neighbours().calls.count(operation), 3U) << operation;
    }
}

TEST_F(initialisation, fails_without_a_board_record)
{
    refuse("zet_hal_nox_integration_get_implementation");
    EXPECT_FALSE(init());
    EXPECT_EQ(calls(), lines({
                           "zet_hal_nox_integration_get_implementation()",
                           "[ERROR] zet_hal_nox_integration_get_implementation() failed",
                       }));
    deinit();
}

TEST_F(initialisation, fails_when_the_sensor_library_refuses_the_board_record)
{
    refuse("zet_nox_hal_register");
    EXPECT_FALSE(init());
    EXPECT_EQ(calls(), lines({
                           "zet_hal_nox_integration_get_implementation()",
                           "zet_nox_hal_register(\"implementation\")",
                           "[ERROR] zet_nox_hal_register() failed",
                       }));
    deinit();
}

TEST_F(initialisation, fails_immediately_when_an_allocation_fails_and_deinit_frees_the_rest)
{
    for (size_t failing = 1; failing <= arrays_of_init; ++failing)
    {
        memory().fail_allocation(failing);
        EXPECT_FALSE(init());
        EXPECT_EQ(neighbours().calls.count("zet_integration_mem_alloc("), failing);
        EXPECT_TRUE(calls().ends_with(")\n[ERROR] zet_integration_mem_alloc failed\n")) << calls();
        EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_supply_on"), 0U)
            << "no sensor must be checked";
        EXPECT_EQ(zet_vantor_server_system_k3_get_sensor_count(), 3U);
        EXPECT_EQ(memory().live_blocks(), failing - 1);
        deinit();
        EXPECT_EQ(neighbours().calls.count("zet_integration_mem_free("), failing - 1);
        EXPECT_EQ(memory().live_blocks(), 0U);
    }
}

TEST_F(initialisation, on_a_board_without_sensors_fails_if_the_allocator_returns_null)
{
    neighbours().sensor_count = 0;
    memory().null_for_no_bytes = true;
    EXPECT_FALSE(init());
    EXPECT_TRUE(calls().ends_with(
        lines({"zet_integration_mem_alloc(0)", "[ERROR] zet_integration_mem_alloc failed"})));
    deinit();
}

TEST_F(initialisation, on_a_board_without_sensors_succeeds_if_the_allocator_returns_a_pointer)
{
    neighbours().sensor_count = 0;
    ASSERT_TRUE(init());
    EXPECT_EQ(neighbours().calls.count("zet_integration_mem_alloc(0)"), arrays_of_init);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_connected"), 0U);
    EXPECT_EQ(zet_vantor_server_system_k3_get_sensor_count(), 0U);
    EXPECT_FALSE(zet_vantor_server_system_is_sensor_connected(1));
    EXPECT_TRUE(parse("{}"));
    EXPECT_FALSE(parse_config("{}")) << "a group cannot contain an item";
    EXPECT_EQ(error, error_config_group_items_str);
}

TEST_F(initialisation, works_again_after_deinit)
{
    ASSERT_TRUE(init());
    deinit();
    neighbours().sensor_count = 1;
    ASSERT_TRUE(init());
    EXPECT_EQ(zet_vantor_server_system_k3_get_sensor_count(), 1U);
    EXPECT_TRUE(parse_config("{}"));
    EXPECT_TRUE(read_frame());
}

TEST_F(initialisation, resets_to_on_demand_and_forgets_all_calibrations)
{
    ASSERT_TRUE(init());
    ASSERT_TRUE(parse_config(R"({"frame_rate": 10.0})"));
    ASSERT_FALSE(zet_vantor_server_system_is_on_demand());
    finish();
    ASSERT_TRUE(init());
    EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
    ASSERT_TRUE(send_metadata());
    EXPECT_EQ(sent_document(),
              R"({"status":"ok","tick_period":1000,"payload_size":0,"calibration_info":[],"metadata":[]})");
}

TEST_F(queries, return_the_sensor_model_and_the_number_of_positions)
{
    EXPECT_STREQ(zet_vantor_server_system_get_sensor_name(), "k330");
    EXPECT_EQ(zet_vantor_server_system_k3_get_sensor_count(), 3U);
}

TEST_F(queries, report_id_0_and_ids_above_the_sensor_count_as_not_connected)
{
    EXPECT_FALSE(zet_vantor_server_system_is_sensor_connected(0));
    EXPECT_FALSE(zet_vantor_server_system_is_sensor_connected(4));
    EXPECT_FALSE(zet_vantor_server_system_is_sensor_connected(UINT32_MAX));
    EXPECT_TRUE(zet_vantor_server_system_is_sensor_connected(3));
}

TEST_F(initialisation, remembers_which_sensors_are_connected)
{
    neighbours().absent_sensors = {3};
    ASSERT_TRUE(init());
    EXPECT_TRUE(zet_vantor_server_system_is_sensor_connected(1));
    EXPECT_TRUE(zet_vantor_server_system_is_sensor_connected(2));
    EXPECT_FALSE(zet_vantor_server_system_is_sensor_connected(3));
    destroy_session();
    EXPECT_TRUE(zet_vantor_server_system_is_sensor_connected(1)) << "the end of a session does not change it";
}

TEST_F(queries, on_demand_is_true_for_frame_rate_0_and_minus_0_but_not_10)
{
    EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
    ASSERT_TRUE(parse_config(R"({"frame_rate": 10.0})"));
    EXPECT_FALSE(zet_vantor_server_system_is_on_demand());
    destroy_session();
    ASSERT_TRUE(parse_config(R"({"frame_rate": -0.0})"));
    EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
    destroy_session();
    ASSERT_TRUE(parse_config(R"({"frame_rate": 0.0})"));
    EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
}

TEST_F(queries, on_demand_is_false_if_the_frame_rate_is_nan)
{
    neighbours().config_defaults.frame_rate = std::numeric_limits<float>::quiet_NaN();
    ASSERT_TRUE(parse_config("{}"));
    EXPECT_FALSE(zet_vantor_server_system_is_on_demand());
}

TEST_F(queries, diagnostics_test_is_not_supported)
{
    EXPECT_FALSE(zet_vantor_server_system_execute_diagnostics_test(nullptr, nullptr));
    cJSON *input = cJSON_Parse("{}");
    EXPECT_FALSE(zet_vantor_server_system_execute_diagnostics_test(input, &interface));
    cJSON_Delete(input);
    EXPECT_EQ(calls(), "");
}

TEST_F(session_end, right_after_init_only_logs_and_may_be_repeated)
{
    destroy_session();
    EXPECT_EQ(calls(), lines({"[INFO] Stopping all sensors"}));
    destroy_session();
    EXPECT_EQ(calls(), lines({"[INFO] Stopping all sensors"}));
}

TEST_F(session_end, frees_items_in_order_and_then_the_sensors)
{
    ASSERT_TRUE(parse(R"({"groups": [
        [{"sensor_id": 1, "config": {}, "cpd_overrides": {}}, {"sensor_id": 2, "config": {}}],
        [{"sensor_id": 2, "config": {}}]]})"));
    destroy_session();
    EXPECT_EQ(calls(),
              lines({
                  "[INFO] Stopping all sensors",           "zet_config_destroy(config 1)",
                  "zet_integration_mem_free(block 1)",     "zet_processing_destroy(processing 1)",
                  "zet_integration_mem_free(block 2)",     "zet_config_destroy(config 2)",
                  "zet_processing_destroy(processing 2)",  "zet_integration_mem_free(block 3)",
                  "zet_config_destroy(config 3)",          "zet_processing_destroy(processing 3)",
                  "zet_integration_mem_free(block 4)",     "zet_sensor_destroy(sensor 1)",
                  "zet_hal_integration_sensor_disable(1)", "zet_hal_integration_sensor_supply_off(1)",
                  "[INFO] Powered off sensor id 1",        "zet_sensor_destroy(sensor 2)",
                  "zet_hal_integration_sensor_disable(2)", "zet_hal_integration_sensor_supply_off(2)",
                  "[INFO] Powered off sensor id 2",
              }));
    destroy_session();
    EXPECT_EQ(calls(), lines({"[INFO] Stopping all sensors"})) << "every pointer must be null again";
}

TEST_F(session_end, ignores_sensors_without_a_handle)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 3, "config": {}}, {"sensor_id": 1, "config": {}})"));
    destroy_session();
    EXPECT_EQ(calls(call_kind_t::board), lines({
                                             "zet_hal_integration_sensor_disable(1)",
                                             "zet_hal_integration_sensor_supply_off(1)",
                                             "zet_hal_integration_sensor_disable(3)",
                                             "zet_hal_integration_sensor_supply_off(3)",
                                         }));
    EXPECT_EQ(neighbours().calls.count("[INFO] Powered off sensor id 2"), 0U);
}

TEST_F(session_end, frees_the_resources_of_an_incomplete_item)
{
    refuse("zet_processing_create");
    ASSERT_FALSE(parse_config("{}"));
    destroy_session();
    EXPECT_EQ(calls(), lines({
                           "[INFO] Stopping all sensors",
                           "zet_config_destroy(config 1)",
                           "zet_integration_mem_free(block 1)",
                           "zet_sensor_destroy(sensor 1)",
                           "zet_hal_integration_sensor_disable(1)",
                           "zet_hal_integration_sensor_supply_off(1)",
                           "[INFO] Powered off sensor id 1",
                       }));
}

TEST_F(session_end, makes_the_next_session_calibrate_and_prepare_again)
{
    ASSERT_TRUE(parse_config("{}"));
    destroy_session();
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[])"), std::string::npos);
    ASSERT_TRUE(parse_config("{}"));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate("), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare("), 1U);
}

TEST_F(session_end, keeps_the_calibration_result_but_marks_it_incomplete)
{
    neighbours().temperatures[1] = -7;
    ASSERT_TRUE(parse_config("{}"));
    destroy_session();
    // An item that fails before its calibration stays configured, because the last item decides.
    refuse("zet_nox_get_buffer_size");
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("metadata":[[{"calibration_temperature":-7,)"), std::string::npos);
    EXPECT_EQ(sent_document().find(R"({"sensor_id":1,)"), std::string::npos)
        << "the calibration must no longer be complete";
}

TEST_F(session_end, keeps_the_frame_rate_and_the_probe_registration)
{
    ASSERT_TRUE(parse_config(R"({"frame_rate": 10.0})"));
    destroy_session();
    EXPECT_FALSE(zet_vantor_server_system_is_on_demand());
    EXPECT_EQ(neighbours().calls.count("zet_probes_register_callback"), 0U);
}

TEST_F(deinitialisation, frees_the_arrays_in_the_order_of_their_allocation)
{
    ASSERT_TRUE(init());
    deinit();
    EXPECT_EQ(calls(), lines({
                           "zet_integration_mem_free(block 1)",
                           "zet_integration_mem_free(block 2)",
                           "zet_integration_mem_free(block 3)",
                           "zet_integration_mem_free(block 4)",
                           "zet_integration_mem_free(block 5)",
                           "zet_integration_mem_free(block 6)",
                           "zet_integration_mem_free(block 7)",
                           "zet_integration_mem_free(block 8)",
                           "zet_integration_mem_free(block 9)",
                           "zet_integration_mem_free(block 10)",
                           "zet_integration_mem_free(block 11)",
                           "zet_integration_mem_free(block 12)",
                           "zet_integration_mem_free(block 13)",
                       }));
    EXPECT_EQ(memory().live_blocks(), 0U);
}

TEST_F(deinitialisation, twice_does_nothing_the_second_time_and_keeps_the_sensor_count)
{
    ASSERT_TRUE(init());
    deinit();
    deinit();
    EXPECT_EQ(calls(), "");
    EXPECT_EQ(zet_vantor_server_system_k3_get_sensor_count(), 3U);
}

} // namespace backend_tests
