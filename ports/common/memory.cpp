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
 * that most steps only move an end of the loose block. A document is freed level by level: a few blocks that
 * were loose before wait in a list, because they are often joined again before they are needed. They are put
 * into bins before the next block is chosen.
 *
 * A few small blocks are tagged when they are allocated: once freed, they are kept in quick lists, for the
 * next request of their size, and their neighbours see them as in use. So the documents of a session always
 * get the same blocks. The quick lists are released, and all tags lose their meaning, before a large request
 * is served, before one fails, and before more would be in use than ever, because kept blocks are not in use.
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
constexpr size_t is_kept = 4;          /**< of a block in use: allocated before memory_keep */
constexpr size_t is_recent = 4;        /**< of a free block: in the list of recent blocks, not in a bin */
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

/** Most blocks in the list of recent blocks, which are put into bins all at once. */
constexpr size_t most_recent = 16;

/** Most blocks that are in quick lists or get there when they are freed; the lists are released together. */
constexpr size_t most_quick = 32;

/** Largest size of a block in a quick list. */
constexpr size_t largest_quick = 8 * alignment;

/** Bits of the header of a tagged block that are not part of the tag. */
constexpr size_t untagged = std::bit_ceil(largest_quick + 1) - 1;

/** The tag of the blocks that get into quick lists: this bit, and above `untagged` how often the lists were
 * released. When all tags were used, no block is tagged any more. */
constexpr size_t is_tagged = SIZE_MAX - SIZE_MAX / 2;

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
    block_t *quick[largest_quick / alignment + 1]; /**< lists of kept blocks, by size */
    size_t quick_tag;   /**< of the blocks that get into the lists; 0 when all tags were used */
    size_t quick_count; /**< number of blocks with this tag, in use or in a list */
    block_t *loose;     /**< the free block that is not in a bin; null when all are in bins */
    uintptr_t limit;    /**< how far it may be split without a check for anything else; 0: not at all */
    size_t least_split; /**< with a limit: smaller blocks may fit into a bin of level 0 */
    block_t *loose_end; /**< the block behind the loose one, in use, as is the one before it; or null */
    block_t *recent;    /**< the blocks that were loose before; marked as free, but not in bins */
    size_t recent_count;
    bool is_open;   /**< small blocks are split off the loose block if there are no recent ones */
    size_t taken;   /**< in use or loose now */
    size_t peak;    /**< highest number of bytes in use */
    block_t **bins; /**< at the start of the region, as many as a region of this size needs */
    bit_map_t used_levels;
    bit_map_t *used_bins; /**< for each level of the region's bins, behind them */
    void *region;
    size_t size;       /**< of the region */
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
    return any->header & ((any->header & is_tagged) != 0U ? untagged : SIZE_MAX) & ~all_flags;
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

/** Returns the number of bytes in use. */
size_t live()
{
    return heap.taken - distance(heap.loose, heap.loose_end);
}

/** Adds a free block to a list. */
MAY_TOUCH_POISON void put_into_list(block_t *freed, block_t **link)
{
    freed->link = link;
    freed->next = *link;
    if (freed->next != nullptr)
    {
        freed->next->link = &freed->next;
    }
    *link = freed;
}

/** Puts a free block into the bin for its size. */
MAY_TOUCH_POISON void put_into_bin(block_t *freed)
{
    const bin_t bin = bin_of(freed->header);
    heap.used_levels |= bit_at(bin.level);
    heap.used_bins[bin.level] |= bit_at(bin.number);
    put_into_list(freed, &heap.bins[bin.index()]);
}

/** Removes a free block from its bin, or from the recent ones. Returns the block behind it. */
MAY_TOUCH_POISON block_t *detach(block_t *freed)
{
    const size_t size = size_of(freed);
    heap.taken += size;
    *freed->link = freed->next;
    if (freed->next != nullptr)
    {
        freed->next->link = freed->link;
    }
    const bin_t bin = bin_of(size);
    if ((freed->header & is_recent) != 0U)
    {
        --heap.recent_count;
    }
    else if (heap.bins[bin.index()] == nullptr)
    {
        heap.used_bins[bin.level] &= ~bit_at(bin.number);
        if (heap.used_bins[bin.level] == 0U)
        {
            heap.used_levels &= ~bit_at(bin.level);
        }
    }
    return block_at(freed, size);
}

/** Makes a part of the region a free block. */
MAY_TOUCH_POISON void mark_free(block_t *freed, block_t *following)
{
    freed->header = distance(freed, following);
    block_before(following) = freed;
    following->header |= previous_is_free;
}

