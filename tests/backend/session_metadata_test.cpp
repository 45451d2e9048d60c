/** @file
 * The session metadata message.
 */
#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

/** Messages of sessions on a board with three sensors. */
class session_metadata : public ready_backend_test
{
protected:
    /** Expects the message to fail with "out of memory", without sending anything. */
    void expect_out_of_memory()
    {
        EXPECT_FALSE(send_metadata());
        EXPECT_EQ(calls(call_kind_t::log), "[ERROR] Out of memory\n");
        EXPECT_EQ(neighbours().calls.count("zet_vantor_server_write_json"), 0U);
        EXPECT_EQ(memory().live_blocks(block_owner_t::json), 0U) << "the document is released";
    }

    /** The last message without its calibration list. */
    static std::string metadata_member()
    {
        const std::string document = sent_document();
        return document.substr(document.find(R"("metadata":)"));
    }

    /** The call that adds the calibration of a sensor as hexadecimal text. */
    static std::string data_call(zet_sensor_id_t sensor_id)
    {
        return R"(add_json_string_value("data", ")" +
               calibration_text(sensor_id, static_cast<int16_t>(20 + sensor_id)) + "\")";
    }

    /** The calibration entry of a sensor, with the values of the library's stand-in. */
    static std::string entry(zet_sensor_id_t sensor_id, int16_t temperature)
    {
        return R"({"sensor_id":)" + std::to_string(sensor_id) + R"(,"temperature":)" +
               std::to_string(temperature) + R"(,"data":")" + calibration_text(sensor_id, temperature) +
               R"("})";
    }
};

const std::string two_sensors = R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})";

const std::string plain_item_members =
    R"("frame_data_length":4,"sweep_data_length":2,"max_sweep_rate":2000,"high_speed_mode":false,)"
    R"("base_step_length_m":0.00244140625,"subsweep_data_offset":[0],"subsweep_data_length":[10]})";

} // namespace

TEST_F(session_metadata, is_built_with_exactly_these_calls)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 2, "config": {"subsweeps": [{}, {}]}})"));
    ASSERT_TRUE(send_metadata(4000000000U));
    EXPECT_EQ(neighbours().calls.text({call_kind_t::json, call_kind_t::sensor_library, call_kind_t::memory,
                                       call_kind_t::link, call_kind_t::board, call_kind_t::log}),
              lines({
                  "cJSON_CreateObject()",
                  R"(add_json_string_value("status", "ok"))",
                  R"(add_json_uint32_value("tick_period", 4000000000))",
                  R"(add_json_int_value("payload_size", 0))",
                  R"(cJSON_AddArrayToObject("calibration_info"))",
                  "zet_integration_mem_alloc(481)",
                  "zet_sensor_get_cal_info(calibration of 2)",
                  "convert_uint2hexstr(240)",
                  "cJSON_CreateObject()",
                  R"(add_json_uint32_value("sensor_id", 2))",
                  R"(add_json_int_value("temperature", 22))",
                  data_call(2),
                  "cJSON_AddItemToArray()",
                  "zet_integration_mem_free(block 2)",
                  R"(cJSON_AddArrayToObject("metadata"))",
                  "cJSON_CreateArray()",
                  R"(cJSON_AddItemToObject(""))",
                  R"(cJSON_AddObjectToObject("unused"))",
                  "zet_sensor_get_cal_info(calibration of 2)",
                  "zet_processing_points_to_meter(1)",
                  R"(add_json_int_value("calibration_temperature", 22))",
                  R"(add_json_int_value("frame_data_length", 4))",
                  R"(add_json_int_value("sweep_data_length", 2))",
                  R"(add_json_float_value("max_sweep_rate", 2000))",
                  R"(add_json_bool_value("high_speed_mode", false))",
                  R"(add_json_float_value("base_step_length_m", 0.00244140625))",
                  "cJSON_CreateArray()",
                  R"(cJSON_AddItemToObject("subsweep_data_offset"))",
                  "cJSON_CreateArray()",
                  R"(cJSON_AddItemToObject("subsweep_data_length"))",
                  "zet_config_num_subsweeps_get(config 1)",
                  R"(add_json_int_value("unused", 0))",
                  R"(add_json_int_value("unused", 10))",
                  "zet_config_num_subsweeps_get(config 1)",
                  R"(add_json_int_value("unused", 10))",
                  R"(add_json_int_value("unused", 11))",
                  "zet_config_num_subsweeps_get(config 1)",
                  "zet_vantor_server_write_json(write)",
                  "cJSON_Delete()",
              }));
}

