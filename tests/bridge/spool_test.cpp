/** @file
 * Tests of the spool.
 */
#include "bridge/spool.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>

#include <gmock/gmock.h>

#include "disk_writes.h"
#include "file_size_limit.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using testing::AllOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

/** Bytes of a record in addition to the batch, whose size is rounded up to 8. */
constexpr uint64_t record_overhead = 24;

/** Slots small enough for few batches. */
constexpr spool::sizes small{.file = 4096, .slot = 512};

/** A batch of this size that differs from others. */
std::string batch_bytes(size_t size, unsigned number)
{
    std::string bytes(size, static_cast<char>('a' + number % 26));
    const auto text = std::to_string(number);
    bytes.replace(0, std::min(text.size(), size), text, 0, size);
    return bytes;
}

/** A spool in a temporary directory. */
class spool_test : public testing::Test
{
protected:
    /** Opens the spool, also again. */
    spool &open(spool::sizes wanted = small)
    {
        opened.reset();
        opened = std::make_unique<spool>(directory / "spool", wanted);
        return *opened;
    }

    /** The batches that a former program has left. */
    std::vector<std::string> left()
    {
        std::vector<std::string> batches;
        for (const auto &where : opened->take_left())
        {
            batches.push_back(read_or_damaged(where));
        }
        return batches;
    }

    /** A batch, or "damaged". */
    std::string read_or_damaged(const spool::place &where)
    try
    {
        return opened->read(where);
    }
    catch (const spool_error &)
    {
        return "damaged";
    }

    /** Changes a byte of the file. */
    void damage(uint64_t offset)
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekg(static_cast<std::streamoff>(offset));
        const int before = file.get();
        file.seekp(static_cast<std::streamoff>(offset));
        file.put(static_cast<char>(before ^ 0x10));
    }

    test::temporary_directory directory;
    std::filesystem::path path = directory / "spool/batches";
    std::unique_ptr<spool> opened;
};

TEST_F(spool_test, keeps_batches_until_they_are_removed)
{
    auto &store = open();
    EXPECT_THAT(store.take_left(), IsEmpty());
    const auto first = store.add("first");
    const auto second = store.add(std::string("sec\0nd\n", 7));
    const auto empty = store.add("");
    ASSERT_TRUE(first && second && empty);
    EXPECT_EQ(store.read(*second), std::string("sec\0nd\n", 7));
    EXPECT_EQ(store.read(*first), "first");
    EXPECT_EQ(store.read(*empty), "");
    store.remove(*first);
    EXPECT_EQ(store.read(*second), std::string("sec\0nd\n", 7));
}

TEST_F(spool_test, has_the_size_that_was_asked_for_in_whole_slots)
{
    EXPECT_EQ(open({.file = 4096 + 511, .slot = 512}).size(), 4096U);
    EXPECT_EQ(std::filesystem::file_size(path), 4096U);
    EXPECT_EQ(opened->largest(), 512 - record_overhead);
}

TEST_F(spool_test, has_two_slots_at_least)
{
    EXPECT_EQ(open({.file = 1, .slot = 512}).size(), 1024U);
}

TEST_F(spool_test, reserves_the_disk)
{
    open({.file = uint64_t{1} << 20U});
    struct stat status = {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, 1 << 20);
}

TEST_F(spool_test, is_for_its_user_alone)
{
    open();
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(path).permissions(), perms::owner_read | perms::owner_write);
}

TEST_F(spool_test, finds_batches_of_a_former_program_in_their_order)
{
    auto &store = open();
    std::vector<spool::place> places;
    std::vector<std::string> expected;
    // Fills several slots, and empties the first, which is used again.
    for (unsigned number = 0; number < 20; ++number)
    {
        const auto where = store.add(batch_bytes(100, number));
        ASSERT_TRUE(where.has_value());
        places.push_back(*where);
        expected.push_back(batch_bytes(100, number));
    }
    for (unsigned number = 0; number < 5; ++number)
    {
        store.remove(places[number]);
    }
    for (unsigned number = 20; number < 25; ++number)
    {
        ASSERT_TRUE(store.add(batch_bytes(100, number)).has_value());
        expected.push_back(batch_bytes(100, number));
    }
    expected.erase(expected.begin(), expected.begin() + 5);
    open();
    EXPECT_THAT(left(), ElementsAreArray(expected));
    EXPECT_THAT(opened->take_left(), IsEmpty());
}