/** Puts the recent blocks into bins. */
[[gnu::noinline]] MAY_TOUCH_POISON void put_recent_into_bins()
{
    heap.is_open = false;
    heap.recent_count = 0;
    while (heap.recent != nullptr)
    {
        block_t *const freed = heap.recent;
        heap.recent = freed->next;
        freed->header &= ~is_recent;
        put_into_bin(freed);
    }
}

/** Adds the loose block to the recent ones. */
MAY_TOUCH_POISON void set_loose_aside()
{
    block_t *const freed = heap.loose;
    if (freed == nullptr)
    {
        return;
    }
    if (heap.recent_count == most_recent)
    {
        put_recent_into_bins();
    }
    ++heap.recent_count;
    mark_free(freed, heap.loose_end);
    heap.taken -= freed->header;
    freed->header |= is_recent;
    put_into_list(freed, &heap.recent);
    heap.loose = nullptr;
    heap.loose_end = nullptr;
    heap.limit = 0;
}

/** Puts all free blocks into bins. */
void settle()
{
    set_loose_aside();
    put_recent_into_bins();
}

/** Returns the first block in the given bins of a level or, if they are empty, of a later level; or null. */
MAY_TOUCH_POISON block_t *first_in_bins(size_t level, bit_map_t bins)
{
    const bit_map_t used_here = (heap.used_levels & bit_at(level)) != 0U ? heap.used_bins[level] & bins : 0U;
    if (used_here != 0U)
    {
        return heap.bins[bin_t{level, first_place(used_here)}.index()];
    }
    const bit_map_t used_levels = heap.used_levels & bits_after(level);
    if (used_levels == 0U)
    {
        return nullptr;
    }
    const size_t used_level = first_place(used_levels);
    return heap.bins[bin_t{used_level, first_place(heap.used_bins[used_level])}.index()];
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
    heap.loose_end = detach(taken);
    heap.loose = taken;
    return true;
}

/** Returns the smallest size for which no bin of level 0 has a block. */
MAY_TOUCH_POISON size_t least_without_small_hole()
{
    return heap.used_bins[0] != 0U ? (last_place(heap.used_bins[0]) + 1) * alignment : 0;
}

/** Returns whether a block is to be split off the loose one: no bin of level 0 has a better fit. */
MAY_TOUCH_POISON bool is_for_open_block(size_t size)
{
    return heap.is_open && size < level_0_end && size >= least_without_small_hole() &&
           heap.recent == nullptr && distance(heap.loose, heap.loose_end) >= size;
}

/** Lets small blocks be split off the open block until it is too small, or more is in use than ever. */
void set_limit()
{
    const size_t room = distance(heap.loose, heap.loose_end) - smallest_block;
    heap.limit = reinterpret_cast<uintptr_t>(heap.loose) + std::min(room, heap.peak - live());
    heap.least_split = least_without_small_hole();
}

/** Splits a block off the loose one. */
MAY_TOUCH_POISON void split(size_t size)
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
        heap.limit = 0;
        heap.is_open = false;
    }
    taken->header = size | in_use;
    heap.peak = std::max(heap.peak, live());
}

/** Joins a free block with its free neighbours, except in simple cases; the result is the loose block. */
[[gnu::noinline]] MAY_TOUCH_POISON void join_any(block_t *freed, block_t *end)
{
    if (freed == heap.loose_end)
    {
        heap.loose_end = detach(end);
        return;
    }
    if (end != heap.loose)
    {
        set_loose_aside();
        heap.loose_end = (end->header & in_use) == 0U ? detach(end) : end;
    }
    if ((freed->header & previous_is_free) != 0U)
    {
        freed = block_before(freed);
        detach(freed);
        heap.limit = 0;
    }
    heap.loose = freed;
}

/** Joins a free block with its free neighbours; the result is the loose block. */
MAY_TOUCH_POISON void join(block_t *freed)
{
    block_t *const end = block_at(freed, freed->header & ~all_flags);
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
        join_any(freed, end);
    }
}

/** Removes an old tag from a block, and frees it for any request. */
[[gnu::noinline]] MAY_TOUCH_POISON void release(block_t *freed)
{
    freed->header &= (freed->header & is_tagged) != 0U ? untagged : SIZE_MAX;
    join(freed);
}

/** Frees the blocks in the quick lists; returns whether there were any. */
MAY_TOUCH_POISON bool release_quick()
{
    bool any = false;
    if (heap.quick_count > 0)
    {
        heap.quick_count = 0;
        heap.quick_tag += heap.quick_tag != 0U ? untagged + 1 : 0U;
        for (block_t *&list : heap.quick)
        {
            while (list != nullptr)
            {
                block_t *const freed = list;
                list = freed->next;
                release(freed);
                any = true;
            }
        }
    }
    return any;
}

