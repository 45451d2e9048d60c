/** @file
 * The command `vantor` as a function.
 */
#include "commands/command_line.h"

#include <algorithm>
#include <exception>
#include <ostream>

#include <CLI/CLI.hpp>

#include "commands/calibrate.h"
#include "commands/completion.h"
#include "commands/export.h"
#include "commands/identify.h"
#include "commands/info.h"
#include "commands/plot.h"
#include "commands/record.h"
#include "commands/replay.h"
#include "commands/text_table.h"
#include "commands/validate.h"
#include "configuration.h"
#include "recording/recording_error.h"
#include "vantor/errors.h"
#include "version.h"

namespace vantor
{
namespace
{

constexpr const char *footer = R"(Exit codes:
  0    success
  1    failure without a code of its own
  2    wrong command line
  3    a configuration or a recording cannot be used
  4    no server, connection lost, or no answer in time
  5    the server reported an error
  6    what the server sent makes no sense
  7    the output cannot be written
  130  interrupted; what was recorded until then is whole)";

/** Ends a command with a sentence for the person. */
exit_code report(std::ostream &err, exit_code code, const std::exception &failure)
{
    err << "vantor: " << printable(failure.what()) << "\n";
    return code;
}

/** Finds the exit code for the exception that is being handled, and reports it. */
exit_code report_current_exception(std::ostream &err)
{
    try
    {
        throw;
    }
    catch (const configuration_error &failure)
    {
        return report(err, exit_code::bad_file, failure);
    }
    catch (const bad_recording &failure)
    {
        return report(err, exit_code::bad_file, failure);
    }
    catch (const recording_error &failure)
    {
        return report(err, exit_code::not_written, failure);
    }
    catch (const address_error &failure)
    {
        return report(err, exit_code::usage, failure);
    }
    catch (const server_error &failure)
    {
        return report(err, exit_code::refused, failure);
    }
    catch (const bad_message &failure)
    {
        return report(err, exit_code::bad_link, failure);
    }
    catch (const protocol_error &failure)
    {
        return report(err, exit_code::bad_link, failure);
    }
    catch (const connect_error &failure)
    {
        return report(err, exit_code::no_connection, failure);
    }
    catch (const connection_lost &failure)
    {
        return report(err, exit_code::no_connection, failure);
    }
    catch (const timeout_error &failure)
    {
        return report(err, exit_code::no_connection, failure);
    }
    catch (const std::exception &failure)
    {
        return report(err, exit_code::failure, failure);
    }
}

/** Reads the arguments and runs the command that they name. */
exit_code parse_and_run(const std::vector<std::string> &arguments, command_streams streams)
{
    exit_code result = exit_code::success;
    CLI::App app("Measure with radar sensors through a Vantor server.", "vantor");
    app.set_version_flag("--version", std::string("vantor ") + version);
    app.require_subcommand(1);
    app.footer(footer);
    add_identify_command(app, streams, result);
    add_scan_command(app, streams, result);
    add_validate_command(app, streams, result);
    add_calibrate_command(app, streams, result);
    add_record_command(app, streams, result);
    add_info_command(app, streams, result);
    add_plot_command(app, streams, result);
    add_export_command(app, streams, result);
    add_replay_command(app, streams, result);
    add_completion_command(app, streams, result);
    try
    {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    }
    catch (const CLI::ParseError &failure)
    {
        if (app.get_subcommands().empty() && !app.remaining().empty())
        {
            streams.err << "There is no command \"" << printable(app.remaining().front())
                        << "\".\nRun with --help for more information.\n";
            return exit_code::usage;
        }
        const int code = app.exit(failure, streams.out, streams.err);
        return code == 0 ? exit_code::success : exit_code::usage;
    }
    return result;
}

} // namespace

exit_code run_command_line(const std::vector<std::string> &arguments, command_streams streams)
{
    try
    {
        const auto result = parse_and_run(arguments, streams);
        if (!streams.out.flush())
        {
            throw recording_error("Cannot write to the standard output.");
        }
        return result;
    }
    catch (...)
    {
        return report_current_exception(streams.err);
    }
}

} // namespace vantor
