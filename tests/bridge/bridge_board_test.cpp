/** @file
 * Tests of a board of a bridge, in virtual time.
 */
#include "bridge/bridge_board.h"

#include <stdexcept>

#include <gmock/gmock.h>

#include "example_batch.h"
#include "scripted_server.h"
#include "stored_batches.h"
#include "temporary_directory.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::example_messages;
using test::example_session;
using test::frames_in;
using test::host_connection;
using test::stored_batches;
using test::stored_session;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/** A board with a scripted server, and a broker that stores what is published when the bridge has ended. */
class bridge_board_test : public testing::Test
{
protected:
    bridge_board_test()
    {
        server.on("identify", test::identify_as("Ceiling", "A17"));
        server.on("start", test::stream_frames(5));
    }

    /** Opens links to the server, and notes when. */
    client::link_factory links()
    {
        return [this] {
            connected.push_back(clock.now());
            if (is_away)
            {
                throw connect_error("Nobody is there.");
            }
            return server.links()();
        };
    }

    /** Bridges the board for some time, and then has the broker store everything. */
    void run_for(test::manual_clock::duration span)
    {
        const auto end = clock.now() + span;
        context.stop = [this, end] {
            at_stop();
            return is_stopped || clock.now() >= end;
        };
        board.emplace(bridged_board{.name = name,
                                    .address = "tcp:10.0.0.5:6110",
                                    .open_links = links(),
                                    .configuration = configuration},
                      context);
        board->run();
        waiting = board->report(0.0).waiting;
        while (batches.waiting() > 0)
        {
            batches.run();
            target.answer(true);
        }
    }

    /** Sends the answer to "start", and a frame. */
    static void send_frame(host_connection &host, uint32_t number, const json &flags = json::object())
    {
        auto header = example_session().frame_header(number);
        header["result_info"][0][0].update(flags);
        host.send(header, example_session().frame_payload(number));
    }

    /** Sets the reactions to "start": one after the other, and the last one from then on. */
    void on_starts(std::vector<test::reaction> reactions)
    {
        starts = 0;
        server.on("start",
                  [this, reactions = std::move(reactions)](host_connection &host, const json &command) {
                      reactions[std::min(starts++, reactions.size() - 1)](host, command);
                  });
    }

    /** Answers to "start". */
    static void answer_start(host_connection &host)
    {
        host.send({{"status", "ok"}, {"command", "start"}, {"payload_size", 0}}, "");
    }

    /** The state now. */
    board_state state()
    {
        return board->report(0.0);
    }

    test::temporary_directory directory;
    test::manual_clock clock;
    std::shared_ptr<test::manual_loop> loop = std::make_shared<test::manual_loop>(clock);
    test::scripted_server server{clock};
    test::fake_broker target;
    spool store{directory / "spool", {.file = 1U << 20U, .slot = 1U << 16U}};
    publisher batches{store, target, *loop};
    std::string name = "door";
    json configuration = example_session().configuration;
    std::function<void()> at_stop = [] {}; /**< when the board asks whether to end */
    std::vector<std::string> lines;
    std::vector<std::string> claimed;
    bool is_claimed = false; /**< the name that the board wants */
    bool is_away = false;    /**< the server */
    bool is_stopped = false; /**< the bridge */
    size_t starts = 0;       /**< commands "start" */
    std::vector<test::manual_clock::duration> connected;
    uint64_t waiting = 0; /**< batches at the end */
    bridge_context context{.site = "hall",
                           .limits = {},
                           .batches = batches,
                           .loop = loop,
                           .report = [this](const std::string &line) { lines.push_back(line); },
                           .claim_name =
                               [this](const std::string &wanted) {
                                   claimed.push_back(wanted);
                                   return !is_claimed;
                               },
                           .stop = {}};
    std::optional<bridge_board> board;
};

TEST_F(bridge_board_test, passes_frames_on)
{
    run_for(1s);
    const auto session = stored_session(target, "door", 0);
    ASSERT_THAT(session, SizeIs(2));
    EXPECT_EQ(session[0].header.site, "hall");
    EXPECT_THAT(session[0].messages, SizeIs(5));
    EXPECT_EQ(json::parse(session[0].messages[4].substr(
                  0, session[0].messages[4].find('\n')))["result_info"][0][0]["tick"],
              4 * 20000);
    ASSERT_NE(session[0].header.content, nullptr);
    EXPECT_EQ(session[0].header.content->metadata, example_session().metadata);
    EXPECT_EQ(session[0].header.content->server["board"],
              nlohmann::ordered_json({{"id", "A17"}, {"name", "Ceiling"}}));
    EXPECT_EQ(session[1].header.frames, 0U);
    EXPECT_EQ(session[1].header.end, "the bridge was stopped");
    EXPECT_THAT(lines, ElementsAre("door: measuring"));
    EXPECT_EQ(test::last_command(server.lines(), "stop")["command"], "stop");
}

