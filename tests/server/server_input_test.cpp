/** @file
 * Input of the server core: pieces, garbage, limits, and recovery.
 */
#include "server_fixture.h"

#include <random>

namespace
{

class server_input : public server_fixture
{
protected:
    void SetUp() override
    {
        server_fixture::SetUp();
        start();
    }

    /** Sends bytes in pieces and returns the codes and statuses of the answers. */
    static std::vector<std::string> answers(std::string_view bytes, size_t piece = SIZE_MAX)
    {
        while (!bytes.empty())
        {
            const std::string_view part = bytes.substr(0, piece);
            send(part);
            bytes.remove_prefix(part.size());
        }
        std::vector<std::string> result;
        for (const message_t &message : take_messages())
        {
            result.push_back(message.members.value("code", message.members.value("status", "")));
        }
        return result;
    }

    using codes_t = std::vector<std::string>;
};

constexpr std::string_view ping = "{\"command\":\"ping\"}\n";

TEST_F(server_input, accepts_a_command_in_pieces_of_any_size)
{
    const std::string bytes = std::string(configure_command) +
                              "\r\n\n{\"command\":\"frame\"}\n{\"command\":\"end\"}\r\nx\n" +
                              std::string(ping);
    const codes_t expected = {"ok", "ok", "ok", "bad_json", "ok"};
    for (size_t piece = 1; piece <= bytes.size(); ++piece)
    {
        ASSERT_EQ(answers(bytes, piece), expected) << piece;
    }
}

TEST_F(server_input, ignores_empty_lines)
{
    EXPECT_EQ(answers("\n\r\n\n"), codes_t{});
    EXPECT_EQ(answers(" \n"), codes_t{"bad_json"});
}

TEST_F(server_input, recovers_at_the_next_line_feed)
{
    for (const std::string_view garbage :
         {std::string_view("stray bytes\n"), std::string_view("\xff\x00\x80\n", 4),
          std::string_view("{\"command\":\"pi\n"), std::string_view("\x00\n", 2)})
    {
        EXPECT_EQ(answers(std::string(garbage) + std::string(ping)), (codes_t{"bad_json", "ok"}));
    }
    EXPECT_EQ(answers("{\"comm" + std::string(ping)), codes_t{"bad_json"});
    EXPECT_EQ(answers(ping), codes_t{"ok"});
}

TEST_F(server_input, refuses_two_documents_on_a_line)
{
    EXPECT_EQ(answers("{\"command\":\"end\"}{\"command\":\"end\"}\n"), codes_t{"trailing_text"});
    EXPECT_EQ(answers("{\"command\":\"end\"} end\n"), codes_t{"trailing_text"});
    EXPECT_EQ(answers("{\"command\":\"end\"} \t\n"), codes_t{"ok"});
}

TEST_F(server_input, drops_a_line_that_is_too_long)
{
    for (const size_t size : {size_t{4097}, size_t{100000}})
    {
        for (const size_t piece : {size_t{1}, size_t{1000}, SIZE_MAX})
        {
            EXPECT_EQ(answers(std::string(size, 'x') + "\n" + std::string(ping), piece),
                      (codes_t{"line_too_long", "ok"}));
        }
    }
}

TEST_F(server_input, reports_a_line_that_is_too_long_before_its_end)
{
    EXPECT_EQ(answers(std::string(4096, ' ')), codes_t{});
    EXPECT_EQ(answers(" "), codes_t{"line_too_long"});
    EXPECT_EQ(answers(std::string(10000, ' ')), codes_t{});
    EXPECT_EQ(answers("\n" + std::string(ping)), codes_t{"ok"});
}

TEST_F(server_input, accepts_a_line_that_just_fits)
{
    std::string line(ping.substr(0, ping.size() - 1));
    line.insert(0, 4096 - line.size(), ' ');
    EXPECT_EQ(answers(line + "\n"), codes_t{"ok"});
    EXPECT_EQ(answers(" " + line + "\n"), codes_t{"line_too_long"});
}

TEST_F(server_input, refuses_nesting_beyond_the_limit)
{
    EXPECT_EQ(answers(std::string(2000, '[') + "\n"), codes_t{"nesting_too_deep"});
    EXPECT_EQ(answers("{\"command\":" + std::string(16, '[') + std::string(16, ']') + "}\n"),
              codes_t{"nesting_too_deep"});
    EXPECT_EQ(answers("{\"command\":" + std::string(15, '[') + std::string(15, ']') + "}\n"),
              codes_t{"bad_command"});
}

TEST_F(server_input, refuses_more_values_than_the_port_allows)
{
    std::string line = R"({"command":"configure","configuration":{"x":[1)";
    for (int i = 0; i < 995; ++i)
    {
        line += ",1";
    }
    // The object, the command name, the configuration, the array and 996 numbers are 1000 values.
    EXPECT_EQ(answers(line + "]}}\n"), codes_t{"ok"});
    EXPECT_EQ(answers(line + ",1]}}\n"), codes_t{"too_many_values"});
}

TEST_F(server_input, refuses_documents_that_are_not_commands)
{
    for (const char *line : {"{}", "[]", "1", "null", "\"ping\"", R"({"Command":"ping"})", R"({"command":1})",
                             R"({"command":null})", R"(["command","ping"])", R"({"command":["ping"]})"})
    {
        EXPECT_EQ(refusal(line), "bad_command") << line;
    }
}

TEST_F(server_input, refuses_unknown_commands)
{
    for (const char *word : {"", "PING", "pin", "pings", "ping ", "reboot"})
    {
        EXPECT_EQ(refusal(R"({"command":")" + std::string(word) + "\"}"), "unknown_command") << word;
    }
}

