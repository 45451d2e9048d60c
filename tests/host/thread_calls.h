/** @file
 * Makes the creation of threads fail.
 */
#ifndef VANTOR_THREAD_CALLS_H
#define VANTOR_THREAD_CALLS_H

#include <functional>

namespace vantor::test
{

/**
 * While an object exists, threads that its own thread creates fail as if there were too many, whenever a
 * function says so. Only one object may exist at a time.
 */
class refused_threads
{
public:
    explicit refused_threads(std::function<bool()> is_refused);
    refused_threads(const refused_threads &) = delete;
    refused_threads &operator=(const refused_threads &) = delete;
    refused_threads(refused_threads &&) = delete;
    refused_threads &operator=(refused_threads &&) = delete;
    ~refused_threads();

private:
    std::function<bool()> is_refused_;
};

} // namespace vantor::test

#endif
