/** @file
 * Catches requests to stop, such as Ctrl-C, so that the program can finish its work.
 */
#ifndef VANTOR_INTERRUPT_H
#define VANTOR_INTERRUPT_H

#include "vantor/errors.h"
#include "vantor/event_loop.h"

namespace vantor
{

/** The user has asked to stop. */
class interruption : public error
{
public:
    using error::error;
};

/**
 * While an object of this class exists, the first SIGINT (Ctrl-C), SIGTERM or SIGHUP only sets interrupted();
 * a second SIGINT or SIGTERM ends the program as usual, after files that another thread is replacing. SIGINT
 * works also in a process that a shell started in the background with SIGINT ignored. A SIGHUP that is
 * ignored, as under nohup, stays ignored. Only one object may exist at a time.
 */
class interrupt_watch
{
public:
    interrupt_watch();

    /** @param loop  the first signal also cancels waiting on it */
    explicit interrupt_watch(event_loop &loop);
    interrupt_watch(const interrupt_watch &) = delete;
    interrupt_watch &operator=(const interrupt_watch &) = delete;
    interrupt_watch(interrupt_watch &&) = delete;
    interrupt_watch &operator=(interrupt_watch &&) = delete;
    ~interrupt_watch();

    /** Whether the user has asked to stop. */
    [[nodiscard]] static bool interrupted() noexcept;
};

} // namespace vantor

#endif
