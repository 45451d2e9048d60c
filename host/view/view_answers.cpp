/** @file
 * The answers of the live view's web server.
 */
#include "view/view_answers.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "view/page_files.h"

namespace vantor
{

std::span<const view_header> view_headers()
{
    static constexpr std::array<view_header, 6> headers{{
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
         "connect-src 'self'; frame-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'self'"},
        {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"},
        {"Cache-Control", "no-store"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
    }};
    return headers;
}

view_answer sentence_answer(unsigned status, std::string_view sentence)
{
    return {.status = status, .content_type = "text/plain; charset=utf-8", .text = sentence};
}

std::optional<std::string_view> query_value(std::string_view target, std::string_view name)
{
    size_t start = target.find('?');
    while (start != std::string_view::npos)
    {
        const std::string_view rest = target.substr(start + 1);
        const std::string_view member = rest.substr(0, rest.find('&'));
        if (member.starts_with(name) && member.substr(name.size()).starts_with('='))
        {
            return member.substr(name.size() + 1);
        }
        start = target.find('&', start + 1);
    }
    return std::nullopt;
}

std::optional<size_t> board_in(std::string_view target)
{
    const auto text = query_value(target, "board");
    if (!text)
    {
        return std::nullopt;
    }
    size_t board = 0;
    const auto *const end = text->data() + text->size();
    return std::from_chars(text->data(), end, board).ptr == end ? board : 0;
}

view_answer page_answer(std::string_view target, size_t boards)
{
    const std::string_view named = target.substr(0, target.find('?'));
    const std::string_view path = named == "/" && boards > 1 && !board_in(target) ? "/boards.html" : named;
    const auto files = page_files();
    const auto found =
        std::find_if(files.begin(), files.end(), [path](const page_file &file) { return file.path == path; });
    if (found == files.end())
    {
        return sentence_answer(404, "There is no such page. Use the address that vantor view printed.\n");
    }
    return {.content_type = found->content_type, .text = found->text};
}

} // namespace vantor
