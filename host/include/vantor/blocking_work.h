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
 * Runs a function on a thread of its own, while the caller waits on the loop, so that other tasks go on. The
 * wait cannot be cancelled. If there can be no further thread, the function runs on that of the caller.
 *
 * @throws what the function throws
 */
void run_beside(event_loop &loop, const std::function<void()> &work);

} // namespace vantor

#endif