/** Frees a block with its neighbours in the quick lists: later requests may need all of its surroundings. */
[[gnu::noinline]] MAY_TOUCH_POISON void free_large(block_t *freed)
{
    release_quick();
    release(freed);
}

/** Allocates a block after a check of everything. */
[[gnu::noinline]] MAY_TOUCH_POISON void *allocate_with_checks(size_t size)
{
    // Kept blocks must not make other requests fail, or be counted as in use when more is in use than ever.
    if (size > largest_quick || live() + size + smallest_block > heap.peak)
    {
        release_quick();
    }
    if (!is_for_open_block(size))
    {
        if (!take_from_bins(size) && !(release_quick() && take_from_bins(size)))
        {
            ++heap.failures;
            return nullptr;
        }
        heap.is_open = size < level_0_end;
    }
    block_t *const taken = heap.loose;
    split(size);
    if (size_of(taken) <= largest_quick && heap.quick_count < most_quick)
    {
        ++heap.quick_count;
        taken->header |= heap.quick_tag;
    }
    else if (heap.is_open && heap.quick_count == most_quick)
    {
        set_limit();
    }
    return &taken->next;
}

/** Allocates a block of at most largest_quick. */
MAY_TOUCH_POISON void *allocate_quick(size_t size)
{
    block_t *&list = heap.quick[size / alignment];
    block_t *const quick = list;
    if (quick != nullptr)
    {
        list = quick->next;
        return &quick->next;
    }
    // The limit makes most steps of building a large document short.
    block_t *const taken = heap.loose;
    if (size < heap.least_split || reinterpret_cast<uintptr_t>(taken) + size > heap.limit)
    {
        return allocate_with_checks(size);
    }
    heap.loose = block_at(taken, size);
    taken->header = size | in_use;
    return &taken->next;
}

/** Frees a block. */
MAY_TOUCH_POISON void free_block(block_t *freed)
{
    poison(&freed->next, size_of(freed) - header_size);
    if ((freed->header & is_tagged) == 0U)
    {
        if (freed->header > largest_quick + all_flags)
        {
            free_large(freed);
        }
        else
        {
            join(freed);
        }
        return;
    }
    const size_t header = freed->header ^ heap.quick_tag;
    if (header > untagged)
    {
        release(freed);
        return;
    }
    block_t *&list = heap.quick[header / alignment];
    freed->next = list;
    list = freed;
}

/** Returns the largest request that would succeed now. */
MAY_TOUCH_POISON size_t largest_free()
{
    release_quick();
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
    const size_t block_size = std::max(round_up(size + header_size, alignment), smallest_block);
    void *const memory = size <= largest_quick - header_size
                             ? allocate_quick(block_size)
                             : allocate_with_checks(size <= largest ? block_size : SIZE_MAX);
    if (memory != nullptr)
    {
        unpoison(memory, std::max(size, size_t{1}));
    }
    return memory;
}

void zet_integration_mem_free(void *ptr)
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
    heap.quick_tag = is_tagged;

    // Offsets from the start; the memory of the first block and of the end mark is aligned.
    const auto start = reinterpret_cast<uintptr_t>(region);
    const size_t bin_count = bin_of(size).index() + 1U;
    const size_t bins_size = (bin_count + bin_of(size).level + 1U) * pointer_size;
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
    heap.used_bins = reinterpret_cast<bit_map_t *>(heap.bins + bin_count);
    auto *all = reinterpret_cast<block_t *>(bytes + first - header_size);
    const size_t all_size = size - behind_last - first;
    block_at(all, all_size)->header = in_use;
    heap.first = all;
    mark_free(all, block_at(all, all_size));
    put_into_bin(all);
    poison(region, size);
}

MAY_TOUCH_POISON void memory_keep()
{
    release_quick();
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
    release_quick();
    settle();
    const size_t live_before = live();
    block_t *following = nullptr;
    for (block_t *block = heap.first; block != nullptr && size_of(block) > 0; block = following)
    {
        following = block_at(block, size_of(block));
        if ((block->header & (in_use | is_kept)) == in_use)
        {
            // Freeing joins the block with a free one behind it.
            const bool joins = (following->header & in_use) == 0U;
            following = joins ? block_at(following, size_of(following)) : following;
            poison(&block->next, size_of(block) - header_size);
            release(block);
        }
    }
    return live_before - live();
}

MAY_TOUCH_POISON void memory_get(zet_vantor_server_memory_t *memory)
{
    if (memory == nullptr)
    {
        return;
    }
    memory->largest_free = static_cast<uint32_t>(largest_free());
    memory->size = static_cast<uint32_t>(heap.size);
    memory->live = static_cast<uint32_t>(live());
    memory->peak = static_cast<uint32_t>(heap.peak);
    memory->failures = heap.failures;
}
