/** @file
 * Reads members of JSON objects that come from a server, with a range check for each.
 */
#ifndef VANTOR_JSON_MEMBERS_H
#define VANTOR_JSON_MEMBERS_H

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vantor
{

/**
 * A member that must be there.
 *
 * @throws protocol_error when @p object is no object or has no such member
 */
const nlohmann::json &member(const nlohmann::json &object, const char *name);

/**
 * A member that must be an array.
 *
 * @throws protocol_error when it is missing or no array
 */
const nlohmann::json &array_member(const nlohmann::json &object, const char *name);

/**
 * Reads a value as a whole number.
 *
 * @param what  what the value is, for the error's text
 * @throws protocol_error when it is no whole number or outside the bounds
 */
int64_t to_integer(const nlohmann::json &value, const std::string &what, int64_t lowest, int64_t highest);

/** Reads a member as a whole number that fits the type; throws protocol_error when it does not. */
template <typename integer_t> integer_t integer_member(const nlohmann::json &object, const char *name)
{
    using limits = std::numeric_limits<integer_t>;
    return static_cast<integer_t>(to_integer(member(object, name), name, limits::min(), limits::max()));
}

/** Reads a member as a length or an offset in samples; throws protocol_error when it is none. */
size_t length_member(const nlohmann::json &object, const char *name);

/** Reads a member as a number, null as one that does not exist (NaN); throws protocol_error when it is
 * neither.
 */
double number_member(const nlohmann::json &object, const char *name);

/** Reads a member as true or false; throws protocol_error when it is neither. */
bool boolean_member(const nlohmann::json &object, const char *name);

/** Reads a member as a text; throws protocol_error when it is none. */
std::string text_member(const nlohmann::json &object, const char *name);

/** Reads a member that may be missing as a text; throws protocol_error when it is not a text. */
std::optional<std::string> optional_text_member(const nlohmann::json &object, const char *name);

/** Reads a member that may be missing as true or false; throws protocol_error when it is neither. */
std::optional<bool> optional_boolean_member(const nlohmann::json &object, const char *name);

/** The same of a member that may be missing; nothing when it is, or is null. */
std::optional<double> optional_number_member(const nlohmann::json &object, const char *name);

} // namespace vantor

#endif
