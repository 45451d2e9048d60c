/** @file
 * Writes optional members of JSON objects.
 */
#ifndef VANTOR_OPTIONAL_MEMBERS_H
#define VANTOR_OPTIONAL_MEMBERS_H

#include <optional>

#include <nlohmann/json.hpp>

namespace vantor
{

/** Sets a member if there is a value. */
template <typename value_t>
void set_if_known(nlohmann::ordered_json &object, const char *name, const std::optional<value_t> &value)
{
    if (value)
    {
        object[name] = *value;
    }
}

/** A rate, or null if it is 0, that is, unknown. */
inline nlohmann::ordered_json or_null(double rate)
{
    return rate > 0.0 ? nlohmann::ordered_json(rate) : nlohmann::ordered_json();
}

} // namespace vantor

#endif