TEST_F(bridge_board_test, begins_a_new_session_after_the_link_was_lost)
{
    on_starts({test::lose_link_after(3), test::stream_frames(2)});
    run_for(2s);
    const auto first = stored_session(target, "door", 0);
    const auto second = stored_session(target, "door", 1);
    EXPECT_EQ(frames_in(first), 3U);
    EXPECT_EQ(first.back().header.end, "The script closed the line.");
    ASSERT_THAT(second, SizeIs(2));
    EXPECT_NE(second[0].header.content, nullptr);
    EXPECT_EQ(frames_in(second), 2U);
    EXPECT_EQ(second[1].header.end, "the bridge was stopped");
    EXPECT_THAT(stored_session(target, "door", 2), IsEmpty());
    EXPECT_THAT(lines,
                ElementsAre("door: measuring", "door: The script closed the line.", "door: measuring"));
    EXPECT_EQ(state().sessions, 2U);
    EXPECT_EQ(state().frames, 5U);
}

TEST_F(bridge_board_test, connects_again_less_and_less_often)
{
    is_away = true;
    run_for(100s);
    EXPECT_THAT(connected,
                ElementsAre(0s, 500ms, 1500ms, 3500ms, 7500ms, 15500ms, 31500ms, 61500ms, 91500ms));
    EXPECT_THAT(lines, ElementsAre("door: Nobody is there."));
    EXPECT_THAT(target.stored, IsEmpty());
}

TEST_F(bridge_board_test, connects_again_soon_after_frames_have_arrived)
{
    on_starts({test::lose_link_after(1)});
    is_away = true;
    at_stop = [this] { is_away = connected.size() < 4; };
    run_for(10s);
    // The attempt after 7.5 s succeeds.
    ASSERT_GE(connected.size(), 8U);
    EXPECT_THAT(std::vector(connected.begin() + 4, connected.begin() + 8),
                ElementsAre(7500ms, 8000ms, 8500ms, 9000ms));
}

TEST_F(bridge_board_test, tells_each_fault_once)
{
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "error"}, {"code", "bad_config"}, {"message", "No."}, {"payload_size", 0}}, "");
    });
    run_for(10s);
    EXPECT_GT(connected.size(), 3U);
    EXPECT_THAT(lines, ElementsAre("door: No. (bad_config)"));
    EXPECT_EQ(state().fault, "No. (bad_config)");
    EXPECT_FALSE(state().online);
    EXPECT_EQ(state().sessions, 0U);
    EXPECT_THAT(target.stored, IsEmpty());
}

TEST_F(bridge_board_test, survives_what_nobody_expects)
{
    on_starts({[](host_connection &, const json &) { throw std::logic_error("not expected"); },
               test::stream_frames(2)});
    run_for(2s);
    EXPECT_THAT(lines, ElementsAre("door: measuring", "door: not expected", "door: measuring"));
    EXPECT_EQ(stored_session(target, "door", 0).back().header.end, "not expected");
    EXPECT_EQ(frames_in(stored_session(target, "door", 1)), 2U);
}

TEST_F(bridge_board_test, reports_its_state_while_it_measures)
{
    server.on("start", [](host_connection &host, const json &) {
        answer_start(host);
        send_frame(host, 0);
        send_frame(host, 1, {{"temperature", 31}});
        send_frame(host, 4, {{"calibration_needed", true}});
    });
    std::optional<board_state> seen;
    at_stop = [&] {
        if (clock.now() > 500ms && !seen)
        {
            seen = state();
        }
    };
    run_for(1s);
    ASSERT_TRUE(seen.has_value());
    EXPECT_EQ(seen->board, "door");
    EXPECT_EQ(seen->address, "tcp:10.0.0.5:6110");
    EXPECT_TRUE(seen->online);
    EXPECT_EQ(seen->fault, "");
    EXPECT_EQ(seen->server.value().board.value().id, "A17");
    EXPECT_EQ(seen->sessions, 1U);
    EXPECT_EQ(seen->frames, 3U);
    EXPECT_EQ(seen->lost, 2U);
    EXPECT_EQ(seen->dropped, 0U);
    EXPECT_EQ(seen->waiting, 1U);
    EXPECT_EQ(seen->temperature, -3);
    EXPECT_TRUE(seen->calibration_needed);
    EXPECT_FALSE(state().online);
}

TEST_F(bridge_board_test, measures_the_rate_between_two_reports)
{
    run_for(1s);
    // That of the end was the first one.
    EXPECT_EQ(board->report(2.0).rate, 0.0);
    on_starts({test::stream_frames(8)});
    std::vector<double> rates;
    at_stop = [&] {
        if (clock.now() > 1500ms && rates.size() < 2)
        {
            rates.push_back(board->report(2.0).rate);
        }
    };
    run_for(1s);
    EXPECT_THAT(rates, ElementsAre(4.0, 0.0));
}

