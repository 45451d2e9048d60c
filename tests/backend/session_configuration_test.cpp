/** @file
 * The configuration document, from its root to the rules for rates. For the items see
 * group_item_test.cpp.
 */
#include <limits>

#include "support/backend_fixture.h"
#include "zet_log_levels.h"

namespace backend_tests
{

namespace
{

const std::string with_frame_rate = R"("groups": [[{"sensor_id": 1, "config": {"frame_rate": 10.0}}]])";

/** Complete documents. */
class session_configuration : public ready_backend_test
{
protected:
    void expect_accepted(const std::string &document, float expected_rate = -1.0F)
    {
        SCOPED_TRACE(document);
        error = nullptr;
        update_rate = 77.0F;
        EXPECT_TRUE(parse(document));
        EXPECT_EQ(error, nullptr);
        EXPECT_EQ(update_rate, expected_rate);
        destroy_session();
    }

    void expect_refused(const std::string &document, const char *message)
    {
        SCOPED_TRACE(document);
        error = nullptr;
        update_rate = 77.0F;
        EXPECT_FALSE(parse(document));
        EXPECT_EQ(error, message);
        EXPECT_EQ(update_rate, -1.0F);
        destroy_session();
    }

    /** Whether a session with these top-level members enables the diagnostic log. */
    bool diagnostics_with(const std::string &members)
    {
        EXPECT_TRUE(parse("{" + members + R"("groups": [[{"sensor_id": 1, "config": {}}]]})"));
        const bool enabled = neighbours().calls.count("zet_diagnostic_log_enable(true)") == 1;
        destroy_session();
        return enabled;
    }

