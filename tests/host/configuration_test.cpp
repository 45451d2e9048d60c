/** @file
 * Tests of configuration documents in files.
 */
#include "vantor/configuration.h"

#include <fstream>
#include <limits>
#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "fake_server.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::HasSubstr;
using testing::SizeIs;
using testing::ThrowsMessage;

TEST(configuration, reads_every_example)
{
    for (const char *name : {"single_sensor.json", "two_sensors.json"})
    {
        const auto document = load_configuration(std::filesystem::path(VANTOR_EXAMPLES) / name);
        EXPECT_FALSE(list_items(document).empty()) << name;
    }
}

TEST(configuration, reports_where_a_file_is_not_json)
{
    const test::temporary_directory directory;
    const auto file = directory.write("bad.json", "{\n  \"groups\": [\n    oops\n]}\n");
    EXPECT_THAT([&] { load_configuration(file); },
                ThrowsMessage<configuration_error>(
                    testing::AllOf(HasSubstr("bad.json"), HasSubstr("line 3, column 5"))));
}

TEST(configuration, reports_where_an_incomplete_file_ends)
{
    EXPECT_THAT([&] { parse_json_text("{\n\"a\": 1", "text"); },
                ThrowsMessage<configuration_error>(HasSubstr("line 2, column 7")));
}

TEST(configuration, explains_what_is_not_json_in_a_sentence)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "text is not valid JSON at line 1, column 1: the text ends too early."},
        {"{\"a\": 1", "text is not valid JSON at line 1, column 8: the text ends too early."},
        {"{\n\"a\": 1,\n}", "text is not valid JSON at line 3, column 1: unexpected \"}\"."},
        {"{\"a\" 1}", "text is not valid JSON at line 1, column 6: unexpected \"1\"."},
        {"{\"a\": [1 2]}", "text is not valid JSON at line 1, column 10: unexpected \"2\"."},
        {"{\"a\": tru}", "text is not valid JSON at line 1, column 10: unexpected \"}\"."},
        {"{\"a\": \"b\n\"}", "text is not valid JSON at line 1, column 9: a line ends within a string."},
        {"{\"a\": \"b\x01\"}",
         "text is not valid JSON at line 1, column 9: invalid or unexpected character."},
        {"{\"a\": \"\xff\"}", "text is not valid JSON at line 1, column 8: invalid or unexpected character."},
        {"{\"a\": \xc3\xa4}", "text is not valid JSON at line 1, column 7: invalid or unexpected character."},
    };
    for (const auto &entry : cases)
    {
        EXPECT_THAT([&] { parse_json_text(entry.first, "text"); },
                    ThrowsMessage<configuration_error>(entry.second))
            << entry.first;
    }
}

TEST(configuration, refuses_repeated_members_of_one_object_only)
{
    EXPECT_THAT([&] { parse_json_text(R"({"a": {"b": 1, "c": 2, "b": 3}})", "text"); },
                ThrowsMessage<configuration_error>(HasSubstr("\"b\"")));
    EXPECT_EQ(parse_json_text(R"({"a": {"b": 1}, "b": [{"b": 2}, {"b": 3}]})", "text")["b"][1]["b"], 3);
}

TEST(configuration, refuses_what_is_not_a_document)
{
    const test::temporary_directory directory;
    EXPECT_THROW(load_configuration(directory / "missing.json"), configuration_error);
    EXPECT_THAT([&] { load_configuration(directory / ""); },
                ThrowsMessage<configuration_error>(HasSubstr("it is a directory")));
    EXPECT_THROW(load_configuration(directory.write("empty.json", "")), configuration_error);
    EXPECT_THAT([&] { load_configuration(directory.write("list.json", "[]")); },
                ThrowsMessage<configuration_error>(HasSubstr("one JSON object")));
    EXPECT_THAT([&] { load_configuration(directory.write("huge.json", "{\"a\": 1e999}")); },
                ThrowsMessage<configuration_error>(HasSubstr("too large")));
}