TEST_F(session_metadata, contains_three_items_in_two_groups)
{
    neighbours().temperatures = {{1, 24}, {3, -26}};
    neighbours().metadata = {
        {160, 80, {0, 50, 7, 7}, {50, 30, 7, 7}, 3125.5F, true},
        {100, 100, {0, 7, 7, 7}, {100, 7, 7, 7}, 1500.25F, false},
        {60, 30, {0, 7, 7, 7}, {30, 7, 7, 7}, 4000.5F, true},
    };
    ASSERT_TRUE(parse(R"({"groups": [
        [{"sensor_id": 1, "config": {"subsweeps": [{}, {}]}},
         {"sensor_id": 3, "config": {"subsweeps": [{}]}}],
        [5, {"sensor_id": 1, "config": {"subsweeps": [{}]}}]]})"));
    ASSERT_TRUE(send_metadata());
    EXPECT_EQ(sent_document(),
              R"({"status":"ok","tick_period":1000,"payload_size":0,"calibration_info":[)" + entry(1, 24) +
                  "," + entry(3, -26) +
                  R"(],"metadata":[[)"
                  R"({"calibration_temperature":24,"frame_data_length":160,"sweep_data_length":80,)"
                  R"("max_sweep_rate":3125.5,"high_speed_mode":true,"base_step_length_m":0.00244140625,)"
                  R"("subsweep_data_offset":[0,50],"subsweep_data_length":[50,30]},)"
                  R"({"calibration_temperature":-26,"frame_data_length":100,"sweep_data_length":100,)"
                  R"("max_sweep_rate":1500.25,"high_speed_mode":false,"base_step_length_m":0.00244140625,)"
                  R"("subsweep_data_offset":[0],"subsweep_data_length":[100]}],)"
                  R"([{"calibration_temperature":24,"frame_data_length":60,"sweep_data_length":30,)"
                  R"("max_sweep_rate":4000.5,"high_speed_mode":true,"base_step_length_m":0.00244140625,)"
                  R"("subsweep_data_offset":[0],"subsweep_data_length":[30]}]]})");
}

TEST_F(session_metadata, calibration_entry_is_accepted_in_the_next_configuration)
{
    ASSERT_TRUE(parse_config("{}"));
    ASSERT_TRUE(send_metadata());
    const std::string document = sent_document();
    const size_t begin = document.find(R"("calibration_info")");
    const std::string list = document.substr(begin, document.find(']') + 1 - begin);
    destroy_session();
    ASSERT_TRUE(parse("{" + list + R"(, "groups": [[{"sensor_id": 1, "config": {}}]]})"));
    EXPECT_EQ(neighbours().calls.count("zet_sensor_calibrate"), 0U);
    EXPECT_EQ(neighbours().calls.count("zet_sensor_prepare(sensor 1, config 2, calibration of 1,"), 1U);
    ASSERT_TRUE(send_metadata());
    EXPECT_EQ(sent_document(), document);
}

TEST_F(session_metadata, on_a_board_without_sensors_has_no_calibration_list_and_allocates_no_buffer)
{
    finish();
    neighbours().sensor_count = 0;
    ASSERT_TRUE(init());
    ASSERT_TRUE(send_metadata(7));
    EXPECT_EQ(sent_document(), R"({"status":"ok","tick_period":7,"payload_size":0,"metadata":[]})");
    EXPECT_EQ(calls(call_kind_t::memory), "");
}

TEST_F(session_metadata, without_complete_calibrations_has_an_empty_list)
{
    ASSERT_TRUE(send_metadata());
    EXPECT_EQ(sent_document(),
              R"({"status":"ok","tick_period":1000,"payload_size":0,"calibration_info":[],"metadata":[]})");
    EXPECT_EQ(calls(call_kind_t::memory),
              lines({"zet_integration_mem_alloc(481)", "zet_integration_mem_free(block 1)"}));
}

