/** @file
 * Checks the groups of a configuration document before the backend sets up the sensors.
 */
#include "zet_vantor_server_groups.h"

#include "zet_cjson_utils.h"
#include "zet_vantor_server_text.h"

char *zet_append_place(char *end, uint32_t group, uint32_t item)
{
    end = zet_append_text(end, "groups[");
    end = zet_append_number(end, group);
    end = zet_append_text(end, "][");
    end = zet_append_number(end, item);
    return zet_append_text(end, "]");
}

namespace
{

void describe_other_type(char *message, uint32_t group, uint32_t item)
{
    zet_append_text(zet_append_place(message, group, item),
                    " is not an object: make every item an object with \"sensor_id\" and \"config\".");
}

void describe_repetition(char *message, uint32_t group, uint32_t first, uint32_t item, int sensor_id)
{
    char *end = zet_append_text(message, "Sensor ");
    end = zet_append_number(end, static_cast<uint32_t>(sensor_id));
    end = zet_append_text(end, " is twice in the same group, in ");
    end = zet_append_place(end, group, first);
    end = zet_append_text(end, " and ");
    end = zet_append_place(end, group, item);
    zet_append_text(end, ": move one of the two items into another group.");
}

void describe_other_group(char *message, uint32_t group)
{
    char *end = zet_append_text(message, "groups[");
    end = zet_append_number(end, group);
    zet_append_text(end, "] is not an array: put its items into [ ].");
}

/** Finds the first item before a given one that has the same sensor; the index of the item when there is
 * none.
 */
uint32_t find_same_sensor(const cJSON *group, const cJSON *item, int sensor_id)
{
    uint32_t index = 0;
    for (const cJSON *other = group->child; other != item; other = other->next)
    {
        int other_id = 0;
        if (get_json_int_value(other, "sensor_id", &other_id) && other_id == sensor_id)
        {
            return index;
        }
        ++index;
    }
    return index;
}

/** Checks one item of a group. */
bool check_item(const cJSON *group, uint32_t group_index, const cJSON *item, uint32_t index,
                uint32_t sensor_count, char *message)
{
    if (!cJSON_IsObject(item))
    {
        describe_other_type(message, group_index, index);
        return false;
    }
    int sensor_id = 0;
    if (index > sensor_count || !get_json_int_value(item, "sensor_id", &sensor_id) || sensor_id <= 0)
    {
        return true;
    }
    const uint32_t first = find_same_sensor(group, item, sensor_id);
    if (first < index)
    {
        describe_repetition(message, group_index, first, index, sensor_id);
    }
    return first == index;
}

/** Checks one group. */
bool check_group(const cJSON *group, uint32_t group_index, uint32_t sensor_count, char *message)
{
    uint32_t index = 0;
    for (const cJSON *item = group->child; item != nullptr; item = item->next)
    {
        if (!check_item(group, group_index, item, index, sensor_count, message))
        {
            return false;
        }
        ++index;
    }
    return true;
}

bool is_list(const cJSON *value)
{
    return cJSON_IsArray(value) || cJSON_IsObject(value);
}

} // namespace

bool zet_groups_check(const cJSON *configuration, uint32_t sensor_count, char *message)
{
    const cJSON *groups = cJSON_GetObjectItemCaseSensitive(configuration, "groups");
    const cJSON *group = nullptr;
    uint32_t index = 0;
    cJSON_ArrayForEach(group, groups)
    {
        if (!is_list(group) || !check_group(group, index, sensor_count, message))
        {
            // The backend also accepts objects, but their members have no places such as groups[0][0].
            if (!cJSON_IsArray(groups))
            {
                zet_append_text(message, "\"groups\" is not an array: put its groups into [ ].");
            }
            else if (!cJSON_IsArray(group))
            {
                describe_other_group(message, index);
            }
            return false;
        }
        ++index;
    }
    return true;
}
