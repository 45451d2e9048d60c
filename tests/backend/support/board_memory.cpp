/** @file
 * The board allocator's stand-in.
 */
#include "board_memory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "neighbours.h"
#include "zet_integration.h"

namespace backend_tests
{

namespace
{

constexpr int garbage_of_new_memory = 0xA5;
constexpr int garbage_of_freed_memory = 0x5A;

struct running_call_t
{
    block_owner_t owner;
    std::string call;
};

bool inside_backend = false;
std::vector<running_call_t> running_calls;

block_owner_t current_owner()
{
    if (!running_calls.empty())
    {
        return running_calls.front().owner;
    }
    return inside_backend ? block_owner_t::backend : block_owner_t::test;
}

} // namespace

backend_scope_t::backend_scope_t()
{
    inside_backend = true;
}

backend_scope_t::~backend_scope_t()
{
    inside_backend = false;
}

neighbour_scope_t::neighbour_scope_t(block_owner_t owner, std::string call)
{
    running_calls.push_back({owner, std::move(call)});
}

neighbour_scope_t::~neighbour_scope_t()
{
    running_calls.pop_back();
}

bool backend_is_running()
{
    return inside_backend && running_calls.empty();
}

bool board_memory_t::failure_due(block_owner_t owner, size_t size)
{
    if (owner == block_owner_t::test)
    {
        return false;
    }
    if (failed)
    {
        return keep_failing;
    }
    if (until_failure == 0)
    {
        return false;
    }
    until_failure -= 1;
    if (until_failure > 0)
    {
        return false;
    }
    failed = true;
    call_that_failed = running_calls.empty() ? "" : running_calls.front().call;
    size_that_failed = size;
    neighbours().calls_at_failure = neighbours().calls;
    return true;
}

void *board_memory_t::allocate(size_t size)
{
    const block_owner_t owner = current_owner();
    json_count += owner == block_owner_t::json ? 1U : 0U;
    if (failure_due(owner, size) || (size == 0 && null_for_no_bytes))
    {
        return nullptr;
    }
    void *pointer = std::malloc(std::max<size_t>(size, 1));
    std::memset(pointer, garbage_of_new_memory, size);
    std::string name;
    if (owner == block_owner_t::backend)
    {
        name = "block " + std::to_string(next_number);
        next_number += 1;
    }
    live[pointer] = {owner, name, size};
    return pointer;
}

void board_memory_t::release(void *pointer)
{
    if (pointer == nullptr)
    {
        return;
    }
    const auto block = live.find(pointer);
    if (block == live.end())
    {
        ADD_FAILURE() << "the pointer to free is not allocated";
        return;
    }
    std::memset(pointer, garbage_of_freed_memory, block->second.size);
    live.erase(block);
    std::free(pointer);
}

std::string board_memory_t::name(const void *pointer) const
{
    if (pointer == nullptr)
    {
        return "null";
    }
    const auto block = live.find(pointer);
    return block == live.end() ? "unknown" : block->second.name;
}

void board_memory_t::number_from_one()
{
    next_number = 1;
}

void board_memory_t::fail_allocation(size_t number, bool and_all_later)
{
    until_failure = number;
    keep_failing = and_all_later;
    failed = false;
    call_that_failed.clear();
}

bool board_memory_t::failure_reached() const
{
    return failed;
}

const std::string &board_memory_t::failed_call() const
{
    return call_that_failed;
}

size_t board_memory_t::failed_size() const
{
    return size_that_failed;
}

size_t board_memory_t::live_blocks(block_owner_t owner) const
{
    return static_cast<size_t>(std::count_if(live.begin(), live.end(),
                                             [&](const auto &block) { return block.second.owner == owner; }));
}

size_t board_memory_t::live_blocks() const
{
    return live.size() - live_blocks(block_owner_t::test);
}

size_t board_memory_t::json_allocations() const
{
    return json_count;
}

} // namespace backend_tests

extern "C" {
using namespace backend_tests;

void *zet_integration_mem_alloc(size_t size)
{
    if (backend_is_running())
    {
        record(call_kind_t::memory, "zet_integration_mem_alloc", {show(size)});
    }
    return memory().allocate(size);
}

void zet_integration_mem_free(void *ptr)
{
    if (backend_is_running())
    {
        record(call_kind_t::memory, "zet_integration_mem_free", {memory().name(ptr)});
    }
    memory().release(ptr);
}
}
