/** @file
 * Repeats a complete session with the 1st, 2nd, 3rd … allocation failing, until a run makes fewer
 * allocations.
 */
#include "support/full_session.h"

namespace backend_tests
{

namespace
{

/** Whether the call attaches an element to a document. If it fails, only that element is missing. */
bool was_attaching(const std::string &call)
{
    return call.starts_with("cJSON_AddItemToObject:");
}

/** Whether the call adds a member to a calibration entry. If it fails, the entry is neither attached nor
 * freed. */
bool was_filling_a_calibration_entry(const std::string &call)
{
    return call.ends_with(":sensor_id") || call.ends_with(":temperature") || call.ends_with(":data");
}

class allocation_sweep : public full_session
{
protected:
    static void expect_failed_parse(const step_t &step)
    {
        EXPECT_EQ(step.ok, hit_an_item_before_another());
        const std::string &call = memory().failed_call();
        if (call == "zet_sensor_create")
        {
            EXPECT_EQ(step.error, error_nox_create_sensor_str);
            EXPECT_EQ(step.error_log, "");
        }
        else if (call == "zet_config_create")
        {
            EXPECT_EQ(step.error, error_out_of_memory);
            EXPECT_EQ(step.error_log, "[ERROR] Failed creating config\n");
        }
        else if (call == "zet_processing_create")
        {
            EXPECT_EQ(step.error, error_nox_create_processing_str);
            EXPECT_EQ(step.error_log, "");
        }
        else
        {
            EXPECT_EQ(call, "") << "unexpected allocation in this step";
            const bool work_buffer = memory().failed_size() == work_buffer_size;
            EXPECT_EQ(step.error, work_buffer ? nullptr : error_bad_config);
            EXPECT_EQ(step.error_log, "[ERROR] Out of memory\n");
        }
    }

    static void expect_failed_message(const step_t &step)
    {
        const std::string &call = memory().failed_call();
        const bool metadata = step.name == "metadata";
        const bool element_left_out =
            was_attaching(call) || (metadata && hit_a_calibration_entry_before_another());
        EXPECT_EQ(step.ok, element_left_out);
        EXPECT_EQ(step.documents, element_left_out ? 1U : 0U);
        EXPECT_EQ(step.error_log, element_left_out ? "" : "[ERROR] Out of memory\n");
        EXPECT_EQ(step.error, element_left_out || metadata ? nullptr : error_send_data_str);
    }

    static void expect_failed(const step_t &step)
    {
        if (step.name == "init")
        {
            EXPECT_FALSE(step.ok);
            EXPECT_EQ(step.error_log, "[ERROR] zet_integration_mem_alloc failed\n");
        }
        else if (step.name == "parse")
        {
            expect_failed_parse(step);
        }
        else
        {
            expect_failed_message(step);
        }
    }

    /** Number of documents that the backend leaks by design when this allocation fails. */
    static size_t leaked_documents(const step_t &step)
    {
        const std::string &call = memory().failed_call();
        return was_attaching(call) || (step.name == "metadata" && was_filling_a_calibration_entry(call)) ? 1
                                                                                                         : 0;
    }
};

} // namespace

TEST_F(allocation_sweep, each_single_failure_has_its_documented_result_and_leaks_nothing_else)
{
    std::map<std::string, int> failures;
    for (size_t allocation = 1;; ++allocation)
    {
        SetUp();
        memory().fail_allocation(allocation);
        const std::vector<step_t> steps = run();
        const step_t *failed = failed_step(steps);
        if (failed == nullptr)
        {
            break;
        }
        SCOPED_TRACE("allocation " + std::to_string(allocation) + " in " + failed->name + ", " +
                     memory().failed_call());
        failures[failed->name] += 1;
        expect_failed(*failed);
        for (const step_t &step : steps)
        {
            EXPECT_TRUE(step.ok || &step == failed)
                << step.name << " failed, but no call in it was made to fail";
        }
        if (!steps.front().ok)
        {
            memory().fail_allocation(0);
            expect_following_session_to_work(false);
            continue;
        }
        const size_t expected_leaks = leaked_documents(*failed);
        EXPECT_EQ(end_session(), expected_leaks);
        expect_following_session_to_work(allocation % 2 == 0);
    }
    EXPECT_EQ(failures["init"], 13);
    EXPECT_GT(failures["parse"], 12);
    EXPECT_GT(failures["metadata"], 80);
    EXPECT_GT(failures["frame"], 100);
}

TEST_F(allocation_sweep, when_all_allocations_from_any_point_on_fail_no_memory_is_leaked)
{
    size_t runs = 0;
    for (size_t allocation = 1;; ++allocation)
    {
        SetUp();
        memory().fail_allocation(allocation, true);
        const std::vector<step_t> steps = run();
        if (failed_step(steps) == nullptr)
        {
            break;
        }
        SCOPED_TRACE("allocation " + std::to_string(allocation));
        runs += 1;
        if (!steps.front().ok)
        {
            memory().fail_allocation(0);
            expect_following_session_to_work(false);
            continue;
        }
        EXPECT_LE(end_session(), 1U);
        expect_following_session_to_work(allocation % 2 == 0);
    }
    EXPECT_GT(runs, 200U);
}

} // namespace backend_tests
