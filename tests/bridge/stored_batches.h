/** @file
 * What a bridge has passed on.
 */
#ifndef VANTOR_STORED_BATCHES_H
#define VANTOR_STORED_BATCHES_H

#include <string>
#include <vector>

#include "bridge/batch.h"
#include "fake_broker.h"
#include "server_script.h"

namespace vantor::test
{

/** The batches of a board that a broker has stored, in their order; they refer to the bytes at the broker. */
std::vector<batch> stored_batches(const fake_broker &target, const std::string &board);

/** The same without those of all sessions but one, from 0. Fails if sessions are not one after the other. */
std::vector<batch> stored_session(const fake_broker &target, const std::string &board, size_t session);

/** The number of frames in batches. */
uint64_t frames_in(const std::vector<batch> &batches);

/** A reaction to "identify": a board of this kind and with this id, each left out if it is empty. */
reaction identify_as(const std::string &name, const std::string &id);

/** A reaction to "start": some frames of the example session, then the connection is lost. */
reaction lose_link_after(uint32_t frames);

} // namespace vantor::test

#endif
