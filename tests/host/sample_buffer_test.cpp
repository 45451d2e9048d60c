/** @file
 * Tests of the memory for samples: how much is allocated, kept and used again.
 */
#include "vantor/sample_buffer.h"

#include <cstring>
#include <thread>

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

/** The largest payload that a message can announce, in bytes. */
constexpr size_t largest = size_t{1} << 26;

/** Fills a buffer with bytes that depend on their place. */
void fill(sample_buffer &buffer)
{
    while (buffer.missing() > 0)
    {
        const auto rest = buffer.rest();
        for (size_t i = 0; i < rest.size(); ++i)
        {
            rest[i] = static_cast<std::byte>(buffer.bytes().size() + i);
        }
        buffer.add(rest.size());
    }
}

/** Size of the blocks that a pool has kept; takes them. */
std::vector<size_t> kept_by(sample_pool &pool)
{
    std::vector<size_t> sizes;
    for (auto memory = pool.take(); memory.bytes; memory = pool.take())
    {
        sizes.push_back(memory.size);
    }
    return sizes;
}

/** Has a pool keep a number of blocks. */
void keep(sample_pool &pool, size_t count, size_t size)
{
    for (size_t i = 0; i < count; ++i)
    {
        pool.keep({.bytes = std::make_unique_for_overwrite<std::byte[]>(size), .size = size});
    }
}

TEST(sample_buffer, reserves_little_for_a_size_that_is_only_announced)
{
    const auto pool = std::make_shared<sample_pool>();
    sample_buffer announced(largest, pool);
    EXPECT_EQ(announced.missing(), largest);
    EXPECT_EQ(announced.rest().size(), size_t{1} << 20);
    announced.add(size_t{1} << 20);
    EXPECT_EQ(announced.rest().size(), size_t{1} << 20) << "twice as much as has arrived";
}

TEST(sample_buffer, keeps_its_bytes_while_it_grows)
{
    const auto pool = std::make_shared<sample_pool>();
    const size_t size = (size_t{5} << 20) + 4;
    sample_buffer buffer(size, pool);
    fill(buffer);
    ASSERT_EQ(buffer.bytes().size(), size);
    ASSERT_EQ(buffer.samples().size(), size / sizeof(sample));
    size_t wrong = 0;
    for (size_t i = 0; i < size; ++i)
    {
        wrong += buffer.bytes()[i] == static_cast<std::byte>(i) ? 0 : 1;
    }
    EXPECT_EQ(wrong, 0U);
}

TEST(sample_buffer, moves_its_samples)
{
    const auto pool = std::make_shared<sample_pool>();
    sample_buffer buffer(8, pool);
    fill(buffer);
    const auto *const samples = buffer.samples().data();
    sample_buffer moved(std::move(buffer));
    EXPECT_EQ(moved.samples().data(), samples);
    EXPECT_TRUE(buffer.samples().empty()); // NOLINT(bugprone-use-after-move): it must be empty
    sample_buffer assigned(4, pool);
    assigned = std::move(moved);
    EXPECT_EQ(assigned.samples().data(), samples);
    EXPECT_EQ(assigned.samples().size(), 2U);
}

TEST(sample_buffer, gives_its_memory_back_from_any_thread)
{
    const auto pool = std::make_shared<sample_pool>();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([&pool] {
            for (int k = 0; k < 1000; ++k)
            {
                sample_buffer buffer(64, pool);
                fill(buffer);
            }
        });
    }
    for (auto &thread : threads)
    {
        thread.join();
    }
    const auto sizes = kept_by(*pool);
    EXPECT_THAT(sizes, testing::Each(64U));
    EXPECT_GE(sizes.size(), 1U);
    EXPECT_LE(sizes.size(), 4U);
}

TEST(sample_buffer, outlives_its_pool)
{
    auto pool = std::make_shared<sample_pool>();
    sample_buffer buffer(64, pool);
    fill(buffer);
    pool.reset();
    EXPECT_EQ(buffer.samples().size(), 16U);
}

TEST(sample_pool, keeps_a_limited_number_of_blocks)
{
    sample_pool pool;
    keep(pool, 100, 16);
    EXPECT_EQ(kept_by(pool).size(), 64U);
    EXPECT_TRUE(kept_by(pool).empty());
}

TEST(sample_pool, keeps_a_limited_number_of_bytes_or_one_block)
{
    sample_pool pool;
    keep(pool, 10, size_t{1} << 20);
    EXPECT_EQ(kept_by(pool).size(), 4U);
    keep(pool, 10, size_t{1} << 23);
    EXPECT_EQ(kept_by(pool).size(), 1U);
}

} // namespace
} // namespace vantor