    /**
     * Expects a document that is refused before its groups not to change the frame rate: it keeps that of the
     * last session and does not use its own.
     */
    void expect_frame_rate_kept_by(const std::string &document)
    {
        SCOPED_TRACE(document);
        ASSERT_TRUE(parse("{" + with_frame_rate + "}"));
        destroy_session();
        EXPECT_FALSE(parse(document));
        destroy_session();
        EXPECT_FALSE(zet_vantor_server_system_is_on_demand()) << "the rate of the last session is lost";

        ASSERT_TRUE(parse("{}"));
        destroy_session();
        EXPECT_FALSE(parse("{" + with_frame_rate + ", " + document.substr(1)));
        destroy_session();
        EXPECT_TRUE(zet_vantor_server_system_is_on_demand()) << "the rate of the refused document is used";
    }
};

const std::string valid_data = calibration_text(2, 22);

/** A document with these elements in its calibration list. */
std::string calibrations(const std::string &elements)
{
    return R"({"calibration_info": [)" + elements + "]}";
}

std::string calibration(const std::string &sensor_id, const std::string &data)
{
    return R"({"sensor_id": )" + sensor_id + R"(, "data": ")" + data + R"("})";
}

/** Documents whose calibration list is refused, each for a different reason. */
const std::vector<std::string> refused_calibration_lists{
    calibrations(""),
    calibrations("7"),
    calibrations(calibration("9", valid_data)),
    calibrations(R"({"sensor_id": 2})"),
    calibrations(calibration("2", "xyz")),
};

/** A group with one item, without configuration keys by default. */
std::string group_of(int sensor_id, const std::string &config = "{}")
{
    return R"([{"sensor_id": )" + std::to_string(sensor_id) + R"(, "config": )" + config + "}]";
}

std::string groups(int count, const std::string &group)
{
    std::string text;
    for (int index = 0; index < count; ++index)
    {
        text += (index == 0 ? "" : ", ") + group;
    }
    return R"({"groups": [)" + text + "]}";
}

} // namespace

// The document as a whole

TEST_F(session_configuration, empty_document_is_accepted)
{
    ASSERT_TRUE(parse("{}"));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(update_rate, -1.0F);
    EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
    EXPECT_EQ(calls(), "") << "the backend must not call anything";
}

TEST_F(session_configuration, empty_document_is_read_in_fixed_order)
{
    ASSERT_TRUE(parse("{}"));
    EXPECT_EQ(calls(call_kind_t::json), lines({
                                            R"(is_json_node("enable_log"))",
                                            R"(cJSON_GetObjectItemCaseSensitive("calibration_info"))",
                                            R"(get_json_bool_value("enable_diagnostics"))",
                                            R"(cJSON_GetObjectItemCaseSensitive("groups"))",
                                            R"(is_json_node("max_update_rate"))",
                                            R"(is_json_node("update_rate"))",
                                        }));
}

TEST_F(session_configuration, unknown_keys_of_the_root_are_ignored)
{
    expect_accepted(R"({"colour": "red", "Groups": 5, "max_Update_Rate": 3})");
}

TEST_F(session_configuration, session_of_one_item_makes_its_calls_in_order)
{
    ASSERT_TRUE(parse(R"({"enable_log": "INFO", "groups": [[{"sensor_id": 2, "config": {"hwaas": 4}}]]})"));
    EXPECT_EQ(calls(), lines({
                           "zet_nox_set_log_level(2)",
                           "zet_hal_integration_sensor_supply_on(2)",
                           "zet_hal_integration_sensor_enable(2)",
                           "[INFO] Powered on sensor id 2",
                           "zet_sensor_create(2)",
                           "zet_config_create()",
                           "zet_config_subsweep_hwaas_set(config 1, 4, 0)",
                           "zet_nox_get_buffer_size(config 1)",
                           "zet_integration_mem_alloc(64)",
                           "zet_sensor_calibrate(sensor 2, false, no calibration, block 1, 64)",
                           "zet_diagnostic_log_enable(false)",
                           "zet_hal_integration_sensor_disable(2)",
                           "zet_hal_integration_sensor_enable(2)",
                           "zet_processing_create(config 1)",
                           "zet_probes_register_callback(20, null, null)",
                           "zet_sensor_prepare(sensor 2, config 1, calibration of 2, block 1, 64)",
                           "zet_config_frame_rate_get(config 1)",
                       }));
}

// Log level

TEST_F(session_configuration, every_log_level_is_accepted)
{
    const std::vector<std::pair<std::string, std::string>> words{
        {"ERROR", "0"}, {"WARNING", "1"}, {"INFO", "2"}, {"VERBOSE", "3"}, {"DEBUG", "4"}};
    for (const auto &[word, level] : words)
    {
        ASSERT_TRUE(parse(R"({"enable_log": ")" + word + R"("})"));
        EXPECT_EQ(calls(), "zet_nox_set_log_level(" + level + ")\n");
    }
}

TEST_F(session_configuration, log_levels_are_those_of_the_server_in_the_same_order)
{
    for (size_t level = 0; level < zet_log_level_words.size(); ++level)
    {
        const std::string word = zet_log_level_words[level];
        ASSERT_TRUE(parse(R"({"enable_log": ")" + word + R"("})")) << word;
        EXPECT_EQ(calls(), "zet_nox_set_log_level(" + std::to_string(level) + ")\n");
        for (const std::string &other : {word + "S", word.substr(1), word.substr(0, word.size() - 1)})
        {
            expect_refused(R"({"enable_log": ")" + other + R"("})", error_config_faulty_log_settings_str);
        }
    }
}

TEST_F(session_configuration, unknown_log_level_is_refused)
{
    expect_refused(R"({"enable_log": "warning"})", error_config_faulty_log_settings_str);
    expect_refused(R"({"enable_log": ""})", error_config_faulty_log_settings_str);
    expect_refused(R"({"enable_log": "DEBUGGING"})", error_config_faulty_log_settings_str);
}

TEST_F(session_configuration, log_level_that_is_not_a_string_is_ignored)
{
    ASSERT_TRUE(parse(R"({"enable_log": 3})"));
    EXPECT_EQ(calls(), "");
    EXPECT_EQ(error, nullptr);
}

TEST_F(session_configuration, invalid_log_level_skips_the_calibration_list_but_not_the_diagnostics)
{
    EXPECT_FALSE(parse(R"({"enable_log": "warning", "calibration_info": [], "enable_diagnostics": true})"));
    EXPECT_EQ(error, error_config_faulty_log_settings_str);
    EXPECT_EQ(calls(), "");
    EXPECT_EQ(calls(call_kind_t::json), lines({
                                            R"(is_json_node("enable_log"))",
                                            R"(get_json_string_value("enable_log"))",
                                            R"(get_json_bool_value("enable_diagnostics"))",
                                        }));
}

// Calibration list

TEST_F(session_configuration, calibration_list_without_elements_is_refused)
{
    for (const char *list : {"[]", "{}", "0", "null", R"("text")"})
    {
        expect_refused(R"({"calibration_info": )" + std::string(list) + "}", error_config_calibration_list);
        EXPECT_FALSE(parse(R"({"calibration_info": )" + std::string(list) + "}"));
        EXPECT_EQ(calls(), "[INFO] Invalid calibration list\n");
    }
}

TEST_F(session_configuration, calibration_object_is_read_like_a_list)
{
    expect_accepted(R"({"calibration_info": {"first": )" + calibration("2", valid_data) + "}}");
}

TEST_F(session_configuration, calibration_element_that_is_not_an_object_is_refused)
{
    for (const char *element : {"7", "[]", "null", R"("text")"})
    {
        expect_refused(calibrations(calibration("2", valid_data) + ", " + element), error_json_parse_str);
        EXPECT_FALSE(parse(calibrations(element)));
        EXPECT_EQ(calls(), "[ERROR] JSON format error\n");
    }
}

TEST_F(session_configuration, calibration_with_an_invalid_sensor_id_is_refused)
{
    for (const char *sensor_id : {"0", "-1", "4", "1.5", R"("1")", "null"})
    {
        expect_refused(calibrations(calibration(sensor_id, valid_data)), error_config_sensor_id_str);
        EXPECT_FALSE(parse(calibrations(calibration(sensor_id, valid_data))));
        EXPECT_EQ(calls(), "");
    }
    expect_refused(calibrations(R"({"data": ")" + valid_data + R"("})"), error_config_sensor_id_str);
}

TEST_F(session_configuration, calibration_without_sensor_id_does_not_use_that_of_the_previous_element)
{
    expect_refused(calibrations(calibration("2", valid_data) + R"(, {"data": ")" + valid_data + R"("})"),
                   error_config_sensor_id_str);
}

TEST_F(session_configuration, calibration_of_an_unconnected_sensor_is_accepted)
{
    finish();
    neighbours().absent_sensors = {2};
    ASSERT_TRUE(init());
    expect_accepted(calibrations(calibration("2", valid_data)));
}

TEST_F(session_configuration, calibration_without_data_is_refused_without_a_log_line)
{
    for (const char *element : {R"({"sensor_id": 2})", R"({"sensor_id": 2, "data": 5})"})
    {
        expect_refused(calibrations(element), error_config_calibration_data_str);
        EXPECT_FALSE(parse(calibrations(element)));
        EXPECT_EQ(calls(), "");
    }
}

TEST_F(session_configuration, calibration_data_that_cannot_be_converted_is_refused)
{
    for (const std::string &data :
         {std::string(""), valid_data + "00", valid_data.substr(2), std::string(480, 'g')})
    {
        error = nullptr;
        EXPECT_FALSE(parse(calibrations(calibration("2", data))));
        EXPECT_EQ(error, error_config_calibration_data_str);
        EXPECT_EQ(calls(), "[INFO] Invalid calibration data for sensor 2\n");
    }
}

TEST_F(session_configuration, calibration_data_that_the_library_refuses_is_refused)
{
    refuse("zet_sensor_validate_calibration");
    EXPECT_FALSE(parse(calibrations(calibration("2", valid_data))));
    EXPECT_EQ(error, error_config_calibration_data_str);
    EXPECT_EQ(calls(), lines({"zet_sensor_validate_calibration(calibration of 2)",
                              "[INFO] Invalid calibration data for sensor 2"}));
}

TEST_F(session_configuration, diagnostics_are_set_after_every_refused_calibration_list)
{
    for (const std::string &document : refused_calibration_lists)
    {
        EXPECT_FALSE(parse(document));
        EXPECT_TRUE(calls(call_kind_t::json)
                        .ends_with(R"(get_json_bool_value("enable_diagnostics"))"
                                   "\n"))
            << document;
    }
}

TEST_F(session_configuration, calibration_list_is_read_in_fixed_order)
{
    ASSERT_TRUE(parse(calibrations(calibration("2", valid_data))));
    EXPECT_TRUE(calls(call_kind_t::json)
                    .starts_with(lines({
                        R"(is_json_node("enable_log"))",
                        R"(cJSON_GetObjectItemCaseSensitive("calibration_info"))",
                        "cJSON_GetArraySize()",
                        "cJSON_IsObject()",
                        R"(get_json_int_value("sensor_id"))",
                        R"(get_json_string_value("data"))",
                        "convert_hexstr2uint(240)",
                        R"(get_json_bool_value("enable_diagnostics"))",
                    })))
        << calls(call_kind_t::json);
}

TEST_F(session_configuration, sensor_with_a_valid_calibration_is_not_calibrated)
{
    ASSERT_TRUE(parse(R"({"calibration_info": [)" + calibration("2", valid_data) + R"(],
                          "groups": [[{"sensor_id": 2, "config": {}}, {"sensor_id": 1, "config": {}}]]})"));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_create(2)"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate(sensor 2"), 0U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate(sensor 1"), 1U);
    EXPECT_EQ(
        neighbours().calls.count("zet_sensor_prepare(sensor 2, config 1, calibration of 2, block 1, 64)"),
        1U);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_disable(2)"), 0U)
        << "the sensor must not be reset either";
}