TEST_F(bridge_board_test, adds_up_what_is_lost_in_its_sessions)
{
    const auto lose = [](uint32_t last, bool close) {
        return [=](host_connection &host, const json &) {
            answer_start(host);
            send_frame(host, 0);
            send_frame(host, last);
            if (close)
            {
                host.close();
            }
        };
    };
    on_starts({lose(2, true), lose(3, false)});
    run_for(2s);
    EXPECT_EQ(state().lost, 3U);
    EXPECT_EQ(stored_session(target, "door", 0).back().header.missing, 1U);
    EXPECT_EQ(stored_session(target, "door", 1).back().header.missing, 2U);
}

TEST_F(bridge_board_test, begins_a_new_session_with_new_calibrations)
{
    configuration["calibration_info"] = json::array();
    const auto ask = [](host_connection &host, const json &) {
        answer_start(host);
        send_frame(host, 0, {{"calibration_needed", true}});
    };
    on_starts({ask, test::stream_frames(2)});
    context.recalibrate = true;
    run_for(3s);
    EXPECT_THAT(connected, SizeIs(1));
    EXPECT_EQ(state().sessions, 2U);
    EXPECT_EQ(stored_session(target, "door", 0).back().header.end, "calibrated again");
    const auto second = stored_session(target, "door", 1);
    ASSERT_FALSE(second.empty());
    EXPECT_NE(second[0].header.content, nullptr);
    EXPECT_EQ(frames_in(second), 2U);
}

TEST_F(bridge_board_test, does_not_calibrate_unless_it_is_asked_to)
{
    server.on("start", [](host_connection &host, const json &) {
        answer_start(host);
        send_frame(host, 0, {{"calibration_needed", true}});
    });
    run_for(3s);
    EXPECT_EQ(state().sessions, 1U);
    EXPECT_TRUE(state().calibration_needed);
}

TEST_F(bridge_board_test, keeps_the_name_that_it_was_given)
{
    run_for(1s);
    EXPECT_EQ(state().board, "door");
    EXPECT_THAT(claimed, IsEmpty());
}

TEST_F(bridge_board_test, is_called_what_its_server_reports)
{
    name = "";
    for (const auto &[kind, id, expected] :
         std::vector<std::array<std::string, 3>>{{"Ceiling", "A17", "A17"},
                                                 {"Ceiling", "", "Ceiling"},
                                                 {"", "", "board"},
                                                 {"", "A.1/7 b", "A-1-7-b"}})
    {
        server.on("identify", test::identify_as(kind, id));
        run_for(1s);
        EXPECT_EQ(state().board, expected);
        EXPECT_EQ(claimed.back(), expected);
        EXPECT_EQ(frames_in(stored_batches(target, expected)), 5U);
    }
}

TEST_F(bridge_board_test, is_called_board_if_its_server_reports_nothing)
{
    name = "";
    server.on("identify", [](host_connection &host, const json &) { host.send(test::identity(), ""); });
    run_for(1s);
    EXPECT_EQ(state().board, "board");
}

TEST_F(bridge_board_test, keeps_its_name_when_the_server_has_another_one_later)
{
    name = "";
    on_starts({test::lose_link_after(1), test::stream_frames(1)});
    at_stop = [this] {
        if (connected.size() == 1)
        {
            server.on("identify", test::identify_as("", "B2"));
        }
    };
    run_for(2s);
    EXPECT_THAT(claimed, ElementsAre("A17"));
    EXPECT_EQ(stored_batches(target, "A17").size(), target.stored.size());
    EXPECT_EQ(state().server.value().board.value().id, "B2");
}

TEST_F(bridge_board_test, does_not_measure_under_the_name_of_another_board)
{
    name = "";
    is_claimed = true;
    run_for(2s);
    EXPECT_EQ(state().board, "");
    EXPECT_THAT(state().fault, AllOf(HasSubstr("Another board of this bridge is called \"A17\""),
                                     HasSubstr("--connect A17-2=tcp:10.0.0.5:6110")));
    EXPECT_THAT(lines, ElementsAre("tcp:10.0.0.5:6110: " + state().fault));
    EXPECT_THAT(target.stored, IsEmpty());
    for (const auto &line : server.lines())
    {
        EXPECT_THAT(line, testing::Not(HasSubstr("start")));
    }
}

TEST_F(bridge_board_test, counts_frames_that_the_spool_does_not_take)
{
    // A slot for the first batch, and one for the second: it takes no more.
    while (store.add(std::string(store.largest() - 10, 'x')))
    {
    }
    run_for(1s);
    EXPECT_EQ(state().dropped, 5U);
    EXPECT_EQ(state().frames, 5U);
}

TEST_F(bridge_board_test, ends_at_once_when_it_waits)
{
    is_away = true;
    at_stop = [this] {
        // It is about to wait from 31.5 s to 61.5 s.
        if (connected.size() == 7 && !is_stopped)
        {
            loop->post([this] {
                is_stopped = true;
                loop->cancel();
            });
        }
    };
    run_for(100s);
    EXPECT_EQ(clock.now(), 31500ms);
}

} // namespace
} // namespace vantor
