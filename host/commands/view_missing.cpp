/** @file
 * Runs `vantor view`, in a build without the live view.
 */
#include "commands/view_run.h"
#include "vantor/errors.h"

namespace vantor
{

exit_code run_view(const view_options & /*options*/, const command_streams & /*streams*/)
{
    throw error("This vantor was built without the live view: install npm (packages nodejs and npm), then "
                "build it again with -DVANTOR_VIEW=ON.");
}

} // namespace vantor
