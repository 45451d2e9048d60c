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
 * wait cannot be cancelled.
 *
 * @throws what the function throws, or std::system_error if there can be no further thread
 */
void run_beside(event_loop &loop, const std::function<void()> &work);

} // namespace vantor

#endif
