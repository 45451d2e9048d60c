/** @file
 * The board's allocator for the region that the port provides: constant time, good fit, free neighbours are
 * joined immediately.
 *
 * It is a two-level segregated fit (M. Masmano, I. Ripoll, A. Crespo, J. Real, "TLSF: a new dynamic memory
 * allocator for real-time systems", ECRTS 2004). Free blocks are in bins by size, in doubly linked lists.
 * Level 0 has a bin for every size, each further level has 16 bins for one power of two. Bit maps, one of the
 * levels and one of each level's bins, show which of them are used, so the first bin with large enough blocks
 * is found by counting zeros.
 *
 * The free block that was split or joined last is loose: it is in no bin, and only the heap knows where it
 * is. A document is built by splitting many small blocks off one block, and freed by joining them again, so
 * that most steps only move an end of the loose block.
 *
 * A block is its header, one word, and the memory that the caller gets. A free block in a bin stores its
 * links in that memory and its own address in its last word, where the next block finds it.
 */
#include "board_memory.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zet_integration.h"

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#define UNDER_ADDRESS_SANITIZER __has_feature(address_sanitizer)
#else
#define UNDER_ADDRESS_SANITIZER 0
#endif

#if UNDER_ADDRESS_SANITIZER
// Provided by the compiler's run-time library.
extern "C" void __asan_poison_memory_region(const volatile void *address, size_t size);
extern "C" void __asan_unpoison_memory_region(const volatile void *address, size_t size);
#endif

/** For functions that access memory that is not allocated: only the allocator may do so. */
#define MAY_TOUCH_POISON [[gnu::no_sanitize_address]]

namespace
{

/** A part of the region, from one header to the next. */
struct block_t
{
    size_t header;  /**< the size, a multiple of the alignment; of a block in use with flags */
    block_t *next;  /**< when in a bin: the next block in it */
    block_t **link; /**< when in a bin: the pointer to this block, in the bin or in the previous block */
};

constexpr size_t alignment = alignof(std::max_align_t);
constexpr size_t header_size = sizeof(block_t::header);
constexpr size_t pointer_size = sizeof(void *);
constexpr size_t smallest_block = sizeof(block_t) + pointer_size;
static_assert(offsetof(block_t, next) == header_size && smallest_block % alignment == 0);

constexpr size_t in_use = 1;
constexpr size_t previous_is_free = 2; /**< means nothing behind the loose block */
constexpr size_t is_kept = 4;          /**< allocated before memory_keep */
constexpr size_t all_flags = alignment - 1;

/** Number of bins for one power of two. */
constexpr size_t divisions = 16;

/** The bin of a free block. */
struct bin_t
{
    size_t level;
    size_t number; /**< within the level: 0 to 31 on level 0, 16 to 31 on the others */

