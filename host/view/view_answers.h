/** @file
 * The answers of the live view's web server.
 */
#ifndef VANTOR_VIEW_ANSWERS_H
#define VANTOR_VIEW_ANSWERS_H

#include <optional>
#include <span>
#include <string_view>

namespace vantor
{

/** A header of an answer. */
struct view_header
{
    std::string_view name;
    std::string_view value;
};

/** An answer. Its texts exist as long as the program. */
struct view_answer
{
    unsigned status = 200;
    std::string_view content_type;
    std::string_view text;
    std::optional<view_header> header = std::nullopt; /**< that this status needs */
};

/** The headers of every answer: they keep other pages out, and the page of the live view on this server. */
std::span<const view_header> view_headers();

/** Returns an answer that is one sentence. */
view_answer sentence_answer(unsigned status, std::string_view sentence);

/** Returns the page file that a target names, or that there is none. What follows "?" is ignored. */
view_answer page_answer(std::string_view target);

} // namespace vantor

#endif
