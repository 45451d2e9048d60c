/** @file
 * The answers of the live view's web server.
 */
#include "view/view_answers.h"

#include <algorithm>
#include <array>

#include "view/page_files.h"

namespace vantor
{

std::span<const view_header> view_headers()
{
    static constexpr std::array<view_header, 6> headers{{
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
         "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
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

view_answer page_answer(std::string_view target)
{
    const std::string_view path = target.substr(0, target.find('?'));
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
