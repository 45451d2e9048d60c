/** @file
 * Replays the conversations in docs/protocol.md with the server.
 *
 * In a block marked "conversation", a line with > is sent to the server, and the server must send exactly the
 * line with <. Quoted text that ends with … is only compared up to there. "(n bytes)" is a payload.
 * "conversation serial" needs a link with an adjustable baud rate. "conversation replay" is with a replayed
 * recording, and tested with it.
 */
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "server_fixture.h"

namespace
{

struct conversation_t
{
    bool serial = false;
    int line_number = 0;
    std::vector<std::string> lines;
};

std::vector<conversation_t> read_conversations()
{
    std::vector<conversation_t> conversations;
    std::ifstream document(PROTOCOL_DOCUMENT);
    std::string line;
    bool inside = false;
    for (int number = 1; std::getline(document, line); ++number)
    {
        if (line == "```conversation" || line == "```conversation serial")
        {
            inside = true;
            conversations.push_back({line == "```conversation serial", number, {}});
        }
        else if (line.starts_with("```"))
        {
            inside = false;
        }
        else if (inside)
        {
            conversations.back().lines.push_back(line);
        }
    }
    return conversations;
}

/** Truncates texts of a message where the expected message truncates them. */
std::string truncated_like(const std::string &expected, std::string line)
{
    static const std::string ellipsis = "…\"";
    for (size_t at = expected.find(ellipsis); at != std::string::npos; at = expected.find(ellipsis, at + 1))
    {
        const size_t end = line.find('"', at);
        if (end == std::string::npos)
        {
            break;
        }
        line.replace(at, end - at + 1, ellipsis);
    }
    return line;
}

class protocol_document : public server_fixture
{
protected:
    /** Returns the next message. Runs steps until there is one. */
    message_t next_message()
    {
        for (int step = 0; waiting.empty() && step < 3; ++step)
        {
            collect();
            if (waiting.empty())
            {
                fake_port.tick += zet_vantor_server_step();
            }
        }
        if (waiting.empty())
        {
            ADD_FAILURE() << "the server sent no message";
            return {};
        }
        message_t message = std::move(waiting.front());
        waiting.pop_front();
        return message;
    }

    void collect()
    {
        for (message_t &message : take_messages())
        {
            waiting.push_back(std::move(message));
        }
    }

    /** Sends the lines of a conversation and checks the answers. */
    void replay(const conversation_t &conversation)
    {
        message_t last;
        for (const std::string &line : conversation.lines)
        {
            const std::string rest = line.substr(std::min<size_t>(2, line.size()));
            if (line.starts_with("> "))
            {
                collect();
                EXPECT_TRUE(waiting.empty()) << waiting.front().line;
                send(rest + "\n");
            }
            else if (line.starts_with("< ("))
            {
                EXPECT_EQ(rest, "(" + std::to_string(last.payload.size()) + " bytes)");
            }
            else
            {
                EXPECT_TRUE(line.starts_with("< ")) << line;
                last = next_message();
                EXPECT_EQ(truncated_like(rest, last.line), rest);
            }
        }
        collect();
        EXPECT_TRUE(waiting.empty()) << waiting.front().line;
    }

    std::deque<message_t> waiting;
};

TEST_F(protocol_document, shows_what_the_server_sends)
{
    const std::vector<conversation_t> conversations = read_conversations();
    EXPECT_GE(conversations.size(), 14U);
    for (const conversation_t &conversation : conversations)
    {
        const testing::ScopedTrace trace(PROTOCOL_DOCUMENT, conversation.line_number, "conversation");
        fake_port = {};
        fake_backend = {};
        fake_backend.during_parse = [] {
            zet_vantor_server_log(ZET_LOG_LEVEL_INFO, "vantor_server_system_k330", "Powered on sensor id 1");
        };
        start(conversation.serial ? serial_port() : plain_port());
        fake_port.tick = 12345000;
        replay(conversation);
        zet_vantor_server_deinit();
        started = false;
    }
}

TEST_F(protocol_document, describes_every_command_in_its_own_section)
{
    start();
    std::ifstream document(PROTOCOL_DOCUMENT);
    const std::string text{std::istreambuf_iterator<char>(document), {}};
    const std::string hint = ask(R"({"command":"?"})").members["message"];
    const std::regex word("\"([a-z]+)\"");
    int commands = 0;
    for (std::sregex_iterator match(hint.begin(), hint.end(), word), none; match != none; ++match)
    {
        const std::string command = (*match)[1];
        if (command == "command")
        {
            continue;
        }
        ++commands;
        EXPECT_NE(text.find("\n### `" + command + "`\n"), std::string::npos) << command;
        EXPECT_NE(text.find("> {\"command\":\"" + command + "\""), std::string::npos) << command;
        // The server must know the command, whatever other error it reports.
        EXPECT_NE(refusal(R"({"command":")" + command + R"(","?":1})"), "unknown_command");
    }
    EXPECT_EQ(commands, 10);
}

TEST_F(protocol_document, states_the_version_in_its_title)
{
    start();
    std::ifstream document(PROTOCOL_DOCUMENT);
    const std::string text{std::istreambuf_iterator<char>(document), {}};
    const int version = ask(R"({"command":"identify"})").members["protocol_version"];
    EXPECT_TRUE(
        text.starts_with("# Protocol of the Vantor server, version " + std::to_string(version) + "\n"));
}

} // namespace
