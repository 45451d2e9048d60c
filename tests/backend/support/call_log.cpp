/** @file
 * The log of the backend's calls.
 */
#include "call_log.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace backend_tests
{

std::string show(bool value)
{
    return value ? "true" : "false";
}

std::string show(float value)
{
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.9g", static_cast<double>(value));
    return text.data();
}

std::string show(const char *text)
{
    return text == nullptr ? "null" : "\"" + std::string(text) + "\"";
}

std::string show(std::string_view text)
{
    return std::string(text);
}

void call_log_t::add(call_kind_t kind, std::string line)
{
    entries.push_back({kind, std::move(line)});
}

void call_log_t::clear()
{
    entries.clear();
}

std::string call_log_t::text(std::initializer_list<call_kind_t> kinds) const
{
    std::string text;
    for (const entry_t &entry : entries)
    {
        if (std::find(kinds.begin(), kinds.end(), entry.kind) != kinds.end())
        {
            text += entry.line + "\n";
        }
    }
    return text;
}

size_t call_log_t::count(std::string_view beginning) const
{
    return static_cast<size_t>(std::count_if(entries.begin(), entries.end(), [&](const entry_t &entry) {
        return entry.line.starts_with(beginning);
    }));
}

std::string call_text(std::string_view name, std::initializer_list<std::string> arguments)
{
    std::string text = std::string(name) + "(";
    const char *separator = "";
    for (const std::string &argument : arguments)
    {
        text += separator + argument;
        separator = ", ";
    }
    return text + ")";
}

std::string lines(std::initializer_list<std::string_view> expected)
{
    std::string text;
    for (std::string_view line : expected)
    {
        text += std::string(line) + "\n";
    }
    return text;
}

} // namespace backend_tests
