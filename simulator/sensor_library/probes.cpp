/** @file
 * Registration and firing of probes.
 */
#include "sensor_library/probes.h"

#include "sensor_library/library.h"

namespace
{

/** What is registered for one probe. */
struct registration
{
    zet_probes_callback_rw_t *callback;
    void *client_reference;
};

registration registrations[ZET_PROBE_ID_MAX];

} // namespace

namespace zet_simulator
{

bool probe_fire(zet_probe_id_t probe_id, zet_sensor_id_t sensor_id, void *data, uint32_t data_size)
{
    const registration &registered = registrations[probe_id];
    if (registered.callback == nullptr)
    {
        return true;
    }
    const zet_probes_header_t header = {probe_id, sensor_id, 0};
    return registered.callback(&header, data, data_size, registered.client_reference);
}

} // namespace zet_simulator

void zet_probes_register_callback(zet_probe_id_t probe_id, zet_probes_callback_rw_t *callback,
                                  void *client_reference)
{
    if (probe_id >= ZET_PROBE_ID_MAX)
    {
        zet_simulator::library_log(ZET_LOG_LEVEL_ERROR, "%s: probe %u does not exist; use 0 to %u", __func__,
                                   static_cast<unsigned>(probe_id), ZET_PROBE_ID_MAX - 1U);
        return;
    }
    registrations[probe_id] = {callback, client_reference};
}
