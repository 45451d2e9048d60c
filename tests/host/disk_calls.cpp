/** @file
 * Records the system calls that make files durable.
 */
#include "disk_calls.h"

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <regex>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vantor::test
{
namespace
{

disk_calls *present = nullptr;
lock_calls *present_locks = nullptr;

/** Records a call for an open file. */
void add_sync(int descriptor)
{
    if (present != nullptr)
    {
        std::error_code ignored;
        present->add(
            "sync",
            std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored).string());
    }
}

} // namespace

disk_calls::disk_calls(std::function<void()> at_call) : at_call_(std::move(at_call))
{
    present = this;
}

disk_calls::~disk_calls()
{
    present = nullptr;
}

void disk_calls::add(const std::string &call, const std::string &path)
{
    const std::lock_guard lock(mutex_);
    calls_.push_back(call + " " + std::regex_replace(path, std::regex("\\.[0-9a-f]+\\.new$"), ".new"));
    if (at_call_)
    {
        at_call_();
    }
}

lock_calls::lock_calls(std::function<void()> at_call) : at_call_(std::move(at_call))
{
    present_locks = this;
}

lock_calls::~lock_calls()
{
    present_locks = nullptr;
}

void lock_calls::add() const
{
    at_call_();
}

} // namespace vantor::test

// These replace the functions of the C library in this program.
extern "C" int fsync(int descriptor)
{
    vantor::test::add_sync(descriptor);
    return 0;
}

extern "C" int fdatasync(int descriptor)
{
    vantor::test::add_sync(descriptor);
    return 0;
}

extern "C" int rename(const char *from, const char *to) noexcept
{
    if (vantor::test::present != nullptr)
    {
        vantor::test::present->add("rename", to);
    }
    return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

extern "C" int flock(int descriptor, int operation) noexcept
{
    if (vantor::test::present_locks != nullptr && (operation & LOCK_SH) != 0)
    {
        vantor::test::present_locks->add();
    }
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}
