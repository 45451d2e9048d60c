/** @file
 * What the thread of a broker reports to the event loop.
 */
#include "bridge/broker_reports.h"

#include <utility>

namespace vantor
{
namespace
{

/** How long a refusal is reported, unless another one follows. */
constexpr std::chrono::seconds refusal_time{10};

} // namespace

broker_reports::broker_reports(event_loop &loop) : loop_(loop)
{
}

broker_reports::~broker_reports()
{
    *alive_ = false;
}

uint64_t broker_reports::expect(std::function<void(bool stored)> done)
{
    const auto token = ++last_token_;
    pending_.emplace(token, pending{.done = std::move(done), .since = clock::now()});
    return token;
}

std::vector<uint64_t> broker_reports::give_up(std::chrono::steady_clock::duration time)
{
    std::vector<uint64_t> given_up;
    // In the order in which they were published.
    while (!pending_.empty() && pending_.begin()->second.since < clock::now() - time)
    {
        given_up.push_back(pending_.begin()->first);
        complete(given_up.back(), false);
    }
    return given_up;
}

void broker_reports::answer(uint64_t token, bool stored)
{
    bool first = false;
    {
        const std::scoped_lock lock(mutex_);
        first = answers_.empty();
        answers_.push_back({.token = token, .stored = stored});
    }
    if (first)
    {
        loop_.post([this, alive = alive_] {
            if (*alive)
            {
                take_answers();
            }
        });
    }
}

/** Completes the batches that were answered. */
void broker_reports::take_answers()
{
    std::vector<batch_answer> taken;
    {
        const std::scoped_lock lock(mutex_);
        taken = std::exchange(answers_, {});
    }
    for (const auto &[token, stored] : taken)
    {
        complete(token, stored);
    }
}

/** Completes a batch, unless that was done. */
void broker_reports::complete(uint64_t token, bool stored)
{
    const auto found = pending_.extract(token);
    if (found)
    {
        found.mapped().done(stored);
    }
}

void broker_reports::note_fault(std::string fault)
{
    const std::scoped_lock lock(mutex_);
    fault_ = std::move(fault);
}

void broker_reports::note_refusal(std::string refusal)
{
    const std::scoped_lock lock(mutex_);
    refusal_ = std::move(refusal);
    refused_ = clock::now();
}

std::string broker_reports::fault() const
{
    const std::scoped_lock lock(mutex_);
    const bool refuses = !refusal_.empty() && clock::now() - refused_ < refusal_time;
    return fault_.empty() && refuses ? refusal_ : fault_;
}

} // namespace vantor
