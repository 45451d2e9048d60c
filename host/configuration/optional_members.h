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

} // namespace vantor

#endif
