/** @file
 * The command `vantor` as a function.
 */
#include "commands/command_line.h"

#include <exception>
#include <ostream>

#include "commands/arguments.h"
#include "commands/bridge.h"
#include "commands/calibrate.h"
#include "commands/completion.h"
#include "commands/export.h"
#include "commands/failure_report.h"
#include "commands/fleet.h"
#include "commands/identify.h"
#include "commands/info.h"
#include "commands/plan.h"
#include "commands/plot.h"
#include "commands/record.h"
#include "commands/repair.h"
#include "commands/replay.h"
#include "commands/scan.h"
#include "commands/score.h"
#include "commands/selftest.h"
#include "commands/validate.h"
#include "commands/view.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

constexpr const char *general_footer = R"(Exit codes:
  0    success
  1    any other failure
  2    wrong command line
  3    a configuration, a scene, a recording or a file of detections cannot be used
  4    no server, connection lost, or no answer in time
  5    the server reported an error
  6    invalid data from the server
  7    the output cannot be written
  8    a recording is damaged; "vantor info" shows what is left
  130  interrupted; everything recorded so far is intact

Run "vantor COMMAND --help" for the options of a command.)";

/** All commands, in the order in which the help lists them. */
std::vector<command> list_commands()
{
    return {identify_command(),
            scan_command(),
            selftest_command(),
            plan_command(),
            validate_command(),
            calibrate_command(),
            view_command(),
            record_command(),
            info_command(),
            repair_command(),
            plot_command(),
            export_command(),
            score_command(),
            replay_command(),
            bridge_command(),
            fleet_command(),
            completion_command(list_commands)};
}

} // namespace

exit_code run_command_line(const std::vector<std::string> &arguments, const command_streams &streams)
{
    try
    {
        const auto result = run_command(arguments, list_commands(), general_footer, streams);
        if (!streams.out.flush())
        {
            throw recording_error("Cannot write to standard output.");
        }
        return result;
    }
    catch (...)
    {
        return report_failure(streams.err, std::current_exception());
    }
}

} // namespace vantor
