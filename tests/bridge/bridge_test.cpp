/** @file
 * Tests of a bridge with servers on real connections.
 */
#include "bridge/bridge.h"

#include <algorithm>
#include <stdexcept>

#include <gmock/gmock.h>

#include "example_batch.h"
#include "fake_server.h"
#include "stored_batches.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::example_session;
using test::fake_server;
using test::frames_in;
using test::stored_batches;
using test::stored_session;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

/** A broker that stores what is published, when the loop runs the next time. */
class storing_broker : public test::fake_broker
{
public:
    explicit storing_broker(event_loop &loop) : loop_(loop)
    {
    }

    void publish(outgoing_batch sent, std::function<void(bool stored)> done) override
    {
        fake_broker::publish(std::move(sent), std::move(done));
        loop_.post([this] { answer(true); });
    }

private:
    event_loop &loop_;
};

/** Two servers, "A17" and "B2", whose boards are bridged to a broker. */
class bridge_test : public testing::Test
{
protected:
    bridge_test()
    {
        ceiling.on("identify", test::identify_as("Ceiling", "A17"));
        wall.on("identify", test::identify_as("Wall", "B2"));
        ceiling.on("start", test::stream_frames(5));
        wall.on("start", test::stream_frames(7));
    }

    /** A board with a server. */
    [[nodiscard]] bridged_board board_at(const fake_server &server, const std::string &name = "") const
    {
        return {.name = name,
                .address = server.address(),
                .open_links = [where = parse_address(server.address()),
                               loop = loop] { return open_link(where, 60s, loop); },
                .configuration = example_session().configuration};
    }

    /** Bridges boards until a condition holds; gives up after a minute. */
    void run(std::vector<bridged_board> boards, const std::function<bool()> &done)
    {
        spool store(directory / "spool", {.file = 1U << 20U, .slot = 1U << 16U});
        bridge passing(settings, std::move(boards), store, target, loop);
        const auto deadline = loop->now() + 1min;
        passing.run({.stop = [&] { return done() || loop->now() > deadline; },
                     .line = [this](const std::string &line) { lines.push_back(line); },
                     .report =
                         [this](const bridge_report &now) {
                             reports.push_back(now);
                             at_report(now);
                         }});
        EXPECT_LT(loop->now(), deadline);
        last = passing.report();
    }

    /** Whether the broker has a number of frames of a board. */
    [[nodiscard]] bool has_frames(const std::string &board, uint64_t count) const
    {
        return frames_in(stored_batches(target, board)) >= count;
    }

    /** The last state of a board that the broker has received. */
    [[nodiscard]] json last_state(const std::string &board) const
    {
        json found;
        for (const auto &[name, state] : target.states)
        {
            if (name == board)
            {
                found = json::parse(state);
            }
        }
        return found;
    }

    test::temporary_directory directory;
    std::shared_ptr<event_loop> loop = std::make_shared<event_loop>();
    storing_broker target{*loop};
    fake_server ceiling;
    fake_server wall;
    bridge_settings settings{.site = "hall",
                             .name = "west",
                             .limits = {.time = 20ms},
                             .interval = std::chrono::seconds(0),
                             .patience = std::chrono::seconds(60)};
    std::vector<std::string> lines;
    std::vector<bridge_report> reports;
    std::function<void(const bridge_report &)> at_report = [](const bridge_report &) {};
    bridge_report last;
};

TEST_F(bridge_test, passes_the_frames_of_all_boards_on)
{
    run({board_at(ceiling), board_at(wall, "gate")},
        [this] { return has_frames("A17", 5) && has_frames("gate", 7); });
    for (const auto &[board, frames] : {std::pair("A17", 5U), std::pair("gate", 7U)})
    {
        const auto session = stored_session(target, board, 0);
        EXPECT_EQ(frames_in(session), frames);
        EXPECT_EQ(session.back().header.end, "the bridge was stopped");
        EXPECT_EQ(session.front().header.site, "hall");
        EXPECT_THAT(stored_session(target, board, 1), IsEmpty());
    }
    EXPECT_THAT(lines,
                testing::UnorderedElementsAre("broker: connected", "A17: measuring", "gate: measuring"));
}

