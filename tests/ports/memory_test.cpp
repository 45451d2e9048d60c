/** @file
 * Tests of the board's allocator.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "board_memory.h"
#include "zet_integration.h"
#include "zet_vantor_server.h"

#ifdef UNDER_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace
{

constexpr size_t alignment = alignof(std::max_align_t);
constexpr size_t word = sizeof(size_t);

/** How much of the board's memory is in use. */
zet_vantor_server_memory_t memory()
{
    zet_vantor_server_memory_t memory = {};
    memory_get(&memory);
    return memory;
}

/** The memory that a piece of this size takes up. */
size_t cost(size_t size)
{
    return std::max(4 * word, (size + word + alignment - 1) / alignment * alignment);
}

/** The largest request that takes up at most this much memory. */
size_t request_of_cost(size_t cost)
{
    return cost - word;
}

/** Memory for a test, available to the allocator during the lifetime of the object. */
class lent_memory_t
{
public:
    explicit lent_memory_t(size_t size) : memory_(std::make_unique_for_overwrite<std::byte[]>(size))
    {
        memory_lend(memory_.get(), size);
    }
    lent_memory_t(const lent_memory_t &) = delete;
    lent_memory_t &operator=(const lent_memory_t &) = delete;
    ~lent_memory_t()
    {
        memory_lend(nullptr, 0);
    }

private:
    std::unique_ptr<std::byte[]> memory_;
};

/** A random number below a limit. The sequence is the same on every platform. */
size_t random_below(std::mt19937 &random, size_t limit)
{
    return random() % limit;
}

/** Requests pieces until a request fails. */
std::vector<void *> fill(const std::function<size_t()> &next_size)
{
    std::vector<void *> pieces;
    while (void *piece = zet_integration_mem_alloc(next_size()))
    {
        pieces.push_back(piece);
    }
    return pieces;
}

void free_all(const std::vector<void *> &pieces)
{
    for (void *piece : pieces)
    {
        zet_integration_mem_free(piece);
    }
}

uintptr_t address(const void *piece)
{
    return reinterpret_cast<uintptr_t>(piece);
}

TEST(memory, requests_fail_before_memory_is_provided)
{
    memory_lend(nullptr, 0);
    EXPECT_EQ(zet_integration_mem_alloc(1), nullptr);
    EXPECT_EQ(memory().size, 0U);
    EXPECT_EQ(memory().largest_free, 0U);
    EXPECT_EQ(memory().failures, 1U);
}

TEST(memory, pieces_are_aligned_and_do_not_overlap)
{
    const lent_memory_t lent(size_t{1} << 20);
    uintptr_t end = 0;
    for (size_t size = 0; size < 600; ++size)
    {
        void *piece = zet_integration_mem_alloc(size);
        ASSERT_NE(piece, nullptr);
        EXPECT_EQ(address(piece) % alignment, 0U);
        EXPECT_GE(address(piece), end) << "pieces must not overlap";
        end = address(piece) + size;
    }
}

TEST(memory, requests_larger_than_the_memory_are_refused)
{
    const lent_memory_t lent(65536);
    std::vector<size_t> sizes{65536, SIZE_MAX / 2, SIZE_MAX / 2 + 1};
    for (size_t below = 0; below < 64; ++below)
    {
        sizes.push_back(SIZE_MAX - below);
    }
    for (size_t bit = 17; bit < 8 * sizeof(size_t); ++bit)
    {
        sizes.push_back(size_t{1} << bit);
    }
    for (const size_t size : sizes)
    {
        EXPECT_EQ(zet_integration_mem_alloc(size), nullptr) << size;
    }
    EXPECT_EQ(memory().failures, sizes.size());
    EXPECT_EQ(memory().live, 0U);
    EXPECT_NE(zet_integration_mem_alloc(memory().largest_free), nullptr);
}

