/** @file
 * Catches requests to stop, such as Ctrl-C, so that the program can finish its work.
 */
#include "commands/interrupt.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

#include "recording/file_replacement.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

volatile std::sig_atomic_t noted = 0;
volatile std::sig_atomic_t watches_hangup = 0;
volatile std::sig_atomic_t wakes = -1; /**< becomes readable when a signal arrives */

/** Sets the action of a signal. */
void set_action(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

/** Sets the action of the signals with which a person ends the program. */
void set_request_actions(void (*handler)(int))
{
    set_action(SIGINT, handler);
    set_action(SIGTERM, handler);
}

/** Sets the action of all signals that are watched. */
void set_actions(void (*handler)(int))
{
    set_request_actions(handler);
    if (watches_hangup != 0)
    {
        set_action(SIGHUP, handler);
    }
}

/** Signal handler: ends the program, but not while files are replaced. */
extern "C" void end_program(int number)
{
    if (!postpone_signal(number))
    {
        set_action(number, SIG_DFL);
        // It arrives when this function returns.
        static_cast<void>(std::raise(number));
    }
}

/** Signal handler: records that a signal has arrived, and lets the next one end the program. A second SIGHUP
 * does not: when a terminal is closed, shell and system send one each. */
extern "C" void note_signal(int /*number*/)
{
    const int error_of_program = errno;
    noted = 1;
    set_request_actions(end_program);
    const uint64_t one = 1;
    // It can only fail if there is nothing to wake.
    [[maybe_unused]] const auto written = write(wakes, &one, sizeof one);
    errno = error_of_program;
}

/** Whether a signal is ignored, as nohup does with SIGHUP. */
bool is_ignored(int number)
{
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

} // namespace

interrupt_watch::interrupt_watch()
{
    noted = 0;
    watches_hangup = is_ignored(SIGHUP) ? 0 : 1;
    set_actions(note_signal);
}

interrupt_watch::interrupt_watch(event_loop &loop)
{
    wakes = eventfd(0, EFD_CLOEXEC);
    if (wakes < 0)
    {
        throw std::system_error(errno, std::generic_category(), "Cannot watch signals");
    }
    noted = 0;
    watches_hangup = is_ignored(SIGHUP) ? 0 : 1;
    loop.when_readable(wakes, [&loop] { loop.cancel(); });
    set_actions(note_signal);
}

interrupt_watch::~interrupt_watch()
{
    set_actions(SIG_DFL);
    if (wakes >= 0)
    {
        close(wakes);
        wakes = -1;
    }
}

bool interrupt_watch::interrupted() noexcept
{
    return noted != 0;
}

} // namespace vantor
