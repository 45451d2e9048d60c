/** @file
 * The frame message: header document and payload.
 */
#include <cstring>

#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

/** Messages of single frames. */
class frame_message : public ready_backend_test
{
protected:
    /** Sets the frame lengths of the next items. */
    static void set_frame_lengths(std::initializer_list<uint16_t> lengths)
    {
        for (const uint16_t length : lengths)
        {
            zet_processing_metadata_t metadata = default_metadata();
            metadata.frame_data_length = length;
            neighbours().metadata.push_back(metadata);
        }
    }

    /** Parses a document with one item. @p assessment contains its assessment members, or nothing. */
    void parse_item(const std::string &assessment)
    {
        ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {})" + assessment + "}"));
    }

    /** Expects the frame to fail with "out of memory", without sending anything. */
    void expect_out_of_memory()
    {
        error = nullptr;
        EXPECT_FALSE(read_frame());
        EXPECT_EQ(error, error_send_data_str);
        EXPECT_EQ(calls(call_kind_t::log), "[ERROR] Out of memory\n");
        EXPECT_EQ(neighbours().calls.count("zet_vantor_server_write_json"), 0U);
        EXPECT_EQ(neighbours().calls.count("write("), 0U);
        EXPECT_EQ(memory().live_blocks(block_owner_t::json), 0U) << "the header is released";
    }

    /** The JSON calls of the last operation, from the first one that begins with this text. */
    static std::string json_from(const std::string &beginning)
    {
        const std::string json = calls(call_kind_t::json);
        const size_t position = json.find(beginning);
        return position == std::string::npos ? "no call " + beginning + " in\n" + json
                                             : json.substr(position);
    }
};

const std::string assessed = R"(, "cca_enable": true)";
const std::string debugged = R"(, "cca_enable": true, "cca_debug": true)";

} // namespace

TEST_F(frame_message, is_built_with_exactly_these_calls)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}],
        [{"sensor_id": 2, "config": {}, "cca_enable": true, "cca_debug": true, "cca_threshold": 0.5},
         {"sensor_id": 3, "config": {}, "cca_enable": true}]]})"));
    neighbours().results[1] = {false, true, false, -3, nullptr};
    neighbours().results[2] = {true, false, true, 27, nullptr};
    neighbours().cca_values = {0.75F, 0.25F};
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(calls(call_kind_t::json), lines({
                                            "cJSON_CreateObject()",
                                            "cJSON_CreateArray()",
                                            R"(cJSON_AddItemToObject("result_info"))",
                                            "cJSON_CreateArray()",
                                            R"(cJSON_AddItemToObject(""))",
                                            "cJSON_CreateObject()",
                                            R"(add_json_uint32_value("tick", 1000))",
                                            R"(add_json_bool_value("data_saturated", false))",
                                            R"(add_json_int_value("temperature", -3))",
                                            R"(add_json_bool_value("calibration_needed", false))",
                                            R"(add_json_bool_value("frame_delayed", true))",
                                            "cJSON_AddItemToArray()",
                                            "cJSON_CreateArray()",
                                            R"(cJSON_AddItemToObject(""))",
                                            "cJSON_CreateObject()",
                                            R"(add_json_uint32_value("tick", 1010))",
                                            R"(add_json_bool_value("data_saturated", true))",
                                            R"(add_json_int_value("temperature", 27))",
                                            R"(add_json_bool_value("calibration_needed", true))",
                                            R"(add_json_bool_value("frame_delayed", false))",
                                            R"(add_json_bool_value("data_valid", false))",
                                            R"(add_json_float_value("cca_value", 0.75))",
                                            R"(add_json_bool_value("cca_detected", true))",
                                            R"(add_json_bool_value("tx_enabled", false))",
                                            "cJSON_AddItemToArray()",
                                            "cJSON_CreateObject()",
                                            R"(add_json_uint32_value("tick", 1020))",
                                            R"(add_json_bool_value("data_saturated", false))",
                                            R"(add_json_int_value("temperature", 0))",
                                            R"(add_json_bool_value("calibration_needed", false))",
                                            R"(add_json_bool_value("frame_delayed", false))",
                                            R"(add_json_bool_value("data_valid", false))",
                                            "cJSON_AddItemToArray()",
                                            R"(add_json_string_value("status", "ok"))",
                                            R"(add_json_int_value("payload_size", 48))",
                                            "cJSON_Delete()",
                                        }));
}

