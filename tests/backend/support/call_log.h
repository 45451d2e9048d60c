/** @file
 * A log of every call that the backend makes to other modules, in order, as readable text.
 */
#ifndef CALL_LOG_H
#define CALL_LOG_H

#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace backend_tests
{

/** The module that was called. */
enum class call_kind_t
{
    board,
    sensor_library,
    memory,
    log,
    link,
    json
};

/** Text of one argument of a call. */
std::string show(bool value);
std::string show(float value);
std::string show(const char *text);
std::string show(std::string_view text);

/** Prints numbers and enumerators as decimal numbers. */
template <typename value_t>
requires(std::integral<value_t> && !std::same_as<value_t, bool>) || std::is_enum_v<value_t> std::string
    show(value_t value)
{
    return std::to_string(static_cast<long long>(value));
}

/** The calls made so far, oldest first. */
class call_log_t
{
public:
    /** Adds one line. */
    void add(call_kind_t kind, std::string line);

    /** Removes all lines. */
    void clear();

    /** The lines of these kinds, each with a line feed at its end. */
    [[nodiscard]] std::string text(std::initializer_list<call_kind_t> kinds) const;

    /** Number of lines that begin with this text. */
    [[nodiscard]] size_t count(std::string_view beginning) const;

private:
    struct entry_t
    {
        call_kind_t kind;
        std::string line;
    };

    std::vector<entry_t> entries;
};

/** Joins argument texts into "name(a, b)". */
std::string call_text(std::string_view name, std::initializer_list<std::string> arguments);

/** Joins expected lines in the format of call_log_t::text. */
std::string lines(std::initializer_list<std::string_view> expected);

} // namespace backend_tests

#endif
