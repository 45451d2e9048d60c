/** @file
 * Log lines that the server core sends to the host.
 */
#include "server_fixture.h"

#include "zet_vantor_server_error_messages.h"

namespace
{

class server_log : public server_fixture
{
protected:
    void SetUp() override
    {
        server_fixture::SetUp();
        start();
    }

    static void request(const std::string &level)
    {
        execute(R"({"command":"log","level":")" + level + "\"}");
    }

    static void log_all_levels()
    {
        for (uint8_t level = 0; level < 5; ++level)
        {
            zet_vantor_server_log(static_cast<zet_log_level_t>(level), "module", "text");
        }
    }

    /** For each message sent, its text if it is a log line, or else its status. */
    static std::vector<std::string> contents()
    {
        std::vector<std::string> result;
        for (const message_t &message : take_messages())
        {
            const std::string status = message.members["status"];
            result.push_back(status == "log" ? message.members["message"].get<std::string>() : status);
        }
        return result;
    }

    using texts_t = std::vector<std::string>;

    /** Logs as many lines as fit into the ring, and @p more; returns the messages after those that fit. */
    static texts_t messages_after_a_full_ring(int more)
    {
        // 3 bytes besides the texts, 1 for the module: 8 lines of 256 bytes fill the ring.
        constexpr size_t fit = 8;
        const std::string text(252, 'x');
        for (size_t i = 0; i < fit; ++i)
        {
            zet_vantor_server_log(ZET_LOG_LEVEL_INFO, "m", text.c_str());
        }
        for (int i = 0; i < more; ++i)
        {
            zet_vantor_server_log(ZET_LOG_LEVEL_INFO, "m", "one more");
        }
        zet_vantor_server_step();
        const std::vector<message_t> messages = take_messages();
        EXPECT_GE(messages.size(), fit);
        texts_t lines;
        for (size_t i = fit; i < messages.size(); ++i)
        {
            lines.push_back(messages[i].line);
        }
        return lines;
    }

    /** The message about lost lines. */
    static std::string message_about(int lost)
    {
        return R"({"status":"log","level":"WARNING","module":"vantor_server",)"
               R"("message":"Log lines were lost: set a less verbose level.","lost":)" +
               std::to_string(lost) + R"(,"payload_size":0})";
    }
};

TEST_F(server_log, sends_nothing_unless_requested)
{
    log_all_levels();
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
}

TEST_F(server_log, sends_lines_of_a_level_and_the_more_severe_ones)
{
    const struct
    {
        const char *word;
        size_t lines;
    } levels[] = {{"OFF", 0}, {"ERROR", 1}, {"WARNING", 2}, {"INFO", 3}, {"VERBOSE", 4}, {"DEBUG", 5}};
    for (const auto &level : levels)
    {
        request(level.word);
        log_all_levels();
        zet_vantor_server_step();
        const std::vector<message_t> messages = take_messages();
        ASSERT_EQ(messages.size(), level.lines) << level.word;
        for (size_t i = 0; i < messages.size(); ++i)
        {
            EXPECT_EQ(messages[i].members["level"], levels[i + 1].word);
        }
    }
    zet_vantor_server_log(static_cast<zet_log_level_t>(200), "module", "no level");
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
}

TEST_F(server_log, sends_a_line_as_a_message)
{
    request("INFO");
    zet_vantor_server_log(ZET_LOG_LEVEL_INFO, "vantor_server_system_k330", "Powered on \"1\"\n\xff");
    EXPECT_TRUE(fake_port.sent.empty());
    zet_vantor_server_step();
    EXPECT_EQ(fake_port.sent,
              "{\"status\":\"log\",\"level\":\"INFO\",\"module\":\"vantor_server_system_k330\","
              "\"message\":\"Powered on \\\"1\\\"\\u000a\\ufffd\",\"payload_size\":0}\n");
}

TEST_F(server_log, refuses_an_unknown_level)
{
    for (const char *level : {"\"info\"", "\"\"", "\"LOUD\"", "3", "null", "[\"INFO\"]"})
    {
        EXPECT_EQ(refusal(R"({"command":"log","level":)" + std::string(level) + "}"), "bad_argument")
            << level;
    }
    EXPECT_EQ(refusal(R"({"command":"log"})"), "bad_argument");
}

