/** @file
 * The "config" object of a group item: frame-level keys, sub-sweeps, and invalid values.
 */
#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

/** Parses one configuration at a time and checks the calls to the sensor library. */
class sensor_configuration : public ready_backend_test
{
protected:
    /** The calls after the configuration is created and before its buffer size is read. */
    static std::string setters()
    {
        const std::string all = calls(call_kind_t::sensor_library);
        const std::string create = "zet_config_create()\n";
        const size_t begin = all.find(create) + create.size();
        return all.substr(begin, all.find("zet_nox_get_buffer_size") - begin);
    }

    /** Expects a configuration to be refused with this message, and everything created for it to be
     * destroyed. */
    void expect_refused(const std::string &config, const char *message)
    {
        SCOPED_TRACE(config);
        error = nullptr;
        EXPECT_FALSE(parse_config(config));
        EXPECT_EQ(error, message);
        EXPECT_EQ(neighbours().calls.count("[ERROR]"), 0U) << calls();
        EXPECT_EQ(neighbours().calls.count("zet_config_create"), 1U);
        EXPECT_EQ(neighbours().calls.count("zet_config_destroy"), 1U);
        EXPECT_EQ(neighbours().calls.count("zet_nox_get_buffer_size"), 0U);
        destroy_session();
        EXPECT_EQ(neighbours().calls.count("zet_config_destroy"), 0U)
            << "the item must not keep a configuration";
    }

    /** Expects a configuration to be refused by validation, before anything is created. */
    void expect_invalid(const std::string &config)
    {
        SCOPED_TRACE(config);
        error = nullptr;
        EXPECT_FALSE(parse_config(config));
        EXPECT_EQ(error, error_bad_config);
        EXPECT_EQ(calls(call_kind_t::log),
                  lines({"[INFO] Powered on sensor id 1", "[ERROR] Invalid config"}));
        EXPECT_EQ(neighbours().calls.count("zet_config_create"), 0U);
        destroy_session();
    }
};

} // namespace

TEST_F(sensor_configuration, empty_object_keeps_all_defaults_of_the_library)
{
    ASSERT_TRUE(parse_config("{}"));
    EXPECT_EQ(setters(), "");
    EXPECT_EQ(error, nullptr);
}

TEST_F(sensor_configuration, applies_all_keys_in_fixed_order_whatever_their_order_in_the_document)
{
    ASSERT_TRUE(parse_config(R"({
        "inter_sweep_idle_state": "ready", "inter_frame_idle_state": "deep_sleep", "subtract_in_buffer": true,
        "double_buffering": false, "continuous_sweep_mode": true, "sweep_rate": 2000.5,
        "sweeps_per_frame": 16, "frame_rate": 12.5, "prf": "13_0_MHz", "iq_imbalance_compensation": false,
        "phase_enhancement": true, "enable_loopback": false, "enable_tx": true, "receiver_gain": 16,
        "hwaas": 8, "profile": 3,
        "step_length": 24, "num_points": 160, "start_point": -80})"));
    EXPECT_EQ(setters(), lines({
                             "zet_config_subsweep_start_point_set(config 1, -80, 0)",
                             "zet_config_subsweep_num_points_set(config 1, 160, 0)",
                             "zet_config_subsweep_step_length_set(config 1, 24, 0)",
                             "zet_config_subsweep_profile_set(config 1, 3, 0)",
                             "zet_config_subsweep_hwaas_set(config 1, 8, 0)",
                             "zet_config_subsweep_receiver_gain_set(config 1, 16, 0)",
                             "zet_config_subsweep_enable_tx_set(config 1, true, 0)",
                             "zet_config_subsweep_enable_loopback_set(config 1, false, 0)",
                             "zet_config_subsweep_phase_enhancement_set(config 1, true, 0)",
                             "zet_config_subsweep_iq_imbalance_compensation_set(config 1, false, 0)",
                             "zet_config_subsweep_prf_set(config 1, 2, 0)",
                             "zet_config_frame_rate_set(config 1, 12.5)",
                             "zet_config_sweeps_per_frame_set(config 1, 16)",
                             "zet_config_sweep_rate_set(config 1, 2000.5)",
                             "zet_config_continuous_sweep_mode_set(config 1, true)",
                             "zet_config_double_buffering_set(config 1, false)",
                             "zet_config_subtract_in_buffer_set(config 1, true)",
                             "zet_config_inter_frame_idle_state_set(config 1, 0)",
                             "zet_config_inter_sweep_idle_state_set(config 1, 2)",
                         }));
}

