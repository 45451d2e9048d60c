/** @file
 * Moves batches through the spool to a broker.
 */
#include "bridge/publisher.h"

#include <algorithm>
#include <utility>

#include "bridge/batch.h"

namespace vantor
{
namespace
{

/** Most bytes that are published and not stored yet; a single batch can be larger. */
constexpr uint64_t most_under_way = uint64_t{8} << 20U;

/** How long to wait after a failure. */
constexpr std::chrono::milliseconds pause{500};

} // namespace

publisher::publisher(spool &store, broker &target, const event_loop &loop, const std::string &site)
    : spool_(store), broker_(target), loop_(loop)
{
    for (const auto &place : spool_.take_left())
    {
        try
        {
            const auto header = decode_batch_header(spool_.read(place));
            if (!site.empty() && header.site != site)
            {
                continue;
            }
            ++waiting_;
            auto &of = queues_[header.board];
            of.places.push_back(place);
            schedule(header.board, of);
        }
        catch (const error &)
        {
            ++counts_.damaged;
            spool_.remove(place);
        }
    }
}

bool publisher::add(const std::string &board, std::string_view bytes)
{
    const auto place = spool_.add(bytes);
    if (!place)
    {
        ++(spool_.is_full() ? counts_.refused : counts_.unwritten);
        return false;
    }
    ++waiting_;
    auto &of = queues_[board];
    of.places.push_back(*place);
    schedule(board, of);
    return true;
}

void publisher::run()
{
    broker_.check();
    end_pauses();
    publish_ready();
}

uint64_t publisher::waiting(const std::string &board) const
{
    const auto found = queues_.find(board);
    return found == queues_.end() ? 0 : found->second.places.size();
}

/** Publishes what can be published now. */
void publisher::publish_ready()
{
    while (!ready_.empty() && bytes_under_way_ < most_under_way && broker_.ready())
    {
        publish_next();
    }
}

/** Has boards published again whose last batch was refused some time ago. */
void publisher::end_pauses()
{
    while (!paused_.empty() && paused_.front().first <= loop_.now())
    {
        ready_.push_back(std::move(paused_.front().second));
        paused_.pop_front();
    }
}

/** Has the first batch of a board published when it is its turn. */
void publisher::schedule(const std::string &board, queue &of)
{
    if (!of.scheduled && !of.places.empty())
    {
        of.scheduled = true;
        ready_.push_back(board);
    }
}

/** Publishes the first batch of the board whose turn it is. */
void publisher::publish_next()
{
    const auto board = std::move(ready_.front());
    ready_.pop_front();
    auto &of = queues_[board];
    try
    {
        auto bytes = spool_.read(of.places.front());
        if (bytes.size() > broker_.largest())
        {
            drop_first(board, of, counts_.too_large);
            return;
        }
        const auto id = batch_id(decode_batch_header(bytes));
        bytes_under_way_ += bytes.size();
        broker_.publish({.board = board, .id = id, .bytes = std::move(bytes)},
                        [this, board](bool stored) { note_answer(board, stored); });
    }
    catch (const error &)
    {
        drop_first(board, of, counts_.damaged);
    }
}

/** Drops the first batch of a board, whose frames consumers count as missing. @param count  of such batches
 */
void publisher::drop_first(const std::string &board, queue &of, uint64_t &count)
{
    ++count;
    remove_first(of);
    of.scheduled = false;
    schedule(board, of);
}

/** Notes what has become of the first batch of a board. */
void publisher::note_answer(const std::string &board, bool stored)
{
    auto &of = queues_[board];
    const auto size = of.places.front().size;
    bytes_under_way_ -= size;
    if (stored)
    {
        ++counts_.stored;
        counts_.stored_bytes += size;
        remove_first(of);
        of.scheduled = false;
        schedule(board, of);
    }
    else
    {
        // Only this board waits: the others may be able to go on.
        ++counts_.repeated;
        paused_.emplace_back(loop_.now() + pause, board);
    }
    publish_ready();
}

/** Removes the first batch of a board. */
void publisher::remove_first(queue &of)
{
    spool_.remove(of.places.front());
    of.places.pop_front();
    --waiting_;
}

} // namespace vantor