TEST_F(frame_message, contains_three_items_from_two_of_three_groups)
{
    set_frame_lengths({160, 100, 60});
    ASSERT_TRUE(parse(R"({"groups": [
        [{"sensor_id": 1, "config": {}},
         {"sensor_id": 2, "config": {}, "cca_enable": true, "cca_debug": true, "cca_threshold": 1}],
        [5, {"sensor_id": 3, "config": {}, "cca_enable": true}]]})"));
    neighbours().cca_values = {0.0F, 1.0F};
    // Switches the transmitters on.
    ASSERT_TRUE(read_frame());
    neighbours().results[1] = {false, false, false, 27, nullptr};
    neighbours().results[2] = {false, false, false, -3, nullptr};
    neighbours().results[3] = {true, false, true, 27, nullptr};
    neighbours().cca_values = {0.75F, 2.0F};
    neighbours().next_tick = 48213;
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(sent_document(),
              R"({"result_info":[[)"
              R"({"tick":48213,"data_saturated":false,"temperature":27,"calibration_needed":false,)"
              R"("frame_delayed":false},)"
              R"({"tick":48223,"data_saturated":false,"temperature":-3,"calibration_needed":false,)"
              R"("frame_delayed":false,"data_valid":true,"cca_value":0.75,"cca_detected":false,)"
              R"("tx_enabled":true}],)"
              R"([{"tick":48233,"data_saturated":true,"temperature":27,"calibration_needed":true,)"
              R"("frame_delayed":false,"data_valid":false}]],)"
              R"("status":"ok","payload_size":1280})");
    EXPECT_TRUE(calls().ends_with(lines({
        "zet_vantor_server_write_json(write)",
        "write(frame 1, 640)",
        "write(frame 2, 400)",
        "write(frame 3, 240)",
    }))) << calls();
}

TEST_F(frame_message, group_without_items_has_no_inner_array)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}], [{"sensor_id": 2, "config": {}}]]})"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("cJSON_CreateArray"), 3U) << "result_info and two of the ten groups";
}

TEST_F(frame_message, free_slot_between_items_leaves_no_gap)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, 5, {"sensor_id": 3, "config": {}})"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("cJSON_AddItemToArray"), 2U);
    EXPECT_NE(sent_document().find(R"("frame_delayed":false},{"tick":1010,)"), std::string::npos);
    EXPECT_NE(sent_document().find(R"("payload_size":32)"), std::string::npos);
}

TEST_F(frame_message, without_items_has_an_empty_array_and_no_payload)
{
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(sent_document(), R"({"result_info":[],"status":"ok","payload_size":0})");
    EXPECT_EQ(neighbours().calls.count("write("), 0U);
}

TEST_F(frame_message, on_a_board_without_sensors_has_an_empty_array_and_no_payload)
{
    finish();
    neighbours().sensor_count = 0;
    ASSERT_TRUE(init());
    ASSERT_TRUE(parse("{}"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(sent_document(), R"({"result_info":[],"status":"ok","payload_size":0})");
    EXPECT_EQ(neighbours().calls.count("write("), 0U);
}

TEST_F(frame_message, item_has_five_members_without_assessment)
{
    parse_item(R"(, "cca_debug": true)");
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("add_json_"), 5U + 2U) << "two members belong to the header";
}

TEST_F(frame_message, item_has_six_members_with_assessment_and_data_valid_last)
{
    parse_item(assessed);
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("add_json_"), 6U + 2U);
    EXPECT_NE(sent_document().find(R"("data_valid":false}]])"), std::string::npos);
}

TEST_F(frame_message, item_has_nine_members_with_assessment_and_debug)
{
    parse_item(debugged);
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("add_json_"), 9U + 2U);
}

TEST_F(frame_message, contains_the_lowest_and_the_highest_temperature)
{
    parse_item("");
    neighbours().results[1].temperature = INT16_MIN;
    ASSERT_TRUE(read_frame());
    EXPECT_NE(sent_document().find(R"("temperature":-32768,)"), std::string::npos);
    neighbours().results[1].temperature = INT16_MAX;
    ASSERT_TRUE(read_frame());
    EXPECT_NE(sent_document().find(R"("temperature":32767,)"), std::string::npos);
}

