/** @file
 * Stand-in for the board layer: sensor supply and enable lines, interrupts, log.
 */
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "neighbours.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration_log.h"
#include "zet_log_levels.h"

using namespace backend_tests;

void zet_hal_integration_sensor_supply_on(zet_sensor_id_t sensor_id)
{
    record(call_kind_t::board, __func__, {show(sensor_id)});
}

void zet_hal_integration_sensor_supply_off(zet_sensor_id_t sensor_id)
{
    record(call_kind_t::board, __func__, {show(sensor_id)});
}

void zet_hal_integration_sensor_enable(zet_sensor_id_t sensor_id)
{
    record(call_kind_t::board, __func__, {show(sensor_id)});
}

void zet_hal_integration_sensor_disable(zet_sensor_id_t sensor_id)
{
    record(call_kind_t::board, __func__, {show(sensor_id)});
}

bool zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms)
{
    record(call_kind_t::board, __func__, {show(sensor_id), show(timeout_ms)});
    return !refused(__func__);
}

uint16_t zet_hal_integration_sensor_count(void)
{
    record(call_kind_t::board, __func__, {});
    return neighbours().sensor_count;
}

const zet_hal_k330_t *zet_hal_nox_integration_get_implementation(void)
{
    record(call_kind_t::board, __func__, {});
    return refused(__func__) ? nullptr : &neighbours().implementation;
}

void zet_integration_log(zet_log_level_t level, const char *module, const char *format, ...)
{
    std::array<char, 256> text{};
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start does initialise it
    (void)std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const bool own_tag = std::string_view(module) == "vantor_server_system_k330";
    neighbours().calls.add(call_kind_t::log, std::string("[") + zet_log_level_words.at(level) + "] " +
                                                 (own_tag ? "" : std::string(module) + ": ") + text.data());
}
