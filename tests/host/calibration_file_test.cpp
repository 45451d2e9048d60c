/** @file
 * Tests of calibration files.
 */
#include "configuration/calibration_file.h"

#include <gmock/gmock.h>

#include "configuration/configuration.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Two calibrations as text. */
std::string two_calibrations()
{
    return calibration_text({{.sensor_id = 1, .temperature = 24, .data = std::string(480, 'a')},
                             {.sensor_id = 2, .temperature = -3, .data = std::string(480, 'b')}});
}

TEST(calibration_file, is_added_to_a_configuration)
{
    const test::temporary_directory directory;
    json configuration = {{"groups", json::array()}};
    add_calibrations(configuration, directory.write("cal.json", two_calibrations()));
    ASSERT_EQ(configuration["calibration_info"].size(), 2U);
    EXPECT_EQ(configuration["calibration_info"][1]["sensor_id"], 2);
    EXPECT_EQ(configuration["calibration_info"][1]["data"], std::string(480, 'b'));
}

TEST(calibration_file, does_not_replace_calibrations_of_the_configuration)
{
    const test::temporary_directory directory;
    json configuration = {{"calibration_info", {{{"sensor_id", 1}, {"data", std::string(480, 'c')}}}}};
    add_calibrations(configuration, directory.write("cal.json", two_calibrations()));
    ASSERT_EQ(configuration["calibration_info"].size(), 2U);
    EXPECT_EQ(configuration["calibration_info"][0]["data"], std::string(480, 'c'));
    EXPECT_EQ(configuration["calibration_info"][1]["sensor_id"], 2);
}

TEST(calibration_file, is_refused_without_calibrations)
{
    const test::temporary_directory directory;
    json configuration;
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