TEST_F(session_configuration, later_calibration_of_the_same_sensor_overwrites_the_earlier_one)
{
    ASSERT_TRUE(
        parse(calibrations(calibration("1", valid_data) + ", " + calibration("1", calibration_text(3, -5)))));
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[{"sensor_id":1,"temperature":-5,"data":")" +
                                   calibration_text(3, -5) + R"("}])"),
              std::string::npos);
}

TEST_F(session_configuration, calibrations_before_a_refused_one_are_kept)
{
    EXPECT_FALSE(parse(calibrations(calibration("1", valid_data) + ", 7")));
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[{"sensor_id":1,)"), std::string::npos);
}

// Diagnostics

TEST_F(session_configuration, diagnostics_are_off_unless_set_to_true)
{
    EXPECT_FALSE(diagnostics_with(""));
    EXPECT_FALSE(diagnostics_with(R"("enable_diagnostics": false, )"));
    EXPECT_FALSE(diagnostics_with(R"("enable_diagnostics": 1, )"));
    EXPECT_TRUE(diagnostics_with(R"("enable_diagnostics": true, )"));
    EXPECT_FALSE(diagnostics_with("")) << "every document sets them again";
}

// Groups

TEST_F(session_configuration, groups_without_elements_are_treated_as_missing)
{
    for (const char *value : {"[]", "{}", "5", "null", R"("text")", "true"})
    {
        expect_accepted(R"({"groups": )" + std::string(value) + "}");
        EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
    }
}

TEST_F(session_configuration, document_without_groups_clears_the_frame_rate_of_the_last_session)
{
    ASSERT_TRUE(parse("{" + with_frame_rate + "}"));
    destroy_session();
    ASSERT_FALSE(zet_vantor_server_system_is_on_demand());
    ASSERT_TRUE(parse("{}"));
    EXPECT_TRUE(zet_vantor_server_system_is_on_demand());
}

TEST_F(session_configuration, refused_log_level_keeps_the_frame_rate_of_the_last_session)
{
    expect_frame_rate_kept_by(R"({"enable_log": "warning"})");
}

TEST_F(session_configuration, refused_calibration_list_keeps_the_frame_rate_of_the_last_session)
{
    for (const std::string &document : refused_calibration_lists)
    {
        expect_frame_rate_kept_by(document);
    }
}

TEST_F(session_configuration, group_without_elements_fails_without_a_message)
{
    for (const char *group : {"[]", "{}", "5", "null"})
    {
        expect_refused(R"({"groups": [)" + std::string(group) + "]}", nullptr);
        EXPECT_EQ(neighbours().calls.count("["), 1U) << "only the end of the session is logged";
    }
}

TEST_F(session_configuration, empty_group_after_a_valid_one_fails_after_the_valid_one_is_set_up)
{
    EXPECT_FALSE(parse(R"({"groups": [)" + group_of(1) + ", [], " + group_of(2) + "]}"));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_create(2)"), 0U);
}

TEST_F(session_configuration, objects_are_read_like_arrays_at_every_level)
{
    ASSERT_TRUE(parse(R"({"groups": {"first": {"item": {"sensor_id": 1, "config": {}}}}})"));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1"), 1U);
}

TEST_F(session_configuration, item_is_read_in_fixed_order)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}]]})"));
    const std::string json = calls(call_kind_t::json);
    EXPECT_NE(json.find(lines({
                  "cJSON_IsObject()",
                  R"(get_json_int_value("sensor_id"))",
                  R"(cJSON_GetObjectItemCaseSensitive("config"))",
                  "cJSON_IsObject()",
              })),
              std::string::npos)
        << json;
}

