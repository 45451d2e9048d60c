/** @file
 * The ring buffer of waiting log lines.
 */
#include "zet_vantor_server_log_ring.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace
{

class log_ring : public testing::Test
{
protected:
    void put(const std::string &text, const std::string &module = "m")
    {
        zet_log_ring_put(&ring, ZET_LOG_LEVEL_INFO, module.c_str(), text.c_str());
    }

    std::string take()
    {
        zet_log_line_t line;
        zet_log_ring_take(&ring, &line);
        return line.text;
    }

    zet_log_ring_t ring = {};
};

TEST_F(log_ring, returns_lines_in_order)
{
    zet_log_ring_put(&ring, ZET_LOG_LEVEL_DEBUG, "one", "first");
    zet_log_ring_put(&ring, ZET_LOG_LEVEL_ERROR, "", "");
    ASSERT_EQ(zet_log_ring_count(&ring), 2U);
    zet_log_line_t line;
    zet_log_ring_take(&ring, &line);
    EXPECT_EQ(line.level, ZET_LOG_LEVEL_DEBUG);
    EXPECT_STREQ(line.module, "one");
    EXPECT_STREQ(line.text, "first");
    zet_log_ring_take(&ring, &line);
    EXPECT_EQ(line.level, ZET_LOG_LEVEL_ERROR);
    EXPECT_STREQ(line.module, "");
    EXPECT_STREQ(line.text, "");
    EXPECT_EQ(zet_log_ring_count(&ring), 0U);
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 0U);
}

TEST_F(log_ring, stores_lines_across_its_end)
{
    for (int i = 0; i < 5000; ++i)
    {
        const std::string text(static_cast<size_t>(i % 200), static_cast<char>('a' + i % 26));
        put(text);
        put(text + "!");
        ASSERT_EQ(take(), text);
        ASSERT_EQ(take(), text + "!");
    }
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 0U);
}

TEST_F(log_ring, truncates_long_texts)
{
    zet_log_ring_put(&ring, ZET_LOG_LEVEL_INFO, std::string(500, 'm').c_str(), std::string(500, 't').c_str());
    zet_log_line_t line;
    zet_log_ring_take(&ring, &line);
    EXPECT_EQ(std::string(line.module), std::string(zet_log_ring_max_module, 'm'));
    EXPECT_EQ(std::string(line.text), std::string(zet_log_ring_max_text, 't'));
}

TEST_F(log_ring, uses_its_last_byte)
{
    // 3 bytes besides the texts, 1 for the module: 8 lines of 256 bytes fill the ring.
    const std::string text(252, 'x');
    for (int i = 0; i < 8; ++i)
    {
        put(text);
    }
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 0U);
    put("", "");
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 1U);
    EXPECT_EQ(zet_log_ring_count(&ring), 8U);
    EXPECT_EQ(take(), text);
    put(text);
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 0U);
    EXPECT_EQ(zet_log_ring_count(&ring), 8U);
}

TEST_F(log_ring, drops_a_line_that_is_one_byte_too_long)
{
    const std::string text(252, 'x');
    for (int i = 0; i < 7; ++i)
    {
        put(text);
    }
    put(text + "x");
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 1U);
    EXPECT_EQ(zet_log_ring_count(&ring), 7U);
    put(text);
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 0U);
    EXPECT_EQ(zet_log_ring_count(&ring), 8U);
}

TEST_F(log_ring, counts_the_lines_that_do_not_fit)
{
    const std::string text(252, 'x');
    for (int i = 0; i < 20; ++i)
    {
        put(text);
    }
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 12U);
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 0U);
}

TEST_F(log_ring, is_empty_after_it_is_cleared)
{
    for (int i = 0; i < 1000; ++i)
    {
        put("line");
    }
    zet_log_ring_clear(&ring);
    EXPECT_EQ(zet_log_ring_count(&ring), 0U);
    EXPECT_EQ(zet_log_ring_take_lost(&ring), 0U);
    put("after");
    EXPECT_EQ(take(), "after");
}

} // namespace
