/** @file
 * Catches requests to stop, such as Ctrl-C, so that the program can finish its work.
 */
#include "commands/interrupt.h"

#include <csignal>

namespace vantor
{
namespace
{

volatile std::sig_atomic_t noted = 0;

/** Signal handler: records that a signal has arrived. */
extern "C" void note_signal(int /*number*/)
{
    noted = 1;
}

/** Sets the action of a signal; a handler is reset to the default action after its first call. */
void set_action(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

/** Whether a signal is ignored, as nohup does with SIGHUP. */
bool is_ignored(int number)
{
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

} // namespace

interrupt_watch::interrupt_watch() : watches_hangup_(!is_ignored(SIGHUP))
{
    noted = 0;
    set_action(SIGINT, note_signal);
    set_action(SIGTERM, note_signal);
    if (watches_hangup_)
    {
        set_action(SIGHUP, note_signal);
    }
}

interrupt_watch::~interrupt_watch()
{
    set_action(SIGINT, SIG_DFL);
    set_action(SIGTERM, SIG_DFL);
    if (watches_hangup_)
    {
        set_action(SIGHUP, SIG_DFL);
    }
}

bool interrupt_watch::interrupted() noexcept
{
    return noted != 0;
}

} // namespace vantor
