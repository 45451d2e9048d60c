/** @file
 * A line whose far end is scripted, in virtual time.
 */
#ifndef VANTOR_SCRIPTED_LINE_H
#define VANTOR_SCRIPTED_LINE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "manual_clock.h"
#include "vantor/link.h"

namespace vantor::test
{

/**
 * A line on which bytes arrive at given times. Waiting on one of its links takes no real time: it moves the
 * clock to the next arrival, or to the end of the time-out.
 */
class scripted_line
{
public:
    using moment = manual_clock::duration;
    using write_handler = std::function<void(const std::string &bytes)>;

    /** The bytes from the near end. */
    struct writing
    {
        moment when{};
        std::string bytes;
    };

    /** @param clock  must outlive the line */
    explicit scripted_line(manual_clock &clock) : clock_(clock)
    {
    }
    scripted_line(const scripted_line &) = delete;
    scripted_line &operator=(const scripted_line &) = delete;
    scripted_line(scripted_line &&) = delete;
    scripted_line &operator=(scripted_line &&) = delete;
    ~scripted_line() = default;

    /** Makes bytes arrive. */
    void arrive(moment when, std::string bytes);

    /** Closes the far end of the line, after all bytes that arrive before. */
    void close(moment when);

    /** Sets a function that is called after every write; it may make bytes arrive or time pass. */
    void on_write(write_handler handler);

    /** Opens the near end; unread bytes of an earlier link are lost. The line must outlive the link.
     */
    std::unique_ptr<link> open();

    /** Everything that was written, in order. */
    [[nodiscard]] const std::vector<writing> &written() const noexcept
    {
        return written_;
    }

    /** The baud rate of the near end. */
    [[nodiscard]] uint32_t baudrate() const noexcept
    {
        return baudrate_;
    }

private:
    friend class scripted_link;

    manual_clock &clock_;
    std::multimap<moment, std::string> arrivals_;
    std::optional<moment> end_;
    write_handler on_write_;
    std::vector<writing> written_;
    uint32_t baudrate_ = 9600;
};

} // namespace vantor::test

#endif
