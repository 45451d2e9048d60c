/** @file
 * Follows the batches of a board: finds out what is missing and what came twice.
 */
#include "bridge/batch_order.h"

#include <algorithm>

namespace vantor
{
namespace
{

/** How many past sessions are remembered. */
constexpr size_t most_past = 64;

} // namespace

batch_order::verdict batch_order::add(const batch_header &arrived)
{
    verdict found;
    const bool follows = arrived.session == session_;
    if ((follows && arrived.number < next_number_) || has_ended(arrived.session))
    {
        found.repeated = true;
        return found;
    }
    const bool is_first_of_all = session_.empty();
    if (!follows)
    {
        found.unfinished = !ended_;
        begin(arrived);
        found.begins = true;
    }
    // Who begins in the middle of a session has lost nothing.
    if (!is_first_of_all)
    {
        found.lost_batches = arrived.number - next_number_;
        found.lost_frames = arrived.first - std::min(next_first_, arrived.first);
    }
    ended_ = arrived.end.has_value();
    next_number_ = arrived.number + 1;
    next_first_ = arrived.first + arrived.frames;
    return found;
}

/** Whether another session has begun since this one. */
bool batch_order::has_ended(const std::string &session) const
{
    return std::ranges::find(past_, session) != past_.end();
}

/** Begins a session. */
void batch_order::begin(const batch_header &arrived)
{
    if (!session_.empty())
    {
        past_.push_back(session_);
    }
    if (past_.size() > most_past)
    {
        past_.pop_front();
    }
    session_ = arrived.session;
    next_number_ = 0;
    next_first_ = 0;
}

} // namespace vantor