TEST_F(spool_test, forgets_what_was_removed)
{
    auto &store = open();
    const auto first = store.add("first");
    const auto second = store.add("second");
    const auto third = store.add("third");
    store.remove(second.value());
    open();
    EXPECT_THAT(left(), ElementsAre("first", "third"));
    opened->remove(first.value());
    opened->remove(third.value());
    open();
    EXPECT_THAT(left(), IsEmpty());
    EXPECT_EQ(opened->used(), 0U);
}

TEST_F(spool_test, adds_behind_what_a_former_program_has_left)
{
    open().add("first");
    ASSERT_TRUE(open().add("second").has_value());
    ASSERT_TRUE(open().add("third").has_value());
    open();
    EXPECT_THAT(left(), ElementsAre("first", "second", "third"));
}

TEST_F(spool_test, takes_nothing_when_it_is_full_and_more_when_there_is_room_again)
{
    auto &store = open();
    std::vector<spool::place> places;
    while (const auto where = store.add(batch_bytes(100, static_cast<unsigned>(places.size()))))
    {
        places.push_back(*where);
    }
    // Four records of 128 bytes in each of eight slots.
    EXPECT_EQ(places.size(), 32U);
    EXPECT_EQ(store.used(), store.size());
    EXPECT_FALSE(store.add("").has_value());
    for (const auto &where : places)
    {
        EXPECT_FALSE(store.read(where).empty());
    }
    // A slot has room when all its batches are removed.
    for (unsigned number = 0; number < 3; ++number)
    {
        store.remove(places[number]);
        EXPECT_FALSE(store.add("").has_value());
    }
    store.remove(places[3]);
    EXPECT_EQ(store.used(), store.size() - 512);
    for (unsigned number = 32; number < 36; ++number)
    {
        EXPECT_TRUE(store.add(batch_bytes(100, number)).has_value());
    }
    EXPECT_FALSE(store.add("").has_value());
    open();
    EXPECT_THAT(left(), SizeIs(32));
}

TEST_F(spool_test, takes_batches_up_to_the_largest)
{
    auto &store = open();
    const auto largest = store.largest();
    EXPECT_FALSE(store.add(std::string(largest + 1, 'x')).has_value());
    const auto where = store.add(std::string(largest, 'x'));
    ASSERT_TRUE(where.has_value());
    EXPECT_EQ(store.read(*where), std::string(largest, 'x'));
    open();
    EXPECT_THAT(left(), ElementsAre(std::string(largest, 'x')));
}

/** The slots that are used when some batches wait, while many go through. */
std::set<uint64_t> slots_used(spool &store, size_t waiting)
{
    std::set<uint64_t> used;
    std::deque<spool::place> places;
    for (unsigned number = 0; number < 1000; ++number)
    {
        places.push_back(store.add(batch_bytes(100, number)).value());
        used.insert(places.back().offset / small.slot);
        if (places.size() > waiting)
        {
            store.remove(places.front());
            places.pop_front();
        }
    }
    return used;
}

TEST_F(spool_test, uses_few_slots_while_few_batches_wait)
{
    EXPECT_THAT(slots_used(open(), 0), SizeIs(1));
    EXPECT_EQ(opened->used(), 0U);
    EXPECT_THAT(slots_used(*opened, 3), SizeIs(2));
}

TEST_F(spool_test, uses_few_slots_again_after_it_was_full)
{
    auto &store = open();
    std::vector<spool::place> places;
    while (const auto where = store.add(batch_bytes(100, 0)))
    {
        places.push_back(*where);
    }
    std::ranges::for_each(places, [&](const auto &where) { store.remove(where); });
    EXPECT_EQ(store.used(), 0U);
    EXPECT_THAT(slots_used(store, 3), SizeIs(2));
}

