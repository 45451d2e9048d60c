/** @file
 * Batches that wait on the disk until a broker has them.
 */
#ifndef VANTOR_SPOOL_H
#define VANTOR_SPOOL_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vantor/recording_error.h"

namespace vantor
{

/** The spool cannot be used. */
class spool_error : public recording_error
{
public:
    using recording_error::recording_error;
};

/**
 * Batches that wait on the disk until a broker has them, in a file of fixed size: a full disk cannot stop a
 * spool that was opened. Nothing is lost if the program is killed, since every batch is passed to the
 * operating system at once; it is not waited until it is on the disk.
 *
 * The file consists of slots, which are filled one after the other. A slot is free again when all its batches
 * are removed; the one that became free last is filled next, so that a spool that is nearly empty uses few
 * slots, whose pages stay in memory.
 */
class spool
{
public:
    /** The sizes of a spool, in bytes. */
    struct sizes
    {
        uint64_t file = uint64_t{256} << 20U; /**< rounded down to slots, but at least two */
        uint64_t slot = uint64_t{4} << 20U;
    };

    /** Where a batch is. */
    struct place
    {
        uint64_t offset = 0; /**< in the file, of its record */
        size_t size = 0;     /**< of the batch, in bytes */
    };

    /**
     * Opens the spool in a directory, which is created if necessary.
     *
     * @throws spool_error if that is not possible, another program uses it, or the disk has no room for it
     */
    spool(const std::filesystem::path &directory, sizes wanted);
    spool(const spool &) = delete;
    spool &operator=(const spool &) = delete;
    spool(spool &&) = delete;
    spool &operator=(spool &&) = delete;
    ~spool();

    /**
     * The batches that a former program has left, in the order in which they were added; once. Only read()
     * finds out whether one is damaged.
     */
    [[nodiscard]] std::vector<place> take_left();

    /**
     * Adds a batch.
     *
     * @return where it is; nothing if there is no room, or the disk fails
     */
    std::optional<place> add(std::string_view bytes);

    /**
     * Reads a batch, once more if that fails.
     *
     * @throws spool_error if the disk fails, or the bytes are not those that were added
     */
    [[nodiscard]] std::string read(const place &where) const;

    /** Removes a batch. */
    void remove(const place &where) noexcept;

    /** Whether no slot is free: only the one that is being filled can take further batches. */
    [[nodiscard]] bool is_full() const noexcept
    {
        return free_.empty();
    }

    /** Bytes in slots that are not free. */
    [[nodiscard]] uint64_t used() const noexcept;

    /** Bytes in all slots. */
    [[nodiscard]] uint64_t size() const noexcept
    {
        return slots_.size() * slot_size_;
    }

    /** Largest batch that can be added, in bytes. */
    [[nodiscard]] size_t largest() const noexcept;

private:
    /** A part of the file. */
    struct slot
    {
        uint64_t waiting = 0; /**< batches that are not removed */
    };

    [[nodiscard]] std::string read_once(const place &where) const;
    void open_file();
    void reserve(uint64_t wanted);
    void recover();
    void recover_slot(size_t number, std::vector<std::pair<uint64_t, place>> &found);
    bool begin_slot();
    [[noreturn]] void fail(const std::string &action, int reason) const;

    std::filesystem::path path_;
    uint64_t slot_size_;
    int file_ = -1;
    std::vector<slot> slots_;
    std::vector<size_t> free_;      /**< slots; the last one is used next */
    std::optional<size_t> current_; /**< the slot that is being filled */
    uint64_t end_ = 0;              /**< of the records in it, from its begin */
    uint64_t serial_ = 0;           /**< of the last record */
    std::vector<place> left_;
};

} // namespace vantor

#endif
