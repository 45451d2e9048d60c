/** @file
 * Reports why a command failed.
 */
#include "commands/failure_report.h"

#include <ostream>

#include "commands/arguments.h"
#include "commands/interrupt.h"
#include "commands/usage_error.h"
#include "recording/printable.h"
#include "score/detections.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Prints the message of an exception and returns the exit code. */
exit_code report(std::ostream &err, exit_code code, const std::exception &failure, const std::string &about)
{
    err << "vantor: " << printable(about.empty() ? failure.what() : about + ": " + failure.what()) << "\n";
    return code;
}

} // namespace

exit_code report_failure(std::ostream &err, const std::exception_ptr &failed, const std::string &about)
{
    try
    {
        std::rethrow_exception(failed);
    }
    catch (const configuration_error &failure)
    {
        return report(err, exit_code::bad_file, failure, about);
    }
    catch (const damaged_recording &failure)
    {
        return report(err, exit_code::damaged, failure, about);
    }
    catch (const bad_recording &failure)
    {
        return report(err, exit_code::bad_file, failure, about);
    }
    catch (const detections_error &failure)
    {
        return report(err, exit_code::bad_file, failure, about);
    }
    catch (const recording_error &failure)
    {
        return report(err, exit_code::not_written, failure, about);
    }
    catch (const cancelled &)
    {
        err << "vantor: interrupted\n";
        return exit_code::interrupted;
    }
    catch (const address_error &failure)
    {
        return report(err, exit_code::usage, failure, about);
    }
    catch (const usage_error &failure)
    {
        report(err, exit_code::usage, failure, about);
        err << help_hint;
        return exit_code::usage;
    }
    catch (const server_error &failure)
    {
        return report(err, exit_code::refused, failure, about);
    }
    catch (const bad_message &failure)
    {
        return report(err, exit_code::bad_link, failure, about);
    }
    catch (const protocol_error &failure)
    {
        return report(err, exit_code::bad_link, failure, about);
    }
    catch (const connect_error &failure)
    {
        return report(err, exit_code::no_connection, failure, about);
    }
    catch (const connection_lost &failure)
    {
        return report(err, exit_code::no_connection, failure, about);
    }
    catch (const timeout_error &failure)
    {
        return report(err, exit_code::no_connection, failure, about);
    }
    catch (const interruption &failure)
    {
        return report(err, exit_code::interrupted, failure, about);
    }
    catch (const std::exception &failure)
    {
        return report(err, exit_code::failure, failure, about);
    }
}

std::string message_of(const std::exception_ptr &failure)
try
{
    std::rethrow_exception(failure);
}
catch (const std::exception &caught)
{
    return caught.what();
}

} // namespace vantor
