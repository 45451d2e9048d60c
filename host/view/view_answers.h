/** @file
 * The answers of the live view's web server.
 */
#ifndef VANTOR_VIEW_ANSWERS_H
#define VANTOR_VIEW_ANSWERS_H

#include <cstddef>
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

/** The value of a member of the query of a target; nothing if it is missing. */
std::optional<std::string_view> query_value(std::string_view target, std::string_view name);

/** Returns an answer that is one sentence. */
view_answer sentence_answer(unsigned status, std::string_view sentence);

/** The board that a target names in its query, from 1; 0 if it is not a number, nothing if there is none. */
std::optional<size_t> board_in(std::string_view target);

/**
 * Returns the page file that a target names, or that there is none. "/" is the page of all boards, unless
 * there is only one or the target names one.
 *
 * @param boards  how many there are
 */
view_answer page_answer(std::string_view target, size_t boards = 1);

} // namespace vantor

#endif
