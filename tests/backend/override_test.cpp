/** @file
 * The "cpd_overrides" object, the list made from it, and its use when a sensor is prepared.
 */
#include <array>
#include <cstring>

#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

using parameters_t = zet_cpd_k330_meas_session_parameters_t;

/** The words of the parameter block that the backend changed. The library's stand-in sets each to its index.
 */
std::string changed_words(const parameters_t &parameters)
{
    std::array<uint16_t, sizeof(parameters_t) / sizeof(uint16_t)> words{};
    std::memcpy(words.data(), &parameters, sizeof(parameters));
    std::string text;
    for (size_t index = 0; index < words.size(); ++index)
    {
        if (words.at(index) != index)
        {
            text += "byte " + std::to_string(2 * index) + ": " + std::to_string(words.at(index)) + "\n";
        }
    }
    return text;
}

class overrides : public ready_backend_test
{
protected:
    /** Parses an item on sensor 1 with this "cpd_overrides" value. */
    bool parse_overrides(const std::string &value)
    {
        return parse_group(R"({"sensor_id": 1, "config": {}, "cpd_overrides": )" + value + "}");
    }

    /** The log lines, without the one about the sensor's supply. */
    static std::string log_after_power_on()
    {
        const std::string text = calls(call_kind_t::log);
        return text.substr(text.find('\n') + 1);
    }
};

} // namespace

TEST_F(overrides, empty_object_gives_an_empty_list_and_a_callback_that_changes_nothing)
{
    ASSERT_TRUE(parse_overrides("{}"));
    EXPECT_EQ(log_after_power_on(), lines({"[INFO] Found 0 override items"}));
    EXPECT_EQ(neighbours().calls.count("zet_probes_register_callback(20, callback, block 1)"), 1U);
    EXPECT_EQ(changed_words(neighbours().parameters), "");
}

TEST_F(overrides, are_stored_in_table_order_whatever_the_order_of_the_keys)
{
    ASSERT_TRUE(parse_overrides(R"({"tx_duration": 5, "tx_freq_ctrl": 7})"));
    EXPECT_EQ(log_after_power_on(), lines({
                                        "[INFO] Overriding tx_freq_ctrl with value 0x7",
                                        "[INFO] Overriding tx_duration with value 0x5",
                                        "[INFO] Found 2 override items",
                                        "[INFO] Setting CPD program parameter tx_freq_ctrl to 7",
                                        "[INFO] Setting CPD program parameter tx_duration to 5",
                                    }));
    EXPECT_EQ(changed_words(neighbours().parameters), "byte 18: 7\nbyte 78: 5\n");
}

TEST_F(overrides, write_all_six_parameters)
{
    ASSERT_TRUE(parse_overrides(R"({"tx_duration": 1001, "rx_duration": 1002, "integrator_ctrl": 1003,
        "integration_repeats": 1004, "rx_freq_ctrl": 1005, "tx_freq_ctrl": 1006})"));
    EXPECT_EQ(log_after_power_on(), lines({
                                        "[INFO] Overriding tx_freq_ctrl with value 0x3ee",
                                        "[INFO] Overriding rx_freq_ctrl with value 0x3ed",
                                        "[INFO] Overriding integration_repeats with value 0x3ec",
                                        "[INFO] Overriding integrator_ctrl with value 0x3eb",
                                        "[INFO] Overriding rx_duration with value 0x3ea",
                                        "[INFO] Overriding tx_duration with value 0x3e9",
                                        "[INFO] Found 6 override items",
                                        "[INFO] Setting CPD program parameter tx_freq_ctrl to 1006",
                                        "[INFO] Setting CPD program parameter rx_freq_ctrl to 1005",
                                        "[INFO] Setting CPD program parameter integration_repeats to 1004",
                                        "[INFO] Setting CPD program parameter integrator_ctrl to 1003",
                                        "[INFO] Setting CPD program parameter rx_duration to 1002",
                                        "[INFO] Setting CPD program parameter tx_duration to 1001",
                                    }));
    EXPECT_EQ(changed_words(neighbours().parameters),
              "byte 16: 1005\nbyte 18: 1006\nbyte 78: 1001\nbyte 80: 1002\nbyte 110: 1004\nbyte 112: 1003\n");
}