TEST_F(server_log, sends_the_lines_of_a_command_before_its_answer)
{
    request("INFO");
    fake_backend.during_parse = [] { zet_vantor_server_log(ZET_LOG_LEVEL_INFO, "m", "parsing"); };
    fake_backend.during_frame = [] { zet_vantor_server_log(ZET_LOG_LEVEL_INFO, "m", "measuring"); };
    send(std::string(configure_command) + "\n");
    EXPECT_EQ(contents(), (texts_t{"parsing", "ok"}));
    send("{\"command\":\"frame\"}\n");
    EXPECT_EQ(contents(), (texts_t{"ok", "measuring"})) << "log lines of a frame are sent after it";
    send("{\"command\":\"start\"}\n");
    EXPECT_EQ(contents(), (texts_t{"ok"}));
    zet_vantor_server_step();
    EXPECT_EQ(contents(), (texts_t{"ok", "measuring"}));
    fake_backend.frame_result = false;
    zet_vantor_server_step();
    EXPECT_EQ(contents(), (texts_t{"measuring", "error"}));
    fake_backend.parse_result = false;
    send(std::string(configure_command) + "\n");
    EXPECT_EQ(contents(), (texts_t{"parsing", "error"}));
}

TEST_F(server_log, reports_how_many_lines_were_lost)
{
    request("INFO");
    const std::string text(200, 'x');
    for (int i = 0; i < 100; ++i)
    {
        zet_vantor_server_log(ZET_LOG_LEVEL_INFO, "m", text.c_str());
    }
    zet_vantor_server_step();
    const std::vector<message_t> messages = take_messages();
    ASSERT_GT(messages.size(), 2U);
    const nlohmann::json &last = messages.back().members;
    EXPECT_EQ(last["level"], "WARNING");
    EXPECT_EQ(last["module"], "vantor_server");
    EXPECT_EQ(last["lost"].get<size_t>() + messages.size() - 1, 100U);
    EXPECT_EQ(messages.front().members.contains("lost"), false);
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
}

TEST_F(server_log, reports_every_lost_line)
{
    request("INFO");
    EXPECT_EQ(messages_after_a_full_ring(0), texts_t{}) << "all lines fit";
    EXPECT_EQ(messages_after_a_full_ring(1), texts_t{message_about(1)});
    EXPECT_EQ(messages_after_a_full_ring(2), texts_t{message_about(2)});
    EXPECT_EQ(messages_after_a_full_ring(1), texts_t{message_about(1)}) << "counted from the last report";
    EXPECT_EQ(messages_after_a_full_ring(0), texts_t{});
}

TEST_F(server_log, does_not_loop_when_sending_a_line_logs_another)
{
    zet_vantor_server_deinit();
    zet_vantor_server_port_t port = plain_port();
    port.link.write = [](const void *data, uint32_t size) {
        fake_port.sent.append(static_cast<const char *>(data), size);
        zet_vantor_server_log(ZET_LOG_LEVEL_ERROR, "link", "sent");
    };
    start(port);
    send("{\"command\":\"log\",\"level\":\"ERROR\"}\n");
    EXPECT_EQ(contents(), (texts_t{"ok", "sent"}));
    zet_vantor_server_step();
    EXPECT_EQ(contents(), (texts_t{"sent"}));
    zet_vantor_server_step();
    EXPECT_EQ(contents(), (texts_t{"sent"}));
}

TEST_F(server_log, sends_nothing_to_the_next_host)
{
    request("DEBUG");
    zet_vantor_server_log(ZET_LOG_LEVEL_ERROR, "m", "for the first host");
    zet_vantor_server_link_lost();
    zet_vantor_server_log(ZET_LOG_LEVEL_ERROR, "m", "for nobody");
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
    execute(R"({"command":"ping"})");
}

TEST_F(server_log, sends_nothing_after_it_is_turned_off)
{
    request("DEBUG");
    zet_vantor_server_log(ZET_LOG_LEVEL_ERROR, "m", "before");
    send("{\"command\":\"log\",\"level\":\"OFF\"}\n");
    EXPECT_EQ(contents(), (texts_t{"before", "ok"}));
    log_all_levels();
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
}

} // namespace