TEST(memory, statistics_are_exact)
{
    const lent_memory_t lent(65536);
    EXPECT_EQ(memory().size, 65536U);
    EXPECT_EQ(memory().live, 0U);
    EXPECT_EQ(memory().peak, 0U);
    EXPECT_EQ(memory().failures, 0U);
    const size_t all = memory().largest_free;

    size_t live = 0;
    std::vector<void *> pieces;
    for (size_t size = 0; size < 200; ++size)
    {
        pieces.push_back(zet_integration_mem_alloc(size));
        live += cost(size);
        EXPECT_EQ(memory().live, live);
        EXPECT_EQ(memory().peak, live);
        EXPECT_EQ(memory().largest_free, all - live);
    }
    const size_t peak = live;
    for (size_t size = 0; size < 200; ++size)
    {
        zet_integration_mem_free(pieces[size]);
        live -= cost(size);
        EXPECT_EQ(memory().live, live);
        EXPECT_EQ(memory().peak, peak);
    }
    zet_integration_mem_free(zet_integration_mem_alloc(100));
    EXPECT_EQ(memory().peak, peak);
    EXPECT_EQ(memory().failures, 0U);
    zet_integration_mem_free(nullptr);
    memory_get(nullptr);
    EXPECT_EQ(memory().largest_free, all);
}

TEST(memory, statistics_set_every_member_except_those_of_the_stack)
{
    const lent_memory_t lent(65536);
    const zet_vantor_server_memory_t expected = memory();
    zet_vantor_server_memory_t found = {1, 2, 3, 4, 5, 6, 7};
    memory_get(&found);
    EXPECT_EQ(found.size, expected.size);
    EXPECT_EQ(found.live, expected.live);
    EXPECT_EQ(found.peak, expected.peak);
    EXPECT_EQ(found.largest_free, expected.largest_free);
    EXPECT_EQ(found.failures, expected.failures);
    EXPECT_EQ(found.stack_size, 6U);
    EXPECT_EQ(found.stack_peak, 7U);
}

TEST(memory, the_allocator_itself_uses_little)
{
    for (const size_t size : {size_t{4096}, size_t{65536}, size_t{1} << 20, size_t{64} << 20})
    {
        const lent_memory_t lent(size);
        EXPECT_GE(memory().largest_free, size - size / 4) << size;
        EXPECT_GE(memory().largest_free + 8192, size);
    }
}

TEST(memory, a_remainder_too_small_for_a_block_is_added_to_the_piece)
{
    const lent_memory_t lent(65536);
    void *hole = zet_integration_mem_alloc(request_of_cost(1024));
    void *guard = zet_integration_mem_alloc(1);
    const size_t before = memory().live;
    zet_integration_mem_free(hole);
    EXPECT_EQ(zet_integration_mem_alloc(request_of_cost(1024 - alignment)), hole);
    EXPECT_EQ(memory().live, before);
    zet_integration_mem_free(guard);
}

TEST(memory, new_memory_resets_the_allocator)
{
    const lent_memory_t first(65536);
    zet_integration_mem_alloc(1000);
    zet_integration_mem_alloc(SIZE_MAX);
    const lent_memory_t second(8192);
    EXPECT_EQ(memory().size, 8192U);
    EXPECT_EQ(memory().live, 0U);
    EXPECT_EQ(memory().peak, 0U);
    EXPECT_EQ(memory().failures, 0U);
    EXPECT_LT(memory().largest_free, 8192U);
}