TEST_F(frame_message, payload_is_written_from_the_buffer_of_the_processing_without_a_copy)
{
    set_frame_lengths({3, 2});
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().payload_blocks,
              (std::vector<const void *>{neighbours().frames[1].data(), neighbours().frames[2].data()}))
        << "one write for each item, from the buffer that contains the samples";
    const std::vector<int16_t> expected{1000, 0, 1001, -1, 1002, -2, 2000, 0, 2001, -1};
    ASSERT_EQ(neighbours().payload.size(), expected.size() * sizeof(int16_t));
    EXPECT_EQ(std::memcmp(neighbours().payload.data(), expected.data(), neighbours().payload.size()), 0)
        << "real before imaginary part, little-endian";
}

TEST_F(frame_message, frame_of_length_0_is_still_written)
{
    set_frame_lengths({0, 1});
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}})"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("write("), 2U);
    EXPECT_NE(sent_document().find(R"("payload_size":4)"), std::string::npos);
}

TEST_F(frame_message, payload_size_is_correct_for_the_longest_frames)
{
    set_frame_lengths({65535, 65535, 65535});
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}},
                               {"sensor_id": 3, "config": {}})"));
    ASSERT_TRUE(read_frame());
    EXPECT_NE(sent_document().find(R"("payload_size":786420)"), std::string::npos);
    EXPECT_EQ(neighbours().payload.size(), 786420U);
}

TEST_F(frame_message, is_sent_by_the_write_function_of_the_interface)
{
    parse_item("");
    interface.write = [](const void *, uint32_t) {};
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(neighbours().calls.count("zet_vantor_server_write_json(another operation)"), 1U);
    EXPECT_EQ(neighbours().calls.count("write("), 0U);
}

// Failures

TEST_F(frame_message, header_that_cannot_be_created_fails_with_nothing_to_delete)
{
    parse_item("");
    refuse("cJSON_CreateObject");
    expect_out_of_memory();
    EXPECT_EQ(calls(call_kind_t::json), "cJSON_CreateObject()\n");
}

TEST_F(frame_message, result_info_that_cannot_be_created_fails)
{
    parse_item("");
    refuse("cJSON_CreateArray");
    expect_out_of_memory();
    EXPECT_EQ(calls(call_kind_t::json),
              lines({"cJSON_CreateObject()", "cJSON_CreateArray()", "cJSON_Delete()"}));
}

TEST_F(frame_message, group_array_that_cannot_be_created_fails)
{
    parse_item("");
    refuse("cJSON_CreateArray", 2);
    expect_out_of_memory();
    EXPECT_EQ(json_from("cJSON_AddItemToObject"),
              lines({R"(cJSON_AddItemToObject("result_info"))", "cJSON_CreateArray()", "cJSON_Delete()"}));
}

TEST_F(frame_message, item_object_that_cannot_be_created_fails)
{
    parse_item("");
    refuse("cJSON_CreateObject", 2);
    expect_out_of_memory();
    EXPECT_EQ(json_from(R"(cJSON_AddItemToObject(""))"),
              lines({R"(cJSON_AddItemToObject(""))", "cJSON_CreateObject()", "cJSON_Delete()"}));
}

TEST_F(frame_message, basic_member_that_cannot_be_added_stops_the_rest_but_the_item_is_still_attached)
{
    const std::vector<json_member_t> members{{"add_json_uint32_value", "tick"},
                                             {"add_json_bool_value", "data_saturated"},
                                             {"add_json_int_value", "temperature"},
                                             {"add_json_bool_value", "calibration_needed"},
                                             {"add_json_bool_value", "frame_delayed"}};
    parse_item("");
    for (const json_member_t &member : members)
    {
        SCOPED_TRACE(member.key);
        refuse_member(member);
        expect_out_of_memory();
        EXPECT_EQ(json_after(member), lines({"cJSON_AddItemToArray()", "cJSON_Delete()"}));
    }
}

TEST_F(frame_message, data_valid_is_still_tried_after_frame_delayed_failed)
{
    parse_item(assessed);
    refuse("add_json_bool_value:frame_delayed");
    expect_out_of_memory();
    EXPECT_EQ(json_from(R"(add_json_bool_value("frame_delayed")"),
              lines({
                  R"(add_json_bool_value("frame_delayed", false))",
                  R"(add_json_bool_value("data_valid", false))",
                  "cJSON_AddItemToArray()",
                  "cJSON_Delete()",
              }));
}