TEST_F(session_configuration, eleven_groups_are_refused_after_ten_are_set_up)
{
    EXPECT_FALSE(parse(groups(11, group_of(1))));
    EXPECT_EQ(error, error_config_groups_str);
    EXPECT_EQ(neighbours().calls.count("zet_config_create"), 10U);
    EXPECT_EQ(neighbours().calls.count("zet_processing_create"), 10U);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_supply_on(1)"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_supply_off"), 0U)
        << "the sensor must stay powered";
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1, config 10"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_config_frame_rate_get"), 0U) << "the rates must not be checked";
}

TEST_F(session_configuration, ten_groups_are_accepted)
{
    expect_accepted(groups(10, group_of(1)));
}

TEST_F(session_configuration, eleventh_group_is_not_read)
{
    std::string document = groups(10, group_of(1));
    document.insert(document.size() - 2, ", []");
    expect_refused(document, error_config_groups_str);
}

TEST_F(session_configuration, no_group_is_read_after_a_failed_one)
{
    EXPECT_FALSE(parse(R"({"groups": [[{"sensor_id": 9}], )" + group_of(1) + "]}"));
    EXPECT_EQ(error, error_config_sensor_id_str);
    EXPECT_EQ(calls(), "");
}

TEST_F(session_configuration, more_items_than_sensors_are_refused)
{
    const std::string item = R"({"sensor_id": 1, "config": {}})";
    EXPECT_FALSE(parse_group(item + ", " + item + ", " + item + ", " + item));
    EXPECT_EQ(error, error_config_group_items_str);
    EXPECT_EQ(neighbours().calls.count("zet_config_create"), 3U);
}

