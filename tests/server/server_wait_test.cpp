/** @file
 * The server core gives up a wait for a sensor that nobody needs any more.
 */
#include "server_fixture.h"

#include "zet_vantor_server_error_messages.h"

namespace
{

constexpr std::string_view end_line = "{\"command\":\"end\"}\n";
constexpr std::string_view stop_line = "{\"command\":\"stop\"}\n";

class server_wait : public server_fixture
{
protected:
    /** During the next frames, the port shows the server these bytes, in these pieces. A frame whose wait was
     * given up fails as in the backend. */
    void during_wait(const std::vector<std::string> &pieces,
                     zet_vantor_server_host_t host = ZET_VANTOR_SERVER_HOST_CONNECTED)
    {
        ahead.clear();
        fake_backend.frame_message = error_nox_data_str;
        fake_backend.during_frame = [this, pieces, host] {
            gave_up_at = 0;
            for (const std::string &piece : pieces)
            {
                zet_vantor_server_look_ahead(piece.data(), piece.size());
                ahead += piece;
                gave_up_at += zet_vantor_server_gives_up_wait(host) ? 0 : 1;
            }
            fake_backend.frame_result = gave_up_at == pieces.size();
            if (!fake_backend.frame_result)
            {
                EXPECT_TRUE(zet_vantor_server_has_given_up_wait());
                zet_vantor_server_log(ZET_LOG_LEVEL_ERROR, "vantor_server_system_k330",
                                      "Sensor 1 interrupt timeout");
            }
        };
    }

    /** Runs a step of a stream; returns whether its wait was given up. */
    bool step_gives_up()
    {
        EXPECT_EQ(fake_port.sent, "");
        wait = zet_vantor_server_step();
        EXPECT_FALSE(zet_vantor_server_has_given_up_wait());
        return !fake_backend.frame_result;
    }

    /** Executes what was ahead. Returns the names of the answered commands; the codes of errors. */
    std::vector<std::string> execute_ahead()
    {
        fake_backend.during_frame = [] {};
        fake_backend.frame_result = true;
        send(std::exchange(ahead, {}));
        std::vector<std::string> answers;
        for (const message_t &message : take_messages())
        {
            answers.push_back(message.members.value("command", message.members.value("code", "frame")));
        }
        return answers;
    }

    static nlohmann::json errors()
    {
        return ask(R"({"command":"stats"})").members["errors"];
    }

