/** @file
 * Repeats a complete session with the 1st, 2nd, 3rd … call of each function that the backend calls failing.
 */
#include "support/full_session.h"

namespace backend_tests
{

namespace
{

/** The expected results when an operation fails. */
struct operation_t
{
    const char *name;
    const char *parse_error;                 /**< message when it fails while the document is parsed */
    const char *frame_error;                 /**< message when it fails in a frame */
    const char *error_log;                   /**< lines logged at error level */
    std::vector<std::string> possible_steps; /**< steps in which the operation is called */
};

constexpr const char *out_of_memory_line = "[ERROR] Out of memory\n";
constexpr const char *nothing = "";

/** Prints an operation by its name in test lists and failures. */
void PrintTo(const operation_t &operation, std::ostream *stream)
{
    *stream << operation.name;
}

class failure_sweep : public full_session, public ::testing::WithParamInterface<operation_t>
{
protected:
    /** Whether the operation attaches an element. If it fails, the message is still sent, without the
     * element. */
    static bool attaches(const std::string &name)
    {
        return name == "cJSON_AddItemToObject" || name == "cJSON_AddItemToArray";
    }

    /** Whether the step continues after the failure. */
    static bool continues(const step_t &step)
    {
        const std::string name = GetParam().name;
        if (step.name == "parse")
        {
            return hit_an_item_before_another();
        }
        const bool appends_last_entry = step.name == "metadata" && name == "cJSON_AddItemToArray" &&
                                        !hit_a_calibration_entry_before_another();
        if (attaches(name))
        {
            return !appends_last_entry;
        }
        return step.name == "metadata" && hit_a_calibration_entry_before_another();
    }

    static const char *expected_error(const step_t &step)
    {
        if (step.name == "parse")
        {
            return GetParam().parse_error;
        }
        return step.name == "frame" && !continues(step) ? GetParam().frame_error : nullptr;
    }

    static void expect_failed(const step_t &step)
    {
        EXPECT_EQ(step.ok, continues(step));
        EXPECT_EQ(step.error, expected_error(step));
        const bool message_is_sent = step.name != "parse" && continues(step);
        const std::string log = message_is_sent ? nothing : GetParam().error_log;
        if (step.error_log.find("interrupt timeout") == std::string::npos)
        {
            EXPECT_EQ(step.error_log, log);
        }
        else
        {
            EXPECT_STREQ(GetParam().name, "zet_hal_integration_wait_for_sensor_interrupt");
        }
        const bool message = step.name == "metadata" || step.name == "frame";
        EXPECT_EQ(step.documents, message && step.ok ? 1U : 0U);
    }
};

std::vector<operation_t> operations()
{
    return {
        {"zet_hal_nox_integration_get_implementation",
         nullptr,
         nullptr,
         "[ERROR] zet_hal_nox_integration_get_implementation() failed\n",
         {"init"}},
        {"zet_nox_hal_register", nullptr, nullptr, "[ERROR] zet_nox_hal_register() failed\n", {"init"}},
        {"convert_hexstr2uint", error_config_calibration_data_str, nullptr, nothing, {"parse"}},
        {"zet_sensor_validate_calibration", error_config_calibration_data_str, nullptr, nothing, {"parse"}},
        {"zet_sensor_create", error_nox_create_sensor_str, nullptr, nothing, {"parse"}},
        {"zet_config_create", error_out_of_memory, nullptr, "[ERROR] Failed creating config\n", {"parse"}},
        {"zet_nox_get_buffer_size", error_nox_get_buffer_size_str, nullptr, nothing, {"parse"}},
        {"zet_sensor_calibrate", error_nox_sensor_calibration_str, nullptr, nothing, {"parse"}},
        {"zet_hal_integration_wait_for_sensor_interrupt",
         error_nox_sensor_calibration_str,
         error_nox_data_str,
         nothing,
         {"parse", "frame"}},
        {"zet_processing_create", error_nox_create_processing_str, nullptr, nothing, {"parse"}},
        {"zet_sensor_prepare", error_nox_data_str, error_nox_data_str, nothing, {"parse", "frame"}},
        {"zet_sensor_measure", nullptr, error_nox_data_str, nothing, {"frame"}},
        {"zet_sensor_read", nullptr, error_nox_data_str, nothing, {"frame"}},
        {"zet_processing_cca_check", nullptr, error_nox_data_str, nothing, {"frame"}},
        {"zet_sensor_get_cal_info", nullptr, nullptr, out_of_memory_line, {"metadata"}},
        {"zet_vantor_server_write_json", nullptr, error_send_data_str, nothing, {"metadata", "frame"}},
        {"cJSON_CreateObject", nullptr, error_send_data_str, out_of_memory_line, {"metadata", "frame"}},
        {"cJSON_CreateArray", nullptr, error_send_data_str, out_of_memory_line, {"metadata", "frame"}},
        {"cJSON_AddArrayToObject", nullptr, nullptr, out_of_memory_line, {"metadata"}},
        {"cJSON_AddObjectToObject", nullptr, nullptr, out_of_memory_line, {"metadata"}},
        {"cJSON_AddItemToObject", nullptr, nullptr, nothing, {"metadata", "frame"}},
        {"cJSON_AddItemToArray", nullptr, nullptr, out_of_memory_line, {"metadata", "frame"}},
        {"add_json_int_value", nullptr, error_send_data_str, out_of_memory_line, {"metadata", "frame"}},
        {"add_json_uint32_value", nullptr, error_send_data_str, out_of_memory_line, {"metadata", "frame"}},
        {"add_json_float_value", nullptr, error_send_data_str, out_of_memory_line, {"metadata", "frame"}},
        {"add_json_bool_value", nullptr, error_send_data_str, out_of_memory_line, {"metadata", "frame"}},
        {"add_json_string_value", nullptr, error_send_data_str, out_of_memory_line, {"metadata", "frame"}},
    };
}

} // namespace

TEST_P(failure_sweep, each_single_failure_has_its_documented_result_and_leaks_nothing)
{
    std::set<std::string> steps_hit;
    for (int call = 1;; ++call)
    {
        SetUp();
        refuse(GetParam().name, call);
        const std::vector<step_t> steps = run();
        const step_t *failed = failed_step(steps);
        if (failed == nullptr)
        {
            break;
        }
        SCOPED_TRACE("call " + std::to_string(call) + " in " + failed->name);
        steps_hit.insert(failed->name);
        for (const step_t &step : steps)
        {
            EXPECT_TRUE(step.ok || &step == failed)
                << step.name << " failed, but no call in it was made to fail";
        }
        if (failed->name == "init")
        {
            EXPECT_FALSE(failed->ok);
            EXPECT_EQ(failed->error_log, GetParam().error_log);
            neighbours().refusals.clear();
            expect_following_session_to_work(false);
            continue;
        }
        expect_failed(*failed);
        EXPECT_LE(end_session(), 1U);
        expect_following_session_to_work(call % 2 == 0);
    }
    const std::vector<std::string> &possible = GetParam().possible_steps;
    EXPECT_EQ(steps_hit, std::set<std::string>(possible.begin(), possible.end()));
}

INSTANTIATE_TEST_SUITE_P(backend, failure_sweep, ::testing::ValuesIn(operations()),
                         [](const auto &test) { return std::string(test.param.name); });

} // namespace backend_tests
