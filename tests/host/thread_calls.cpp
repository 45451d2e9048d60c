/** @file
 * Makes the creation of threads fail.
 */
#include "thread_calls.h"

#include <cerrno>
#include <utility>

#include <dlfcn.h>
#include <pthread.h>

namespace vantor::test
{
namespace
{

/** The function of the object, in its own thread. */
thread_local const std::function<bool()> *present = nullptr;

} // namespace

refused_threads::refused_threads(std::function<bool()> is_refused) : is_refused_(std::move(is_refused))
{
    present = &is_refused_;
}

refused_threads::~refused_threads()
{
    present = nullptr;
}

} // namespace vantor::test

// This replaces the function of the C library in this program.
extern "C" int pthread_create(pthread_t *created, const pthread_attr_t *attributes, void *(*start)(void *),
                              void *argument) noexcept
{
    static const auto original =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    const auto *refused = vantor::test::present;
    return refused != nullptr && (*refused)() ? EAGAIN : original(created, attributes, start, argument);
}
