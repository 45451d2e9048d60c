/** @file
 * Records the system calls that make files durable. In these tests they do not wait for the disk.
 */
#ifndef VANTOR_DISK_CALLS_H
#define VANTOR_DISK_CALLS_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace vantor::test
{

/** While an object exists, the calls of this process are recorded. Only one object may exist at a time. */
class disk_calls
{
public:
    /** @param at_call  is called at each call; may be empty */
    explicit disk_calls(std::function<void()> at_call = {});
    disk_calls(const disk_calls &) = delete;
    disk_calls &operator=(const disk_calls &) = delete;
    disk_calls(disk_calls &&) = delete;
    disk_calls &operator=(disk_calls &&) = delete;
    ~disk_calls();

    /**
     * The calls so far, such as "sync DIRECTORY/file" and "rename DIRECTORY/file". The random part in the
     * name of a temporary file is left out.
     */
    [[nodiscard]] const std::vector<std::string> &list() const noexcept
    {
        return calls_;
    }

    /** Adds a call. Can be called from any thread, while nobody uses list(). */
    void add(const std::string &call, const std::string &path);

private:
    std::function<void()> at_call_;
    std::mutex mutex_;
    std::vector<std::string> calls_;
};

/** While an object exists, a function is called right before this process asks whether a file is locked. */
class lock_calls
{
public:
    explicit lock_calls(std::function<void()> at_call);
    lock_calls(const lock_calls &) = delete;
    lock_calls &operator=(const lock_calls &) = delete;
    lock_calls(lock_calls &&) = delete;
    lock_calls &operator=(lock_calls &&) = delete;
    ~lock_calls();

    /** Calls the function. */
    void add() const;

private:
    std::function<void()> at_call_;
};

} // namespace vantor::test

#endif
