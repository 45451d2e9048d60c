/** @file
 * A message broker that does what a test says.
 */
#ifndef VANTOR_FAKE_BROKER_H
#define VANTOR_FAKE_BROKER_H

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "bridge/broker.h"

namespace vantor::test
{

/** A message broker that answers when a test says so. */
class fake_broker : public broker
{
public:
    /** A batch that has not been answered. */
    struct open_batch
    {
        outgoing_batch what;
        std::function<void(bool)> done;
    };

    [[nodiscard]] bool ready() const override
    {
        return is_ready;
    }

    [[nodiscard]] size_t largest() const override
    {
        return most;
    }

    [[nodiscard]] std::string limit_names() const override
    {
        return "max_size";
    }

    [[nodiscard]] std::string fault() const override
    {
        return why;
    }

    void publish(outgoing_batch sent, std::function<void(bool stored)> done) override
    {
        open.push_back({.what = std::move(sent), .done = std::move(done)});
    }

    void publish_state(const std::string &board, std::string state) override
    {
        states.emplace_back(board, std::move(state));
    }

    void check() override
    {
        while (is_silent && !open.empty())
        {
            answer(false);
        }
    }

    /** Answers to the batch that was published first. */
    void answer(bool is_stored)
    {
        auto first = std::move(open.front());
        open.pop_front();
        if (is_stored)
        {
            stored.push_back(first.what);
        }
        first.done(is_stored);
    }

    bool is_ready = true;
    size_t most = std::numeric_limits<size_t>::max(); /**< of a batch, in bytes */
    bool is_silent = false;                           /**< check() gives up all batches */
    std::string why;                                  /**< its fault */
    std::deque<open_batch> open;
    std::vector<outgoing_batch> stored;
    std::vector<std::pair<std::string, std::string>> states; /**< with their boards */
};

} // namespace vantor::test

#endif
