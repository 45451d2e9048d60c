/** @file
 * Supply and enable lines: checks the order of their changes, and that a sensor is on when it is used.
 */
#include "library.h"

namespace
{

using namespace stand_in;

/** The lines; sensor 1 is in the lowest bit. */
struct line_state_t
{
    uint32_t supplied;
    uint32_t enabled;
    uint32_t to_be_reset; /**< calibrated since the enable line was released */
};

line_state_t lines;

uint32_t bit_of(zet_sensor_id_t sensor_id)
{
    return 1U << (sensor_id - 1U);
}

/** Changes a line. Switching it off resets the sensor. */
void change(uint32_t &line, zet_sensor_id_t sensor_id, bool on)
{
    if (on)
    {
        line |= bit_of(sensor_id);
        return;
    }
    line &= ~bit_of(sensor_id);
    lines.to_be_reset &= ~bit_of(sensor_id);
    reset_state(sensor_id);
}

} // namespace

namespace stand_in
{

void reset_lines()
{
    lines = {};
}

bool is_sensor_id(zet_sensor_id_t sensor_id, const char *operation)
{
    return (sensor_id >= 1U && sensor_id <= STAND_IN_SENSOR_COUNT) ||
           refuse("%s: there is no sensor %lu", operation, number(sensor_id));
}

power_t power_of(zet_sensor_id_t sensor_id)
{
    if (!stand_in_sees_lines())
    {
        return power_t::on;
    }
    const bool supplied = (lines.supplied & bit_of(sensor_id)) != 0U;
    const bool enabled = (lines.enabled & bit_of(sensor_id)) != 0U;
    return supplied && enabled ? power_t::on : supplied || enabled ? power_t::half_on : power_t::off;
}

bool is_on(zet_sensor_id_t sensor_id, const char *operation)
{
    return power_of(sensor_id) == power_t::on ||
           refuse("%s: sensor %lu is not supplied and enabled", operation, number(sensor_id));
}

void require_reset(zet_sensor_id_t sensor_id)
{
    lines.to_be_reset |= bit_of(sensor_id);
}

bool is_reset(zet_sensor_id_t sensor_id, const char *operation)
{
    return !stand_in_sees_lines() || (lines.to_be_reset & bit_of(sensor_id)) == 0U ||
           refuse("%s: sensor %lu was not reset after its calibration", operation, number(sensor_id));
}

} // namespace stand_in

void stand_in_note_supply(zet_sensor_id_t sensor_id, bool on)
{
    if (!is_sensor_id(sensor_id, __func__))
    {
        return;
    }
    if (!on && (lines.enabled & bit_of(sensor_id)) != 0U)
    {
        refuse("sensor %lu is enabled while its supply is switched off", number(sensor_id));
    }
    change(lines.supplied, sensor_id, on);
}

void stand_in_note_enable(zet_sensor_id_t sensor_id, bool on)
{
    if (!is_sensor_id(sensor_id, __func__))
    {
        return;
    }
    if (on && (lines.supplied & bit_of(sensor_id)) == 0U)
    {
        refuse("sensor %lu is enabled without supply", number(sensor_id));
    }
    change(lines.enabled, sensor_id, on);
}