TEST_F(session_metadata, lists_a_calibrated_sensor_that_no_group_uses)
{
    ASSERT_TRUE(parse(R"({"calibration_info": [{"sensor_id": 3, "data": ")" + calibration_text(3, 23) +
                      R"("}], "groups": [[{"sensor_id": 1, "config": {}}]]})"));
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[)" + entry(1, 21) + "," + entry(3, 23) + "]"),
              std::string::npos);
}

TEST_F(session_metadata, item_of_an_uncalibrated_sensor_reports_the_temperature_of_the_stored_result)
{
    // The first item fails before its calibration and stays configured.
    refuse("zet_nox_get_buffer_size");
    ASSERT_TRUE(parse_group(two_sensors));
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[)" + entry(2, 22) + "]"), std::string::npos);
    EXPECT_TRUE(metadata_member().starts_with(R"("metadata":[[{"calibration_temperature":0,)"));
}

TEST_F(session_metadata, group_without_items_has_no_inner_array)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}})"));
    ASSERT_TRUE(send_metadata());
    EXPECT_EQ(metadata_member(),
              R"("metadata":[[{"calibration_temperature":21,)" + plain_item_members + "]]}");
}

TEST_F(session_metadata, free_slot_between_items_leaves_no_gap)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, 5, {"sensor_id": 3, "config": {}})"));
    ASSERT_TRUE(send_metadata());
    EXPECT_EQ(metadata_member(), R"("metadata":[[{"calibration_temperature":21,)" + plain_item_members +
                                     R"(,{"calibration_temperature":23,)" + plain_item_members + "]]}");
}

TEST_F(session_metadata, item_has_as_many_offsets_and_lengths_as_subsweeps)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {"subsweeps": [{}, {}, {}, {}]}},
                               {"sensor_id": 2, "config": {"subsweeps": [{}]}},
                               {"sensor_id": 3, "config": {"subsweeps": []}})"));
    ASSERT_TRUE(send_metadata());
    const std::string document = sent_document();
    EXPECT_NE(document.find(R"("subsweep_data_offset":[0,10,20,30],"subsweep_data_length":[10,11,12,13]})"),
              std::string::npos);
    EXPECT_NE(document.find(R"("subsweep_data_offset":[0],"subsweep_data_length":[10]})"), std::string::npos);
    EXPECT_NE(document.find(R"("subsweep_data_offset":[],"subsweep_data_length":[]})"), std::string::npos);
}

TEST_F(session_metadata, contains_the_extreme_lengths_and_temperatures)
{
    neighbours().temperatures[1] = INT16_MIN;
    neighbours().metadata = {{65535, 65535, {65535, 0, 0, 0}, {65535, 0, 0, 0}, 0.5F, false}};
    ASSERT_TRUE(parse_config("{}"));
    ASSERT_TRUE(send_metadata(UINT32_MAX));
    EXPECT_NE(sent_document().find(R"("tick_period":4294967295,)"), std::string::npos);
    EXPECT_NE(sent_document().find(R"("sensor_id":1,"temperature":-32768,)"), std::string::npos);
    EXPECT_NE(sent_document().find(
                  R"("calibration_temperature":-32768,"frame_data_length":65535,"sweep_data_length":65535,)"),
              std::string::npos);
    EXPECT_NE(sent_document().find(R"("subsweep_data_offset":[65535],"subsweep_data_length":[65535]})"),
              std::string::npos);
}

TEST_F(session_metadata, payload_size_is_0_in_every_document)
{
    ASSERT_TRUE(parse_group(two_sensors));
    ASSERT_TRUE(read_frame());
    ASSERT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("payload_size":0,)"), std::string::npos);
    EXPECT_EQ(neighbours().calls.count("write("), 0U);
}

// Failures of the document and its first members

TEST_F(session_metadata, document_that_cannot_be_created_fails_at_its_first_member)
{
    refuse("cJSON_CreateObject");
    expect_out_of_memory();
    EXPECT_EQ(calls(call_kind_t::json),
              lines({"cJSON_CreateObject()", R"(add_json_string_value("status", "ok"))"}))
        << "there is nothing to delete";
}

