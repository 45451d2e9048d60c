/** @file
 * The description of a session.
 */
#include "vantor/session_description.h"

namespace vantor
{

double nominal_tick_period(const session_description &session)
{
    const double rate = nominal_frame_rate(session.configuration, session.metadata, session.server);
    return rate > 0.0 ? session.server.ticks_per_second / rate : 0.0;
}

} // namespace vantor