TEST_F(spool_test, grows_and_keeps_its_batches)
{
    open({.file = 1024, .slot = 512}).add("first");
    EXPECT_EQ(open().size(), 4096U);
    EXPECT_THAT(left(), ElementsAre("first"));
}

TEST_F(spool_test, does_not_shrink)
{
    std::vector<std::string> expected;
    auto &store = open();
    while (store.add(batch_bytes(100, static_cast<unsigned>(expected.size()))))
    {
        expected.push_back(batch_bytes(100, static_cast<unsigned>(expected.size())));
    }
    EXPECT_EQ(open({.file = 1024, .slot = 512}).size(), 4096U);
    EXPECT_THAT(left(), ElementsAreArray(expected));
}

TEST_F(spool_test, refuses_a_second_program)
{
    open().add("first");
    EXPECT_THAT([&] { spool(directory / "spool", small); },
                ThrowsMessage<spool_error>(AllOf(HasSubstr("Another program uses"), HasSubstr("--spool"))));
    open();
    EXPECT_THAT(left(), ElementsAre("first"));
}

TEST_F(spool_test, reports_a_directory_that_cannot_be_used)
{
    const auto file = directory.write("file", "");
    EXPECT_THAT([&] { spool(file, small); },
                ThrowsMessage<spool_error>(AllOf(HasSubstr("Cannot"), HasSubstr(file.string()))));
    std::filesystem::create_directories(path);
    EXPECT_THAT([&] { open(); }, ThrowsMessage<spool_error>(HasSubstr("Is a directory")));
}

TEST_F(spool_test, reports_a_limit_of_files_when_it_opens)
{
    const test::file_size_limit limit(1000);
    EXPECT_THAT([&] { open(); },
                ThrowsMessage<spool_error>(AllOf(HasSubstr("reserve"), HasSubstr("too large"))));
}

TEST_F(spool_test, leaves_a_full_disk_as_it_was)
{
    {
        const test::full_disk disk(3000);
        EXPECT_THAT([&] { open(); },
                    ThrowsMessage<spool_error>(AllOf(HasSubstr("No space left"), HasSubstr("--spool-size"))));
        EXPECT_EQ(std::filesystem::file_size(path), 0U);
    }
    open({.file = 1024, .slot = 512}).add("first");
    {
        const test::full_disk disk(3000);
        EXPECT_THROW(open(), spool_error);
    }
    open({.file = 1024, .slot = 512});
    EXPECT_EQ(opened->size(), 1024U);
    EXPECT_THAT(left(), ElementsAre("first"));
}

TEST_F(spool_test, takes_nothing_while_the_disk_fails)
{
    auto &store = open();
    const auto first = store.add("first");
    for (uint64_t bytes = 0; bytes < record_overhead + 6; ++bytes)
    {
        const test::failing_writes disk(bytes);
        EXPECT_FALSE(store.add("second").has_value()) << bytes;
    }
    EXPECT_EQ(store.read(first.value()), "first");
    EXPECT_EQ(store.read(store.add("third").value()), "third");
    open();
    EXPECT_THAT(left(), ElementsAre("first", "third"));
}

TEST_F(spool_test, keeps_a_batch_whose_removal_failed_for_the_next_program)
{
    auto &store = open();
    const auto first = store.add("first");
    {
        const test::failing_writes disk(0);
        store.remove(first.value());
    }
    EXPECT_EQ(store.used(), 0U);
    open();
    EXPECT_THAT(left(), ElementsAre("first"));
}

TEST_F(spool_test, finds_that_a_batch_is_damaged)
{
    auto &store = open();
    const auto first = store.add("first").value();
    const auto second = store.add("second").value();
    damage(second.offset + record_overhead + 3);
    EXPECT_EQ(store.read(first), "first");
    EXPECT_THAT([&] { (void)store.read(second); }, ThrowsMessage<spool_error>(HasSubstr("damaged")));
}

TEST_F(spool_test, finds_that_the_file_is_shorter)
{
    const auto where = open().add("first").value();
    std::filesystem::resize_file(path, where.offset + record_overhead + 2);
    EXPECT_THAT([&] { (void)opened->read(where); }, ThrowsMessage<spool_error>(HasSubstr("shorter")));
}