TEST_F(session_metadata, first_members_end_at_the_one_that_cannot_be_added)
{
    const std::vector<json_member_t> members{{"add_json_string_value", "status"},
                                             {"add_json_uint32_value", "tick_period"},
                                             {"add_json_int_value", "payload_size"}};
    for (const json_member_t &member : members)
    {
        SCOPED_TRACE(member.key);
        refuse_member(member);
        expect_out_of_memory();
        EXPECT_EQ(json_after(member), "cJSON_Delete()\n");
    }
}

// Failures of the calibration list

TEST_F(session_metadata, calibration_list_that_cannot_be_added_fails)
{
    refuse("cJSON_AddArrayToObject");
    expect_out_of_memory();
    EXPECT_EQ(calls(call_kind_t::memory), "") << "no buffer is allocated";
}

TEST_F(session_metadata, buffer_that_cannot_be_allocated_fails)
{
    // Allocations: one for the document, two for each of the two numbers, three for the text, two for the
    // array.
    ASSERT_TRUE(parse_config("{}"));
    for (size_t allocation = 1;; ++allocation)
    {
        memory().fail_allocation(allocation);
        EXPECT_FALSE(send_metadata());
        if (memory().failed_call().empty())
        {
            break;
        }
    }
    EXPECT_EQ(calls(), lines({"zet_integration_mem_alloc(481)", "[ERROR] Out of memory"}));
    EXPECT_EQ(memory().live_blocks(block_owner_t::json), 0U);
}

TEST_F(session_metadata, failed_calibration_query_of_the_last_calibrated_sensor_fails_the_message)
{
    ASSERT_TRUE(parse_group(two_sensors));
    refuse("zet_sensor_get_cal_info", 2);
    expect_out_of_memory();
    EXPECT_EQ(calls(), lines({
                           "zet_integration_mem_alloc(481)",
                           "zet_sensor_get_cal_info(calibration of 1)",
                           "zet_sensor_get_cal_info(calibration of 2)",
                           "zet_integration_mem_free(block 3)",
                           "[ERROR] Out of memory",
                       }));
}

TEST_F(session_metadata, failed_calibration_query_of_an_earlier_sensor_only_omits_its_entry)
{
    ASSERT_TRUE(parse_group(two_sensors));
    refuse("zet_sensor_get_cal_info");
    EXPECT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[)" + entry(2, 22) + "]"), std::string::npos);
    EXPECT_EQ(calls(call_kind_t::log), "");
}

TEST_F(session_metadata, failure_before_an_uncalibrated_last_sensor_still_fails_the_message)
{
    ASSERT_TRUE(parse_group(two_sensors));
    refuse("zet_sensor_get_cal_info", 2);
    expect_out_of_memory();
    EXPECT_EQ(neighbours().calls.count("zet_sensor_get_cal_info"), 2U) << "sensor 3 has no calibration";
}

TEST_F(session_metadata, calibration_entry_that_cannot_be_created_fails)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("cJSON_CreateObject", 2);
    expect_out_of_memory();
    EXPECT_EQ(json_from("convert_uint2hexstr"),
              lines({"convert_uint2hexstr(240)", "cJSON_CreateObject()", "cJSON_Delete()"}));
    EXPECT_EQ(neighbours().calls.count("zet_integration_mem_free(block 2)"), 1U)
        << "the buffer must be freed";
}

TEST_F(session_metadata, member_of_the_last_calibration_entry_that_cannot_be_added_fails_and_leaks_the_entry)
{
    ASSERT_TRUE(parse_config("{}"));
    const std::vector<json_member_t> members{{"add_json_uint32_value", "sensor_id"},
                                             {"add_json_int_value", "temperature"},
                                             {"add_json_string_value", "data"}};
    for (const json_member_t &member : members)
    {
        SCOPED_TRACE(member.key);
        refuse_member(member);
        EXPECT_FALSE(send_metadata());
        EXPECT_EQ(calls(call_kind_t::log), "[ERROR] Out of memory\n");
        EXPECT_EQ(neighbours().calls.count("zet_integration_mem_free("), 1U);
        EXPECT_EQ(json_after(member), "cJSON_Delete()\n");
        EXPECT_EQ(delete_leaked_json(), 1U);
        EXPECT_EQ(memory().live_blocks(block_owner_t::json), 0U);
    }
}