TEST_F(bridge_test, reports_the_boards_and_itself)
{
    run({board_at(ceiling), board_at(wall)}, [this] { return has_frames("A17", 5) && has_frames("B2", 7); });
    ASSERT_THAT(last.boards, SizeIs(2));
    EXPECT_EQ(last.boards[0].board, "A17");
    EXPECT_EQ(last.boards[0].frames, 5U);
    EXPECT_EQ(last.boards[0].sessions, 1U);
    EXPECT_FALSE(last.boards[0].online);
    EXPECT_EQ(last.boards[1].board, "B2");
    EXPECT_EQ(last.boards[1].frames, 7U);
    EXPECT_EQ(last.published.stored, target.stored.size());
    EXPECT_EQ(last.waiting, 0U);
    EXPECT_EQ(last.spool_used, 0U);
    EXPECT_EQ(last.spool_size, 1U << 20U);
    EXPECT_TRUE(last.broker_ready);
    EXPECT_FALSE(reports.empty());
}

TEST_F(bridge_test, publishes_the_states_of_the_boards)
{
    run({board_at(ceiling)},
        [this] { return has_frames("A17", 5) && last_state("A17").value("frames", 0) == 5; });
    const auto online = [](const auto &state) {
        return json::parse(state.second).at("online").template get<bool>();
    };
    EXPECT_TRUE(std::ranges::any_of(target.states, online));
    const auto state = last_state("A17");
    EXPECT_EQ(state["site"], "hall");
    EXPECT_EQ(state["board"], "A17");
    EXPECT_EQ(state["bridge"], "west");
    EXPECT_EQ(state["online"], false);
    EXPECT_EQ(state["frames"], 5);
    EXPECT_EQ(state["waiting"], 0);
    // A board without a name has no state that could be published.
    for (const auto &[board, text] : target.states)
    {
        EXPECT_EQ(board, "A17");
    }
}

TEST_F(bridge_test, connects_a_board_again_that_has_failed)
{
    ceiling.on("start", test::lose_link_after(3));
    run({board_at(ceiling), board_at(wall)}, [this] { return has_frames("A17", 6) && has_frames("B2", 7); });
    EXPECT_EQ(frames_in(stored_session(target, "A17", 0)), 3U);
    EXPECT_THAT(stored_session(target, "A17", 0).back().header.end, testing::Optional(testing::Ne("")));
    EXPECT_EQ(frames_in(stored_session(target, "A17", 1)), 3U);
    // The other one does not notice.
    EXPECT_EQ(frames_in(stored_session(target, "B2", 0)), 7U);
    EXPECT_THAT(stored_session(target, "B2", 1), IsEmpty());
}

TEST_F(bridge_test, measures_with_one_of_two_boards_that_have_the_same_name)
{
    wall.on("identify", test::identify_as("Wall", "A17"));
    run({board_at(ceiling), board_at(wall)}, [this] { return has_frames("A17", 5) && lines.size() >= 2; });
    EXPECT_THAT(lines, Contains("A17: measuring"));
    EXPECT_THAT(lines, Contains(AllOf(StartsWith("tcp:127.0.0.1:"),
                                      HasSubstr("Another board of this bridge is called \"A17\""))));
    EXPECT_THAT(stored_session(target, "A17", 1), IsEmpty());
}

