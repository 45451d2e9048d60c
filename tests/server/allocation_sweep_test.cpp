/** @file
 * Repeats every command with its 1st, 2nd, 3rd … allocation failing.
 */
#include "server_fixture.h"

#include <set>

namespace
{

class allocation_sweep : public server_fixture
{
protected:
    void SetUp() override
    {
        server_fixture::SetUp();
        start();
    }

    /**
     * Makes each allocation of a command fail in turn. Each time the command must be answered with one error
     * message, and a complete session must work afterwards without a leak.
     *
     * @return the error codes received
     */
    static std::set<std::string> sweep(std::string_view state, std::string_view command)
    {
        std::set<std::string> codes;
        for (size_t number = 1;; ++number)
        {
            enter(state);
            fail_allocation(number);
            const message_t answer = ask(command);
            const bool failed = fake_memory.failed;
            fail_allocation(0);
            if (!failed)
            {
                EXPECT_EQ(answer.members["status"], "ok");
                EXPECT_GT(number, 1U) << "the command allocated nothing";
                return codes;
            }
            EXPECT_EQ(answer.members["status"], "error") << command << " at allocation " << number;
            codes.insert(answer.members.value("code", ""));
            enter("configured");
            execute(R"({"command":"frame"})");
            execute(R"({"command":"end"})");
            EXPECT_EQ(fake_memory.live, 0U) << command << " at allocation " << number;
        }
    }

    using codes_t = std::set<std::string>;
};

TEST_F(allocation_sweep, every_command_reports_that_it_is_out_of_memory)
{
    const struct
    {
        const char *state;
        std::string command;
    } rows[] = {
        {"idle", R"({"command":"identify"})"},  {"idle", R"({"command":"ping"})"},
        {"idle", R"({"command":"end"})"},       {"configured", R"({"command":"end"})"},
        {"streaming", R"({"command":"end"})"},  {"idle", R"({"command":"log","level":"OFF"})"},
        {"idle", R"({"command":"stats"})"},     {"configured", R"({"command":"start"})"},
        {"streaming", R"({"command":"stop"})"},
    };
    for (const auto &row : rows)
    {
        EXPECT_EQ(sweep(row.state, row.command), codes_t{"out_of_memory"}) << row.command;
    }
}

TEST_F(allocation_sweep, configure_fails_with_the_code_of_the_stage_that_failed)
{
    EXPECT_EQ(sweep("idle", configure_command), (codes_t{"out_of_memory", "metadata_failed"}));
}

TEST_F(allocation_sweep, frame_fails_with_the_code_of_the_stage_that_failed)
{
    EXPECT_EQ(sweep("configured", R"({"command":"frame"})"), (codes_t{"out_of_memory", "send_data"}));
}

TEST_F(allocation_sweep, a_stream_ends_when_out_of_memory)
{
    for (size_t number = 1;; ++number)
    {
        enter("streaming");
        fail_allocation(number);
        zet_vantor_server_step();
        const bool failed = fake_memory.failed;
        fail_allocation(0);
        const std::vector<message_t> messages = take_messages();
        ASSERT_EQ(messages.size(), 1U);
        if (!failed)
        {
            EXPECT_GT(number, 10U);
            EXPECT_EQ(messages[0].members["status"], "ok");
            break;
        }
        EXPECT_EQ(messages[0].members["code"], "send_data");
        EXPECT_EQ(refusal(R"({"command":"stop"})"), "wrong_state");
        EXPECT_EQ(fake_memory.live, 0U);
    }
}

class allocation_sweep_serial : public allocation_sweep
{
};

TEST_F(allocation_sweep_serial, a_baudrate_command_that_fails_does_not_change_the_baud_rate)
{
    zet_vantor_server_deinit();
    start(serial_port());
    const std::string command = R"({"command":"baudrate","baudrate":9600})";
    EXPECT_EQ(sweep("idle", command), codes_t{"out_of_memory"});
    EXPECT_EQ(fake_port.baudrates, (std::vector<uint32_t>{9600}));
}

} // namespace
