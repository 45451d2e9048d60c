/** @file
 * Opens a page in the browser of the user.
 */
#ifndef VANTOR_BROWSER_H
#define VANTOR_BROWSER_H

#include <filesystem>
#include <string>

namespace vantor
{

/**
 * Opens a page in the browser of the user, without waiting for it; does nothing without a desktop.
 *
 * Other users cannot see the address of the page among the processes: the browser opens a file that leads to
 * it.
 *
 * @param url       of the page
 * @param redirect  the file, which is written; it must remain until the page is open
 */
void open_browser(const std::string &url, const std::filesystem::path &redirect);

} // namespace vantor

#endif
