/** @file
 * The pages of `vantor view`.
 */
#ifndef VANTOR_VIEW_PAGES_H
#define VANTOR_VIEW_PAGES_H

#include <functional>
#include <optional>
#include <string>

#include "commands/command.h"
#include "commands/view_run.h"
#include "plot/scratch_directory.h"
#include "vantor/event_loop.h"
#include "view/view_server.h"

namespace vantor
{

/** Serves the pages of `vantor view`, and says where they are. */
class view_pages
{
public:
    /**
     * Starts to listen.
     *
     * @param options  must outlive this object, like the streams and the loop
     * @throws usage_error if the address in the options is not valid
     * @throws error if it cannot be used
     */
    view_pages(const view_options &options, const command_streams &streams, event_loop &loop);

    /** The server, for viewers. */
    [[nodiscard]] view_server &server() noexcept
    {
        return server_;
    }

    /**
     * Prints the address of the page, opens it, and calls a function that returns when the view ends. Viewers
     * receive a reason when it ends or fails.
     */
    void run(const std::function<void()> &view);

private:
    void announce();
    void open_page(const std::string &page);

    const view_options &options_;
    const command_streams &streams_;
    view_server server_;
    std::optional<scratch_directory> scratch_; /**< with the file that the browser opens */
};

} // namespace vantor

#endif
