/** @file
 * Runs `vantor view`.
 */
#ifndef VANTOR_VIEW_RUN_H
#define VANTOR_VIEW_RUN_H

#include <filesystem>
#include <string>
#include <vector>

#include "commands/command.h"

namespace vantor
{

/** The options of `vantor view`. */
struct view_options
{
    std::filesystem::path what; /**< a configuration or a recording; empty for none */
    std::vector<std::string>
        connect; /**< addresses of servers; a simulated one if these and boards are empty */
    std::vector<std::string> boards;    /**< others, each with a configuration: CONFIG=ADDRESS */
    std::string listen = "127.0.0.1:0"; /**< where the page is served */
    std::filesystem::path truth;        /**< file that the server writes; empty for none */
    std::filesystem::path record;       /**< directory of a recording that begins at once; empty for none */
    bool no_browser = false;
};

/**
 * Shows a server or a recording.
 *
 * @throws error in a build without the live view
 */
exit_code run_view(const view_options &options, const command_streams &streams);

} // namespace vantor

#endif
