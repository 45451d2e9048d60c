/** @file
 * Tests of the way of batches through the spool to a broker, in virtual time.
 */
#include "bridge/publisher.h"

#include <fstream>
#include <memory>

#include <gmock/gmock.h>

#include "bridge/batch.h"
#include "disk_writes.h"
#include "example_batch.h"
#include "fake_broker.h"
#include "manual_clock.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/** A batch of a board. Its messages are any bytes, which only a consumer reads. */
std::string batch_of(const std::string &board, uint64_t number, size_t size = 20)
{
    auto header = test::example_header(1);
    header.board = board;
    header.session = "S";
    header.number = number;
    return encode_batch(header, std::string(size, 'x'));
}

/** A publisher with a spool, and a broker that answers when the test says so. */
class publisher_test : public testing::Test
{
protected:
    publisher_test()
    {
        restart();
    }

    /** Starts with a new spool of other sizes. */
    void restart_with(spool::sizes wanted)
    {
        sizes = wanted;
        std::filesystem::remove(directory / "spool/batches");
        restart();
    }

    /** Ends the program and starts another one. */
    void restart()
    {
        batches.reset();
        target.open.clear();
        store.reset();
        store = std::make_unique<spool>(directory / "spool", sizes);
        batches = std::make_unique<publisher>(*store, target, loop);
    }

    /** Adds batches of a board. */
    void add(const std::string &board, uint64_t first, uint64_t end)
    {
        for (auto number = first; number < end; ++number)
        {
            EXPECT_TRUE(batches->add(board, batch_of(board, number)));
        }
    }

    /** Lets some time pass. */
    void run_after(std::chrono::milliseconds span)
    {
        clock.advance(span);
        batches->run();
    }

    /** The batches that the broker has not answered. */
    [[nodiscard]] std::vector<std::string> open() const
    {
        std::vector<std::string> ids;
        for (const auto &sent : target.open)
        {
            ids.push_back(sent.what.id);
        }
        return ids;
    }

    /** The batches that the broker has stored. */
    [[nodiscard]] std::vector<std::string> stored() const
    {
        std::vector<std::string> ids;
        for (const auto &sent : target.stored)
        {
            ids.push_back(sent.id);
        }
        return ids;
    }

    /** Has the broker store all batches. */
    void store_all()
    {
        batches->run();
        while (!target.open.empty())
        {
            target.answer(true);
        }
    }

    /** Changes the last byte of a text where it is first in the file of the spool. */
    void damage(const std::string &text)
    {
        const auto path = directory / "spool/batches";
        const auto at = test::read_file(path).find(text);
        ASSERT_NE(at, std::string::npos);
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(at + text.size() - 1));
        file.put('!');
    }

    test::temporary_directory directory;
    spool::sizes sizes{.file = uint64_t{1} << 17U, .slot = uint64_t{1} << 14U};
    test::manual_clock clock;
    test::manual_loop loop{clock};
    test::fake_broker target;
    std::unique_ptr<spool> store;
    std::unique_ptr<publisher> batches;
};

TEST_F(publisher_test, publishes_what_was_added)
{
    add("door", 7, 8);
    batches->run();
    ASSERT_THAT(target.open, SizeIs(1));
    const auto &sent = target.open.front().what;
    EXPECT_EQ(sent.board, "door");
    EXPECT_EQ(sent.id, "door/S/7");
    EXPECT_EQ(sent.bytes, batch_of("door", 7));
}

TEST_F(publisher_test, publishes_one_batch_of_a_board_after_the_other)
{
    add("door", 0, 3);
    batches->run();
    batches->run();
    EXPECT_THAT(open(), ElementsAre("door/S/0"));
    target.answer(true);
    EXPECT_THAT(open(), ElementsAre("door/S/1"));
    target.answer(true);
    target.answer(true);
    EXPECT_THAT(open(), IsEmpty());
    EXPECT_THAT(stored(), ElementsAre("door/S/0", "door/S/1", "door/S/2"));
}