TEST_F(sensor_configuration, reads_json_in_fixed_order_and_validates_against_the_allowed_fields)
{
    const std::string validation =
        "json_validate(frame_rate:1 start_point:2 num_points:2 step_length:2 profile:2 hwaas:2 "
        "receiver_gain:2 enable_tx:0 enable_loopback:0 phase_enhancement:0 iq_imbalance_compensation:0 "
        "sweeps_per_frame:2 sweep_rate:1 continuous_sweep_mode:0 double_buffering:0 subtract_in_buffer:0 "
        "inter_frame_idle_state:6 inter_sweep_idle_state:6 prf:6 subsweeps:4 end:8)";
    const std::string validation_of_subsweep =
        "json_validate(start_point:2 num_points:2 step_length:2 profile:2 hwaas:2 receiver_gain:2 "
        "enable_tx:0 enable_loopback:0 phase_enhancement:0 iq_imbalance_compensation:0 prf:6 end:8)";
    ASSERT_TRUE(parse_config(R"({"subsweeps": [{"prf": "5_2_MHz"}]})"));
    const std::string json = calls(call_kind_t::json);
    const std::string expected = lines({
        validation,
        R"(cJSON_GetObjectItemCaseSensitive("subsweeps"))",
        R"(get_json_int_value("start_point"))",
        R"(get_json_int_value("num_points"))",
        R"(get_json_int_value("step_length"))",
        R"(get_json_int_value("profile"))",
        R"(get_json_int_value("hwaas"))",
        R"(get_json_int_value("receiver_gain"))",
        R"(get_json_bool_value("enable_tx"))",
        R"(get_json_bool_value("enable_loopback"))",
        R"(get_json_bool_value("phase_enhancement"))",
        R"(get_json_bool_value("iq_imbalance_compensation"))",
        R"(get_json_string_value("prf"))",
        validation_of_subsweep,
        R"(get_json_int_value("start_point"))",
        R"(get_json_int_value("num_points"))",
        R"(get_json_int_value("step_length"))",
        R"(get_json_int_value("profile"))",
        R"(get_json_int_value("hwaas"))",
        R"(get_json_int_value("receiver_gain"))",
        R"(get_json_bool_value("enable_tx"))",
        R"(get_json_bool_value("enable_loopback"))",
        R"(get_json_bool_value("phase_enhancement"))",
        R"(get_json_bool_value("iq_imbalance_compensation"))",
        R"(get_json_string_value("prf"))",
        R"(get_json_float_value("frame_rate"))",
        R"(get_json_int_value("sweeps_per_frame"))",
        R"(get_json_float_value("sweep_rate"))",
        R"(get_json_bool_value("continuous_sweep_mode"))",
        R"(get_json_bool_value("double_buffering"))",
        R"(get_json_bool_value("subtract_in_buffer"))",
        R"(get_json_string_value("inter_frame_idle_state"))",
        R"(get_json_string_value("inter_sweep_idle_state"))",
    });
    EXPECT_NE(json.find(expected), std::string::npos) << json;
}

TEST_F(sensor_configuration, accepts_every_prf)
{
    const std::vector<std::pair<std::string, int>> words{{"19_5_MHz", 0}, {"15_6_MHz", 1}, {"13_0_MHz", 2},
                                                         {"8_7_MHz", 3},  {"6_5_MHz", 4},  {"5_2_MHz", 5}};
    for (const auto &[word, value] : words)
    {
        ASSERT_TRUE(parse_config(R"({"prf": ")" + word + R"("})")) << word;
        EXPECT_TRUE(setters().ends_with(", " + std::to_string(value) + ", 0)\n")) << setters();
        EXPECT_TRUE(setters().starts_with("zet_config_subsweep_prf_set(")) << setters();
        destroy_session();
    }
}

TEST_F(sensor_configuration, accepts_every_idle_state)
{
    const std::vector<std::pair<std::string, std::string>> words{
        {"deep_sleep", "0"}, {"sleep", "1"}, {"ready", "2"}};
    int number = 0;
    for (const auto &[word, value] : words)
    {
        number += 1;
        const std::string config = "config " + std::to_string(number);
        ASSERT_TRUE(parse_config(R"({"inter_frame_idle_state": ")" + word + R"("})")) << word;
        EXPECT_EQ(setters(), lines({call_text("zet_config_inter_frame_idle_state_set", {config, value})}));
        destroy_session();
        number += 1;
        const std::string next = "config " + std::to_string(number);
        ASSERT_TRUE(parse_config(R"({"inter_sweep_idle_state": ")" + word + R"("})")) << word;
        EXPECT_EQ(setters(), lines({call_text("zet_config_inter_sweep_idle_state_set", {next, value})}));
        destroy_session();
    }
}

