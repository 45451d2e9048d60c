/** @file
 * A link that fails at a deadline, whatever the other end sends.
 */
#ifndef VANTOR_DEADLINE_LINK_H
#define VANTOR_DEADLINE_LINK_H

#include <memory>

#include "vantor/link.h"
#include "vantor/time_source.h"

namespace vantor
{

/** Forwards to another link until a deadline; after that, every operation throws connection_lost. */
class deadline_link : public link
{
public:
    /**
     * @param connection  the other link
     * @param deadline    operations end by this time, and none starts after it
     * @param now         the clock for the deadline
     */
    deadline_link(std::unique_ptr<link> connection, std::chrono::steady_clock::time_point deadline,
                  time_source now);

    size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override;
    size_t read_both(std::span<std::byte> first, std::span<std::byte> second,
                     std::chrono::milliseconds timeout) override;
    void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) override;
    uint32_t set_baudrate(uint32_t baudrate) override;

    int descriptor() override
    {
        return connection_->descriptor();
    }

private:
    [[nodiscard]] std::chrono::milliseconds bound(std::chrono::milliseconds timeout) const;

    std::unique_ptr<link> connection_;
    std::chrono::steady_clock::time_point deadline_;
    time_source now_;
};

} // namespace vantor

#endif