TEST_F(publisher_test, publishes_batches_of_several_boards_at_the_same_time)
{
    add("door", 0, 2);
    add("gate", 0, 2);
    add("wall", 0, 1);
    batches->run();
    EXPECT_THAT(open(), ElementsAre("door/S/0", "gate/S/0", "wall/S/0"));
    target.answer(true);
    EXPECT_THAT(open(), ElementsAre("gate/S/0", "wall/S/0", "door/S/1"));
}

TEST_F(publisher_test, removes_what_is_stored)
{
    add("door", 0, 2);
    EXPECT_GT(store->used(), 0U);
    store_all();
    EXPECT_EQ(store->used(), 0U);
    restart();
    batches->run();
    EXPECT_THAT(open(), IsEmpty());
}

TEST_F(publisher_test, counts)
{
    add("door", 0, 2);
    add("gate", 0, 1);
    EXPECT_EQ(batches->waiting(), 3U);
    EXPECT_EQ(batches->waiting("door"), 2U);
    EXPECT_EQ(batches->waiting("wall"), 0U);
    batches->run();
    target.answer(true);
    EXPECT_EQ(batches->waiting(), 2U);
    EXPECT_EQ(batches->waiting("door"), 1U);
    EXPECT_EQ(batches->counted().stored, 1U);
    EXPECT_EQ(batches->counted().stored_bytes, batch_of("door", 0).size());
    store_all();
    EXPECT_EQ(batches->waiting(), 0U);
    EXPECT_EQ(batches->counted().stored, 3U);
    EXPECT_EQ(batches->counted().repeated, 0U);
    EXPECT_EQ(batches->counted().damaged, 0U);
}

TEST_F(publisher_test, repeats_a_batch_that_was_refused_after_a_pause)
{
    add("door", 0, 2);
    batches->run();
    target.answer(false);
    run_after(499ms);
    EXPECT_THAT(open(), IsEmpty());
    run_after(1ms);
    EXPECT_THAT(open(), ElementsAre("door/S/0"));
    EXPECT_EQ(target.open.front().what.bytes, batch_of("door", 0));
    EXPECT_EQ(batches->counted().repeated, 1U);
    EXPECT_EQ(batches->waiting(), 2U);
    store_all();
    EXPECT_THAT(stored(), ElementsAre("door/S/0", "door/S/1"));
}

TEST_F(publisher_test, goes_on_with_other_boards_during_the_pause)
{
    add("door", 0, 2);
    add("gate", 0, 2);
    batches->run();
    target.answer(false);
    target.answer(true);
    add("wall", 0, 1);
    batches->run();
    EXPECT_THAT(open(), testing::UnorderedElementsAre("gate/S/1", "wall/S/0"));
    run_after(500ms);
    EXPECT_THAT(open(), testing::UnorderedElementsAre("door/S/0", "gate/S/1", "wall/S/0"));
}

TEST_F(publisher_test, drops_batches_that_are_too_large_for_the_broker)
{
    add("door", 0, 2);
    target.most = batch_of("door", 0).size() - 1;
    batches->run();
    EXPECT_THAT(open(), IsEmpty());
    EXPECT_EQ(batches->counted().too_large, 2U);
    EXPECT_EQ(batches->waiting(), 0U);
    target.most += 1;
    add("door", 2, 3);
    batches->run();
    EXPECT_THAT(open(), ElementsAre("door/S/2"));
}

TEST_F(publisher_test, waits_until_the_broker_is_ready)
{
    target.is_ready = false;
    add("door", 0, 1);
    run_after(1h);
    EXPECT_THAT(open(), IsEmpty());
    target.is_ready = true;
    batches->run();
    EXPECT_THAT(open(), ElementsAre("door/S/0"));
}