TEST_F(bridge_test, says_once_that_the_spool_is_full)
{
    auto header = test::example_header(0);
    header.site = "yard";
    {
        spool store(directory / "spool", {.file = 1U << 20U, .slot = 1U << 16U});
        while (store.add(encode_batch(header, std::string(10'000, 'x'))))
        {
        }
    }
    const auto drops = [](const board_state &board) { return board.dropped > 0; };
    run({board_at(ceiling), board_at(wall)},
        [&] { return !reports.empty() && std::ranges::all_of(reports.back().boards, drops); });
    EXPECT_EQ(std::ranges::count(lines, "spool: frames are dropped, because the spool is full"), 1);
}

TEST_F(bridge_test, gives_a_name_to_the_board_that_it_was_given_for)
{
    run({board_at(ceiling), board_at(wall, "A17")},
        [this] { return has_frames("A17", 7) && lines.size() >= 2; });
    EXPECT_EQ(frames_in(stored_session(target, "A17", 0)), 7U);
    EXPECT_THAT(lines, Contains(StartsWith(ceiling.address())));
}

TEST_F(bridge_test, waits_at_its_end_until_the_broker_has_everything)
{
    target.is_ready = false;
    bool is_over = false;
    at_report = [&](const bridge_report &now) {
        // The broker comes back when the board has ended.
        target.is_ready = is_over && !now.boards.at(0).online;
    };
    run({board_at(ceiling)}, [&] {
        is_over = is_over || (!reports.empty() && reports.back().boards.at(0).frames == 5);
        EXPECT_THAT(target.stored, IsEmpty());
        return is_over;
    });
    EXPECT_EQ(last.waiting, 0U);
    const auto session = stored_session(target, "A17", 0);
    EXPECT_EQ(frames_in(session), 5U);
    EXPECT_EQ(session.back().header.end, "the bridge was stopped");
}

TEST_F(bridge_test, leaves_to_the_next_one_what_the_broker_does_not_take)
{
    target.is_ready = false;
    settings.patience = std::chrono::seconds(0);
    run({board_at(ceiling)}, [this] { return !reports.empty() && reports.back().boards.at(0).frames == 5; });
    EXPECT_GT(last.waiting, 0U);
    EXPECT_GT(last.spool_used, 0U);
    EXPECT_FALSE(last.broker_ready);
    EXPECT_THAT(target.stored, IsEmpty());
    target.is_ready = true;
    run({board_at(wall)}, [this] { return has_frames("A17", 5) && has_frames("B2", 7); });
    EXPECT_EQ(frames_in(stored_session(target, "A17", 0)), 5U);
    EXPECT_EQ(last.waiting, 0U);
}

TEST_F(bridge_test, tells_when_the_broker_goes_and_comes_back)
{
    target.why = "nobody answers";
    run({board_at(ceiling)}, [this] {
        if (std::ranges::count(lines, "broker: nobody answers") > 0)
        {
            target.why.clear();
        }
        return std::ranges::count(lines, "broker: connected") > 0;
    });
    EXPECT_THAT(lines, testing::IsSupersetOf({"broker: nobody answers", "broker: connected"}));
}

TEST_F(bridge_test, ends_when_it_is_cancelled)
{
    bool is_cancelled = false;
    run({board_at(ceiling), board_at(wall)}, [&] {
        if (!is_cancelled && has_frames("A17", 5) && has_frames("B2", 7))
        {
            is_cancelled = true;
            loop->cancel();
        }
        return is_cancelled;
    });
    EXPECT_EQ(stored_session(target, "A17", 0).back().header.end, "the bridge was stopped");
    EXPECT_EQ(stored_session(target, "B2", 0).back().header.end, "the bridge was stopped");
}

TEST_F(bridge_test, tells_what_nobody_expects_and_goes_on)
{
    auto broken = board_at(wall, "broken");
    broken.open_links = []() -> std::unique_ptr<link> { throw std::logic_error("not expected"); };
    run({board_at(ceiling), broken}, [this] { return has_frames("A17", 5); });
    EXPECT_THAT(lines, Contains("broken: not expected"));
    EXPECT_EQ(last.boards.at(1).fault, "not expected");
    EXPECT_EQ(stored_session(target, "A17", 0).back().header.end, "the bridge was stopped");
}

} // namespace
} // namespace vantor
