/** @file
 * The error codes: each one reaches the host, has its own message, and is listed in the protocol document.
 */
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "server_fixture.h"
#include "zet_vantor_server_error_messages.h"
#include "zet_vantor_server_errors.h"

namespace
{

std::string read_file(const char *path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/** All texts that the first group of a regular expression matches. */
std::set<std::string> matches(const std::string &text, const std::regex &pattern)
{
    std::set<std::string> result;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), none; match != none; ++match)
    {
        result.insert((*match)[1]);
    }
    return result;
}

std::set<std::string> all_codes()
{
    std::set<std::string> codes;
    for (uint8_t error = 0; error < ZET_SERVER_ERROR_COUNT; ++error)
    {
        codes.insert(zet_server_error_code(static_cast<zet_server_error_t>(error)));
    }
    return codes;
}

constexpr const char *const *backend_messages[] = {
    &error_json_parse_str,
    &error_send_data_str,
    &error_missing_config,
    &error_bad_config,
    &error_config_faulty_update_rate_str,
    &error_config_faulty_log_settings_str,
    &error_config_groups_str,
    &error_config_group_items_str,
    &error_config_sensor_id_str,
    &error_config_calibration_data_str,
    &error_config_calibration_list,
    &error_config_max_update_rate_with_frame_rate_str,
    &error_config_multiple_groups_with_frame_rate_str,
    &error_double_subsweep_config,
    &error_too_many_subsweeps,
    &error_invalid_inter_frame_idle_state,
    &error_invalid_inter_sweep_idle_state,
    &error_invalid_prf,
    &error_nox_create_sensor_str,
    &error_nox_get_buffer_size_str,
    &error_nox_create_processing_str,
    &error_nox_sensor_calibration_str,
    &error_nox_data_str,
    &error_out_of_memory,
};

TEST(error_codes, differ_from_one_another)
{
    EXPECT_EQ(all_codes().size(), static_cast<size_t>(ZET_SERVER_ERROR_COUNT));
}

TEST(error_codes, have_messages_that_are_different_and_sentences)
{
    std::set<std::string> messages;
    for (uint8_t error = 0; error < ZET_SERVER_ERROR_COUNT; ++error)
    {
        const std::string message = zet_server_error_message(static_cast<zet_server_error_t>(error));
        messages.insert(message);
        EXPECT_TRUE(std::isupper(static_cast<unsigned char>(message.front()))) << message;
        EXPECT_EQ(message.back(), '.') << message;
        EXPECT_EQ(message.find("  "), std::string::npos) << message;
    }
    EXPECT_EQ(messages.size(), static_cast<size_t>(ZET_SERVER_ERROR_COUNT));
}

TEST(error_codes, of_the_backend_are_the_names_of_its_messages)
{
    const std::set<std::string> names =
        matches(read_file(ERROR_MESSAGES_HEADER), std::regex(R"(\berror_([a-z_]+?)(?:_str)?;)"));
    EXPECT_EQ(names.size(), 24U);
    std::set<std::string> codes;
    for (const char *const *message : backend_messages)
    {
        const zet_server_error_t error = zet_server_error_of_backend(*message, ZET_SERVER_ERROR_BAD_JSON);
        EXPECT_STREQ(zet_server_error_message(error), *message);
        codes.insert(zet_server_error_code(error));
    }
    EXPECT_EQ(codes, names);
}

TEST(error_codes, unknown_message_gives_the_fallback_code)
{
    EXPECT_EQ(zet_server_error_of_backend(nullptr, ZET_SERVER_ERROR_METADATA_FAILED),
              ZET_SERVER_ERROR_METADATA_FAILED);
    EXPECT_EQ(zet_server_error_of_backend("unknown", ZET_SERVER_ERROR_NOX_DATA), ZET_SERVER_ERROR_NOX_DATA);
}

TEST(error_codes, are_exactly_those_in_the_protocol_document)
{
    const std::string document = read_file(PROTOCOL_DOCUMENT);
    const size_t begin = document.find("\n## Errors");
    const size_t end = document.find("\n## ", begin + 1);
    ASSERT_NE(end, std::string::npos);
    const std::set<std::string> listed =
        matches(document.substr(begin, end - begin), std::regex("\n\\| `([a-z_]+)` \\|"));
    EXPECT_EQ(listed, all_codes());
}

class error_codes_of_the_backend : public server_fixture
{
};

TEST_F(error_codes_of_the_backend, all_reach_the_host)
{
    start();
    for (const char *const *message : backend_messages)
    {
        fake_backend.parse_result = false;
        fake_backend.parse_message = *message;
        const message_t answer = ask(configure_command);
        EXPECT_EQ(answer.members["message"], *message);
        EXPECT_TRUE(all_codes().contains(answer.members["code"]));
    }
    const nlohmann::json errors = ask(R"({"command":"stats"})").members["errors"];
    EXPECT_EQ(errors.size(), 24U);
    for (const nlohmann::json &count : errors)
    {
        EXPECT_EQ(count, 1);
    }
}

} // namespace