TEST_F(overrides, mapping_table_is_exported_and_each_row_writes_its_own_field)
{
    const std::vector<std::pair<std::string, std::string>> rows{
        {"tx_freq_ctrl", "byte 18: 4660\n"},         {"rx_freq_ctrl", "byte 16: 4660\n"},
        {"integration_repeats", "byte 110: 4660\n"}, {"integrator_ctrl", "byte 112: 4660\n"},
        {"rx_duration", "byte 80: 4660\n"},          {"tx_duration", "byte 78: 4660\n"}};
    static_assert(std::size(cpd_override_mappings) == 6);
    for (size_t row = 0; row < rows.size(); ++row)
    {
        const cpd_override_mapping_t &mapping = cpd_override_mappings[row];
        EXPECT_EQ(mapping.name, rows[row].first);
        std::array<uint16_t, sizeof(parameters_t) / sizeof(uint16_t)> words{};
        for (size_t index = 0; index < words.size(); ++index)
        {
            words.at(index) = static_cast<uint16_t>(index);
        }
        parameters_t parameters;
        std::memcpy(&parameters, words.data(), sizeof(parameters));
        neighbours().calls.clear();
        mapping.set_func(&parameters, 0x00011234);
        EXPECT_EQ(changed_words(parameters), rows[row].second);
        EXPECT_EQ(calls(), "[INFO] Setting CPD program parameter " + rows[row].first + " to 70196\n");
    }
}

TEST_F(overrides, value_above_16_bits_is_logged_in_full_and_stored_truncated)
{
    ASSERT_TRUE(parse_overrides(R"({"tx_duration": 70000})"));
    EXPECT_EQ(neighbours().calls.count("[INFO] Setting CPD program parameter tx_duration to 70000"), 1U);
    EXPECT_EQ(neighbours().parameters.subsweeps[0].pulse_length.tx_duration, 4464);
}

TEST_F(overrides, negative_value_is_logged_as_32_bits_and_stored_truncated)
{
    ASSERT_TRUE(parse_overrides(R"({"rx_duration": -1})"));
    EXPECT_EQ(neighbours().calls.count("[INFO] Overriding rx_duration with value 0xffffffff"), 1U);
    EXPECT_EQ(neighbours().calls.count("[INFO] Setting CPD program parameter rx_duration to 4294967295"), 1U);
    EXPECT_EQ(neighbours().parameters.subsweeps[0].pulse_length.rx_duration, 65535);
}

TEST_F(overrides, change_subsweep_0_only_even_with_four_subsweeps)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {"subsweeps": [{}, {}, {}, {}]},
                               "cpd_overrides": {"integrator_ctrl": 9}})"));
    EXPECT_EQ(changed_words(neighbours().parameters), "byte 112: 9\n");
}

TEST_F(overrides, callback_ignores_other_probes)
{
    ASSERT_TRUE(parse_overrides(R"({"integrator_ctrl": 9})"));
    neighbours().calls.clear();
    parameters_t untouched{};
    for (int probe = 0; probe < ZET_PROBE_ID_MAX; ++probe)
    {
        if (probe != ZET_PROBE_ID_MEAS_SESSION_PARAMETERS)
        {
            const zet_probes_header_t header{static_cast<zet_probe_id_t>(probe), 1, 0};
            EXPECT_TRUE(neighbours().callback(&header, &untouched, sizeof(untouched), nullptr));
        }
    }
    EXPECT_EQ(calls(), "");
    EXPECT_EQ(untouched.subsweeps[0].integrator_ctrl, 0);
}

TEST_F(overrides, callback_ignores_data_size_and_sensor_id)
{
    ASSERT_TRUE(parse_overrides(R"({"integrator_ctrl": 9})"));
    parameters_t parameters{};
    const zet_probes_header_t header{ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, 99, 1234};
    EXPECT_TRUE(neighbours().callback(&header, &parameters, 0, neighbours().client_reference));
    EXPECT_EQ(parameters.subsweeps[0].integrator_ctrl, 9);
}

