/** @file
 * A board allocator that counts, and fails on request.
 */
#include "fake_memory.h"

#include <cstdlib>

#include "zet_integration.h"

fake_memory_t fake_memory;

void fail_allocation(size_t number)
{
    fake_memory.allocations = 0;
    fake_memory.fail_at = number;
    fake_memory.failed = false;
}

void *zet_integration_mem_alloc(size_t size)
{
    ++fake_memory.allocations;
    if (fake_memory.allocations == fake_memory.fail_at)
    {
        fake_memory.failed = true;
        return nullptr;
    }
    ++fake_memory.live;
    return std::malloc(size > 0 ? size : 1);
}

void zet_integration_mem_free(void *ptr)
{
    if (ptr != nullptr)
    {
        --fake_memory.live;
        std::free(ptr);
    }
}
