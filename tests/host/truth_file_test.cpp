/** @file
 * Tests of reading the truth that a simulated server writes, while it writes it.
 */
#include "vantor/truth_file.h"

#include <fstream>

#include <gmock/gmock.h>

#include <sys/stat.h>

#include "example_truth.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using testing::HasSubstr;

using test::session_line;

/** The line of a frame. */
std::string row_line(int session, unsigned sensor_id, uint32_t tick, double distance_m = 1.0)
{
    return test::row_line(session, test::truth_with(sensor_id, tick, {distance_m}));
}

/** A truth file, and a server that writes it. */
class truth_file_test : public testing::Test
{
protected:
    /** Appends a text to the file. */
    void append(const std::string &text) const
    {
        std::ofstream(path, std::ios::app) << text;
    }

    /** Begins a session with the sensors 1 and 2. */
    void begin(int number)
    {
        append("");
        file.expect_session();
        append(session_line(number));
        file.begin_session({1, 2});
    }

    /** The distance of the target that a sensor should have found; 0 if that is unknown. */
    double distance(unsigned sensor_id, uint32_t tick)
    {
        const auto found = file.find(sensor_id, tick);
        return found ? found->targets.at(0).distance_m : 0.0;
    }

    test::temporary_directory directory;
    std::filesystem::path path = directory / "truth.jsonl";
    truth_file file{path};
};

TEST_F(truth_file_test, finds_lines_as_they_are_written)
{
    append("");
    file.expect_session();
    append(session_line(1));
    EXPECT_EQ(file.begin_session({1}), test::example_scene());
    append(row_line(1, 1, 100, 0.5));
    EXPECT_EQ(distance(1, 100), 0.5);
    EXPECT_EQ(distance(1, 200), 0.0);
    append(row_line(1, 1, 300, 0.7));
    EXPECT_EQ(distance(1, 300), 0.7);
    EXPECT_EQ(file.missing(), 1U);
    EXPECT_EQ(file.damaged(), 0U);
}

TEST_F(truth_file_test, finds_lines_by_sensor_and_tick)
{
    begin(1);
    // The sensors of a group are waited for in one order, and read in another.
    append(row_line(1, 2, 105, 2.0) + row_line(1, 1, 100, 1.0) + row_line(1, 2, 110, 2.5) +
           row_line(1, 1, 200, 1.5));
    EXPECT_EQ(distance(1, 100), 1.0);
    EXPECT_EQ(distance(2, 105), 2.0);
    EXPECT_EQ(distance(2, 110), 2.5);
    EXPECT_EQ(distance(1, 200), 1.5);
}

TEST_F(truth_file_test, passes_lines_of_frames_that_were_lost)
{
    begin(1);
    append(row_line(1, 1, 100) + row_line(1, 1, 200) + row_line(1, 1, 300, 0.3) + row_line(1, 1, 500, 0.5));
    EXPECT_EQ(distance(1, 300), 0.3);
    EXPECT_EQ(distance(1, 400), 0.0);
    EXPECT_EQ(distance(1, 500), 0.5);
    EXPECT_EQ(file.missing(), 1U);
}

TEST_F(truth_file_test, continues_when_ticks_wrap_around)
{
    begin(1);
    append(row_line(1, 1, 4294967295U, 0.1) + row_line(1, 1, 5, 0.2) + row_line(1, 1, 4000000000U, 0.3) +
           row_line(1, 1, 5, 0.4));
    EXPECT_EQ(distance(1, 4294967295U), 0.1);
    EXPECT_EQ(distance(1, 5), 0.2);
    EXPECT_EQ(distance(1, 4000000000U), 0.3);
    EXPECT_EQ(distance(1, 5), 0.4);
}

TEST_F(truth_file_test, tells_sessions_apart_that_repeat_ticks)
{
    append(session_line(1) + row_line(1, 1, 100, 0.1));
    begin(2);
    append(row_line(2, 1, 100, 0.2));
    append(session_line(3) + row_line(3, 1, 200, 0.3));
    EXPECT_EQ(distance(1, 100), 0.2);
    EXPECT_EQ(distance(1, 200), 0.0);
    begin(4);
    append(row_line(4, 1, 100, 0.4));
    EXPECT_EQ(distance(1, 100), 0.4);
}

TEST_F(truth_file_test, counts_lines_that_are_damaged)
{
    begin(1);
    append("not JSON\n[]\n{}\n\n{\"session\":1,\"sensor\":1}\n" + std::string(5000000, 'x') + "\n" +
           row_line(1, 1, 100, 0.5));
    EXPECT_EQ(distance(1, 100), 0.5);
    EXPECT_EQ(file.damaged(), 6U);
}

TEST_F(truth_file_test, waits_for_the_end_of_a_line)
{
    begin(1);
    const auto line = row_line(1, 1, 100, 0.5);
    append(line.substr(0, 30));
    EXPECT_EQ(distance(1, 100), 0.0);
    append(line.substr(30));
    EXPECT_EQ(distance(1, 100), 0.5);
}

TEST_F(truth_file_test, ignores_other_sensors_and_keeps_few_lines)
{
    begin(1);
    constexpr uint32_t more_than_are_kept = 5000;
    for (uint32_t i = 0; i < more_than_are_kept; ++i)
    {
        append(row_line(1, 2, i) + row_line(1, 7, i));
    }
    append(row_line(1, 1, 1, 0.5));
    EXPECT_EQ(distance(1, 1), 0.5);
    EXPECT_EQ(distance(2, 0), 0.0);
    EXPECT_EQ(distance(2, more_than_are_kept - 1), 1.0);
    EXPECT_EQ(distance(7, more_than_are_kept - 1), 0.0);
}

