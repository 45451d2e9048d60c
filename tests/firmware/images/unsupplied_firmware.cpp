/** @file
 * The firmware with an error: it never switches on the supply of a sensor.
 */
#include "zet_hal_integration_k330.h"

// The linker's name for the replacement of a wrapped function.
extern "C" void __wrap_zet_hal_integration_sensor_supply_on(zet_sensor_id_t /*sensor_id*/)
{
}