TEST_F(spool_test, finds_what_is_behind_a_damaged_batch)
{
    auto &store = open();
    store.add("first");
    const auto second = store.add("second").value();
    store.add("third");
    damage(second.offset + record_overhead + 3);
    open();
    EXPECT_THAT(left(), ElementsAre("first", "damaged", "third"));
}

TEST_F(spool_test, survives_any_damage)
{
    std::mt19937 random(1);
    std::set<std::string> added;
    for (unsigned round = 0; round < 300; ++round)
    {
        std::filesystem::remove(path);
        auto &store = open({.file = 1024, .slot = 512});
        for (unsigned number = 0; const auto where = store.add(batch_bytes(number * 7, number)); ++number)
        {
            added.insert(batch_bytes(number * 7, number));
        }
        for (unsigned count = 0; count < 1 + round % 20; ++count)
        {
            damage(std::uniform_int_distribution<uint64_t>(0, 1023)(random));
        }
        open({.file = 1024, .slot = 512});
        for (const auto &where : opened->take_left())
        {
            const auto bytes = read_or_damaged(where);
            EXPECT_TRUE(bytes == "damaged" || added.contains(bytes));
            opened->remove(where);
        }
        EXPECT_EQ(opened->used(), 0U);
        EXPECT_TRUE(opened->add(std::string(opened->largest(), 'x')).has_value());
    }
}

