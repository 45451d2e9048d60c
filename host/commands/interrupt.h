/** @file
 * Ctrl-C as a question instead of an end.
 */
#ifndef VANTOR_INTERRUPT_H
#define VANTOR_INTERRUPT_H

namespace vantor
{

/**
 * While an object of this class lives, the first Ctrl-C (or request to terminate) is only noted; a second one
 * ends the program as usual. At most one may live at a time.
 */
class interrupt_watch
{
public:
    interrupt_watch();
    interrupt_watch(const interrupt_watch &) = delete;
    interrupt_watch &operator=(const interrupt_watch &) = delete;
    interrupt_watch(interrupt_watch &&) = delete;
    interrupt_watch &operator=(interrupt_watch &&) = delete;
    ~interrupt_watch();

    /** Whether the person asked to stop. */
    [[nodiscard]] static bool interrupted() noexcept;
};

} // namespace vantor

#endif