TEST(configuration, lists_items_in_the_order_of_frames)
{
    const auto items = list_items(test::example_session().configuration);
    ASSERT_THAT(items, SizeIs(3));
    EXPECT_EQ(items[0].sensor_id, 1U);
    EXPECT_EQ(items[0].subsweeps[0].start_point, 100);
    EXPECT_EQ(items[0].subsweeps[0].step_length, 4);
    ASSERT_THAT(items[1].subsweeps, SizeIs(2));
    EXPECT_EQ(items[1].subsweeps[1].start_point, 200);
    EXPECT_EQ(items[2].subsweeps[0].start_point, -41);
    EXPECT_THAT(list_items(json::object()), SizeIs(0));
}

TEST(configuration, limits_what_it_reads)
{
    const test::temporary_directory directory;
    const std::string brackets(100000, '[');
    const auto deep =
        directory.write("deep.json", "{\"groups\": " + brackets + std::string(100000, ']') + "}");
    EXPECT_THAT([&] { load_configuration(deep); },
                ThrowsMessage<configuration_error>(HasSubstr("more than 64 levels deep")));
    const auto large = directory.write("large.json", "{}" + std::string(1 << 20, ' '));
    EXPECT_THAT([&] { load_configuration(large); }, ThrowsMessage<configuration_error>(HasSubstr("1 MiB")));
    EXPECT_THAT([&] { load_configuration("/dev/zero"); },
                ThrowsMessage<configuration_error>(HasSubstr("1 MiB")));
}

TEST(configuration, reads_a_pipe)
{
    const test::temporary_directory directory;
    const auto pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(pipe) << R"({"update_rate": 10})"; });
    EXPECT_NO_THROW(EXPECT_EQ(load_configuration(pipe)["update_rate"], 10));
    writer.join();
}

TEST(configuration, refuses_to_list_what_is_not_an_item)
{
    for (const char *text : {R"({"groups": [[1]]})", R"({"groups": [1]})", R"({"groups": [[{}]]})"})
    {
        EXPECT_THROW(list_items(json::parse(text)), configuration_error) << text;
    }
}

TEST(configuration, names_the_place_of_what_is_not_an_item)
{
    const std::pair<const char *, const char *> cases[] = {
        {R"({"groups": {}})", "/groups must be a list"},
        {R"({"groups": [[], {"0": {"config": {}}}]})", "/groups/1 must be a list"},
        {R"({"groups": [[{"config": {}}, 5]]})", "/groups/0/1 must be an object"},
        {R"({"groups": [[{"config": {}}], [{"config": null}]]})", "/groups/1/0/config must be an object"},
        {R"({"groups": [[{"config": {"subsweeps": {}}}]]})", "/groups/0/0/config/subsweeps must be a list"},
        {R"({"groups": [[{"config": {"subsweeps": [{}, 1]}}]]})",
         "/groups/0/0/config/subsweeps/1 must be an object"},
    };
    for (const auto &[text, reason] : cases)
    {
        EXPECT_THAT([text = text] { list_items(json::parse(text)); },
                    ThrowsMessage<configuration_error>(HasSubstr(reason)));
    }
}

TEST(configuration, limits_the_number_of_values)
{
    std::string list = "[";
    for (int i = 0; i < 199'999; ++i)
    {
        list += i == 0 ? "[]" : ",{}";
    }
    EXPECT_EQ(parse_json_text(list + "]", "x").size(), 199'999U);
    EXPECT_THAT([&] { parse_json_text(list + ",0]", "x"); },
                ThrowsMessage<configuration_error>("x is too large: it has more than 200000 values."));
}

TEST(configuration, reads_numbers_out_of_range_like_the_server)
{
    const auto items = list_items(json::parse(
        R"({"groups": [[{"sensor_id": 1, "config": {"start_point": 1e300, "frame_rate": "x"}}]]})"));
    EXPECT_EQ(items.at(0).subsweeps.at(0).start_point, std::numeric_limits<int>::max());
    EXPECT_EQ(items.at(0).frame_rate, 0.0);
    const auto profiles = list_items(json::parse(
        R"({"groups": [[{"sensor_id": 1, "config": {"subsweeps": [{"profile": 5}, {"profile": 257}, {}]}}]]})"));
    EXPECT_EQ(profiles.at(0).subsweeps.at(0).profile, 5);
    EXPECT_EQ(profiles.at(0).subsweeps.at(1).profile, 1);
    EXPECT_EQ(profiles.at(0).subsweeps.at(2).profile, 3);
}

} // namespace
} // namespace vantor