TEST_F(publisher_test, limits_the_bytes_under_way)
{
    constexpr size_t size = size_t{3} << 20U;
    restart_with({.file = 5 * (size + 1000), .slot = size + 1000});
    for (const char *board : {"a", "b", "c", "d", "e"})
    {
        ASSERT_TRUE(batches->add(board, batch_of(board, 0, size)));
    }
    batches->run();
    // 8 MiB are exceeded by the third.
    EXPECT_THAT(open(), ElementsAre("a/S/0", "b/S/0", "c/S/0"));
    target.answer(true);
    EXPECT_THAT(open(), ElementsAre("b/S/0", "c/S/0", "d/S/0"));
    target.answer(false);
    run_after(500ms);
    EXPECT_THAT(open(), ElementsAre("c/S/0", "d/S/0", "e/S/0"));
    store_all();
    EXPECT_THAT(stored(), SizeIs(5));
}

TEST_F(publisher_test, publishes_the_batches_of_a_former_program_first)
{
    add("door", 0, 2);
    add("gate", 5, 7);
    batches->run();
    restart();
    EXPECT_EQ(batches->waiting(), 4U);
    add("door", 2, 3);
    store_all();
    EXPECT_EQ(batches->waiting(), 0U);
    EXPECT_THAT(stored(), ElementsAre("door/S/0", "gate/S/5", "door/S/1", "gate/S/6", "door/S/2"));
}

TEST_F(publisher_test, skips_a_damaged_batch)
{
    add("door", 0, 3);
    damage(batch_of("door", 1));
    store_all();
    EXPECT_THAT(stored(), ElementsAre("door/S/0", "door/S/2"));
    EXPECT_EQ(batches->counted().damaged, 1U);
    EXPECT_EQ(batches->waiting(), 0U);
    EXPECT_EQ(store->used(), 0U);
}

TEST_F(publisher_test, skips_batches_of_a_former_program_that_are_damaged_or_are_none)
{
    add("door", 0, 3);
    ASSERT_TRUE(store->add("not a batch").has_value());
    damage(batch_of("door", 1));
    restart();
    EXPECT_EQ(batches->counted().damaged, 2U);
    EXPECT_EQ(batches->waiting(), 2U);
    store_all();
    EXPECT_THAT(stored(), ElementsAre("door/S/0", "door/S/2"));
    EXPECT_EQ(store->used(), 0U);
}

TEST_F(publisher_test, refuses_a_batch_when_the_spool_is_full)
{
    restart_with({.file = 1024, .slot = 512});
    uint64_t added = 0;
    while (batches->add("door", batch_of("door", added)))
    {
        ++added;
    }
    EXPECT_GT(added, 1U);
    EXPECT_EQ(batches->counted().refused, 1U);
    EXPECT_EQ(batches->counted().unwritten, 0U);
    EXPECT_EQ(batches->waiting(), added);
    store_all();
    EXPECT_EQ(target.stored.size(), added);
    EXPECT_TRUE(batches->add("door", batch_of("door", added)));
}

TEST_F(publisher_test, counts_what_the_disk_does_not_take)
{
    {
        test::failing_writes disk(0);
        EXPECT_FALSE(batches->add("door", batch_of("door", 0)));
    }
    EXPECT_EQ(batches->counted().unwritten, 1U);
    EXPECT_EQ(batches->counted().refused, 0U);
    EXPECT_EQ(batches->waiting(), 0U);
}

TEST_F(publisher_test, gives_up_any_number_of_batches_on_the_stack_of_a_task)
{
    constexpr int boards = 5000;
    restart_with({.file = size_t{2} << 20U, .slot = size_t{1} << 20U});
    for (int number = 0; number < boards; ++number)
    {
        add("board-" + std::to_string(number), 0, 1);
    }
    loop.spawn([&] {
        batches->run();
        ASSERT_THAT(target.open, SizeIs(boards));
        target.is_silent = true;
        batches->run();
    });
    EXPECT_THAT(loop.run_tasks(), ElementsAre(nullptr));
    EXPECT_EQ(batches->counted().repeated, static_cast<uint64_t>(boards));
    target.is_silent = false;
    run_after(500ms);
    store_all();
    EXPECT_EQ(batches->waiting(), 0U);
}

} // namespace
} // namespace vantor
