/** @file
 * Checks the groups of a configuration document before the backend sets up the sensors.
 */
#ifndef ZET_VANTOR_SERVER_GROUPS_H
#define ZET_VANTOR_SERVER_GROUPS_H

#include <cstddef>
#include <cstdint>

#include <cjson/cJSON.h>

/** Size of the longest message, with its terminating zero. */
constexpr size_t zet_groups_message_size = 192;

/**
 * Checks that every element of a group is an object, and that no sensor is in a group twice.
 *
 * @param configuration  the configuration document
 * @param sensor_count   number of sensors; the backend refuses groups with more items, so that these may
 *                       contain a sensor twice
 * @param message        receives what is wrong, zet_groups_message_size bytes; unchanged when nothing is
 * @return whether nothing is wrong
 */
bool zet_groups_check(const cJSON *configuration, uint32_t sensor_count, char *message);

#endif