TEST_F(session_metadata,
       member_of_an_earlier_calibration_entry_that_cannot_be_added_does_not_fail_the_message)
{
    ASSERT_TRUE(parse_group(two_sensors));
    refuse("add_json_string_value:data");
    EXPECT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[)" + entry(2, 22) + "]"), std::string::npos);
    EXPECT_EQ(calls(call_kind_t::log), "");
    finish(1);
}

TEST_F(session_metadata, calibration_entry_that_cannot_be_appended_fails_when_it_is_the_last)
{
    ASSERT_TRUE(parse_group(two_sensors));
    refuse("cJSON_AddItemToArray", 2);
    EXPECT_FALSE(send_metadata());
    EXPECT_EQ(calls(call_kind_t::log), "[ERROR] Out of memory\n");
    EXPECT_EQ(neighbours().calls.count("zet_vantor_server_write_json"), 0U);
    finish(1);
}

TEST_F(session_metadata,
       calibration_entry_that_cannot_be_appended_does_not_fail_the_message_if_a_later_one_succeeds)
{
    ASSERT_TRUE(parse_group(two_sensors));
    refuse("cJSON_AddItemToArray");
    EXPECT_TRUE(send_metadata());
    EXPECT_NE(sent_document().find(R"("calibration_info":[)" + entry(2, 22) + "]"), std::string::npos);
    finish(1);
}

// Failures of the frame layout

TEST_F(session_metadata, metadata_array_that_cannot_be_added_fails)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("cJSON_AddArrayToObject:metadata");
    expect_out_of_memory();
    EXPECT_EQ(json_from(R"(cJSON_AddArrayToObject("metadata"))"),
              lines({R"(cJSON_AddArrayToObject("metadata"))", "cJSON_Delete()"}));
}

TEST_F(session_metadata, group_array_that_cannot_be_created_fails)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("cJSON_CreateArray");
    expect_out_of_memory();
    EXPECT_EQ(json_from("cJSON_CreateArray"), lines({"cJSON_CreateArray()", "cJSON_Delete()"}));
}

TEST_F(session_metadata, message_is_still_sent_without_a_group_array_that_cannot_be_attached)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("cJSON_AddItemToObject:");
    EXPECT_TRUE(send_metadata());
    EXPECT_EQ(metadata_member(), R"("metadata":[]})");
    finish(1);
}

TEST_F(session_metadata,
       item_object_that_cannot_be_added_skips_the_queries_but_reads_the_number_of_subsweeps_once)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("cJSON_AddObjectToObject");
    expect_out_of_memory();
    EXPECT_EQ(json_from("cJSON_AddObjectToObject"),
              lines({R"(cJSON_AddObjectToObject("unused"))", "cJSON_Delete()"}));
    EXPECT_EQ(calls(call_kind_t::sensor_library),
              lines({"zet_sensor_get_cal_info(calibration of 1)", "zet_config_num_subsweeps_get(config 1)"}))
        << "only the calibration list must query";
}

TEST_F(session_metadata, failed_calibration_query_of_an_item_fails_the_message)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("zet_sensor_get_cal_info", 2);
    expect_out_of_memory();
    EXPECT_EQ(calls(call_kind_t::sensor_library), lines({
                                                      "zet_sensor_get_cal_info(calibration of 1)",
                                                      "zet_sensor_get_cal_info(calibration of 1)",
                                                      "zet_processing_points_to_meter(1)",
                                                      "zet_config_num_subsweeps_get(config 1)",
                                                  }))
        << "the step length must be read even so";
    EXPECT_EQ(json_from("cJSON_AddObjectToObject"),
              lines({R"(cJSON_AddObjectToObject("unused"))", "cJSON_Delete()"}));
}

TEST_F(session_metadata, failed_item_ends_the_message)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}}],
                                     [{"sensor_id": 3, "config": {}}]]})"));
    refuse("cJSON_AddObjectToObject");
    expect_out_of_memory();
    EXPECT_EQ(neighbours().calls.count("cJSON_AddObjectToObject"), 1U)
        << "later items and groups must not be processed";
    EXPECT_EQ(neighbours().calls.count("zet_config_num_subsweeps_get"), 1U);
}