TEST_F(sensor_configuration, truncates_numbers_to_the_parameter_type_of_the_setter)
{
    ASSERT_TRUE(parse_config(R"({"receiver_gain": 300, "num_points": 65546, "step_length": 65537,
        "hwaas": -1, "sweeps_per_frame": 65538, "profile": 259, "start_point": -2147483648})"));
    EXPECT_EQ(setters(), lines({
                             "zet_config_subsweep_start_point_set(config 1, -2147483648, 0)",
                             "zet_config_subsweep_num_points_set(config 1, 10, 0)",
                             "zet_config_subsweep_step_length_set(config 1, 1, 0)",
                             "zet_config_subsweep_profile_set(config 1, 3, 0)",
                             "zet_config_subsweep_hwaas_set(config 1, 65535, 0)",
                             "zet_config_subsweep_receiver_gain_set(config 1, 44, 0)",
                             "zet_config_sweeps_per_frame_set(config 1, 2)",
                         }));
}

TEST_F(sensor_configuration, passes_an_unknown_profile_to_the_library)
{
    ASSERT_TRUE(parse_config(R"({"profile": 6})"));
    EXPECT_EQ(setters(), "zet_config_subsweep_profile_set(config 1, 6, 0)\n");
}

TEST_F(sensor_configuration, four_subsweeps_get_indexes_0_to_3)
{
    ASSERT_TRUE(parse_config(
        R"({"subsweeps": [{"start_point": 10}, {"enable_tx": false}, {}, {"prf": "8_7_MHz", "hwaas": 2}]})"));
    EXPECT_EQ(setters(), lines({
                             "zet_config_subsweep_start_point_set(config 1, 10, 0)",
                             "zet_config_subsweep_enable_tx_set(config 1, false, 1)",
                             "zet_config_subsweep_hwaas_set(config 1, 2, 3)",
                             "zet_config_subsweep_prf_set(config 1, 3, 3)",
                             "zet_config_num_subsweeps_set(config 1, 4)",
                         }));
}

TEST_F(sensor_configuration, fifth_subsweep_is_refused_even_if_it_is_valid)
{
    expect_refused(R"({"subsweeps": [{}, {}, {}, {"start_point": 4}, {}]})", error_too_many_subsweeps);
    expect_refused(R"({"subsweeps": [{}, {}, {}, {}, 17]})", error_too_many_subsweeps);
}