    [[nodiscard]] constexpr size_t index() const
    {
        return level * divisions + number;
    }
};

/** Returns the bin for free blocks of a size. */
constexpr bin_t bin_of(size_t size)
{
    const size_t units = size / alignment;
    const auto level = static_cast<size_t>(std::bit_width(units | divisions) - std::bit_width(divisions));
    return {level, units >> level};
}

constexpr size_t level_count = bin_of(SIZE_MAX).level + 1;
constexpr size_t level_0_end = 2 * divisions * alignment;

/** One bit per level, or per bin of a level; the first one is the highest bit. */
using bit_map_t = size_t;
constexpr size_t map_bits = 8 * sizeof(bit_map_t);
static_assert(level_count <= map_bits && 2 * divisions <= map_bits);

/** Returns a map with all bits from a place on. */
constexpr bit_map_t bits_from(size_t place)
{
    return SIZE_MAX >> place;
}

constexpr bit_map_t bits_after(size_t place)
{
    return (SIZE_MAX >> 1) >> place;
}

constexpr bit_map_t bit_at(size_t place)
{
    return (SIZE_MAX ^ (SIZE_MAX >> 1)) >> place;
}

constexpr size_t first_place(bit_map_t map)
{
    return static_cast<size_t>(std::countl_zero(map));
}

constexpr size_t last_place(bit_map_t map)
{
    return map_bits - 1 - static_cast<size_t>(std::countr_zero(map));
}

constexpr size_t round_up(size_t value, size_t unit)
{
    return (value + unit - 1) / unit * unit;
}

struct heap_t
{
    void *region;
    block_t **bins;     /**< at the start of the region, as many as a region of this size needs */
    block_t *loose;     /**< the free block that is not in a bin; null when all are in bins */
    block_t *loose_end; /**< the block behind it, which is in use, as is the one before it; or null */
    bool is_open;       /**< whether small blocks are split off the loose block */
    block_t *aside;     /**< the block that was loose before; marked as free, but not in a bin; or null */
    bit_map_t used_levels;
    bit_map_t used_bins[level_count];
    size_t size;       /**< of the region */
    size_t live;       /**< in use now */
    size_t peak;       /**< highest value of live */
    uint32_t failures; /**< number of requests that have failed */
    block_t *first;    /**< the first block; null without memory */
};

heap_t heap;

void poison([[maybe_unused]] const void *memory, [[maybe_unused]] size_t size)
{
#if UNDER_ADDRESS_SANITIZER
    __asan_poison_memory_region(memory, size);
#endif
}

void unpoison([[maybe_unused]] const void *memory, [[maybe_unused]] size_t size)
{
#if UNDER_ADDRESS_SANITIZER
    __asan_unpoison_memory_region(memory, size);
#endif
}

/** Makes the sanitizer report memory that was already freed. */
void expect_allocated([[maybe_unused]] const void *memory)
{
#if UNDER_ADDRESS_SANITIZER
    static_cast<void>(*static_cast<const volatile unsigned char *>(memory));
#endif
}

MAY_TOUCH_POISON size_t size_of(const block_t *any)
{
    return any->header & ~all_flags;
}

block_t *block_at(block_t *from, size_t distance)
{
    return reinterpret_cast<block_t *>(reinterpret_cast<unsigned char *>(from) + distance);
}

/** Returns the number of bytes from one block to another. */
size_t distance(const block_t *from, const block_t *to)
{
    return static_cast<size_t>(reinterpret_cast<const unsigned char *>(to) -
                               reinterpret_cast<const unsigned char *>(from));
}

/** Returns the last word of the previous block, where a free block stores its address. */
block_t *&block_before(block_t *any)
{
    return *(reinterpret_cast<block_t **>(any) - 1);
}

/** Puts a free block into the bin for its size. */
MAY_TOUCH_POISON void put_into_bin(block_t *freed)
{
    const bin_t bin = bin_of(freed->header);
    heap.used_levels |= bit_at(bin.level);
    heap.used_bins[bin.level] |= bit_at(bin.number);
    block_t **link = &heap.bins[bin.index()];
    freed->link = link;
    freed->next = *link;
    if (freed->next != nullptr)
    {
        freed->next->link = &freed->next;
    }
    *link = freed;
}

/** Removes a free block from its bin. */
MAY_TOUCH_POISON void remove_from_bin(const block_t *freed)
{
    *freed->link = freed->next;
    if (freed->next != nullptr)
    {
        freed->next->link = freed->link;
        return;
    }
    const bin_t bin = bin_of(freed->header);
    if (heap.bins[bin.index()] == nullptr)
    {
        heap.used_bins[bin.level] &= ~bit_at(bin.number);
        if (heap.used_bins[bin.level] == 0U)
        {
            heap.used_levels &= ~bit_at(bin.level);
        }
    }
}

/** Makes a part of the region a free block. */
MAY_TOUCH_POISON void mark_free(block_t *freed, size_t size)
{
    block_t *following = block_at(freed, size);
    freed->header = size;
    block_before(following) = freed;
    following->header |= previous_is_free;
}

/** Puts the block that was set aside into its bin. */
void put_aside_into_bin()
{
    if (heap.aside != nullptr)
    {
        put_into_bin(heap.aside);
        heap.aside = nullptr;
    }
}

/** Sets the loose block aside: a document is freed level by level, and its blocks are often joined again. */
MAY_TOUCH_POISON void set_loose_aside()
{
    if (heap.loose != nullptr)
    {
        put_aside_into_bin();
        mark_free(heap.loose, distance(heap.loose, heap.loose_end));
        heap.aside = heap.loose;
        heap.loose = nullptr;
        heap.loose_end = nullptr;
        heap.is_open = false;
    }
}

/** Puts all free blocks into bins. */
void settle()
{
    set_loose_aside();
    put_aside_into_bin();
}

/** Removes a free block from its bin, or from being set aside. */
MAY_TOUCH_POISON void detach(const block_t *freed)
{
    if (freed == heap.aside)
    {
        heap.aside = nullptr;
    }
    else
    {
        remove_from_bin(freed);
    }
}

/** Returns the first block in the given bins of a level or, if they are empty, of a later level; or null. */
MAY_TOUCH_POISON block_t *first_in_bins(size_t level, bit_map_t bins)
{
    bit_map_t used = heap.used_bins[level] & bins;
    if (used == 0U)
    {
        const bit_map_t used_levels = heap.used_levels & bits_after(level);
        if (used_levels == 0U)
        {
            return nullptr;
        }
        level = first_place(used_levels);
        used = heap.used_bins[level];
    }
    return heap.bins[bin_t{level, first_place(used)}.index()];
}

/** Makes a free block of at least a size the loose one; false when there is none. */
MAY_TOUCH_POISON bool take_from_bins(size_t size)
{
    settle();
    const bin_t bin = bin_of(size);
    block_t *taken = first_in_bins(bin.level, bits_from(bin.number));
    if (taken != nullptr && taken->header < size)
    {
        // It is in the bin of the size itself; all blocks in later bins are large enough.
        taken = first_in_bins(bin.level, bits_after(bin.number));
    }
    if (taken == nullptr)
    {
        return false;
    }
    remove_from_bin(taken);
    heap.loose = taken;
    heap.loose_end = block_at(taken, taken->header);
    return true;
}

/** Returns whether a block is to be split off the loose one: no bin of level 0 has a better fit. */
MAY_TOUCH_POISON bool is_for_open_block(size_t size)
{
    return size < level_0_end && (heap.used_bins[0] & bits_from(size / alignment)) == 0U && heap.is_open &&
           distance(heap.loose, heap.loose_end) >= size;
}

/** Splits a block off the loose one. */
[[gnu::always_inline]] MAY_TOUCH_POISON inline void *split(size_t size)
{
    block_t *const taken = heap.loose;
    const size_t rest = distance(taken, heap.loose_end) - size;
    if (rest >= smallest_block)
    {
        heap.loose = block_at(taken, size);
    }
    else
    {
        size += rest;
        heap.loose_end->header &= ~previous_is_free;
        heap.loose = nullptr;
        heap.loose_end = nullptr;
        heap.is_open = false;
    }
    taken->header = size | in_use;
    heap.live += size;
    heap.peak = std::max(heap.peak, heap.live);
    return &taken->next;
}

/** Allocates a block that is not split off the open one. */
[[gnu::noinline]] MAY_TOUCH_POISON void *allocate_from_bins(size_t size)
{
    if (!take_from_bins(size))
    {
        ++heap.failures;
        return nullptr;
    }
    heap.is_open = size < level_0_end;
    return split(size);
}

/** Joins a free block with its free neighbours; the result is the loose block. */
[[gnu::noinline]] MAY_TOUCH_POISON void join(block_t *freed, block_t *end)
{
    block_t *start = freed;
    if (freed == heap.loose_end)
    {
        start = heap.loose;
    }
    else if (end != heap.loose)
    {
        set_loose_aside();
    }
    if (end == heap.loose)
    {
        end = heap.loose_end;
    }
    else if ((end->header & in_use) == 0U)
    {
        detach(end);
        end = block_at(end, end->header);
    }
    if (start == freed && (freed->header & previous_is_free) != 0U)
    {
        start = block_before(freed);
        detach(start);
    }
    heap.loose = start;
    heap.loose_end = end;
}

/** Frees a block and joins it with its free neighbours. */
MAY_TOUCH_POISON void free_block(block_t *freed)
{
    const size_t size = size_of(freed);
    heap.live -= size;
    poison(&freed->next, size - header_size);

    block_t *const end = block_at(freed, size);
    if (freed == heap.loose_end && (end->header & in_use) != 0U)
    {
        heap.loose_end = end;
    }
    else if (end == heap.loose && (freed->header & previous_is_free) == 0U)
    {
        heap.loose = freed;
    }
    else
    {
        join(freed, end);
    }
}

/** Returns the largest request that would succeed now. */
MAY_TOUCH_POISON size_t largest_free()
{
    settle();
    if (heap.used_levels == 0U)
    {
        return 0;
    }
    const size_t level = last_place(heap.used_levels);
    const size_t number = last_place(heap.used_bins[level]);
    return heap.bins[bin_t{level, number}.index()]->header - header_size;
}

} // namespace