TEST_F(spool_test, survives_a_file_that_is_something_else)
{
    std::filesystem::create_directory(directory / "spool");
    std::ofstream(path) << std::string(10'000, 'x');
    EXPECT_EQ(open().size(), 10'000 / 512 * 512);
    EXPECT_THAT(left(), IsEmpty());
    EXPECT_TRUE(opened->add("first").has_value());
}

/** What a program does with a spool until it is killed, and what it then knows to be there. */
class killed_program
{
public:
    killed_program(spool &store, const test::killed_writes &disk) : spool_(store), disk_(disk)
    {
    }

    /** Adds a batch. */
    void add(const std::string &bytes)
    {
        const auto where = spool_.add(bytes);
        if (disk_.alive())
        {
            waiting_.emplace_back(bytes, where.value());
        }
        else if (begun_.empty())
        {
            begun_ = bytes;
        }
    }

    /** Removes the batch that was added first. */
    void remove_first()
    {
        if (!disk_.alive() || waiting_.empty())
        {
            return;
        }
        spool_.remove(waiting_.front().second);
        if (!disk_.alive())
        {
            removed_ = waiting_.front().first;
        }
        waiting_.pop_front();
    }

    /** Expects that the next program finds what it must find. */
    void expect_found(std::vector<std::string> found) const
    {
        if (!found.empty() && !removed_.empty() && found.front() == removed_)
        {
            found.erase(found.begin());
        }
        if (!found.empty() && !begun_.empty() && found.back() == begun_)
        {
            found.pop_back();
        }
        std::vector<std::string> expected;
        for (const auto &[bytes, where] : waiting_)
        {
            expected.push_back(bytes);
        }
        EXPECT_EQ(found, expected);
    }

private:
    spool &spool_;
    const test::killed_writes &disk_;
    std::deque<std::pair<std::string, spool::place>> waiting_;
    std::string begun_;   /**< the batch that was being added */
    std::string removed_; /**< the batch that was being removed */
};

/** Uses a spool so that slots are filled, emptied and filled again with batches of other sizes. */
void use(killed_program &program)
{
    unsigned number = 0;
    for (const auto &[adds, removes, size] :
         std::vector<std::array<size_t, 3>>{{3, 0, 40}, {4, 6, 25}, {1, 2, 90}, {5, 5, 60}, {6, 2, 17}})
    {
        for (size_t i = 0; i < adds; ++i)
        {
            program.add(batch_bytes(size + i, ++number));
        }
        for (size_t i = 0; i < removes; ++i)
        {
            program.remove_first();
        }
    }
}

TEST_F(spool_test, reads_once_more_when_the_disk_fails)
{
    auto &store = open();
    const auto where = store.add("a batch");
    ASSERT_TRUE(where.has_value());
    {
        const test::failing_reads once(1);
        EXPECT_EQ(store.read(*where), "a batch");
    }
    {
        const test::failing_reads twice(2);
        EXPECT_THROW((void)store.read(*where), spool_error);
    }
    EXPECT_EQ(store.read(*where), "a batch");
}

TEST_F(spool_test, loses_nothing_wherever_the_program_is_killed)
{
    bool alive = false;
    uint64_t bytes = 0;
    for (; !alive; ++bytes)
    {
        std::filesystem::remove(path);
        auto &store = open({.file = 2048, .slot = 256});
        auto disk = std::make_unique<test::killed_writes>(bytes);
        killed_program program(store, *disk);
        use(program);
        alive = disk->alive();
        disk.reset();
        open({.file = 2048, .slot = 256});
        program.expect_found(left());
        ASSERT_FALSE(HasFailure()) << "killed after " << bytes << " bytes";
    }
    EXPECT_GT(bytes, 1000U);
}

/** Uses a spool at random, and compares it with a model. */
class random_use
{
public:
    explicit random_use(const std::filesystem::path &directory) : directory_(directory)
    {
        open();
    }

    /** Does something. */
    void step()
    {
        const auto which = below(100);
        if (which < 53)
        {
            add();
        }
        else if (which < 95)
        {
            remove();
        }
        else if (which < 97)
        {
            empty();
        }
        else
        {
            open();
        }
        check();
    }

    [[nodiscard]] size_t refused() const noexcept
    {
        return refused_;
    }

private:
    size_t below(size_t end)
    {
        return std::uniform_int_distribution<size_t>(0, end - 1)(random_);
    }

    void open()
    {
        spool_.reset();
        spool_.emplace(directory_, small);
        const auto found = spool_->take_left();
        ASSERT_EQ(found.size(), waiting_.size());
        size_t index = 0;
        for (auto &[number, batch] : waiting_)
        {
            batch.second = found[index++];
            ASSERT_EQ(spool_->read(batch.second), batch.first);
        }
    }

    void add()
    {
        const auto bytes = batch_bytes(below(spool_->largest() + 1) / (1 + below(8)), ++number_);
        if (const auto where = spool_->add(bytes))
        {
            waiting_.emplace(number_, std::pair(bytes, *where));
            return;
        }
        ++refused_;
        // Every slot has a batch, and the one that is being filled has no room.
        EXPECT_EQ(spool_->used(), spool_->size());
    }

    void remove()
    {
        if (!waiting_.empty())
        {
            // Mostly old ones, as a broker does.
            const auto which =
                std::next(waiting_.begin(), static_cast<ptrdiff_t>(below(1 + waiting_.size() / 4)));
            spool_->remove(which->second.second);
            waiting_.erase(which);
        }
    }

    void empty()
    {
        while (!waiting_.empty())
        {
            remove();
        }
        EXPECT_EQ(spool_->used(), 0U);
    }

    void check()
    {
        EXPECT_EQ(waiting_.empty(), spool_->used() == 0);
        if (!waiting_.empty())
        {
            const auto which = std::next(waiting_.begin(), static_cast<ptrdiff_t>(below(waiting_.size())));
            EXPECT_EQ(spool_->read(which->second.second), which->second.first);
        }
    }

    std::filesystem::path directory_;
    std::optional<spool> spool_;
    std::map<unsigned, std::pair<std::string, spool::place>>
        waiting_; /**< in the order in which they were added */
    std::mt19937 random_{1};
    unsigned number_ = 0;
    size_t refused_ = 0;
};

TEST_F(spool_test, is_a_queue_on_the_disk_however_it_is_used)
{
    random_use use(directory / "spool");
    for (int i = 0; i < 20'000 && !HasFailure(); ++i)
    {
        use.step();
    }
    EXPECT_GT(use.refused(), 100U);
}

TEST_F(spool_test, goes_on_with_interrupted_and_short_writes)
{
    const test::short_writes disk;
    random_use use(directory / "spool");
    for (int i = 0; i < 2'000 && !HasFailure(); ++i)
    {
        use.step();
    }
}

} // namespace
} // namespace vantor
