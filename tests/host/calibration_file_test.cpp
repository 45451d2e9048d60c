/** @file
 * Tests of calibration files.
 */
#include "vantor/calibration_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "temporary_directory.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::HasSubstr;
using testing::ThrowsMessage;

/** Two calibrations as text. */
std::string two_calibrations()
{
    return calibration_text({{.sensor_id = 1, .temperature = 24, .data = std::string(480, 'a')},
                             {.sensor_id = 2, .temperature = -3, .data = std::string(480, 'b')}});
}

/** A configuration that uses some sensors. */
json configuration_of(const std::vector<int> &sensors)
{
    auto group = json::array();
    for (const int id : sensors)
    {
        group.push_back({{"sensor_id", id}, {"config", json::object()}});
    }
    return {{"groups", json::array({group})}};
}

TEST(calibration_file, is_added_to_a_configuration)
{
    const test::temporary_directory directory;
    auto configuration = configuration_of({1, 2});
    add_calibrations(configuration, directory.write("cal.json", two_calibrations()));
    ASSERT_EQ(configuration["calibration_info"].size(), 2U);
    EXPECT_EQ(configuration["calibration_info"][1]["sensor_id"], 2);
    EXPECT_EQ(configuration["calibration_info"][1]["data"], std::string(480, 'b'));
}

TEST(calibration_file, does_not_replace_calibrations_of_the_configuration)
{
    const test::temporary_directory directory;
    auto configuration = configuration_of({1, 2});
    configuration["calibration_info"] = {{{"sensor_id", 1}, {"data", std::string(480, 'c')}}};
    add_calibrations(configuration, directory.write("cal.json", two_calibrations()));
    ASSERT_EQ(configuration["calibration_info"].size(), 2U);
    EXPECT_EQ(configuration["calibration_info"][0]["data"], std::string(480, 'c'));
    EXPECT_EQ(configuration["calibration_info"][1]["sensor_id"], 2);
}

TEST(calibration_file, is_added_only_for_sensors_in_use)
{
    const test::temporary_directory directory;
    const auto file = directory.write("cal.json", two_calibrations());
    auto configuration = configuration_of({2, 3, 2});
    add_calibrations(configuration, file);
    ASSERT_EQ(configuration["calibration_info"].size(), 1U);
    EXPECT_EQ(configuration["calibration_info"][0]["sensor_id"], 2);
    auto other = configuration_of({3});
    EXPECT_THAT([&] { add_calibrations(other, file); },
                ThrowsMessage<configuration_error>(
                    HasSubstr("cal.json contains calibrations of sensor 1, sensor 2 only, none of which")));
    EXPECT_EQ(other, configuration_of({3}));
}

TEST(calibration_file, is_not_needed_for_calibrations_of_an_earlier_session)
{
    const std::vector<calibration> earlier{
        {.sensor_id = 1, .temperature = 24, .data = std::string(480, 'a')},
        {.sensor_id = 2, .temperature = 30, .data = std::string(480, 'b')}};
    auto configuration = configuration_of({2, 3});
    add_calibrations(configuration, earlier);
    ASSERT_EQ(configuration["calibration_info"].size(), 1U);
    EXPECT_EQ(configuration["calibration_info"][0]["sensor_id"], 2);
    auto other = configuration_of({3});
    add_calibrations(other, earlier);
    EXPECT_EQ(other, configuration_of({3}));
}

TEST(calibration_file, is_refused_with_two_calibrations_of_a_sensor)
{
    const test::temporary_directory directory;
    const auto text = calibration_text({{.sensor_id = 7, .temperature = 24, .data = std::string(480, 'a')},
                                        {.sensor_id = 7, .temperature = 30, .data = std::string(480, 'b')}});
    auto configuration = configuration_of({7});
    EXPECT_THAT([&] { add_calibrations(configuration, directory.write("cal.json", text)); },
                ThrowsMessage<configuration_error>(HasSubstr("two calibrations of sensor 7")));
}

TEST(calibration_file, is_refused_if_it_is_not_a_regular_file)
{
    const test::temporary_directory directory;
    auto configuration = configuration_of({1});
    const auto pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const auto &file : {pipe, std::filesystem::path("/dev/zero")})
    {
        EXPECT_THAT([&] { add_calibrations(configuration, file); },
                    ThrowsMessage<configuration_error>(HasSubstr("it is not a regular file")));
    }
    EXPECT_THAT([&] { add_calibrations(configuration, directory / ""); },
                ThrowsMessage<configuration_error>(HasSubstr("it is a directory")));
}

TEST(calibration_file, is_not_added_to_what_is_not_a_list_of_calibrations)
{
    const test::temporary_directory directory;
    for (const json &present : {json(1), json({{"a", 1}}), json::array({json::object()}), json::array({1})})
    {
        auto configuration = configuration_of({1});
        configuration["calibration_info"] = present;
        EXPECT_THROW(add_calibrations(configuration, directory.write("cal.json", two_calibrations())),
                     configuration_error)
            << present;
    }
}

TEST(calibration_file, is_not_made_of_calibrations_that_no_session_can_use)
{
    const std::string data(480, 'a');
    EXPECT_NO_THROW(check_calibrations({{.sensor_id = 1, .temperature = 24, .data = data}}, {1, 2}));
    const std::pair<std::vector<calibration>, const char *> cases[] = {
        {{{.sensor_id = 1, .temperature = 0, .data = ""}}, "that no session can use"},
        {{{.sensor_id = 1, .temperature = 0, .data = "\x1b[31m" + data}}, "that no session can use"},
        {{{.sensor_id = 0, .temperature = 0, .data = data}}, "that no session can use"},
        {{{.sensor_id = 1, .temperature = 0, .data = data}, {.sensor_id = 1, .temperature = 0, .data = data}},
         "two calibrations of sensor 1"},
        {{{.sensor_id = 65535, .temperature = 0, .data = data}},
         "sensor 65535, which it was not to calibrate"},
    };
    for (const auto &[calibrations, reason] : cases)
    {
        EXPECT_THAT(
            [&list = calibrations] {
                check_calibrations(list, {1, 2});
            },
            ThrowsMessage<protocol_error>(HasSubstr(reason)));
    }
}

TEST(calibration_file, is_refused_without_calibrations)
{
    const test::temporary_directory directory;
    auto configuration = configuration_of({1});
    for (const char *text : {"{}", "[]", "nonsense", R"({"calibration_info": []})",
                             R"({"calibration_info": [{"sensor_id": 1, "data": "12"}]})"})
    {
        EXPECT_THROW(add_calibrations(configuration, directory.write("cal.json", text)), configuration_error)
            << text;
    }
    EXPECT_THROW(add_calibrations(configuration, directory / "missing.json"), configuration_error);
}

} // namespace
} // namespace vantor
