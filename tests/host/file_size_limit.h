/** @file
 * A limit for the size of files, as on a full disk.
 */
#ifndef VANTOR_FILE_SIZE_LIMIT_H
#define VANTOR_FILE_SIZE_LIMIT_H

#include <csignal>

#include <sys/resource.h>

namespace vantor::test
{

/** While an object exists, files can grow to this many bytes only, also those of programs that are started.
 */
class file_size_limit
{
public:
    explicit file_size_limit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limited{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    file_size_limit(const file_size_limit &) = delete;
    file_size_limit &operator=(const file_size_limit &) = delete;
    file_size_limit(file_size_limit &&) = delete;
    file_size_limit &operator=(file_size_limit &&) = delete;

    ~file_size_limit()
    {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, SIG_DFL);
    }

private:
    rlimit before_{};
};

} // namespace vantor::test

#endif