TEST_F(session_configuration, as_many_items_as_sensors_are_accepted)
{
    const std::string item = R"({"sensor_id": 1, "config": {}})";
    ASSERT_TRUE(parse_group(item + ", " + item + ", " + item));
    EXPECT_EQ(error, nullptr);
}

TEST_F(session_configuration, group_element_that_is_not_an_object_uses_up_its_slot)
{
    const std::string item = R"({"sensor_id": 1, "config": {}})";
    EXPECT_FALSE(parse_group("5, null, [], " + item));
    EXPECT_EQ(error, error_config_group_items_str);
    EXPECT_EQ(calls(),
              lines({"[ERROR] JSON format error", "[ERROR] JSON format error", "[ERROR] JSON format error"}));
}

TEST_F(session_configuration, group_element_that_is_not_an_object_is_a_failed_item_without_message)
{
    EXPECT_FALSE(parse_group("5"));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(calls(), "[ERROR] JSON format error\n");
}

TEST_F(session_configuration, last_item_of_a_group_decides_its_result)
{
    const std::string good = R"({"sensor_id": 1, "config": {}})";
    EXPECT_TRUE(parse_group("5, " + good));
    EXPECT_EQ(error, nullptr);
    destroy_session();
    EXPECT_FALSE(parse_group(good + ", 5"));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare"), 1U);
}

