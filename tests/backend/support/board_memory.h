/** @file
 * The board allocator's stand-in: fills memory with garbage, tracks every live block, fails on request.
 */
#ifndef BOARD_MEMORY_H
#define BOARD_MEMORY_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace backend_tests
{

/** The code that a block was allocated for. */
enum class block_owner_t
{
    test,          /**< test code, for example a configuration document */
    backend,       /**< the backend itself */
    json,          /**< a JSON operation that the backend called */
    sensor_library /**< a handle of the sensor library */
};

/** The allocator behind zet_integration_mem_alloc and zet_integration_mem_free. */
class board_memory_t
{
public:
    /** Allocates a block and fills it with garbage. Returns null when this allocation has to fail. */
    void *allocate(size_t size);

    /** Frees a block. The test fails if the pointer is not a live block. */
    void release(void *pointer);

    /** "block N" for the N-th block of the backend after number_from_one, "null", or "unknown". */
    [[nodiscard]] std::string name(const void *pointer) const;

    /** Restarts the numbering: the next block of the backend is "block 1". */
    void number_from_one();

    /** Makes the N-th allocation from now fail, and with @p and_all_later also all allocations after it. */
    void fail_allocation(size_t number, bool and_all_later = false);

    /** Whether the requested failure has happened. */
    [[nodiscard]] bool failure_reached() const;

    /** The call of the backend in which it happened, "" when the backend itself allocated. */
    [[nodiscard]] const std::string &failed_call() const;

    /** Size of the allocation that failed, in bytes. */
    [[nodiscard]] size_t failed_size() const;

    /** Live blocks of one owner. */
    [[nodiscard]] size_t live_blocks(block_owner_t owner) const;

    /** Number of live blocks of the backend, JSON documents and the sensor library. */
    [[nodiscard]] size_t live_blocks() const;

    /** Allocations made by JSON operations so far. */
    [[nodiscard]] size_t json_allocations() const;

    /** Whether an allocation of 0 bytes returns null. */
    bool null_for_no_bytes = false;

private:
    struct block_t
    {
        block_owner_t owner;
        std::string name;
        size_t size;
    };

    [[nodiscard]] bool failure_due(block_owner_t owner, size_t size);

    std::map<const void *, block_t> live;
    size_t next_number = 1;
    size_t until_failure = 0;
    bool keep_failing = false;
    bool failed = false;
    std::string call_that_failed;
    size_t size_that_failed = 0;
    size_t json_count = 0;
};

/** The allocator of the running test. */
board_memory_t &memory();

/** While an object exists, the backend is running. */
class backend_scope_t
{
public:
    backend_scope_t();
    ~backend_scope_t();
    backend_scope_t(const backend_scope_t &) = delete;
    backend_scope_t &operator=(const backend_scope_t &) = delete;
};

/** While an object exists, the backend is in a call of another module. */
class neighbour_scope_t
{
public:
    neighbour_scope_t(block_owner_t owner, std::string call);
    ~neighbour_scope_t();
    neighbour_scope_t(const neighbour_scope_t &) = delete;
    neighbour_scope_t &operator=(const neighbour_scope_t &) = delete;
};

/** Whether the backend itself is running, rather than test code or another module. */
bool backend_is_running();

} // namespace backend_tests

#endif
