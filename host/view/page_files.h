/** @file
 * The files of the live view's page, as part of the program.
 */
#ifndef VANTOR_PAGE_FILES_H
#define VANTOR_PAGE_FILES_H

#include <span>
#include <string_view>

namespace vantor
{

/** A file of the page. */
struct page_file
{
    std::string_view path;         /**< on the server: "/" or "/NAME" */
    std::string_view content_type; /**< a media type */
    std::string_view text;
};

/** All files of the page. */
std::span<const page_file> page_files();

} // namespace vantor

#endif
