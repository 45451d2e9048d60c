/** @file
 * The board's allocator on a PC: the system's, with accounts and a limit. A port without a system brings its
 * own file in place of this one.
 */
#include <cstddef>
#include <cstdlib>

#include "zet_integration.h"
#include "zet_simulator.h"

namespace
{

/** Stands before each piece of memory. */
struct alignas(std::max_align_t) piece
{
    size_t size; /**< as asked for */
};

zet_simulator_memory_t accounts;
size_t live_limit;

/** Tells whether so many bytes more may be live. */
bool is_within_limit(size_t size)
{
    return live_limit == 0U || (size <= live_limit && accounts.live <= live_limit - size);
}

} // namespace

void *zet_integration_mem_alloc(size_t size)
{
    piece *memory = nullptr;
    if (size <= SIZE_MAX - sizeof(piece) && is_within_limit(size))
    {
        memory = static_cast<piece *>(malloc(sizeof(piece) + size));
    }
    if (memory == nullptr)
    {
        accounts.failures++;
        return nullptr;
    }
    memory->size = size;
    accounts.live += size;
    accounts.peak = accounts.live > accounts.peak ? accounts.live : accounts.peak;
    return memory + 1;
}

void zet_integration_mem_free(void *ptr)
{
    if (ptr == nullptr)
    {
        return;
    }
    piece *memory = static_cast<piece *>(ptr) - 1;
    accounts.live -= memory->size;
    free(memory);
}

void zet_simulator_memory_limit(size_t limit)
{
    live_limit = limit;
}

void zet_simulator_memory_get(zet_simulator_memory_t *memory)
{
    if (memory != nullptr)
    {
        *memory = accounts;
    }
}