TEST_F(session_configuration, unconnected_sensor_before_a_valid_item_sets_a_message_and_leaves_a_free_slot)
{
    finish();
    neighbours().absent_sensors = {1};
    ASSERT_TRUE(init());
    EXPECT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    EXPECT_EQ(error, error_config_sensor_id_str);
    EXPECT_EQ(neighbours().calls.count("zet_config_create"), 1U);
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_sensor_measure"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_measure(sensor 2)"), 1U);
}

TEST_F(session_configuration, sensor_in_two_groups_is_powered_created_and_calibrated_once)
{
    ASSERT_TRUE(parse(groups(2, group_of(1))));
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_sensor_supply_on"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_create"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate"), 1U);
    EXPECT_EQ(neighbours().calls.count("zet_config_create"), 2U);
}

// Rules for rates

TEST_F(session_configuration, frame_rate_in_one_group_without_update_rate_is_accepted)
{
    ASSERT_TRUE(parse("{" + with_frame_rate + "}"));
    EXPECT_EQ(update_rate, -1.0F);
    EXPECT_FALSE(zet_vantor_server_system_is_on_demand());
}

TEST_F(session_configuration, frame_rate_together_with_an_update_rate_is_refused)
{
    expect_refused("{" + with_frame_rate + R"(, "update_rate": 5})",
                   error_config_max_update_rate_with_frame_rate_str);
    expect_refused("{" + with_frame_rate + R"(, "max_update_rate": 5})",
                   error_config_max_update_rate_with_frame_rate_str);
    expect_refused("{" + with_frame_rate + R"(, "max_update_rate": "of any type"})",
                   error_config_max_update_rate_with_frame_rate_str);
}

TEST_F(session_configuration, frame_rate_in_a_session_of_two_groups_is_refused)
{
    const std::string config = R"({"frame_rate": 10.0})";
    expect_refused(groups(2, group_of(1, config)), error_config_multiple_groups_with_frame_rate_str);
    expect_refused(R"({"groups": [)" + group_of(1) + ", " + group_of(2, config) + "]}",
                   error_config_multiple_groups_with_frame_rate_str);
}

TEST_F(session_configuration, update_rate_with_a_frame_rate_is_reported_rather_than_the_number_of_groups)
{
    expect_refused(R"({"update_rate": 1, "groups": [)" + group_of(1, R"({"frame_rate": 1})") + ", " +
                       group_of(1) + "]}",
                   error_config_max_update_rate_with_frame_rate_str);
}

TEST_F(session_configuration, search_for_a_frame_rate_stops_at_the_first_one)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {"frame_rate": 5}},
                               {"sensor_id": 3, "config": {"frame_rate": 7}})"));
    EXPECT_TRUE(calls().ends_with(
        lines({"zet_config_frame_rate_get(config 1)", "zet_config_frame_rate_get(config 2)"})));
}

