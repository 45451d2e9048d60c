/** @file
 * What becomes of the bytes that this process writes to files with pwrite().
 */
#include "disk_writes.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vantor::test
{
namespace
{

disk_writes *present = nullptr;
std::optional<int64_t> room;
unsigned failures_of_reading = 0;

/** Writes bytes. */
int64_t write_bytes(int file, std::span<const std::byte> bytes, int64_t offset)
{
    return syscall(SYS_pwrite64, file, bytes.data(), bytes.size(), offset);
}

} // namespace

disk_writes::disk_writes()
{
    present = this;
}

disk_writes::~disk_writes()
{
    present = nullptr;
}

int64_t short_writes::write(int file, std::span<const std::byte> bytes, int64_t offset)
{
    constexpr size_t longest_piece = 5;
    if (++calls_ % 3 == 0)
    {
        errno = EINTR;
        return -1;
    }
    return write_bytes(file, bytes.first(std::min(bytes.size(), longest_piece)), offset);
}

int64_t killed_writes::write(int file, std::span<const std::byte> bytes, int64_t offset)
{
    const auto written = bytes.first(std::min<size_t>(bytes.size(), left_));
    left_ -= written.size();
    alive_ = alive_ && written.size() == bytes.size();
    return write_bytes(file, written, offset) < 0 ? -1 : static_cast<int64_t>(bytes.size());
}

int64_t failing_writes::write(int file, std::span<const std::byte> bytes, int64_t offset)
{
    if (left_ == 0)
    {
        errno = EIO;
        return -1;
    }
    const auto written = bytes.first(std::min<size_t>(bytes.size(), left_));
    left_ -= written.size();
    return write_bytes(file, written, offset);
}

failing_reads::failing_reads(unsigned count)
{
    failures_of_reading = count;
}

failing_reads::~failing_reads()
{
    failures_of_reading = 0;
}

full_disk::full_disk(int64_t bytes)
{
    room = bytes;
}

full_disk::~full_disk()
{
    room.reset();
}

} // namespace vantor::test

// These replace the functions of the C library in this program.
extern "C" ssize_t pwrite(int file, const void *bytes, size_t count, off_t offset)
{
    const std::span range(static_cast<const std::byte *>(bytes), count);
    auto *const instead = vantor::test::present;
    return instead == nullptr ? vantor::test::write_bytes(file, range, offset)
                              : instead->write(file, range, offset);
}

extern "C" ssize_t pread(int file, void *bytes, size_t count, off_t offset)
{
    if (vantor::test::failures_of_reading > 0)
    {
        --vantor::test::failures_of_reading;
        errno = EIO;
        return -1;
    }
    return syscall(SYS_pread64, file, bytes, count, offset);
}

extern "C" int posix_fallocate(int file, off_t offset, off_t size)
{
    const auto end = std::min<off_t>(offset + size, vantor::test::room.value_or(offset + size));
    if (end > offset && syscall(SYS_fallocate, file, 0, offset, end - offset) != 0)
    {
        return errno;
    }
    return end == offset + size ? 0 : ENOSPC;
}
