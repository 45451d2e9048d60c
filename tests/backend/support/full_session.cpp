/** @file
 * A complete session with one failure.
 */
#include "full_session.h"

#include <algorithm>

namespace backend_tests
{

namespace
{

constexpr size_t sensors_with_calibration = 3;

/** Two groups on three sensors, with assessment, overrides, several sub-sweeps and a calibration. */
std::string document()
{
    return R"({"enable_log": "DEBUG", "enable_diagnostics": true, "update_rate": 20,
        "calibration_info": [{"sensor_id": 3, "data": ")" +
           calibration_text(3, 23) + R"("}],
        "groups": [
            [{"sensor_id": 1, "config": {"subsweeps": [{"start_point": 80, "prf": "13_0_MHz"}, {"hwaas": 4}]},
              "cca_enable": true, "cca_threshold": 0.5, "cca_debug": true},
             {"sensor_id": 2, "config": {"num_points": 4}, "cpd_overrides": {"tx_duration": 5}}],
            [{"sensor_id": 3, "config": {"inter_frame_idle_state": "sleep"}},
             {"sensor_id": 1, "config": {"sweeps_per_frame": 2}}]]})";
}

std::string lines_beginning_with(const std::string &text, const std::string &beginning)
{
    std::string result;
    for (size_t begin = 0; begin < text.size();)
    {
        const size_t end = text.find('\n', begin) + 1;
        const std::string line = text.substr(begin, end - begin);
        result += line.starts_with(beginning) ? line : "";
        begin = end;
    }
    return result;
}

} // namespace

void full_session::SetUp()
{
    backend_test::SetUp();
    neighbours().buffer_size = work_buffer_size;
    neighbours().calibration_steps = 2;
    neighbours().cca_values = {0.25F, 0.75F, 0.25F};
}

bool full_session::failure_reached()
{
    const auto &refusals = neighbours().refusals;
    const bool refused_one =
        std::any_of(refusals.begin(), refusals.end(), [](const auto &refusal) { return refusal.second < 0; });
    return refused_one || memory().failure_reached();
}

step_t full_session::finish_step(const std::string &name, bool ok, size_t documents_before)
{
    const bool failed_here = failure_reached() && !failure_seen;
    failure_seen = failure_seen || failed_here;
    return {name,
            ok,
            error,
            lines_beginning_with(calls(call_kind_t::log), "[ERROR]"),
            neighbours().documents.size() - documents_before,
            failed_here};
}

std::vector<step_t> full_session::run()
{
    failure_seen = false;
    error = nullptr;
    const bool is_ready = init();
    std::vector<step_t> steps{finish_step("init", is_ready, neighbours().documents.size())};
    if (!is_ready)
    {
        return steps;
    }
    const bool parsed = parse(document());
    steps.push_back(finish_step("parse", parsed, neighbours().documents.size()));
    if (!parsed)
    {
        return steps;
    }
    size_t sent = neighbours().documents.size();
    error = nullptr;
    const bool described = send_metadata();
    steps.push_back(finish_step("metadata", described, sent));
    for (int frame = 0; frame < 3; ++frame)
    {
        sent = neighbours().documents.size();
        error = nullptr;
        const bool framed = read_frame();
        steps.push_back(finish_step("frame", framed, sent));
    }
    return steps;
}

size_t full_session::end_session()
{
    destroy_session();
    memory().fail_allocation(0);
    neighbours().refusals.clear();
    return delete_leaked_json();
}

void full_session::expect_following_session_to_work(bool same_initialisation)
{
    if (!same_initialisation)
    {
        deinit();
        EXPECT_EQ(memory().live_blocks(), 0U) << "memory was leaked";
        ASSERT_TRUE(init());
    }
    error = nullptr;
    EXPECT_TRUE(parse(document()));
    EXPECT_EQ(error, nullptr);
    EXPECT_TRUE(send_metadata());
    for (int frame = 0; frame < 3; ++frame)
    {
        EXPECT_TRUE(read_frame());
    }
    finish();
}

const step_t *full_session::failed_step(const std::vector<step_t> &steps)
{
    const auto failed =
        std::find_if(steps.begin(), steps.end(), [](const step_t &step) { return step.failed_here; });
    return failed == steps.end() ? nullptr : &*failed;
}

bool full_session::hit_an_item_before_another()
{
    const size_t calibration_elements = 1;
    const size_t read = neighbours().calls_at_failure.count(R"(get_json_int_value("sensor_id"))");
    const size_t items = read < calibration_elements ? 0 : read - calibration_elements;
    return items == 1 || items == 3;
}

bool full_session::hit_a_calibration_entry_before_another()
{
    const call_log_t &log = neighbours().calls_at_failure;
    return log.count("zet_sensor_get_cal_info") > 0 &&
           log.count("zet_sensor_get_cal_info") < sensors_with_calibration;
}

} // namespace backend_tests
