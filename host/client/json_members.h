/** @file
 * Reads members of JSON objects sent by a server, and checks their type and range.
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

/** Throws protocol_error because a member is not what is expected, such as "a number". */
[[noreturn]] void refuse_member(const std::string &name, const std::string &expectation);

/**
 * Returns a required member.
 *
 * @throws protocol_error if @p object is not an object or has no such member
 */
const nlohmann::json &member(const nlohmann::json &object, const char *name);

/**
 * Returns a required member that is an array.
 *
 * @throws protocol_error if it is missing or is not an array
 */
const nlohmann::json &array_member(const nlohmann::json &object, const char *name);

/**
 * Returns a value as a whole number.
 *
 * @param what  name of the value for the error message
 * @throws protocol_error if it is not a whole number within the bounds
 */
int64_t to_integer(const nlohmann::json &value, const std::string &what, int64_t lowest, int64_t highest);

/** Returns a member as a whole number of the type; throws protocol_error if it is not one. */
template <typename integer_t> integer_t integer_member(const nlohmann::json &object, const char *name)
{
    using limits = std::numeric_limits<integer_t>;
    return static_cast<integer_t>(to_integer(member(object, name), name, limits::min(), limits::max()));
}

/** Returns a member as a count, below 2^62: two of them can be added. Throws protocol_error if it is not one.
 */
uint64_t count_member(const nlohmann::json &object, const char *name);

/** Returns a member as a length or offset in samples; throws protocol_error if it is not one. */
size_t length_member(const nlohmann::json &object, const char *name);

/** Returns a member as a number, or NaN if it is null; throws protocol_error if it is neither. */
double number_member(const nlohmann::json &object, const char *name);

/** Returns a member as a Boolean; throws protocol_error if it is not one. */
bool boolean_member(const nlohmann::json &object, const char *name);

/** Returns a member as a string; throws protocol_error if it is not one. */
std::string text_member(const nlohmann::json &object, const char *name);

/** Returns an optional member as a string; throws protocol_error if it is not one. */
std::optional<std::string> optional_text_member(const nlohmann::json &object, const char *name);

/** Returns an optional member as a Boolean; throws protocol_error if it is not one. */
std::optional<bool> optional_boolean_member(const nlohmann::json &object, const char *name);

/** Returns an optional member as a number; nothing if it is missing or null. */
std::optional<double> optional_number_member(const nlohmann::json &object, const char *name);

} // namespace vantor

#endif
