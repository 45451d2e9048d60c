/** @file
 * Checks the groups of a configuration document before the backend sets up the sensors.
 */
#ifndef ZET_VANTOR_SERVER_GROUPS_H
#define ZET_VANTOR_SERVER_GROUPS_H

#include <cstddef>
#include <cstdint>

#include <cjson/cJSON.h>

/** Size of the longest message about an item, with its terminating zero. */
constexpr size_t zet_groups_message_size = 192;

/** Appends the place of an item, such as "groups[0][1]", and a zero behind it. Returns the new end. */
char *zet_append_place(char *end, uint32_t group, uint32_t item);

/**
 * Checks that every group is a list of objects, and that no sensor is in a group twice.
 *
 * @param configuration  the configuration document
 * @param sensor_count   number of sensors; sensors are compared only in one item more than that, because the
 *                       backend refuses groups with more items than sensors
 * @param message        receives what is wrong, zet_groups_message_size bytes; unchanged when nothing is
 * @return whether nothing is wrong
 */
bool zet_groups_check(const cJSON *configuration, uint32_t sensor_count, char *message);

#endif