    std::string ahead;
    size_t gave_up_at = 0; /**< number of pieces after which the server still waited */
    uint32_t wait = 0;
};

using answers_t = std::vector<std::string>;

TEST_F(server_wait, ends_when_the_host_of_a_stream_sends_end)
{
    start();
    execute(R"({"command":"log","level":"DEBUG"})");
    enter("streaming");
    during_wait({"", std::string(end_line)});
    EXPECT_TRUE(step_gives_up());
    EXPECT_EQ(gave_up_at, 1U);
    EXPECT_EQ(fake_port.sent, "") << "there is no error and no log line";
    EXPECT_EQ(wait, ZET_VANTOR_SERVER_IDLE);
    EXPECT_EQ(execute_ahead(), answers_t{"end"});
    EXPECT_EQ(calls("destroy_session"), 1);
    EXPECT_EQ(errors(), nlohmann::json::object());
    enter("streaming");
    EXPECT_FALSE(step_gives_up()) << "the next session is not affected";
    EXPECT_EQ(take_messages().size(), 1U);
}

TEST_F(server_wait, finds_end_in_any_pieces_and_with_white_space)
{
    for (const std::string_view line :
         {end_line, std::string_view("\n\r\n{\"command\":\"end\"}\r\n"),
          std::string_view(" { \t\"command\" :\"end\" } \n"), std::string_view("{\"command\": \"end\"}\n")})
    {
        for (size_t cut = 1; cut < line.size(); ++cut)
        {
            start();
            enter("streaming");
            during_wait({std::string(line.substr(0, cut)), std::string(line.substr(cut))});
            EXPECT_TRUE(step_gives_up()) << line;
            EXPECT_EQ(gave_up_at, 1U) << "only the line feed completes it";
            EXPECT_EQ(execute_ahead(), answers_t{"end"});
            EXPECT_EQ(calls("destroy_session"), calls("parse_configuration"));
            zet_vantor_server_deinit();
        }
    }
    started = false;
}

TEST_F(server_wait, finds_an_end_whose_beginning_was_received_before)
{
    start();
    enter("streaming");
    send(end_line.substr(0, 7));
    during_wait({std::string(end_line.substr(7))});
    EXPECT_TRUE(step_gives_up());
    EXPECT_EQ(execute_ahead(), answers_t{"end"});
}

TEST_F(server_wait, executes_the_commands_before_end_as_usual)
{
    start();
    enter("streaming");
    during_wait({"{\"command\":\"stats\"}\n" + std::string(stop_line) + "{\"command\":\"start\"}\n[]\n" +
                 std::string(end_line) + std::string(configure_command) + "\n{\"command\":\"frame\"}\n"});
    EXPECT_TRUE(step_gives_up());
    EXPECT_EQ(zet_vantor_server_step(), ZET_VANTOR_SERVER_IDLE) << "no more frames are measured";
    EXPECT_EQ(calls("read_data_frames"), 1);
    EXPECT_EQ(execute_ahead(), (answers_t{"stats", "stop", "start", "bad_command", "end", "frame", "frame"}));
    EXPECT_EQ(calls("destroy_session"), 1);
}

TEST_F(server_wait, continues_if_no_end_comes)
{
    start();
    for (const std::string line :
         {"{\"command\":\"stop\"}\n", "{\"command\":\"ping\"}\n", "{\"command\":\"end\"}",
          "{\"command\":\"end\"}}\n", "{\"command\":\"end\",\"a\":1}\n", "{\"command\":\"e nd\"}\n",
          "{\"command\":\"end \"}\n", "x{\"command\":\"end\"}\n", "{ \"comm and\":\"end\"}\n", "[\"end\"]\n",
          "{\"command\":\"\\u0065nd\"}\n"})
    {
        enter("streaming");
        during_wait({line});
        EXPECT_FALSE(step_gives_up()) << line;
        take_messages();
        ahead += "\n";
        execute_ahead();
    }
}

TEST_F(server_wait, continues_if_a_frame_is_requested_before_end)
{
    start();
    enter("streaming");
    during_wait({std::string(stop_line) + "{\"command\":\"frame\"}\n" + std::string(end_line)});
    EXPECT_FALSE(step_gives_up());
    take_messages();
    EXPECT_EQ(execute_ahead(), (answers_t{"stop", "frame", "end"}));
    enter("streaming");
    during_wait({std::string(stop_line) + "{\"command\":\"fr\\u0061me\"}\n" + std::string(end_line)});
    EXPECT_FALSE(step_gives_up());
    take_messages();
    EXPECT_EQ(execute_ahead(), (answers_t{"stop", "frame", "end"}));
}

TEST_F(server_wait, does_not_mistake_other_commands_for_a_requested_frame)
{
    start();
    for (const std::string before :
         {"{\"command\":\"configure\",\"configuration\":{\"frame_rate\":1}}", "{\"command\":\"frames\"}",
          "{\"command\":\"C:\\\\frame\"}", "\"\"fram\"\"\"rame\""})
    {
        enter("streaming");
        during_wait({before + "\n" + std::string(end_line)});
        EXPECT_TRUE(step_gives_up()) << before;
        EXPECT_EQ(execute_ahead().back(), "end");
    }
}

TEST_F(server_wait, continues_for_a_requested_frame_because_it_must_be_answered)
{
    start();
    enter("configured");
    during_wait({std::string(end_line)});
    send("{\"command\":\"frame\"}\n");
    EXPECT_TRUE(fake_backend.frame_result);
    EXPECT_EQ(take_messages().size(), 1U);
    EXPECT_EQ(execute_ahead(), answers_t{"end"});
}

TEST_F(server_wait, finds_only_an_end_that_was_not_executed)
{
    start();
    execute(R"({"command":"end"})");
    enter("streaming");
    during_wait({""});
    EXPECT_FALSE(step_gives_up());
}

TEST_F(server_wait, ends_for_the_host_of_a_stream_that_sends_nothing_more)
{
    start();
    enter("streaming");
    during_wait({""}, ZET_VANTOR_SERVER_HOST_FINISHED);
    EXPECT_TRUE(step_gives_up());
    EXPECT_EQ(calls("destroy_session"), 1);
    EXPECT_EQ(fake_port.sent, "");
    EXPECT_EQ(errors(), nlohmann::json::object());
}

TEST_F(server_wait, continues_for_a_host_that_sends_nothing_more_but_is_owed_answers)
{
    start();
    enter("streaming");
    during_wait({std::string(stop_line)}, ZET_VANTOR_SERVER_HOST_FINISHED);
    EXPECT_FALSE(step_gives_up());
    take_messages();
    EXPECT_EQ(execute_ahead(), answers_t{"stop"});
    during_wait({""}, ZET_VANTOR_SERVER_HOST_FINISHED);
    send("{\"command\":\"frame\"}\n");
    EXPECT_TRUE(fake_backend.frame_result);
    EXPECT_EQ(take_messages().size(), 1U);
}

TEST_F(server_wait, ends_in_any_state_if_the_host_is_gone)
{
    start();
    for (const char *state : {"streaming", "configured"})
    {
        enter(state);
        during_wait({std::string(stop_line)}, ZET_VANTOR_SERVER_HOST_GONE);
        state == std::string("streaming") ? (void)zet_vantor_server_step()
                                          : send("{\"command\":\"frame\"}\n");
        EXPECT_FALSE(fake_backend.frame_result);
        EXPECT_EQ(fake_port.sent, "");
        zet_vantor_server_link_lost();
        during_wait({});
        fake_backend.frame_result = true;
    }
    EXPECT_EQ(errors(), nlohmann::json::object());
}

TEST_F(server_wait, ends_without_an_error_if_the_host_is_gone_during_a_calibration)
{
    start();
    fake_backend.during_parse = [] {
        EXPECT_TRUE(zet_vantor_server_gives_up_wait(ZET_VANTOR_SERVER_HOST_GONE));
        fake_backend.parse_result = false;
        fake_backend.parse_message = error_nox_sensor_calibration_str;
    };
    send(std::string(configure_command) + "\n");
    EXPECT_EQ(fake_port.sent, "");
    EXPECT_EQ(calls("destroy_session"), 1);
    EXPECT_EQ(errors(), nlohmann::json::object());
}

TEST_F(server_wait, ends_the_session_also_if_the_end_ahead_is_not_executed)
{
    start();
    enter("streaming");
    during_wait({std::string(plain_port().line_size, ' ') + std::string(end_line)});
    EXPECT_TRUE(step_gives_up());
    EXPECT_EQ(execute_ahead(), answers_t{"line_too_long"});
    EXPECT_EQ(calls("destroy_session"), 1);
    EXPECT_EQ(refusal(R"({"command":"stop"})"), "wrong_state");
}

TEST_F(server_wait, forgets_what_was_ahead_when_the_link_is_lost)
{
    start();
    enter("streaming");
    during_wait({std::string(end_line)});
    EXPECT_TRUE(step_gives_up());
    zet_vantor_server_link_lost();
    EXPECT_EQ(calls("destroy_session"), 1);
    fake_backend.frame_result = true;
    enter("streaming");
    during_wait({""});
    EXPECT_FALSE(step_gives_up());
}

TEST_F(server_wait, looks_at_every_byte_once)
{
    start();
    enter("streaming");
    during_wait({"\n\n{\"command\"", ":\"ping\"}\n"});
    EXPECT_FALSE(step_gives_up());
    take_messages();
    during_wait({});
    // The port passes what was ahead in smaller pieces than it has shown, and then a new command.
    send("\n");
    send("\n{\"command\":\"pi");
    send("ng\"}\n{\"command\":\"e");
    EXPECT_EQ(take_messages().size(), 1U);
    during_wait({"nd\"}\n"});
    EXPECT_TRUE(step_gives_up());
    EXPECT_EQ(execute_ahead(), answers_t{"end"});
}

} // namespace
