/** @file
 * The program vantor_server on a virtual clock.
 */
#ifndef VANTOR_SIMULATED_SERVER_H
#define VANTOR_SIMULATED_SERVER_H

#include <cstdlib>
#include <memory>

#include "vantor/client.h"

namespace vantor::test
{

/** Starts a simulated server with three sensors; it ends with the client. */
inline std::unique_ptr<client> start_simulated_server()
{
    setenv("VANTOR_SERVER", VANTOR_SERVER_PROGRAM, 1);
    auto server =
        std::make_unique<client>(parse_address("sim:--clock virtual --sensors 3 --log-level ERROR"));
    unsetenv("VANTOR_SERVER");
    return server;
}

/** The number of documents to generate: a sample, unless a longer campaign is requested. */
inline unsigned campaign_size()
{
    const char *size = std::getenv("VANTOR_CAMPAIGN_SIZE");
    return size == nullptr ? 100U : static_cast<unsigned>(std::stoul(size));
}

} // namespace vantor::test

#endif
