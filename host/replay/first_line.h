/** @file
 * Recognises clients that are not hosts: web browsers and others that send HTTP or TLS.
 */
#ifndef VANTOR_REPLAY_FIRST_LINE_H
#define VANTOR_REPLAY_FIRST_LINE_H

#include <string_view>

namespace vantor
{

/** Who may have connected. */
enum class client_kind
{
    unknown,
    host,
    not_a_host,
};

/**
 * Distinguishes hosts from clients that send HTTP or TLS, as described in docs/protocol.md.
 *
 * @param start  what has been received of the first line that is not empty
 * @return unknown if the rest of the line can decide
 */
client_kind recognise_client(std::string_view start);

} // namespace vantor

#endif
