/** @file
 * A frame, and when it arrived.
 */
#ifndef VANTOR_ARRIVED_FRAME_H
#define VANTOR_ARRIVED_FRAME_H

#include <chrono>

#include "vantor/session.h"

namespace vantor
{

/** A frame, and when it arrived. */
struct arrived_frame
{
    const frame *what = nullptr;                   /**< not null */
    std::chrono::system_clock::time_point arrival; /**< by the clock of this computer */
};

} // namespace vantor

#endif
