/** @file
 * Finds the functions of a header that have a comment.
 */
#include "documented_functions.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <set>

namespace structure_tests
{

namespace
{

/** The character that replaces a Doxygen comment. */
constexpr char documented = '\x01';

/** The character that replaces a preprocessor directive. */
constexpr char directive = '\x02';

/** Whether a comment is for the declaration after it, rather than for a file, a group or the member before
 * it. */
bool is_for_declaration(const std::string &comment)
{
    static const std::regex other(R"(@file|@[{}])");
    return comment.starts_with("/**") && !comment.starts_with("/**<") && comment != "/**/" &&
           !std::regex_search(comment, other);
}

/** Replaces the comments of a header. */
std::string without_comments(std::string header)
{
    for (size_t begin = header.find("/*"); begin != std::string::npos; begin = header.find("/*", begin))
    {
        const size_t end = header.find("*/", begin + 2);
        const size_t size = end == std::string::npos ? end : end + 2 - begin;
        const bool is_kept = is_for_declaration(header.substr(begin, size));
        header.replace(begin, size, 1, is_kept ? documented : ' ');
    }
    static const std::regex line_comment("//[^\n]*");
    return std::regex_replace(header, line_comment, "");
}

/** Replaces preprocessor directives, including continuation lines, and the opening lines of `extern "C"`
 * blocks. */
std::string without_directives(const std::string &text)
{
    static const std::regex line(R"((^|\n)[ \t]*#([^\\\n]|\\[^\n]|\\\n)*)");
    static const std::regex linkage(R"(extern\s+"C"\s*\{)");
    const std::string mark = std::string("\n") + directive;
    return std::regex_replace(std::regex_replace(text, line, mark), linkage, mark);
}

/** The declarations outside of structures, each with the marks before it. */
std::vector<std::string> statements_of(const std::string &text)
{
    std::vector<std::string> statements(1);
    int depth = 0;
    for (const char character : text)
    {
        depth += character == '{' ? 1 : 0;
        if (depth == 0 && character != ';' && character != '}')
        {
            statements.back() += character;
        }
        // The closing brace of an `extern "C"` block was not counted.
        const bool closes = character == '}' && (depth == 0 || --depth == 0);
        if (closes || (depth == 0 && character == ';'))
        {
            statements.emplace_back();
        }
    }
    return statements;
}

/** The name of the function that a statement declares; empty if it does not declare one. */
std::string function_name(const std::string &statement)
{
    static const std::regex declaration(R"((\w+)\s*\()");
    static const std::set<std::string> assertions{"static_assert", "_Static_assert"};
    std::smatch match;
    if (!std::regex_search(statement, match, declaration) || assertions.contains(match[1]))
    {
        return {};
    }
    // Names without lower-case letters are macros.
    const std::string name = match[1];
    const auto is_small = [](unsigned char character) { return std::islower(character) != 0; };
    return std::any_of(name.begin(), name.end(), is_small) ? name : std::string();
}

/** Whether a statement has a comment directly before its declaration. */
bool is_documented(const std::string &statement)
{
    static const std::string marks_and_space = {documented, directive, ' ', '\t', '\n'};
    const size_t declaration = statement.find_first_not_of(marks_and_space);
    const size_t mark = statement.find_last_of({documented, directive}, declaration);
    return mark != std::string::npos && statement[mark] == documented;
}

} // namespace

std::vector<declaration_t> declared_functions(const std::string &header)
{
    std::vector<declaration_t> declarations;
    for (const std::string &statement : statements_of(without_directives(without_comments(header))))
    {
        const std::string name = function_name(statement);
        if (!name.empty())
        {
            declarations.push_back({name, is_documented(statement)});
        }
    }
    return declarations;
}

} // namespace structure_tests
