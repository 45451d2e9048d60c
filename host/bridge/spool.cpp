/** @file
 * Batches that wait on the disk until a broker has them.
 */
#include "bridge/spool.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/crc.hpp>

namespace vantor
{
namespace
{

/** The name of the file in its directory. */
constexpr const char *file_name = "batches";

/** The begin of every record. */
constexpr uint32_t record_mark = 0x76627031;

/** What has become of a batch. */
constexpr uint32_t is_waiting = 1;
constexpr uint32_t is_removed = 2;

/** What precedes a batch in the file. */
struct record_header
{
    uint32_t mark = record_mark;
    uint32_t size = 0;   /**< of the batch, in bytes */
    uint64_t serial = 0; /**< grows by 1 with each record: older ones behind the last have smaller ones */
    uint32_t check = 0;  /**< of the serial and the batch */
    uint32_t state = is_waiting; /**< written last: without it, no batch is there */
};

/** The bytes of a record. */
uint64_t record_size(uint64_t batch_size)
{
    constexpr uint64_t alignment = 8;
    return sizeof(record_header) + (batch_size + alignment - 1) / alignment * alignment;
}

/** A check of a batch. */
uint32_t check_of(uint64_t serial, std::string_view bytes)
{
    boost::crc_32_type check;
    check.process_bytes(&serial, sizeof(serial));
    check.process_bytes(bytes.data(), bytes.size());
    return check.checksum();
}

/** Reads bytes of a file; false with errno if it fails, and errno 0 at its end. */
bool read_bytes(int file, std::span<std::byte> bytes, uint64_t offset)
{
    while (!bytes.empty())
    {
        errno = 0;
        const auto count = ::pread(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count <= 0)
        {
            if (count < 0 && errno == EINTR)
            {
                continue;
            }
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
    return true;
}

/** Writes bytes of a file; false if it fails. */
bool write_bytes(int file, std::span<const std::byte> bytes, uint64_t offset)
{
    while (!bytes.empty())
    {
        const auto count = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count <= 0)
        {
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
    return true;
}

/** The bytes of a header. */
std::span<std::byte> bytes_of(record_header &header)
{
    return std::as_writable_bytes(std::span(&header, 1));
}

} // namespace

spool::spool(const std::filesystem::path &directory, sizes wanted)
    : path_(directory / file_name), slot_size_(wanted.slot)
{
    open_file();
    try
    {
        reserve(wanted.file);
        recover();
    }
    catch (...)
    {
        ::close(file_);
        throw;
    }
}

spool::~spool()
{
    ::close(file_);
}

/** Opens the file, and locks it. */
void spool::open_file()
{
    std::error_code failure;
    std::filesystem::create_directories(path_.parent_path(), failure);
    if (failure)
    {
        fail("create the directory of", failure.value());
    }
    constexpr mode_t for_user = 0600;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): a system call
    file_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, for_user);
    if (file_ < 0)
    {
        fail("open", errno);
    }
    if (::flock(file_, LOCK_EX | LOCK_NB) != 0)
    {
        ::close(file_);
        throw spool_error("Another program uses " + path_.string() +
                          ". Give each bridge a --spool of its own.");
    }
}

/** Gives the file its size; keeps one that is larger, which may contain batches. */
void spool::reserve(uint64_t wanted)
{
    struct stat present = {};
    if (::fstat(file_, &present) != 0)
    {
        fail("read", errno);
    }
    const auto before = static_cast<uint64_t>(present.st_size) / slot_size_;
    const auto count = std::max({wanted / slot_size_, before, uint64_t{2}});
    if (const int reason = ::posix_fallocate(file_, 0, static_cast<off_t>(count * slot_size_)); reason != 0)
    {
        // Some file systems keep what they could reserve: the disk would stay full.
        std::error_code ignored;
        std::filesystem::resize_file(path_, static_cast<uint64_t>(present.st_size), ignored);
        fail("reserve " + std::to_string(count * slot_size_ >> 20U) + " MB for", reason);
    }
    slots_.resize(count);
}

/** Finds the batches in all slots. */
void spool::recover()
{
    std::vector<std::pair<uint64_t, place>> found;
    for (size_t number = slots_.size(); number-- > 0;)
    {
        recover_slot(number, found);
        if (slots_[number].waiting == 0)
        {
            free_.push_back(number);
        }
    }
    std::ranges::sort(found, {}, &std::pair<uint64_t, place>::first);
    for (const auto &[serial, where] : found)
    {
        left_.push_back(where);
    }
}

/** Finds the batches in a slot, with their serials. */
void spool::recover_slot(size_t number, std::vector<std::pair<uint64_t, place>> &found)
{
    const uint64_t begin = number * slot_size_;
    uint64_t at = 0;
    uint64_t last = 0;
    while (at + sizeof(record_header) <= slot_size_)
    {
        record_header header;
        if (!read_bytes(file_, bytes_of(header), begin + at))
        {
            fail("read", errno);
        }
        const bool valid =
            header.mark == record_mark && header.serial > last && record_size(header.size) <= slot_size_ - at;
        if (!valid)
        {
            return;
        }
        if (header.state == is_waiting)
        {
            found.push_back({header.serial, {.offset = begin + at, .size = header.size}});
            ++slots_[number].waiting;
        }
        last = header.serial;
        serial_ = std::max(serial_, last);
        at += record_size(header.size);
    }
}

std::vector<spool::place> spool::take_left()
{
    return std::exchange(left_, {});
}

std::optional<spool::place> spool::add(std::string_view bytes)
{
    const auto needed = record_size(bytes.size());
    if (needed > slot_size_ || ((!current_ || end_ + needed > slot_size_) && !begin_slot()))
    {
        return std::nullopt;
    }
    record_header header{.size = static_cast<uint32_t>(bytes.size()),
                         .serial = serial_ + 1,
                         .check = check_of(serial_ + 1, bytes)};
    const uint64_t offset = *current_ * slot_size_ + end_;
    // The header last: without it there is no record.
    if (!write_bytes(file_, std::as_bytes(std::span(bytes)), offset + sizeof(header)) ||
        !write_bytes(file_, bytes_of(header), offset))
    {
        return std::nullopt;
    }
    ++serial_;
    end_ += needed;
    ++slots_[*current_].waiting;
    return place{.offset = offset, .size = bytes.size()};
}

/** Fills another slot from now on; false if none is free. */
bool spool::begin_slot()
{
    if (free_.empty())
    {
        return false;
    }
    current_ = free_.back();
    free_.pop_back();
    end_ = 0;
    return true;
}

std::string spool::read(const place &where) const
try
{
    return read_once(where);
}
catch (const spool_error &)
{
    // Some disks fail only now and then.
    return read_once(where);
}

/** Reads a batch; throws spool_error if that fails. */
std::string spool::read_once(const place &where) const
{
    record_header header;
    std::string bytes(where.size, '\0');
    errno = 0;
    const bool complete =
        read_bytes(file_, bytes_of(header), where.offset) &&
        read_bytes(file_, std::as_writable_bytes(std::span(bytes)), where.offset + sizeof(header));
    if (!complete)
    {
        fail("read", errno);
    }
    if (check_of(header.serial, bytes) != header.check)
    {
        throw spool_error("A batch in " + path_.string() +
                          " is damaged: another program may have changed it.");
    }
    return bytes;
}

void spool::remove(const place &where) noexcept
{
    record_header header;
    header.state = is_removed;
    // If this fails, the batch is published once more after a restart, and recognised.
    (void)write_bytes(file_, std::as_bytes(std::span(&header.state, 1)),
                      where.offset + offsetof(record_header, state));
    const auto number = where.offset / slot_size_;
    if (--slots_[number].waiting > 0)
    {
        return;
    }
    if (number == current_)
    {
        end_ = 0;
    }
    else
    {
        free_.push_back(number);
    }
}

uint64_t spool::used() const noexcept
{
    const auto count = std::ranges::count_if(slots_, [](const slot &one) { return one.waiting > 0; });
    return static_cast<uint64_t>(count) * slot_size_;
}

size_t spool::largest() const noexcept
{
    return slot_size_ - sizeof(record_header);
}

/** Throws the failure of a system call. */
void spool::fail(const std::string &action, int reason) const
{
    throw spool_error("Cannot " + action + " " + path_.string() + ": " +
                      (reason == 0 ? "it is shorter than before" : std::strerror(reason)) +
                      ". Choose another directory with --spool, or another size with --spool-size.");
}

} // namespace vantor