TEST_F(session_metadata, members_of_an_item_end_at_the_one_that_cannot_be_added)
{
    ASSERT_TRUE(parse_config("{}"));
    const std::vector<json_member_t> members{
        {"add_json_int_value", "calibration_temperature"}, {"add_json_int_value", "frame_data_length"},
        {"add_json_int_value", "sweep_data_length"},       {"add_json_float_value", "max_sweep_rate"},
        {"add_json_bool_value", "high_speed_mode"},        {"add_json_float_value", "base_step_length_m"}};
    for (const json_member_t &member : members)
    {
        SCOPED_TRACE(member.key);
        refuse_member(member);
        expect_out_of_memory();
        EXPECT_EQ(json_after(member), "cJSON_Delete()\n");
        EXPECT_EQ(neighbours().calls.count("zet_config_num_subsweeps_get"), 1U);
    }
}

TEST_F(session_metadata, length_array_is_created_even_if_the_offset_array_cannot_be)
{
    ASSERT_TRUE(parse_config("{}"));
    // The first one is the group's.
    refuse("cJSON_CreateArray", 2);
    expect_out_of_memory();
    EXPECT_EQ(json_from(R"(add_json_float_value("base_step_length_m")"),
              lines({
                  R"(add_json_float_value("base_step_length_m", 0.00244140625))",
                  "cJSON_CreateArray()",
                  "cJSON_CreateArray()",
                  R"(cJSON_AddItemToObject("subsweep_data_length"))",
                  "cJSON_Delete()",
              }));
    EXPECT_EQ(neighbours().calls.count("zet_config_num_subsweeps_get"), 1U);
}

TEST_F(session_metadata, length_array_that_cannot_be_created_fails)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("cJSON_CreateArray", 3);
    expect_out_of_memory();
    EXPECT_EQ(
        json_from(R"(cJSON_AddItemToObject("subsweep_data_offset"))"),
        lines({R"(cJSON_AddItemToObject("subsweep_data_offset"))", "cJSON_CreateArray()", "cJSON_Delete()"}));
}

TEST_F(session_metadata, message_is_still_sent_without_subsweep_arrays_that_cannot_be_attached)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("cJSON_AddItemToObject:subsweep_data_offset");
    refuse("cJSON_AddItemToObject:subsweep_data_length");
    EXPECT_TRUE(send_metadata());
    EXPECT_TRUE(metadata_member().ends_with(R"("base_step_length_m":0.00244140625}]]})"))
        << metadata_member();
    finish(2);
}

TEST_F(session_metadata, offset_that_cannot_be_added_fails_and_its_length_is_not_tried)
{
    ASSERT_TRUE(parse_config(R"({"subsweeps": [{}, {}]})"));
    refuse("add_json_int_value:unused", 3);
    expect_out_of_memory();
    EXPECT_EQ(json_from(R"(add_json_int_value("unused")"), lines({
                                                               R"(add_json_int_value("unused", 0))",
                                                               R"(add_json_int_value("unused", 10))",
                                                               R"(add_json_int_value("unused", 10))",
                                                               "cJSON_Delete()",
                                                           }));
    EXPECT_EQ(neighbours().calls.count("zet_config_num_subsweeps_get"), 3U) << "read again before every pass";
}

TEST_F(session_metadata, length_that_cannot_be_added_fails)
{
    ASSERT_TRUE(parse_config(R"({"subsweeps": [{}, {}]})"));
    refuse("add_json_int_value:unused", 2);
    expect_out_of_memory();
    EXPECT_EQ(neighbours().calls.count(R"(add_json_int_value("unused")"), 2U);
    EXPECT_EQ(neighbours().calls.count("zet_config_num_subsweeps_get"), 2U);
}

TEST_F(session_metadata, message_that_cannot_be_sent_fails_without_a_log_line)
{
    ASSERT_TRUE(parse_config("{}"));
    refuse("zet_vantor_server_write_json");
    EXPECT_FALSE(send_metadata());
    EXPECT_EQ(calls(call_kind_t::log), "");
    EXPECT_TRUE(calls(call_kind_t::json).ends_with("cJSON_Delete()\n"));
    EXPECT_EQ(memory().live_blocks(block_owner_t::json), 0U);
}

TEST_F(session_metadata, does_not_affect_the_frames_that_follow)
{
    ASSERT_TRUE(parse_config("{}"));
    ASSERT_TRUE(read_frame());
    const std::string before = calls();
    ASSERT_TRUE(send_metadata());
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(calls(), before);
}

} // namespace backend_tests
