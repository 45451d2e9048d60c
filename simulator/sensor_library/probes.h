/** @file
 * Firing of probes.
 */
#ifndef ZET_SIMULATOR_PROBES_H
#define ZET_SIMULATOR_PROBES_H

#include "zet_probes.h"

namespace zet_simulator
{

/**
 * Calls the callback that is registered for a probe, if there is one, and waits for it.
 *
 * @param data  what the callback may see and change
 * @return what the callback returned; true when there is no callback
 */
bool probe_fire(zet_probe_id_t probe_id, zet_sensor_id_t sensor_id, void *data, uint32_t data_size);

} // namespace zet_simulator

#endif
