/** @file
 * Reads members of JSON objects sent by a server.
 */
#include "client/json_members.h"

#include <cmath>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Longest frame, sweep or sub-sweep that a server can announce, in samples. */
constexpr int64_t longest_length = 65535;

} // namespace

void refuse_member(const std::string &name, const std::string &expectation)
{
    throw protocol_error("In the server's message, \"" + name + "\" is not " + expectation +
                         ": server and host do not use the same protocol.");
}

const nlohmann::json &member(const nlohmann::json &object, const char *name)
{
    const auto found = object.find(name);
    if (!object.is_object() || found == object.end())
    {
        throw protocol_error(std::string("The server's message has no \"") + name +
                             "\": server and host do not use the same protocol.");
    }
    return *found;
}

const nlohmann::json &array_member(const nlohmann::json &object, const char *name)
{
    const auto &value = member(object, name);
    if (!value.is_array())
    {
        refuse_member(name, "an array");
    }
    return value;
}

int64_t to_integer(const nlohmann::json &value, const std::string &what, int64_t lowest, int64_t highest)
{
    const bool fits = value.is_number_integer() &&
                      (!value.is_number_unsigned() || value.get<uint64_t>() <= INT64_MAX) &&
                      value.get<int64_t>() >= lowest && value.get<int64_t>() <= highest;
    if (!fits)
    {
        refuse_member(what,
                      "a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest));
    }
    return value.get<int64_t>();
}

uint64_t count_member(const nlohmann::json &object, const char *name)
{
    constexpr int64_t most = std::numeric_limits<int64_t>::max() / 2;
    return static_cast<uint64_t>(to_integer(member(object, name), name, 0, most));
}

size_t length_member(const nlohmann::json &object, const char *name)
{
    return static_cast<size_t>(to_integer(member(object, name), name, 0, longest_length));
}

double number_member(const nlohmann::json &object, const char *name)
{
    const auto &value = member(object, name);
    if (value.is_null())
    {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (!value.is_number())
    {
        refuse_member(name, "a number");
    }
    return value.get<double>();
}

bool boolean_member(const nlohmann::json &object, const char *name)
{
    const auto &value = member(object, name);
    if (!value.is_boolean())
    {
        refuse_member(name, "true or false");
    }
    return value.get<bool>();
}

std::string text_member(const nlohmann::json &object, const char *name)
{
    const auto &value = member(object, name);
    if (!value.is_string())
    {
        refuse_member(name, "a string");
    }
    return value.get<std::string>();
}

std::optional<std::string> optional_text_member(const nlohmann::json &object, const char *name)
{
    return object.contains(name) ? std::optional(text_member(object, name)) : std::nullopt;
}

std::optional<bool> optional_boolean_member(const nlohmann::json &object, const char *name)
{
    return object.contains(name) ? std::optional(boolean_member(object, name)) : std::nullopt;
}

std::optional<double> optional_number_member(const nlohmann::json &object, const char *name)
{
    const auto value = object.contains(name) ? number_member(object, name) : NAN;
    return std::isnan(value) ? std::nullopt : std::optional(value);
}

} // namespace vantor
