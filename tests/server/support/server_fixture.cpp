/** @file
 * A server core between a stand-in backend and a stand-in host.
 */
#include "server_fixture.h"

#include <algorithm>
#include <array>

fake_port_t fake_port;

namespace
{

std::array<char, 4097> line_memory;

void write_data(const void *data, uint32_t size)
{
    fake_port.sent.append(static_cast<const char *>(data), size);
}

void restart_input()
{
    ++fake_port.input_restarts;
}

void set_baudrate(uint32_t baudrate)
{
    fake_port.baudrates.push_back(baudrate);
}

uint32_t get_tick()
{
    return fake_port.tick;
}

void recover_memory()
{
    ++fake_port.recoveries;
    fake_port.live_at_recovery = std::max(fake_port.live_at_recovery, fake_memory.live);
}

void get_memory(zet_vantor_server_memory_t *memory)
{
    *memory = fake_port.memory;
}

} // namespace

std::vector<message_t> take_messages()
{
    std::vector<message_t> messages;
    std::string_view rest = fake_port.sent;
    while (!rest.empty())
    {
        const size_t end = rest.find('\n');
        if (end == std::string_view::npos)
        {
            ADD_FAILURE() << "text without a line feed: " << rest;
            break;
        }
        message_t message;
        message.line = rest.substr(0, end);
        message.members = nlohmann::json::parse(message.line, nullptr, false);
        if (!message.members.is_object() || !message.members.contains("status") ||
            !message.members.contains("payload_size"))
        {
            ADD_FAILURE() << "not a message: " << message.line;
            break;
        }
        const size_t payload_size = message.members["payload_size"];
        if (rest.size() < end + 1 + payload_size)
        {
            ADD_FAILURE() << "truncated payload after " << message.line;
            break;
        }
        message.payload = rest.substr(end + 1, payload_size);
        rest.remove_prefix(end + 1 + payload_size);
        messages.push_back(std::move(message));
    }
    fake_port.sent.clear();
    return messages;
}

zet_vantor_server_port_t plain_port()
{
    zet_vantor_server_port_t port = {};
    port.link.write = write_data;
    port.link.restart_input = restart_input;
    port.link.get_tick = get_tick;
    port.link.ticks_per_second = 1000000;
    port.line = line_memory.data();
    port.line_size = line_memory.size();
    port.max_values = 1000;
    port.get_memory = get_memory;
    port.recover_memory = recover_memory;
    port.board = &fake_port.board;
    port.nox_log_level = ZET_LOG_LEVEL_WARNING;
    return port;
}

zet_vantor_server_port_t serial_port()
{
    zet_vantor_server_port_t port = plain_port();
    port.link.set_baudrate = set_baudrate;
    port.link.max_baudrate = 1000000;
    port.baudrate = 115200;
    return port;
}

void server_fixture::SetUp()
{
    fake_backend = {};
    fake_port = {};
    fake_memory = {};
}

void server_fixture::TearDown()
{
    if (started)
    {
        zet_vantor_server_deinit();
    }
    EXPECT_EQ(fake_memory.live, 0U) << "memory was leaked";
    EXPECT_TRUE(fake_backend.violations.empty()) << fake_backend.violations.front();
    EXPECT_FALSE(fake_backend.ready);
}

void server_fixture::start(const zet_vantor_server_port_t &port)
{
    ASSERT_TRUE(zet_vantor_server_init(&port));
    started = true;
}

void server_fixture::send(std::string_view bytes)
{
    zet_vantor_server_receive(bytes.data(), bytes.size());
}

message_t server_fixture::ask(std::string_view line)
{
    send(std::string(line) + "\n");
    std::vector<message_t> messages = take_messages();
    if (messages.size() != 1)
    {
        ADD_FAILURE() << messages.size() << " messages, expected one, in answer to " << line;
        return {};
    }
    return std::move(messages.front());
}

std::string server_fixture::refusal(std::string_view line)
{
    const message_t answer = ask(line);
    EXPECT_EQ(answer.members.value("status", ""), "error") << line;
    EXPECT_FALSE(answer.members.value("message", "").empty()) << line;
    EXPECT_EQ(answer.members.size(), 4U) << answer.line;
    return answer.members.value("code", "");
}

void server_fixture::execute(std::string_view line)
{
    const message_t answer = ask(line);
    EXPECT_EQ(answer.members.value("status", ""), "ok") << line << " was answered with " << answer.line;
}

void server_fixture::enter(std::string_view state)
{
    execute(R"({"command":"end"})");
    if (state != "idle")
    {
        execute(configure_command);
    }
    if (state == "streaming")
    {
        execute(R"({"command":"start"})");
    }
}

long server_fixture::calls(std::string_view name)
{
    return std::ranges::count(fake_backend.calls, name);
}
