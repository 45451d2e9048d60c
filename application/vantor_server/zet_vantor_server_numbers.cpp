/** @file
 * Checks the numbers of a configuration document before the backend reads them.
 */
#include "zet_vantor_server_numbers.h"

#include <climits>
#include <cmath>
#include <cstdint>

#include "zet_cjson_utils.h"
#include "zet_decimal.h"
#include "zet_vantor_server_groups.h"
#include "zet_vantor_server_text.h"

namespace
{

/** A member that is an integer, and the numbers that the backend can represent. */
struct integer_t
{
    const char *key;
    int least;
    int most;
};

constexpr integer_t subsweep_integers[] = {
    {"start_point", INT32_MIN, INT32_MAX},
    {"num_points", 0, UINT16_MAX},
    {"step_length", 0, UINT16_MAX},
    {"profile", 0, UINT8_MAX},
    {"hwaas", 0, UINT16_MAX},
    {"receiver_gain", 0, UINT8_MAX},
};

constexpr integer_t frame_integers[] = {{"sweeps_per_frame", 0, UINT16_MAX}};

constexpr const char *frame_rates[] = {"frame_rate", "sweep_rate"};

constexpr const char *float_bounds = "-3.4028234e+38 to 3.4028234e+38";

/** Parts of an item, as they are written in a place. */
constexpr const char *item_itself = "";
constexpr const char *config_of_item = ".config";
constexpr const char *subsweep_of_config = ".config.subsweeps";

/** An object in the document. */
struct place_t
{
    const cJSON *object;
    uint32_t group;
    uint32_t item;
    const char *part;  /**< one of the parts above */
    uint32_t subsweep; /**< index, if the part is a sub-sweep */
};

/** Appends an integer with its sign; returns the new end. */
char *append_integer(char *end, int number)
{
    const auto bits = static_cast<uint32_t>(number);
    end = zet_append_text(end, number < 0 ? "-" : "");
    return zet_append_number(end, number < 0 ? 0 - bits : bits);
}

/** Appends a number from the document; returns the new end. */
char *append_value(char *end, double value)
{
    return std::isfinite(value) ? end + zet_decimal_write(value, end) : zet_append_text(end, "infinite");
}

/** Begins a message: the place and the value of a member. Returns its end. */
char *begin_message(char *message, const place_t &place, const cJSON *member)
{
    char *end = zet_append_place(message, place.group, place.item);
    end = zet_append_text(end, place.part);
    if (place.part == subsweep_of_config)
    {
        end = zet_append_text(end, "[");
        end = zet_append_number(end, place.subsweep);
        end = zet_append_text(end, "]");
    }
    end = zet_append_text(end, ".");
    end = zet_append_text(end, member->string);
    end = zet_append_text(end, " is ");
    end = append_value(end, member->valuedouble);
    return zet_append_text(end, "; use ");
}

void end_message(char *end)
{
    zet_append_text(end, ", within its range in docs/configuration.md.");
}

/** Checks a member that is an integer. Values of other types are left to the backend. */
bool check_integer(const place_t &place, const integer_t &integer, char *message)
{
    const cJSON *member = cJSON_GetObjectItemCaseSensitive(place.object, integer.key);
    if (!cJSON_IsNumber(member) || (member->valuedouble >= zet_double_of(integer.least) &&
                                    member->valuedouble <= zet_double_of(integer.most)))
    {
        return true;
    }
    char *end = begin_message(message, place, member);
    end = append_integer(end, integer.least);
    end = zet_append_text(end, " to ");
    end_message(append_integer(end, integer.most));
    return false;
}

/** Checks a member that is a floating-point number. */
bool check_float(const place_t &place, const char *key, char *message)
{
    const cJSON *member = cJSON_GetObjectItemCaseSensitive(place.object, key);
    float value = 0.0F;
    if (!cJSON_IsNumber(member) || get_json_float_value(place.object, key, &value))
    {
        return true;
    }
    end_message(zet_append_text(begin_message(message, place, member), float_bounds));
    return false;
}

/** Checks the members that describe a sub-sweep. */
bool check_subsweep(const place_t &place, char *message)
{
    for (const integer_t &integer : subsweep_integers)
    {
        if (!check_integer(place, integer, message))
        {
            return false;
        }
    }
    return true;
}

/** Checks the members of a "config" that do not belong to a sub-sweep. */
bool check_frame(const place_t &place, char *message)
{
    for (const char *key : frame_rates)
    {
        if (!check_float(place, key, message))
        {
            return false;
        }
    }
    for (const integer_t &integer : frame_integers)
    {
        if (!check_integer(place, integer, message))
        {
            return false;
        }
    }
    return true;
}

/** Checks the list of sub-sweeps of a "config". */
bool check_subsweeps(place_t place, char *message)
{
    const cJSON *subsweep = nullptr;
    const cJSON *subsweeps = cJSON_GetObjectItemCaseSensitive(place.object, "subsweeps");
    place.part = subsweep_of_config;
    cJSON_ArrayForEach(subsweep, subsweeps)
    {
        place.object = subsweep;
        if (!check_subsweep(place, message))
        {
            return false;
        }
        ++place.subsweep;
    }
    return true;
}

/** Checks an item. */
bool check_item(place_t place, char *message)
{
    if (!check_float(place, "cca_threshold", message))
    {
        return false;
    }
    place.object = cJSON_GetObjectItemCaseSensitive(place.object, "config");
    place.part = config_of_item;
    return check_subsweep(place, message) && check_frame(place, message) && check_subsweeps(place, message);
}

} // namespace

bool zet_numbers_check(const cJSON *configuration, char *message)
{
    const cJSON *group = nullptr;
    uint32_t group_index = 0;
    cJSON_ArrayForEach(group, cJSON_GetObjectItemCaseSensitive(configuration, "groups"))
    {
        const cJSON *item = nullptr;
        uint32_t index = 0;
        cJSON_ArrayForEach(item, group)
        {
            if (!check_item({item, group_index, index, item_itself, 0}, message))
            {
                return false;
            }
            ++index;
        }
        ++group_index;
    }
    return true;
}
