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
    const bool is_first_of_all = current_.session.empty();
    const auto past = std::ranges::find(past_, arrived.session, &progress::session);
    const auto &known = past != past_.end() ? *past : current_;
    if (known.session == arrived.session && arrived.number < known.next_number)
    {
        found.repeated = true;
        return found;
    }
    if (arrived.session != current_.session)
    {
        change_session(arrived, found);
    }
    // Who begins in the middle of a session has lost nothing.
    if (!is_first_of_all)
    {
        found.lost_batches = arrived.number - current_.next_number;
        found.lost_frames = arrived.first - std::min(current_.next_first, arrived.first);
    }
    current_.ended = arrived.end.has_value();
    current_.next_number = arrived.number + 1;
    current_.next_first = arrived.first + arrived.frames;
    return found;
}

/** Begins a session, or goes on with one of those before. */
void batch_order::change_session(const batch_header &arrived, verdict &found)
{
    found.begins = true;
    progress next{.session = arrived.session};
    const auto past = std::ranges::find(past_, arrived.session, &progress::session);
    found.goes_on = past != past_.end();
    if (found.goes_on)
    {
        next = *past;
        past_.erase(past);
    }
    found.unfinished = !current_.ended && !found.goes_on;
    if (!current_.session.empty())
    {
        past_.push_back(current_);
    }
    if (past_.size() > most_past)
    {
        past_.pop_front();
    }
    current_ = next;
}

} // namespace vantor