MAY_TOUCH_POISON void *zet_integration_mem_alloc(size_t size)
{
    constexpr size_t largest = SIZE_MAX - header_size - all_flags;
    const size_t block_size =
        size <= largest ? std::max(round_up(size + header_size, alignment), smallest_block) : SIZE_MAX;
    void *const memory = is_for_open_block(block_size) ? split(block_size) : allocate_from_bins(block_size);
    if (memory != nullptr)
    {
        unpoison(memory, std::max(size, size_t{1}));
    }
    return memory;
}

// Not inlined in memory_recover, because two copies would be larger and slower.
[[gnu::noinline]] void zet_integration_mem_free(void *ptr)
{
    if (ptr != nullptr)
    {
        expect_allocated(ptr);
        free_block(reinterpret_cast<block_t *>(static_cast<size_t *>(ptr) - 1));
    }
}

MAY_TOUCH_POISON void memory_lend(void *region, size_t size)
{
    unpoison(heap.region, heap.size);
    heap = {};
    heap.region = region;
    heap.size = size;

    // Offsets from the start; the memory of the first block and of the end mark is aligned.
    const auto start = reinterpret_cast<uintptr_t>(region);
    const size_t bins_size = (bin_of(size).index() + 1U) * pointer_size;
    const size_t bins = round_up(start, pointer_size) - start;
    const size_t first = round_up(start + bins + bins_size + header_size, alignment) - start;
    const size_t behind_last = (start + size) % alignment;
    if (size < first + smallest_block + behind_last)
    {
        return;
    }
    unpoison(region, size);
    auto *bytes = static_cast<unsigned char *>(region);
    std::memset(bytes + bins, 0, bins_size);
    heap.bins = reinterpret_cast<block_t **>(bytes + bins);
    auto *all = reinterpret_cast<block_t *>(bytes + first - header_size);
    const size_t all_size = size - behind_last - first;
    block_at(all, all_size)->header = in_use;
    heap.first = all;
    mark_free(all, all_size);
    put_into_bin(all);
    poison(region, size);
}