TEST_F(session_configuration, search_for_a_frame_rate_skips_free_slots)
{
    ASSERT_TRUE(parse_group(R"(5, {"sensor_id": 2, "config": {"frame_rate": 5}})"));
    EXPECT_EQ(neighbours().calls.count("zet_config_frame_rate_get"), 1U);
    EXPECT_FALSE(zet_vantor_server_system_is_on_demand());
}

TEST_F(session_configuration, any_rate_not_equal_to_0_counts_as_a_frame_rate)
{
    const std::string both = R"({"update_rate": 5, "groups": [)" + group_of(1) + "]}";
    for (const float rate : {std::numeric_limits<float>::quiet_NaN(), -3.0F, 1e-45F})
    {
        neighbours().config_defaults.frame_rate = rate;
        expect_refused(both, error_config_max_update_rate_with_frame_rate_str);
    }
    neighbours().config_defaults.frame_rate = -0.0F;
    expect_accepted(both, 5.0F);
}

TEST_F(session_configuration, update_rate_is_reported_unchanged)
{
    expect_accepted(R"({"max_update_rate": 30})", 30.0F);
    expect_accepted(R"({"update_rate": 12.5})", 12.5F);
    expect_accepted(R"({"max_update_rate": 0})", 0.0F);
    expect_accepted(R"({"max_update_rate": -4})", -4.0F);
}

TEST_F(session_configuration, max_update_rate_is_preferred_to_update_rate)
{
    expect_accepted(R"({"max_update_rate": 30, "update_rate": 20})", 30.0F);
    expect_accepted(R"({"update_rate": 20, "max_update_rate": 30})", 30.0F);
}

TEST_F(session_configuration, update_rate_is_used_if_max_update_rate_cannot_be_read)
{
    expect_accepted(R"({"max_update_rate": "fast", "update_rate": 20})", 20.0F);
}

TEST_F(session_configuration, update_rate_that_is_not_a_number_is_refused)
{
    expect_refused(R"({"update_rate": "fast"})", error_config_faulty_update_rate_str);
    expect_refused(R"({"max_update_rate": null})", error_config_faulty_update_rate_str);
    expect_refused(R"({"max_update_rate": "fast", "update_rate": "slow"})",
                   error_config_faulty_update_rate_str);
    expect_refused(R"({"update_rate": 1e300})", error_config_faulty_update_rate_str);
}

TEST_F(session_configuration, update_rate_in_a_session_of_several_groups_is_accepted)
{
    std::string document = groups(3, group_of(1));
    document.insert(1, R"("update_rate": 2, )");
    expect_accepted(document, 2.0F);
}

TEST_F(session_configuration, frame_rate_is_searched_for_before_the_rate_keys_are_read)
{
    for (const char *config : {"{}", R"({"frame_rate": 5})"})
    {
        ASSERT_TRUE(parse_config(config));
        const std::string all = neighbours().calls.text({call_kind_t::json, call_kind_t::sensor_library});
        EXPECT_TRUE(
            all.ends_with(lines({R"(is_json_node("max_update_rate"))", R"(is_json_node("update_rate"))"})))
            << all;
        EXPECT_LT(all.find("zet_config_frame_rate_get"), all.find("is_json_node(\"max_update_rate"));
        destroy_session();
    }
}

TEST_F(session_configuration, rate_keys_are_read_in_fixed_order)
{
    ASSERT_TRUE(parse(R"({"update_rate": 5})"));
    EXPECT_TRUE(calls(call_kind_t::json)
                    .ends_with(lines({
                        R"(is_json_node("max_update_rate"))",
                        R"(is_json_node("update_rate"))",
                        R"(get_json_float_value("max_update_rate"))",
                        R"(get_json_float_value("update_rate"))",
                    })))
        << calls(call_kind_t::json);
}

TEST_F(session_configuration, update_rate_is_initialised_even_if_the_document_fails_early)
{
    expect_refused(R"({"enable_log": "x", "update_rate": 5})", error_config_faulty_log_settings_str);
}

} // namespace backend_tests
