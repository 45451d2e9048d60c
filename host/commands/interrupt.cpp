/** @file
 * Notes requests to stop, such as Ctrl-C, instead of ending the program.
 */
#include "commands/interrupt.h"

#include <csignal>

namespace vantor
{
namespace
{

volatile std::sig_atomic_t noted = 0;

/** Notes the signal. */
extern "C" void note_signal(int /*number*/)
{
    noted = 1;
}

/** Sets what a signal does from now on; a handler is used once and then reset. */
void set_action(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

/** Whether a signal is ignored, as SIGHUP is under nohup. */
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