TEST_F(frame_message, cca_value_is_still_tried_after_tick_and_data_valid_failed)
{
    parse_item(debugged);
    refuse("add_json_uint32_value:tick");
    refuse("add_json_bool_value:data_valid");
    expect_out_of_memory();
    EXPECT_EQ(json_from("add_json_uint32_value"), lines({
                                                      R"(add_json_uint32_value("tick", 1000))",
                                                      R"(add_json_bool_value("data_valid", false))",
                                                      R"(add_json_float_value("cca_value", 0))",
                                                      R"(add_json_bool_value("cca_detected", false))",
                                                      R"(add_json_bool_value("tx_enabled", false))",
                                                      "cJSON_AddItemToArray()",
                                                      "cJSON_Delete()",
                                                  }));
}

TEST_F(frame_message, data_valid_that_cannot_be_added_fails)
{
    parse_item(assessed);
    refuse("add_json_bool_value:data_valid");
    expect_out_of_memory();
    EXPECT_EQ(
        json_from(R"(add_json_bool_value("data_valid")"),
        lines({R"(add_json_bool_value("data_valid", false))", "cJSON_AddItemToArray()", "cJSON_Delete()"}));
}

TEST_F(frame_message, debug_members_stop_at_the_first_that_cannot_be_added)
{
    const std::vector<json_member_t> members{{"add_json_float_value", "cca_value"},
                                             {"add_json_bool_value", "cca_detected"},
                                             {"add_json_bool_value", "tx_enabled"}};
    parse_item(debugged);
    for (const json_member_t &member : members)
    {
        SCOPED_TRACE(member.key);
        refuse_member(member);
        expect_out_of_memory();
        EXPECT_EQ(json_after(member), lines({"cJSON_AddItemToArray()", "cJSON_Delete()"}));
    }
}

TEST_F(frame_message, failed_item_ends_the_message)
{
    ASSERT_TRUE(parse(R"({"groups": [[{"sensor_id": 1, "config": {}}, {"sensor_id": 2, "config": {}}],
                                     [{"sensor_id": 3, "config": {}}]]})"));
    refuse("add_json_uint32_value:tick");
    expect_out_of_memory();
    EXPECT_EQ(neighbours().calls.count("cJSON_CreateObject"), 2U)
        << "later items and groups must not be processed";
}

TEST_F(frame_message, status_that_cannot_be_added_fails_and_payload_size_is_not_tried)
{
    parse_item("");
    refuse("add_json_string_value:status");
    expect_out_of_memory();
    EXPECT_EQ(json_from("add_json_string_value"),
              lines({R"(add_json_string_value("status", "ok"))", "cJSON_Delete()"}));
}

TEST_F(frame_message, payload_size_that_cannot_be_added_fails)
{
    parse_item("");
    refuse("add_json_int_value:payload_size");
    expect_out_of_memory();
    EXPECT_EQ(json_from(R"(add_json_int_value("payload_size")"),
              lines({R"(add_json_int_value("payload_size", 16))", "cJSON_Delete()"}));
}

TEST_F(frame_message, header_that_cannot_be_sent_fails_without_a_log_line_or_payload)
{
    parse_item("");
    refuse("zet_vantor_server_write_json");
    EXPECT_FALSE(read_frame());
    EXPECT_EQ(error, error_send_data_str);
    EXPECT_EQ(calls(call_kind_t::log), "");
    EXPECT_EQ(neighbours().calls.count("write("), 0U);
    EXPECT_EQ(memory().live_blocks(block_owner_t::json), 0U);
}

TEST_F(frame_message, message_is_still_sent_without_a_result_info_that_cannot_be_attached)
{
    parse_item("");
    refuse("cJSON_AddItemToObject:result_info");
    EXPECT_TRUE(read_frame());
    EXPECT_EQ(sent_document(), R"({"status":"ok","payload_size":16})");
    EXPECT_EQ(neighbours().calls.count("write(frame 1, 16)"), 1U);
    EXPECT_EQ(calls(call_kind_t::log), "");
    finish(1);
}

TEST_F(frame_message, message_is_still_sent_without_a_group_array_that_cannot_be_attached)
{
    parse_item("");
    refuse("cJSON_AddItemToObject:");
    EXPECT_TRUE(read_frame());
    EXPECT_EQ(sent_document(), R"({"result_info":[],"status":"ok","payload_size":16})");
    finish(1);
}

TEST_F(frame_message, message_is_still_sent_without_an_item_that_cannot_be_attached)
{
    parse_item("");
    refuse("cJSON_AddItemToArray");
    EXPECT_TRUE(read_frame());
    EXPECT_EQ(sent_document(), R"({"result_info":[[]],"status":"ok","payload_size":16})");
    finish(1);
}

} // namespace backend_tests
