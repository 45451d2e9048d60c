/** @file
 * What the host needs, seen during a wait for a sensor.
 */
#include "host.h"

#include <cstddef>

#include "link.h"
#include "zet_vantor_server.h"

bool host_ends_wait()
{
    char bytes[64];
    for (size_t count = sizeof bytes; count == sizeof bytes;)
    {
        count = link_look_ahead(bytes, sizeof bytes);
        zet_vantor_server_look_ahead(bytes, count);
    }
    // A serial line does not show whether its host is there.
    return zet_vantor_server_gives_up_wait(ZET_VANTOR_SERVER_HOST_CONNECTED);
}
