/** @file
 * A function that runs on its own stack.
 */
#include "client/fiber.h"

#include <cstring>
#include <memory>
#include <utility>

#include <boost/context/protected_fixedsize_stack.hpp>
#include <cxxabi.h>

#if defined(__SANITIZE_ADDRESS__)
#define VANTOR_HAS_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VANTOR_HAS_ADDRESS_SANITIZER
#endif
#endif

#ifdef VANTOR_HAS_ADDRESS_SANITIZER
#include <sanitizer/common_interface_defs.h>
#endif

namespace vantor
{
namespace
{

/** Exchanges what the C++ runtime knows about exceptions that are being handled. */
void switch_exceptions(fiber::stack_state &from, const fiber::stack_state &to)
{
    auto *current = abi::__cxa_get_globals();
    std::memcpy(from.exceptions.data(), static_cast<const void *>(current), sizeof from.exceptions);
    std::memcpy(static_cast<void *>(current), to.exceptions.data(), sizeof to.exceptions);
}

/** To be called before another stack is used. @param ends  whether the current one is not used again */
void begin_switch(fiber::stack_state &from, const fiber::stack_state &to, bool ends)
{
    switch_exceptions(from, to);
#ifdef VANTOR_HAS_ADDRESS_SANITIZER
    __sanitizer_start_switch_fiber(ends ? nullptr : &from.sanitizer, to.bottom, to.size);
#else
    static_cast<void>(ends);
#endif
}

/** To be called when a stack is used again. @param from  the one that was used before */
void end_switch(const fiber::stack_state &to, fiber::stack_state &from)
{
#ifdef VANTOR_HAS_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(to.sanitizer, &from.bottom, &from.size);
#else
    static_cast<void>(to);
    static_cast<void>(from);
#endif
}

} // namespace

/** Makes a stack, and places the function on it. */
void fiber::make_stack()
{
    boost::context::protected_fixedsize_stack allocator(stack_size);
    const auto stack = allocator.allocate();
    own_.bottom = static_cast<const char *>(stack.sp) - stack.size;
    own_.size = stack.size;
    here_ = boost::context::fiber(std::allocator_arg,
                                  boost::context::preallocated(stack.sp, stack.size, stack), allocator,
                                  [this](boost::context::fiber &&caller) { return run(std::move(caller)); });
}

void fiber::resume()
{
    if (work_)
    {
        make_stack();
    }
    begin_switch(outer_, own_, false);
    auto left = std::move(here_).resume();
    end_switch(outer_, own_);
    here_ = std::move(left);
}

void fiber::suspend()
{
    begin_switch(own_, outer_, false);
    caller_ = std::move(caller_).resume();
    end_switch(own_, outer_);
}

/** The function, on its stack; returns where to continue. */
boost::context::fiber fiber::run(boost::context::fiber &&caller)
{
    end_switch(own_, outer_);
    caller_ = std::move(caller);
    std::exchange(work_, nullptr)();
    begin_switch(own_, outer_, true);
    return std::move(caller_);
}

} // namespace vantor
