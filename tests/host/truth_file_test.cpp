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

using nlohmann::json;
using testing::HasSubstr;

/** The line of a session. */
std::string session_line(int number)
{
    auto line = test::example_scene();
    line["session"] = number;
    return line.dump() + "\n";
}

/** The line of a frame. */
std::string row_line(int session, unsigned sensor_id, uint32_t tick, double distance_m = 1.0)
{
    json line = encode_truth(test::truth_with(sensor_id, tick, {distance_m}));
    line["session"] = session;
    return line.dump() + "\n";
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
    constexpr uint32_t more_than_are_kept = 10000;
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

TEST_F(truth_file_test, refuses_a_file_that_does_not_end_with_a_session)
{
    const auto refusal = [&] {
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
    append("");
    for (const std::string &text :
         {std::string(), std::string("\n"), std::string("\n\n"), session_line(1) + row_line(1, 1, 100),
          session_line(1).substr(0, 20), std::string("{\"session\":-1,\"scene\":{}}\n"),
          std::string("{\"session\":1,\"scene\":3}\n"), std::string("[]\n"), std::string(2200000, ' ')})
    {
        std::ofstream(path, std::ios::trunc) << text;
        EXPECT_THAT(refusal(), HasSubstr("does not have the truth of this session")) << text.substr(0, 100);
    }
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THAT(refusal(), HasSubstr("not a regular file"));
}

TEST(private_truth_file, needs_no_more_memory_than_what_was_not_read)
{
    private_truth_file file;
    {
        std::ofstream server(file.path(), std::ios::app);
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