MAY_TOUCH_POISON void memory_keep()
{
    settle();
    // The end mark has the size 0.
    for (block_t *block = heap.first; block != nullptr && size_of(block) > 0;
         block = block_at(block, size_of(block)))
    {
        block->header |= (block->header & in_use) != 0U ? is_kept : 0U;
    }
}

MAY_TOUCH_POISON size_t memory_recover()
{
    settle();
    const size_t live = heap.live;
    block_t *following = nullptr;
    for (block_t *block = heap.first; block != nullptr && size_of(block) > 0; block = following)
    {
        following = block_at(block, size_of(block));
        if ((block->header & (in_use | is_kept)) == in_use)
        {
            // Freeing joins the block with a free one behind it.
            const bool joins = (following->header & in_use) == 0U;
            following = joins ? block_at(following, size_of(following)) : following;
            zet_integration_mem_free(&block->next);
        }
    }
    return live - heap.live;
}

MAY_TOUCH_POISON void memory_get(zet_vantor_server_memory_t *memory)
{
    if (memory == nullptr)
    {
        return;
    }
    memory->size = static_cast<uint32_t>(heap.size);
    memory->live = static_cast<uint32_t>(heap.live);
    memory->peak = static_cast<uint32_t>(heap.peak);
    memory->largest_free = static_cast<uint32_t>(largest_free());
    memory->failures = heap.failures;
}
