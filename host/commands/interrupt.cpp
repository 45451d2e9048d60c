/** @file
 * Ctrl-C as a question instead of an end.
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

} // namespace

interrupt_watch::interrupt_watch()
{
    noted = 0;
    set_action(SIGINT, note_signal);
    set_action(SIGTERM, note_signal);
}

interrupt_watch::~interrupt_watch()
{
    set_action(SIGINT, SIG_DFL);
    set_action(SIGTERM, SIG_DFL);
}

bool interrupt_watch::interrupted() noexcept
{
    return noted != 0;
}

} // namespace vantor
