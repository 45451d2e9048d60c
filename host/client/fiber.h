/** @file
 * A function that runs on its own stack, and can be left and continued.
 */
#ifndef VANTOR_FIBER_H
#define VANTOR_FIBER_H

#include <array>
#include <cstddef>
#include <functional>
#include <utility>

#include <boost/context/fiber.hpp>
#include <boost/context/stack_context.hpp>

namespace vantor
{

/**
 * A function on its own stack. Exceptions that are being handled belong to the stack, so that a function
 * can be left within a handler.
 */
class fiber
{
public:
    /** What a stack has beside its memory. */
    struct stack_state
    {
        /** What the C++ runtime knows about exceptions that are being handled: two members, whose sizes the
         * ABI defines. */
        std::array<void *, 2> exceptions{};
        const void *bottom = nullptr; /**< lowest address; only known to AddressSanitizer */
        size_t size = 0;
        void *sanitizer = nullptr; /**< of AddressSanitizer */
    };

    /**
     * Size of the stack in bytes: recording a board needs 7 kB at most, also when it cannot be set up. Of a
     * stack, only the pages that are used take memory; the page below it ends the program when it is touched.
     */
    static constexpr size_t stack_size = size_t{256} << 10U;

    /** @param work  runs in resume(); must not throw. The fiber must not be destroyed while it can go on */
    explicit fiber(std::function<void()> work) : work_(std::move(work))
    {
    }
    fiber(const fiber &) = delete;
    fiber &operator=(const fiber &) = delete;
    fiber(fiber &&) = delete;
    fiber &operator=(fiber &&) = delete;
    ~fiber() = default;

    /**
     * Starts or continues the function; returns when it calls suspend(), or has returned.
     *
     * @throws std::bad_alloc if there is no memory for a stack
     */
    void resume();

    /** Leaves the function, which must be the caller. */
    void suspend();

    /** Whether the function can be continued: it has started, and not returned. */
    [[nodiscard]] bool can_go_on() const noexcept
    {
        return static_cast<bool>(here_);
    }

private:
    void make_stack();
    boost::context::fiber run(boost::context::fiber &&caller);

    std::function<void()> work_; /**< empty once it has started */
    stack_state own_;
    stack_state outer_;
    boost::context::fiber here_;   /**< where to continue; empty while it runs, and when it has ended */
    boost::context::fiber caller_; /**< where resume() continues */
};

} // namespace vantor

#endif