TEST(memory, adjacent_free_blocks_are_merged_in_every_order)
{
    std::array<int, 4> order{0, 1, 2, 3};
    do
    {
        const lent_memory_t lent(65536);
        std::array<void *, 4> pieces = {};
        void *below = zet_integration_mem_alloc(16);
        for (size_t i = 0; i < pieces.size(); ++i)
        {
            pieces[i] = zet_integration_mem_alloc(40 + 100 * i);
        }
        void *above = zet_integration_mem_alloc(16);
        const size_t hole = address(above) - address(pieces[0]);
        for (const int i : order)
        {
            zet_integration_mem_free(pieces[static_cast<size_t>(i)]);
        }
        // The merged hole is the best fit for this request.
        EXPECT_EQ(zet_integration_mem_alloc(request_of_cost(hole)), pieces[0])
            << ::testing::PrintToString(order);
        zet_integration_mem_free(below);
        zet_integration_mem_free(above);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(memory, the_smallest_hole_that_is_large_enough_is_used)
{
    const lent_memory_t lent(65536);
    std::vector<void *> holes;
    std::vector<void *> guards;
    for (const size_t size : {3000U, 96U, 2000U, 700U, 160U, 5000U})
    {
        holes.push_back(zet_integration_mem_alloc(size));
        guards.push_back(zet_integration_mem_alloc(1));
    }
    free_all(holes);
    EXPECT_EQ(zet_integration_mem_alloc(2500), holes[0]);
    EXPECT_EQ(zet_integration_mem_alloc(90), holes[1]);
    EXPECT_EQ(zet_integration_mem_alloc(1500), holes[2]);
    EXPECT_EQ(zet_integration_mem_alloc(600), holes[3]);
    EXPECT_EQ(zet_integration_mem_alloc(150), holes[4]);
    EXPECT_EQ(zet_integration_mem_alloc(4500), holes[5]);
}

TEST(memory, holes_that_differ_by_a_sixteenth_are_distinguished)
{
    std::mt19937 random(7);
    const lent_memory_t lent(size_t{1} << 20);
    std::vector<std::pair<void *, size_t>> holes;
    for (size_t size = 4096; size < 65536; size += size / 16)
    {
        holes.emplace_back(zet_integration_mem_alloc(request_of_cost(size)), size);
        EXPECT_NE(zet_integration_mem_alloc(1), nullptr);
        size = size / 16 * 16;
    }
    std::shuffle(holes.begin(), holes.end(), random);
    for (const auto &[hole, size] : holes)
    {
        zet_integration_mem_free(hole);
    }
    std::shuffle(holes.begin(), holes.end(), random);
    for (const auto &[hole, size] : holes)
    {
        EXPECT_EQ(zet_integration_mem_alloc(request_of_cost(size)), hole) << size;
    }
}

TEST(memory, small_holes_are_also_filled_while_a_document_is_built)
{
    const lent_memory_t lent(65536);
    void *hole = zet_integration_mem_alloc(100);
    const void *guard = zet_integration_mem_alloc(1);
    zet_integration_mem_free(hole);
    EXPECT_GT(address(zet_integration_mem_alloc(200)), address(guard));
    EXPECT_EQ(zet_integration_mem_alloc(100), hole);
}

TEST(memory, a_document_is_placed_in_the_smallest_hole_for_its_first_piece)
{
    const lent_memory_t lent(65536);
    void *hole = zet_integration_mem_alloc(4000);
    void *guard = zet_integration_mem_alloc(1);
    zet_integration_mem_free(hole);
    for (int i = 0; i < 40; ++i)
    {
        const void *node = zet_integration_mem_alloc(40);
        EXPECT_GE(address(node), address(hole));
        EXPECT_LT(address(node), address(guard));
    }
}

TEST(memory, a_small_piece_fills_a_hole_even_after_a_large_piece)
{
    const lent_memory_t lent(65536);
    void *hole = zet_integration_mem_alloc(1000);
    void *guard = zet_integration_mem_alloc(1);
    zet_integration_mem_free(hole);
    void *large = zet_integration_mem_alloc(5000);
    EXPECT_GT(address(large), address(guard));
    EXPECT_EQ(zet_integration_mem_alloc(40), hole);
}

TEST(memory, at_most_32_small_pieces_are_kept_for_requests_of_their_size)
{
    const lent_memory_t lent(65536);
    // More was in use once, so that no request of the test is larger than ever.
    zet_integration_mem_free(zet_integration_mem_alloc(32768));
    std::vector<void *> pieces;
    for (int i = 0; i < 100; ++i)
    {
        pieces.push_back(zet_integration_mem_alloc(40));
    }
    free_all(pieces);
    std::vector<void *> again;
    for (size_t i = 0; i < pieces.size(); ++i)
    {
        again.push_back(zet_integration_mem_alloc(40));
    }
    // The first 32 pieces were kept, and the last one freed comes first. The others were joined.
    for (size_t i = 0; i < 32; ++i)
    {
        EXPECT_EQ(again[i], pieces[31 - i]);
    }
    for (size_t i = 32; i < pieces.size(); ++i)
    {
        EXPECT_EQ(again[i], pieces[i]);
    }
}

TEST(memory, kept_pieces_do_not_make_other_requests_fail)
{
    const lent_memory_t lent(4096);
    for (const size_t size : {size_t{1}, 2 * alignment, 200 * word})
    {
        free_all(fill([] { return 40; }));
        const std::vector<void *> pieces = fill([size] { return size; });
        EXPECT_GE(pieces.size() * cost(size) + cost(size), memory().live + memory().largest_free);
        EXPECT_LT(memory().largest_free, size);
        free_all(pieces);
    }
}

TEST(memory, a_large_piece_can_be_where_small_ones_were_kept)
{
    const lent_memory_t lent(65536);
    zet_integration_mem_free(zet_integration_mem_alloc(32768));
    std::vector<void *> pieces;
    for (int i = 0; i < 10; ++i)
    {
        pieces.push_back(zet_integration_mem_alloc(40));
    }
    zet_integration_mem_alloc(40);
    free_all(pieces);
    EXPECT_EQ(zet_integration_mem_alloc(request_of_cost(10 * cost(40))), pieces[0]);
}

TEST(memory, small_pieces_move_to_the_start_when_a_large_piece_is_freed)
{
    const lent_memory_t lent(65536);
    zet_integration_mem_free(zet_integration_mem_alloc(60000));
    void *const large = zet_integration_mem_alloc(32768);
    zet_integration_mem_free(zet_integration_mem_alloc(40));
    // The small piece was kept behind the large one.
    zet_integration_mem_free(large);
    zet_integration_mem_alloc(40);
    EXPECT_GT(memory().largest_free, 60000U);
}

TEST(memory, kept_pieces_do_not_count_as_in_use)
{
    const lent_memory_t lent(65536);
    std::vector<void *> pieces;
    for (size_t i = 0; i < 60; ++i)
    {
        pieces.push_back(zet_integration_mem_alloc(40));
    }
    // These pieces are kept. None of the other size can use them.
    free_all({pieces.begin(), pieces.begin() + 30});
    for (size_t i = 0; i < 20; ++i)
    {
        zet_integration_mem_alloc(1);
    }
    EXPECT_EQ(memory().peak, 60 * cost(40));
    EXPECT_EQ(memory().live, 30 * cost(40) + 20 * cost(1));
    for (size_t i = 0; i < 200; ++i)
    {
        zet_integration_mem_alloc(1);
    }
    EXPECT_EQ(memory().peak, 30 * cost(40) + 220 * cost(1));
}

TEST(memory, full_memory_is_one_free_block_again_after_frees_in_any_order)
{
    std::mt19937 random(1);
    const lent_memory_t lent(size_t{1} << 20);
    const size_t all = memory().largest_free;
    for (const size_t largest : {16U, 100U, 1000U, 50000U})
    {
        std::vector<void *> pieces = fill([&] { return random_below(random, largest) + 1; });
        EXPECT_LT(memory().largest_free, largest);
        std::shuffle(pieces.begin(), pieces.end(), random);
        free_all(pieces);
        EXPECT_EQ(memory().live, 0U);
        EXPECT_EQ(memory().largest_free, all);
        void *all_memory = zet_integration_mem_alloc(all);
        EXPECT_NE(all_memory, nullptr);
        EXPECT_EQ(zet_integration_mem_alloc(1), nullptr);
        zet_integration_mem_free(all_memory);
    }
}

/** A piece and the value written to all its bytes. */
struct written_piece_t
{
    unsigned char *bytes;
    size_t size;
    unsigned char value;

    /** Whether all its bytes still have this value. */
    [[nodiscard]] bool is_intact() const
    {
        return size == 0 || (bytes[0] == value && std::memcmp(bytes, bytes + 1, size - 1) == 0);
    }
};

/** A size typical of a server: often small, rarely large. */
size_t random_size(std::mt19937 &random)
{
    const size_t kind = random_below(random, 100);
    return random_below(random, kind < 70 ? 64 : kind < 95 ? 600 : 8000);
}

TEST(memory, a_million_random_steps_keep_every_byte)
{
    constexpr int steps = 1000000;
    std::mt19937 random(2);
    const lent_memory_t lent(size_t{1} << 18);
    const size_t all = memory().largest_free;
    std::vector<written_piece_t> pieces;
    size_t least_live = 0;
    uint32_t failures = 0;
    for (int step = 0; step < steps; ++step)
    {
        // Phases of growth and of decline make the memory alternately full and almost empty.
        const bool grow = random_below(random, 100) < (step / 20000 % 2 == 0 ? 60U : 42U);
        if (grow || pieces.empty())
        {
            const size_t size = random_size(random);
            auto *bytes = static_cast<unsigned char *>(zet_integration_mem_alloc(size));
            if (bytes == nullptr)
            {
                ++failures;
                ASSERT_GT(std::max(size, size_t{1}), memory().largest_free) << "step " << step;
                continue;
            }
            const auto value = static_cast<unsigned char>(random());
            std::memset(bytes, value, size);
            pieces.push_back({bytes, size, value});
            least_live += cost(size);
        }
        else
        {
            std::swap(pieces[random_below(random, pieces.size())], pieces.back());
            ASSERT_TRUE(pieces.back().is_intact()) << "step " << step;
            zet_integration_mem_free(pieces.back().bytes);
            least_live -= cost(pieces.back().size);
            pieces.pop_back();
        }
        // Not in every step, so that the allocator can use its fast paths in between.
        if (step % 50 == 0)
        {
            const zet_vantor_server_memory_t now = memory();
            ASSERT_GE(now.live, least_live);
            ASSERT_LE(now.live, least_live + pieces.size() * alignment);
            ASSERT_GE(now.peak, now.live);
            ASSERT_EQ(now.failures, failures);
            if (now.largest_free > 0)
            {
                void *largest = zet_integration_mem_alloc(now.largest_free);
                ASSERT_NE(largest, nullptr) << "step " << step;
                zet_integration_mem_free(largest);
            }
            ASSERT_EQ(zet_integration_mem_alloc(now.largest_free + 1), nullptr) << "step " << step;
            ++failures;
        }
    }
    EXPECT_GT(failures, 1000U) << "the memory was full too rarely";
    for (const written_piece_t &piece : pieces)
    {
        EXPECT_TRUE(piece.is_intact());
        zet_integration_mem_free(piece.bytes);
    }
    EXPECT_EQ(memory().live, 0U);
    EXPECT_EQ(memory().largest_free, all);
}

TEST(memory, statistics_are_exact_after_any_steps)
{
    // Pieces take up multiples of the smallest piece, so that no remainder is added to one.
    const size_t unit = cost(0);
    std::mt19937 random(9);
    for (uint32_t round = 0; round < 300; ++round)
    {
        SCOPED_TRACE(round);
        const lent_memory_t lent(2000 + random_below(random, 30000));
        const size_t all = memory().largest_free;
        // Leaves a multiple of the smallest piece.
        void *rest =
            (all + word) % unit == 0 ? nullptr : zet_integration_mem_alloc(request_of_cost(3 * alignment));
        size_t live = memory().live;
        size_t peak = live;
        uint32_t failures = 0;
        std::vector<std::pair<void *, size_t>> pieces;
        const size_t most_units = 1 + random_below(random, 8);
        for (uint32_t step = 0; step < 1000; ++step)
        {
            const size_t growth = step / 100 % 2 == 0 ? 70 : 35;
            if (pieces.empty() || random_below(random, 100) < growth)
            {
                const size_t size = unit * (1 + random_below(random, most_units));
                void *piece = zet_integration_mem_alloc(request_of_cost(size));
                failures += piece == nullptr ? 1 : 0;
                if (piece != nullptr)
                {
                    pieces.emplace_back(piece, size);
                    live += size;
                    peak = std::max(peak, live);
                }
            }
            else
            {
                // Mostly the last ones, as when a document is freed.
                const size_t newest =
                    std::min<size_t>(pieces.size(), random_below(random, 4) == 0 ? 1000 : 3);
                std::swap(pieces[pieces.size() - 1 - random_below(random, newest)], pieces.back());
                zet_integration_mem_free(pieces.back().first);
                live -= pieces.back().second;
                pieces.pop_back();
            }
            // Seldom, because the answer joins the pieces that the allocator has kept.
            if (random_below(random, 100) == 0)
            {
                const zet_vantor_server_memory_t now = memory();
                ASSERT_EQ(now.live, live) << "step " << step;
                ASSERT_EQ(now.peak, peak) << "step " << step;
                ASSERT_EQ(now.failures, failures) << "step " << step;
            }
        }
        for (const auto &[piece, size] : pieces)
        {
            zet_integration_mem_free(piece);
        }
        zet_integration_mem_free(rest);
        EXPECT_EQ(memory().live, 0U);
        EXPECT_EQ(memory().peak, peak);
        EXPECT_EQ(memory().largest_free, all);
    }
}

TEST(memory, requests_succeed_for_long_with_four_fifths_in_use)
{
    constexpr size_t size = 65536;
    std::mt19937 random(3);
    const lent_memory_t lent(size);
    std::vector<std::pair<void *, size_t>> pieces;
    size_t live = 0;
    for (int step = 0; step < 200000; ++step)
    {
        if (live < size / 5 * 4)
        {
            const size_t requested = random_below(random, 200);
            pieces.emplace_back(zet_integration_mem_alloc(requested), cost(requested));
            live += pieces.back().second;
            ASSERT_NE(pieces.back().first, nullptr) << "step " << step;
        }
        else
        {
            std::swap(pieces[random_below(random, pieces.size())], pieces.back());
            zet_integration_mem_free(pieces.back().first);
            live -= pieces.back().second;
            pieces.pop_back();
        }
    }
}

/** The allocations of a parser for a JSON document. */
std::vector<void *> make_document(std::mt19937 &random, size_t values)
{
    std::vector<void *> pieces;
    for (size_t i = 0; i < values; ++i)
    {
        pieces.push_back(zet_integration_mem_alloc(5 * word + 20));
        pieces.push_back(zet_integration_mem_alloc(8 + random_below(random, 16)));
    }
    return pieces;
}

/** The allocations of a session: a document, objects that exist longer, frames, and the end. */
void run_session(std::mt19937 &random)
{
    const std::vector<void *> document = make_document(random, 50 + random_below(random, 50));
    std::vector<void *> objects;
    for (size_t i = 0; i < 20; ++i)
    {
        objects.push_back(zet_integration_mem_alloc(20 + random_below(random, 400)));
    }
    free_all(document);
    objects.push_back(zet_integration_mem_alloc(4000 + random_below(random, 4000)));
    for (int frame = 0; frame < 5; ++frame)
    {
        free_all(make_document(random, 40));
    }
    std::shuffle(objects.begin(), objects.end(), random);
    free_all(objects);
}

TEST(memory, a_thousand_sessions_do_not_change_it)
{
    std::mt19937 random(4);
    const lent_memory_t lent(65536);
    for (int i = 0; i < 10; ++i)
    {
        // Memory that a server keeps.
        zet_integration_mem_alloc(100);
    }
    const zet_vantor_server_memory_t before = memory();
    for (int session = 0; session < 1000; ++session)
    {
        run_session(random);
        ASSERT_EQ(memory().live, before.live);
        ASSERT_EQ(memory().largest_free, before.largest_free);
    }
    EXPECT_EQ(memory().failures, 0U);
}

TEST(memory, pieces_that_are_kept_across_sessions_do_not_cause_fragmentation)
{
    std::mt19937 random(5);
    const lent_memory_t lent(65536);
    std::array<void *, 8> kept = {};
    size_t smallest = SIZE_MAX;
    for (size_t session = 0; session < 1000; ++session)
    {
        const std::vector<void *> document = make_document(random, 100);
        void *&renewed = kept[session % kept.size()];
        zet_integration_mem_free(renewed);
        renewed = zet_integration_mem_alloc(60);
        free_all(document);
        run_session(random);
        smallest = std::min<size_t>(smallest, memory().largest_free);
    }
    // The kept pieces are not above the end of the documents.
    EXPECT_GT(smallest, 65536U / 2);
}

TEST(memory, recovers_what_was_allocated_since_the_kept_pieces)
{
    std::mt19937 random(8);
    for (int round = 0; round < 200; ++round)
    {
        const lent_memory_t lent(65536);
        std::vector<void *> kept = make_document(random, 20);
        // Holes between the kept pieces.
        for (size_t i = 0; i < kept.size(); i += 3)
        {
            zet_integration_mem_free(std::exchange(kept[i], nullptr));
        }
        const zet_vantor_server_memory_t before = memory();
        memory_keep();
        EXPECT_EQ(memory_recover(), 0U);
        for (int session = 0; session < 3; ++session)
        {
            std::vector<void *> lost = make_document(random, 60);
            for (size_t i = 0; i < lost.size(); i += 1 + random_below(random, 3))
            {
                zet_integration_mem_free(lost[i]);
            }
            const size_t live = memory().live;
            EXPECT_EQ(memory_recover(), live - before.live);
            EXPECT_EQ(memory().live, before.live);
            EXPECT_EQ(memory().largest_free, before.largest_free);
        }
        free_all(kept);
        EXPECT_EQ(memory().live, 0U);
    }
}

TEST(memory, recovers_nothing_without_memory)
{
    memory_lend(nullptr, 0);
    memory_keep();
    EXPECT_EQ(memory_recover(), 0U);
}

/** The shortest time of many runs of some steps. */
double shortest_time(const std::function<void()> &steps)
{
    using steady_clock_t = std::chrono::steady_clock;
    steady_clock_t::duration shortest = steady_clock_t::duration::max();
    for (int i = 0; i < 50; ++i)
    {
        const steady_clock_t::time_point start = steady_clock_t::now();
        steps();
        shortest = std::min(shortest, steady_clock_t::now() - start);
    }
    return std::chrono::duration<double>(shortest).count();
}

/** Time of requests and frees of all sizes, in a memory with this many pieces with holes between them. */
double time_with(size_t pieces)
{
    std::mt19937 random(6);
    const lent_memory_t lent(size_t{64} << 20);
    std::vector<void *> freed;
    for (size_t i = 0; i < pieces; ++i)
    {
        freed.push_back(zet_integration_mem_alloc(random_below(random, 250)));
        EXPECT_NE(zet_integration_mem_alloc(random_below(random, 250)), nullptr);
    }
    std::shuffle(freed.begin(), freed.end(), random);
    free_all(freed);
    return shortest_time([] {
        std::array<void *, 40> taken = {};
        for (size_t i = 0; i < taken.size(); ++i)
        {
            taken[i] = zet_integration_mem_alloc(1 + i * i);
        }
        for (void *piece : taken)
        {
            zet_integration_mem_free(piece);
        }
    });
}

TEST(memory, time_does_not_grow_with_the_number_of_pieces)
{
    const double few = time_with(10);
    const double many = time_with(100000);
    RecordProperty("nanoseconds_with_10_pieces", std::to_string(few * 1e9));
    RecordProperty("nanoseconds_with_100000_pieces", std::to_string(many * 1e9));
    // A linear search would take thousands of times as long. Cache misses cost less than the limit allows.
    EXPECT_LT(many, 100.0 * few);
}

TEST(memory, may_have_any_size_and_any_address)
{
    constexpr unsigned char untouched = 0xA5;
    alignas(64) static std::array<unsigned char, 6000> space;
    for (size_t offset = 1; offset <= 2 * alignment; ++offset)
    {
        size_t smallest = 0;
        for (size_t size = 0; size + offset < space.size() - 100; size += size < 2000 ? 1 : 613)
        {
            space.fill(untouched);
            memory_lend(&space[offset], size);
            const size_t all = memory().largest_free;
            smallest = smallest == 0 ? all : smallest;
            std::vector<void *> pieces;
            while (void *piece = zet_integration_mem_alloc(20))
            {
                ASSERT_EQ(address(piece) % alignment, 0U);
                ASSERT_GE(address(piece), address(&space[offset]));
                ASSERT_LE(address(piece) + 20, address(&space[offset]) + size);
                std::memset(piece, 0, 20);
                pieces.push_back(piece);
            }
            free_all(pieces);
            ASSERT_EQ(memory().largest_free, all);
            memory_lend(nullptr, 0);
            const auto is_untouched = [](unsigned char byte) { return byte == untouched; };
            const auto begin = space.begin() + static_cast<ptrdiff_t>(offset);
            ASSERT_TRUE(std::all_of(space.begin(), begin, is_untouched));
            ASSERT_TRUE(std::all_of(begin + static_cast<ptrdiff_t>(size), space.end(), is_untouched));
        }
        EXPECT_EQ(smallest, request_of_cost(cost(1)));
    }
}

#ifdef UNDER_ADDRESS_SANITIZER

TEST(memory, the_sanitizer_can_check_every_byte_of_a_piece)
{
    const lent_memory_t lent(65536);
    for (size_t size = 1; size < 300; ++size)
    {
        auto *piece = static_cast<unsigned char *>(zet_integration_mem_alloc(size));
        EXPECT_EQ(__asan_region_is_poisoned(piece, size), nullptr);
        EXPECT_TRUE(__asan_address_is_poisoned(piece - 1));
        EXPECT_TRUE(__asan_address_is_poisoned(piece + size));
        zet_integration_mem_free(piece);
        for (size_t i = 0; i < size; ++i)
        {
            EXPECT_TRUE(__asan_address_is_poisoned(piece + i));
        }
    }
}

TEST(memory, the_sanitizer_detects_misuse)
{
    const lent_memory_t lent(65536);
    auto *piece = static_cast<unsigned char *>(zet_integration_mem_alloc(40));
    volatile size_t one_more = 41;
    EXPECT_DEATH(std::memset(piece, 0, one_more), "use-after-poison");
    zet_integration_mem_free(piece);
    EXPECT_DEATH(std::memset(piece, 0, one_more - 1), "use-after-poison");
    EXPECT_DEATH(zet_integration_mem_free(piece), "use-after-poison");
}

TEST(memory, memory_that_is_returned_is_no_longer_poisoned)
{
    std::array<unsigned char, 4096> space = {};
    memory_lend(space.data(), space.size());
    EXPECT_TRUE(__asan_address_is_poisoned(&space[2048]));
    memory_lend(nullptr, 0);
    EXPECT_EQ(__asan_region_is_poisoned(space.data(), space.size()), nullptr);
}

#endif

} // namespace
