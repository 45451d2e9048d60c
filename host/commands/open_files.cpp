/** @file
 * How many files the program can have open.
 */
#include "commands/open_files.h"

#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>

#include <sys/resource.h>

#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** The number of files, links and the like that are open now; 0 if the system does not report it. */
size_t count_open_files()
{
    std::error_code failure;
    const std::filesystem::directory_iterator all("/proc/self/fd", failure);
    return failure ? 0 : static_cast<size_t>(std::distance(begin(all), end(all)));
}

} // namespace

void require_open_files(size_t further)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const auto needed = count_open_files() + further;
    if (needed > limit.rlim_cur)
    {
        throw recording_error("The recording needs " + std::to_string(needed) +
                              " open files, but the limit is " + std::to_string(limit.rlim_cur) +
                              ": raise it with \"ulimit -n " + std::to_string(needed) + "\".");
    }
}

} // namespace vantor
