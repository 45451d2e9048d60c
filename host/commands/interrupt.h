/** @file
 * Notes requests to stop, such as Ctrl-C, instead of ending the program.
 */
#ifndef VANTOR_INTERRUPT_H
#define VANTOR_INTERRUPT_H

namespace vantor
{

/**
 * While an object of this class exists, the first Ctrl-C, request to terminate or hangup of the terminal is
 * only noted; a second one ends the program as usual. Ctrl-C also counts in a process that a shell started in
 * the background, where it is ignored at first; a hangup that is ignored, as under nohup, stays ignored. At
 * most one object may exist at a time.
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

private:
    bool watches_hangup_;
};

} // namespace vantor

#endif