TEST_F(server_input, accepts_white_space_on_both_sides_of_a_colon)
{
    for (const std::string space : {"", " ", "  ", "\t", "\r", " \t\r "})
    {
        SCOPED_TRACE(testing::PrintToString(space));
        execute("{\"command\"" + space + ":\"ping\"}");
        execute("{\"command\":" + space + "\"ping\"}");
        execute("{\"command\"" + space + ":" + space + "\"ping\"}");
    }
    for (const std::string no_space : {"\v", "\f", "\xc2\xa0", "_"})
    {
        SCOPED_TRACE(testing::PrintToString(no_space));
        EXPECT_EQ(refusal("{\"command\"" + no_space + ":\"ping\"}"), "bad_json");
        EXPECT_EQ(refusal("{\"command\":" + no_space + "\"ping\"}"), "bad_json");
    }
}

TEST_F(server_input, accepts_escaped_characters)
{
    execute(R"({"\u0063ommand":"pin\u0067"})");
}

TEST_F(server_input, refuses_members_that_a_command_does_not_have)
{
    for (const char *word :
         {"identify", "ping", "configure", "start", "frame", "stop", "end", "baudrate", "log", "stats"})
    {
        const std::string begin = R"({"command":")" + std::string(word) + "\"";
        EXPECT_EQ(refusal(begin + R"(,"extra":1})"), "bad_argument") << word;
        EXPECT_EQ(refusal(begin + R"(,"command":"ping"})"), "bad_argument") << word;
        EXPECT_EQ(refusal(begin + R"(,"":1})"), "bad_argument") << word;
    }
}

TEST_F(server_input, refuses_arguments_that_are_missing_repeated_or_of_the_wrong_type)
{
    for (const char *rest :
         {"", R"(,"configuration":[])", R"(,"configuration":"x")", R"(,"configuration":null)",
          R"(,"configuration":{},"configuration":{})", R"(,"Configuration":{})"})
    {
        EXPECT_EQ(refusal(R"({"command":"configure")" + std::string(rest) + "}"), "bad_argument") << rest;
    }
    EXPECT_EQ(calls("parse_configuration"), 0);
    EXPECT_EQ(refusal(R"({"command":"log","level":"OFF","level":"OFF"})"), "bad_argument");
}

