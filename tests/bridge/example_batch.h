/** @file
 * Batches of the example session.
 */
#ifndef VANTOR_EXAMPLE_BATCH_H
#define VANTOR_EXAMPLE_BATCH_H

#include <cstdint>
#include <string>

#include "bridge/batch.h"

namespace vantor::test
{

/** The messages of frames of the example session, one after the other, from a number on. */
std::string example_messages(uint32_t count, uint32_t first = 0);

/** The first line of a batch of the board "door" in the middle of a session, without optional members. */
batch_header example_header(uint64_t frames);

/** An encoded batch with the messages of this many frames. */
std::string example_batch(uint32_t frames);

/** What describes the example session. */
batch_session example_content();

} // namespace vantor::test

#endif
