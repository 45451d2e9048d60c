/** @file
 * A line whose far end is scripted, in virtual time.
 */
#include "scripted_line.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "vantor/errors.h"

namespace vantor::test
{

/** The near end of a scripted line. */
class scripted_link : public link
{
public:
    explicit scripted_link(scripted_line &line) : line_(line)
    {
    }

    size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override
    {
        auto &clock = line_.clock_;
        const auto deadline = clock.now() + timeout;
        const auto next = line_.arrivals_.begin();
        if (next != line_.arrivals_.end() && next->first <= deadline)
        {
            clock.advance_to(next->first);
            return take(buffer);
        }
        clock.advance_to(std::min(deadline, line_.end_.value_or(deadline)));
        if (line_.end_ && clock.now() >= *line_.end_)
        {
            throw connection_lost("The script closed the line.");
        }
        return 0;
    }

    void write(std::span<const std::byte> bytes, std::chrono::milliseconds /*timeout*/) override
    {
        line_.written_.push_back({.when = line_.clock_.now(),
                                  .bytes = {reinterpret_cast<const char *>(bytes.data()), bytes.size()}});
        if (line_.on_write_)
        {
            line_.on_write_(std::string(line_.written_.back().bytes));
        }
    }

    uint32_t set_baudrate(uint32_t baudrate) override
    {
        return std::exchange(line_.baudrate_, baudrate);
    }

private:
    /** Copies the earliest arrival, or the part that fits the buffer. */
    size_t take(std::span<std::byte> buffer)
    {
        const auto first = line_.arrivals_.begin();
        const auto count = std::min(buffer.size(), first->second.size());
        std::memcpy(buffer.data(), first->second.data(), count);
        first->second.erase(0, count);
        if (first->second.empty())
        {
            line_.arrivals_.erase(first);
        }
        return count;
    }

    scripted_line &line_;
};

void scripted_line::arrive(moment when, std::string bytes)
{
    if (!bytes.empty())
    {
        arrivals_.emplace(when, std::move(bytes));
    }
}

void scripted_line::close(moment when)
{
    end_ = when;
}

void scripted_line::on_write(write_handler handler)
{
    on_write_ = std::move(handler);
}

std::unique_ptr<link> scripted_line::open()
{
    arrivals_.clear();
    end_.reset();
    return std::make_unique<scripted_link>(*this);
}

} // namespace vantor::test