TEST_F(server_input, checks_for_errors_in_the_documented_order)
{
    enter("streaming");
    EXPECT_EQ(refusal(R"({"command":["configure"],"x":1})"), "bad_command");
    EXPECT_EQ(refusal(R"({"command":"reconfigure","x":1})"), "unknown_command");
    for (const char *members :
         {R"("x":1)", R"("configuration":{},"configuration":{})", R"("configuration":1)"})
    {
        EXPECT_EQ(refusal(R"({"command":"configure",)" + std::string(members) + "}"), "bad_argument");
    }
    EXPECT_EQ(refusal(R"({"command":"configure"})"), "wrong_state");
    EXPECT_EQ(refusal(R"({"command":"baudrate"})"), "wrong_state");
    execute(R"({"command":"stop"})");
    EXPECT_EQ(refusal(R"({"command":"baudrate"})"), "baudrate_fixed");
    EXPECT_EQ(refusal(R"({"command":"baudrate","baudrate":0})"), "baudrate_fixed");
    execute(R"({"command":"end"})");
    EXPECT_EQ(refusal(R"({"command":"configure"})"), "bad_argument");
}

TEST_F(server_input, reports_which_members_a_command_has)
{
    const auto hint = [](std::string_view line) { return ask(line).members.value("message", ""); };
    EXPECT_NE(hint(R"({"command":"configure"})").find("\"configuration\""), std::string::npos);
    EXPECT_NE(hint(R"({"command":"baudrate","x":1})").find("\"max_baudrate\""), std::string::npos);
    EXPECT_NE(hint(R"({"command":"log"})").find("\"VERBOSE\""), std::string::npos);
    EXPECT_NE(hint(R"({"command":"ping","x":1})").find("only member"), std::string::npos);
}

TEST_F(server_input, refuses_numbers_out_of_range_of_every_type)
{
    EXPECT_EQ(refusal(R"({"command":1e400})"), "bad_command");
    EXPECT_EQ(refusal(R"({"command":"ping","x":1e400})"), "bad_argument");
}

TEST_F(server_input, discards_an_incomplete_line_when_the_host_disconnects)
{
    send("{\"comm");
    zet_vantor_server_link_lost();
    EXPECT_EQ(fake_port.input_restarts, 1);
    EXPECT_EQ(answers(ping), codes_t{"ok"});
    send(std::string(5000, 'x'));
    take_messages();
    zet_vantor_server_link_lost();
    EXPECT_EQ(answers(ping), codes_t{"ok"});
}

TEST_F(server_input, discards_an_incomplete_line_when_the_host_disconnects_during_a_frame)
{
    // The link breaks while the payload is written. The port reports that before it passes on any other
    // input.
    enter("streaming");
    send("{\"command\":\"st");
    zet_vantor_server_step();
    fake_port.sent.resize(fake_port.sent.size() / 2);
    zet_vantor_server_link_lost();
    fake_port.sent.clear();
    EXPECT_EQ(calls("destroy_session"), 1);
    enter("streaming");
    zet_vantor_server_step();
    EXPECT_EQ(take_messages().size(), 1U);
}

TEST_F(server_input, allows_a_host_to_connect_in_the_middle_of_a_stream)
{
    constexpr std::string_view answer = "{\"status\":\"ok\",\"command\":\"end\",\"payload_size\":0}\n";
    for (const std::string half : {"", "{\"comm", "{\"command\":\"ping\"}", "\xff"})
    {
        for (size_t missed = 0; missed < 600; missed += 7)
        {
            enter("streaming");
            zet_vantor_server_step();
            send(half);
            zet_vantor_server_step();
            send("\n{\"command\":\"end\"}\n");
            const std::string heard = fake_port.sent.substr(missed);
            fake_port.sent.clear();
            EXPECT_EQ(heard.find(answer), heard.size() - answer.size()) << heard;
            execute(configure_command);
        }
    }
}

TEST_F(server_input, ignores_empty_input)
{
    send("");
    zet_vantor_server_receive(nullptr, 0);
    EXPECT_TRUE(fake_port.sent.empty());
}

TEST_F(server_input, survives_random_bytes_and_answers_afterwards)
{
    std::mt19937 random(6);
    const std::string_view seeds[] = {configure_command, ping, R"({"command":"start"})",
                                      R"({"command":"stop"})", R"({"command":"frame"})"};
    for (int round = 0; round < 3000; ++round)
    {
        std::string bytes(seeds[random() % std::size(seeds)]);
        for (auto changes = random() % 4; changes > 0; --changes)
        {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        send(bytes + "\n");
        zet_vantor_server_step();
        take_messages();
    }
    zet_vantor_server_link_lost();
    EXPECT_EQ(answers(ping), codes_t{"ok"});
}

} // namespace