TEST_F(truth_file_test, finds_nothing_in_a_file_that_shrinks_or_has_no_session)
{
    EXPECT_EQ(distance(1, 100), 0.0);
    begin(1);
    append(row_line(1, 1, 100));
    std::filesystem::resize_file(path, 3);
    EXPECT_EQ(distance(1, 100), 0.0);
    // A server that starts again begins the file again.
    std::filesystem::resize_file(path, 0);
    begin(1);
    append(row_line(1, 1, 100, 0.5));
    EXPECT_EQ(distance(1, 100), 0.5);
    file.end_session();
    append(row_line(1, 1, 200, 0.5));
    EXPECT_EQ(distance(1, 200), 0.0);
}

TEST_F(truth_file_test, a_line_of_a_later_frame_hides_nothing)
{
    begin(1);
    append(row_line(1, 1, 1000000, 0.9) + row_line(1, 1, 100, 0.1) + row_line(1, 1, 300, 0.3) +
           row_line(1, 1, 200, 0.2) + row_line(1, 1, 400, 0.4));
    EXPECT_EQ(distance(1, 100), 0.1);
    EXPECT_EQ(distance(1, 200), 0.2);
    EXPECT_EQ(distance(1, 300), 0.0);
    EXPECT_EQ(distance(1, 400), 0.4);
    EXPECT_EQ(file.damaged(), 2U);
    EXPECT_EQ(file.missing(), 1U);
}

TEST_F(truth_file_test, reads_no_further_than_needed_when_a_line_is_missing)
{
    begin(1);
    constexpr uint32_t more_than_are_kept = 5000;
    for (uint32_t tick = 1; tick <= more_than_are_kept; ++tick)
    {
        append(row_line(1, 1, tick));
    }
    EXPECT_EQ(distance(1, 0), 0.0);
    for (uint32_t tick = 1; tick <= more_than_are_kept; ++tick)
    {
        ASSERT_EQ(distance(1, tick), 1.0) << tick;
    }
}

TEST_F(truth_file_test, ignores_lines_of_another_server_with_the_same_number)
{
    begin(1);
    auto other = row_line(1, 1, 100, 0.7);
    other.replace(other.find("0123456789abcde1"), 16, "fedcba9876543210");
    append(other + row_line(1, 1, 100, 0.5));
    EXPECT_EQ(distance(1, 100), 0.5);
    EXPECT_EQ(file.damaged(), 0U);
}

TEST_F(truth_file_test, refuses_a_file_to_which_not_exactly_one_session_was_added)
{
    const auto refusal = [&](const std::string &before, const std::string &added) {
        std::ofstream(path, std::ios::trunc) << before;
        file.expect_session();
        append(added);
        try
        {
            file.begin_session({1});
        }
        catch (const bad_recording &failure)
        {
            return std::string(failure.what());
        }
        return std::string();
    };
    const auto line = session_line(1);
    EXPECT_EQ(refusal(session_line(3) + row_line(3, 1, 100), line), "");
    EXPECT_EQ(refusal(session_line(3), row_line(3, 1, 100) + "damage\n" + line), "");
    for (const std::string &added :
         {std::string(), std::string("\n"), std::string("\n\n"), line.substr(0, 20),
          std::string("{\"session\":1,\"scene\":{}}\n"), std::string("{\"id\":1,\"scene\":{}}\n"),
          std::string("{\"id\":\"a\",\"scene\":3}\n"), std::string("[]\n"), std::string(2200000, ' ')})
    {
        // What was there before is the truth of another session.
        EXPECT_THAT(refusal(line, added), HasSubstr("does not have the truth of this session: start"))
            << added.substr(0, 100);
    }
    for (const std::string &added : {line + line, line + session_line(2), line + row_line(1, 1, 100)})
    {
        EXPECT_THAT(refusal(line, added), HasSubstr("another program writes to it"));
    }
}

TEST_F(truth_file_test, refuses_a_file_that_cannot_be_read)
{
    const auto refusal = [&] {
        file.expect_session();
        try
        {
            file.begin_session({1});
        }
        catch (const bad_recording &failure)
        {
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_THAT(refusal(), HasSubstr("No such file"));
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THAT(refusal(), HasSubstr("not a regular file"));
}

TEST(private_truth_file, needs_no_more_memory_than_what_was_not_read)
{
    private_truth_file file;
    {
        std::ofstream server(file.path(), std::ios::app);
        file.expect_session();
        server << session_line(1) << std::flush;
        file.begin_session({1});
        constexpr uint32_t rows = 20000;
        for (uint32_t tick = 0; tick < rows; ++tick)
        {
            server << row_line(1, 1, tick) << std::flush;
            ASSERT_TRUE(file.find(1, tick)) << tick;
        }
    }
    struct stat status = {};
    ASSERT_EQ(stat(file.path().c_str(), &status), 0);
    EXPECT_GT(status.st_size, 4 << 20);
    constexpr blkcnt_t blocks_of_two_megabytes = (2 << 20) / 512;
    EXPECT_LT(status.st_blocks, blocks_of_two_megabytes);
    EXPECT_EQ(file.missing(), 0U);
}

} // namespace
} // namespace vantor
