/** @file
 * Tests of what the thread of a broker reports to the event loop.
 */
#include "bridge/broker_reports.h"

#include <thread>

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/** Reports to a loop, and the answers that have arrived. */
class broker_reports_test : public testing::Test
{
protected:
    /** Expects an answer. */
    uint64_t expect(int batch)
    {
        return reports->expect([this, batch](bool stored) { answers.emplace_back(batch, stored); });
    }

    /** Runs what was posted to the loop. */
    void run_posted()
    {
        bool all = false;
        loop.post([&all] { all = true; });
        loop.run_to_end([&all] { return all; });
    }

    event_loop loop;
    std::unique_ptr<broker_reports> reports = std::make_unique<broker_reports>(loop);
    std::vector<std::pair<int, bool>> answers;
};

TEST_F(broker_reports_test, passes_answers_of_a_thread_to_the_loop)
{
    const auto first = expect(1);
    const auto second = expect(2);
    std::thread([&] {
        reports->answer(second, true);
        reports->answer(first, false);
    }).join();
    EXPECT_THAT(answers, IsEmpty());
    run_posted();
    EXPECT_THAT(answers, ElementsAre(Pair(2, true), Pair(1, false)));
}

TEST_F(broker_reports_test, completes_a_batch_once)
{
    const auto token = expect(1);
    reports->answer(token, true);
    reports->answer(token, false);
    run_posted();
    EXPECT_THAT(answers, ElementsAre(Pair(1, true)));
}

TEST_F(broker_reports_test, gives_up_what_is_not_answered_in_time)
{
    const auto token = expect(1);
    EXPECT_THAT(reports->give_up(1h), IsEmpty());
    EXPECT_THAT(reports->give_up(-1h), ElementsAre(token));
    reports->answer(token, true);
    run_posted();
    EXPECT_THAT(answers, ElementsAre(Pair(1, false)));
}

TEST_F(broker_reports_test, calls_nothing_after_its_end)
{
    reports->answer(expect(1), true);
    reports.reset();
    run_posted();
    EXPECT_THAT(answers, IsEmpty());
}

TEST_F(broker_reports_test, reports_refusals_of_a_broker_that_is_there)
{
    reports->note_refusal("no room");
    EXPECT_EQ(reports->fault(), "not connected yet");
    reports->note_fault("");
    EXPECT_EQ(reports->fault(), "no room");
    reports->note_fault("gone");
    EXPECT_EQ(reports->fault(), "gone");
}

} // namespace
} // namespace vantor
