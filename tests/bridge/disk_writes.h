/** @file
 * What becomes of the bytes that this process writes to files with pwrite().
 */
#ifndef VANTOR_DISK_WRITES_H
#define VANTOR_DISK_WRITES_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace vantor::test
{

/** While an object exists, it does what pwrite() is to do. Only one object may exist at a time. */
class disk_writes
{
public:
    disk_writes();
    disk_writes(const disk_writes &) = delete;
    disk_writes &operator=(const disk_writes &) = delete;
    disk_writes(disk_writes &&) = delete;
    disk_writes &operator=(disk_writes &&) = delete;
    virtual ~disk_writes();

    /** Writes some bytes. Returns their number, or -1 with errno. */
    virtual int64_t write(int file, std::span<const std::byte> bytes, int64_t offset) = 0;
};

/** Each call is interrupted, or writes few bytes. */
class short_writes : public disk_writes
{
public:
    int64_t write(int file, std::span<const std::byte> bytes, int64_t offset) override;

private:
    unsigned calls_ = 0;
};

/** The program is killed when it has written some bytes: what it does from then on never happens. */
class killed_writes : public disk_writes
{
public:
    /** @param bytes  that it has written before */
    explicit killed_writes(uint64_t bytes) : left_(bytes)
    {
    }

    int64_t write(int file, std::span<const std::byte> bytes, int64_t offset) override;

    /** Whether the program lives. */
    [[nodiscard]] bool alive() const noexcept
    {
        return alive_;
    }

private:
    uint64_t left_;
    bool alive_ = true;
};

/** The disk fails after some bytes. */
class failing_writes : public disk_writes
{
public:
    /** @param bytes  that are written before */
    explicit failing_writes(uint64_t bytes) : left_(bytes)
    {
    }

    int64_t write(int file, std::span<const std::byte> bytes, int64_t offset) override;

private:
    uint64_t left_;
};

/** The next attempts to read a file with pread() fail, until the object is destroyed. */
class failing_reads
{
public:
    explicit failing_reads(unsigned count);
    failing_reads(const failing_reads &) = delete;
    failing_reads &operator=(const failing_reads &) = delete;
    failing_reads(failing_reads &&) = delete;
    failing_reads &operator=(failing_reads &&) = delete;
    ~failing_reads();
};

/** While an object exists, files can grow to some bytes only. An attempt to reserve more reserves these. */
class full_disk
{
public:
    explicit full_disk(int64_t bytes);
    full_disk(const full_disk &) = delete;
    full_disk &operator=(const full_disk &) = delete;
    full_disk(full_disk &&) = delete;
    full_disk &operator=(full_disk &&) = delete;
    ~full_disk();
};

} // namespace vantor::test

#endif