TEST_F(sensor_configuration, fifth_subsweep_is_refused_only_after_the_first_four_are_applied)
{
    EXPECT_FALSE(parse_config(R"({"subsweeps": [{}, {}, {}, {"start_point": 4}, {}]})"));
    EXPECT_EQ(neighbours().calls.count("zet_config_subsweep_start_point_set(config 1, 4, 3)"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_config_num_subsweeps_set"), 0U);
}

TEST_F(sensor_configuration, empty_subsweeps_array_sets_their_number_to_0)
{
    ASSERT_TRUE(parse_config(R"({"subsweeps": []})"));
    EXPECT_EQ(setters(), "zet_config_num_subsweeps_set(config 1, 0)\n");
}

TEST_F(sensor_configuration, subsweep_keys_at_the_frame_level_together_with_subsweeps_are_refused)
{
    expect_refused(R"({"start_point": 80, "subsweeps": [{"start_point": 100}]})",
                   error_double_subsweep_config);
    expect_refused(R"({"subsweeps": [], "iq_imbalance_compensation": false})", error_double_subsweep_config);
}

TEST_F(sensor_configuration, every_subsweep_key_at_the_frame_level_conflicts_with_subsweeps)
{
    for (const char *member :
         {R"("start_point": 0)", R"("num_points": 0)", R"("step_length": 0)", R"("profile": 0)",
          R"("hwaas": 0)", R"("receiver_gain": 0)", R"("enable_tx": false)", R"("enable_loopback": false)",
          R"("phase_enhancement": false)", R"("iq_imbalance_compensation": false)", R"("prf": "19_5_MHz")"})
    {
        expect_refused("{" + std::string(member) + R"(, "subsweeps": []})", error_double_subsweep_config);
    }
}

TEST_F(sensor_configuration, prf_at_the_frame_level_conflicts_with_subsweeps)
{
    expect_refused(R"({"prf": "13_0_MHz", "subsweeps": []})", error_double_subsweep_config);
}

TEST_F(sensor_configuration, frame_rate_together_with_subsweeps_is_accepted)
{
    ASSERT_TRUE(parse_config(R"({"frame_rate": 80, "subsweeps": [{"start_point": 100}]})"));
    EXPECT_EQ(setters(), lines({
                             "zet_config_subsweep_start_point_set(config 1, 100, 0)",
                             "zet_config_num_subsweeps_set(config 1, 1)",
                             "zet_config_frame_rate_set(config 1, 80)",
                         }));
}

TEST_F(sensor_configuration, frame_level_key_in_a_subsweep_is_refused_without_a_log_line)
{
    expect_refused(R"({"subsweeps": [{"frame_rate": 10.0}]})", error_bad_config);
    expect_refused(R"({"subsweeps": [{}, {"subsweeps": []}]})", error_bad_config);
    expect_refused(R"({"subsweeps": [3]})", error_bad_config);
}

TEST_F(sensor_configuration, object_with_members_unknown_or_of_the_wrong_type_is_refused)
{
    expect_invalid(R"({"frame_ratio": 1})");
    expect_invalid(R"({"frame_rate": "10"})");
    expect_invalid(R"({"num_points": 1.5})");
    expect_invalid(R"({"enable_tx": 1})");
    expect_invalid(R"({"prf": 3})");
    expect_invalid(R"({"subsweeps": {}})");
}

TEST_F(sensor_configuration, unknown_prf_is_refused)
{
    expect_refused(R"({"prf": "13.0_MHz"})", error_invalid_prf);
    expect_refused(R"({"prf": "13_0_mhz"})", error_invalid_prf);
    expect_refused(R"({"prf": ""})", error_invalid_prf);
    expect_refused(R"({"subsweeps": [{"prf": "fast"}]})", error_invalid_prf);
}

TEST_F(sensor_configuration, unknown_idle_state_is_refused)
{
    expect_refused(R"({"inter_frame_idle_state": "Sleep"})", error_invalid_inter_frame_idle_state);
    expect_refused(R"({"inter_frame_idle_state": "awake"})", error_invalid_inter_frame_idle_state);
    expect_refused(R"({"inter_sweep_idle_state": "READY"})", error_invalid_inter_sweep_idle_state);
    expect_refused(R"({"inter_sweep_idle_state": ""})", error_invalid_inter_sweep_idle_state);
}

TEST_F(sensor_configuration, first_failed_step_sets_the_message)
{
    expect_refused(R"({"prf": "x", "subsweeps": []})", error_invalid_prf);
    expect_refused(R"({"subsweeps": [{"prf": "x"}, {}, {}, {}, {}]})", error_invalid_prf);
    expect_refused(R"({"subsweeps": [{}, {}, {}, {}, {}], "inter_frame_idle_state": "x"})",
                   error_too_many_subsweeps);
    expect_refused(R"({"inter_sweep_idle_state": "x", "inter_frame_idle_state": "x"})",
                   error_invalid_inter_frame_idle_state);
}

TEST_F(sensor_configuration, bad_prf_in_subsweep_2_fails_after_0_and_1_are_applied)
{
    EXPECT_FALSE(parse_config(R"({"subsweeps": [{"hwaas": 1}, {"hwaas": 2}, {"hwaas": 3, "prf": "x"}]})"));
    EXPECT_EQ(error, error_invalid_prf);
    EXPECT_EQ(calls(call_kind_t::sensor_library), lines({
                                                      "zet_sensor_create(1)",
                                                      "zet_config_create()",
                                                      "zet_config_subsweep_hwaas_set(config 1, 1, 0)",
                                                      "zet_config_subsweep_hwaas_set(config 1, 2, 1)",
                                                      "zet_config_subsweep_hwaas_set(config 1, 3, 2)",
                                                      "zet_config_destroy(config 1)",
                                                  }));
}

TEST_F(sensor_configuration, configuration_that_the_library_cannot_create_is_reported_as_out_of_memory)
{
    refuse("zet_config_create");
    EXPECT_FALSE(parse_config("{}"));
    EXPECT_EQ(error, error_out_of_memory);
    EXPECT_EQ(calls(call_kind_t::log),
              lines({"[INFO] Powered on sensor id 1", "[ERROR] Failed creating config"}));
}

} // namespace backend_tests