TEST_F(overrides, item_without_overrides_removes_the_callback_of_an_item_before_it)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "cpd_overrides": {"integrator_ctrl": 9}},
                               {"sensor_id": 2, "config": {}})"));
    const std::string all = calls(call_kind_t::sensor_library);
    EXPECT_TRUE(all.ends_with(lines({
        "zet_probes_register_callback(20, callback, block 1)",
        "zet_probes_register_callback(20, null, null)",
        "zet_sensor_prepare(sensor 2, config 2, calibration of 2, block 3, 64)",
        "zet_config_frame_rate_get(config 1)",
        "zet_config_frame_rate_get(config 2)",
    }))) << all;
    EXPECT_EQ(neighbours().calls.count("[INFO] Setting CPD"), 1U)
        << "only the sensor of the first item has overrides";
}

TEST_F(overrides, are_applied_at_every_prepare)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}, "cpd_overrides": {"tx_duration": 1}}],
            [{"sensor_id": 1, "config": {}, "cpd_overrides": {"tx_duration": 2}}]]})"));
    for (int frame = 0; frame < 2; ++frame)
    {
        ASSERT_TRUE(read_frame());
        EXPECT_EQ(calls(call_kind_t::log), lines({
                                               "[INFO] Setting CPD program parameter tx_duration to 1",
                                               "[INFO] Setting CPD program parameter tx_duration to 2",
                                           }));
    }
}

TEST_F(overrides, that_are_invalid_fail_the_item_but_keep_its_configuration)
{
    for (const char *value :
         {R"({"tx_durations": 5})", R"({"tx_duration": "5"})", R"({"tx_duration": 5.5})", "7", "[]", "null"})
    {
        SCOPED_TRACE(value);
        error = nullptr;
        EXPECT_FALSE(parse_overrides(value));
        EXPECT_EQ(error, error_bad_config);
        EXPECT_EQ(log_after_power_on(), lines({"[ERROR] Invalid cpd config"}));
        EXPECT_EQ(neighbours().calls.count("zet_config_destroy"), 0U);
        destroy_session();
        EXPECT_EQ(neighbours().calls.count("zet_config_destroy"), 1U) << "freed at the end of the session";
        EXPECT_EQ(calls(call_kind_t::memory), "");
    }
}

TEST_F(overrides, that_cannot_be_allocated_are_reported_as_bad_config)
{
    // After the handles of the sensor and of the configuration.
    memory().fail_allocation(3);
    EXPECT_FALSE(parse_overrides(R"({"tx_duration": 5})"));
    EXPECT_EQ(error, error_bad_config);
    EXPECT_EQ(log_after_power_on(), lines({"[ERROR] Out of memory"}));
    destroy_session();
    EXPECT_EQ(neighbours().calls.count("zet_config_destroy"), 1U);
}

TEST_F(overrides, are_validated_and_read_in_table_order)
{
    const std::string validation =
        "json_validate(tx_freq_ctrl:2 rx_freq_ctrl:2 integration_repeats:2 integrator_ctrl:2 "
        "rx_duration:2 tx_duration:2 end:8)";
    ASSERT_TRUE(parse_overrides("{}"));
    const std::string json = calls(call_kind_t::json);
    EXPECT_NE(json.find(lines({
                  R"(cJSON_GetObjectItemCaseSensitive("cpd_overrides"))",
                  validation,
                  R"(get_json_int_value("tx_freq_ctrl"))",
                  R"(get_json_int_value("rx_freq_ctrl"))",
                  R"(get_json_int_value("integration_repeats"))",
                  R"(get_json_int_value("integrator_ctrl"))",
                  R"(get_json_int_value("rx_duration"))",
                  R"(get_json_int_value("tx_duration"))",
                  R"(get_json_bool_value("cca_enable"))",
              })),
              std::string::npos)
        << json;
}

TEST_F(overrides, key_is_matched_exactly)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}, "CPD_overrides": {"tx_duration": 5}})"));
    EXPECT_EQ(neighbours().calls.count("zet_probes_register_callback(20, null, null)"), 1U);
}

} // namespace backend_tests
