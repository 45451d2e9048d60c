/** @file
 * Work that blocks, such as waiting for the disk, beside an event loop.
 */
#ifndef VANTOR_BLOCKING_WORK_H
#define VANTOR_BLOCKING_WORK_H

#include <functional>

#include "vantor/event_loop.h"

namespace vantor
{

/**
 * Runs a function on a new thread, while the caller waits on the loop, so that other tasks go on. If
 * there can be no further thread, the function runs on that of the caller.
 *
 * @param cancel  called if waiting is cancelled, to end the function soon; without it, the wait cannot be
 *                cancelled
 * @throws what the function throws
 */
void run_beside(event_loop &loop, const std::function<void()> &work,
                const std::function<void()> &cancel = nullptr);

} // namespace vantor

#endif
