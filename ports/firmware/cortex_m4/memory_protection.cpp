/** @file
 * The memory protection unit.
 */
#include "memory_protection.h"

#include <initializer_list>

#include "board.h"
#include "cortex_m4.h"

using cortex_m4::hardware_register;
using cortex_m4::region_t;
using cortex_m4::rights_t;

extern "C" {

// From the linker script; the sizes are the symbols' addresses.
extern uint8_t flash_begin[];
extern uint8_t flash_size[];
extern uint8_t ram_begin[];
extern uint8_t ram_size[];
extern uint8_t heap_ram_begin[];
extern uint8_t heap_ram_size[];
extern uint8_t null_guard_size[];
extern uint8_t program_guard_begin[];
extern uint8_t interrupt_guard_begin[];
extern uint8_t stack_guard_size[];

/** Passes numbers of the board to the linker script, which checks them against the size of the heap. */
[[gnu::naked, gnu::used]] static void pass_numbers_to_linker()
{
    __asm volatile(".global board_max_values, board_tolerated_loss\n\t"
                   ".set board_max_values, %c0\n\t"
                   ".set board_tolerated_loss, %c1\n\t" ::"i"(BOARD_MAX_VALUES),
                   "i"(BOARD_TOLERATED_LOSS));
}
}

namespace
{

constexpr uintptr_t control_register = 0xE000ED94U;
constexpr uintptr_t number_register = 0xE000ED98U;
constexpr uintptr_t base_address_register = 0xE000ED9CU;
constexpr uintptr_t attribute_register = 0xE000EDA0U;

constexpr uint32_t unit_regions = 8;

uint32_t address(const uint8_t *symbol)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(symbol));
}

region_t make_region(const char *name, uint32_t begin, uint32_t size, rights_t rights)
{
    return {name, begin, begin + size - 1U, rights};
}

region_t board_region(const board_area_t &area)
{
    return make_region(area.name, area.begin, area.size,
                       area.rights == BOARD_READ_ONLY ? rights_t::read : rights_t::read_write_devices);
}

bool heap_has_its_own_memory()
{
    return address(heap_ram_begin) != address(ram_begin);
}

/** The regions in the order of the unit: in an overlap the last one applies, so code is never writable. */
struct regions_t
{
    region_t regions[unit_regions];
    uint32_t open_count; /**< number of open regions, which come first; guards follow */
    uint32_t count;

    void add(const region_t &region)
    {
        regions[count++] = region;
    }
};

regions_t list_regions()
{
    regions_t list = {};
    for (const auto &area : board_areas)
    {
        if (area.size > 0)
        {
            list.add(board_region(area));
        }
    }
    list.add(make_region("memory", address(ram_begin), address(ram_size), rights_t::read_write));
    if (heap_has_its_own_memory())
    {
        list.add(make_region("heap", address(heap_ram_begin), address(heap_ram_size), rights_t::read_write));
    }
    list.add(make_region("code", address(flash_begin), address(flash_size), rights_t::read_execute));
    list.open_count = list.count;
    list.add(make_region("null", 0, address(null_guard_size), rights_t::none));
    for (const uint8_t *guard : {program_guard_begin, interrupt_guard_begin})
    {
        list.add(make_region("guard", address(guard), address(stack_guard_size), rights_t::none));
    }
    return list;
}

void set_region(uint32_t number, const region_t &region)
{
    const cortex_m4::unit_region_t unit = cortex_m4::cover(region.begin, region.last);
    hardware_register(base_address_register) = unit.begin | 1U << 4U | number;
    hardware_register(attribute_register) =
        static_cast<uint32_t>(region.rights) | unit.disabled_eighths << 8U | (unit.log2_size - 1U) << 1U | 1U;
}

} // namespace

void cortex_m4::protect_memory()
{
    const regions_t list = list_regions();
    hardware_register(control_register) = 0;
    for (uint32_t number = 0; number < unit_regions; ++number)
    {
        hardware_register(number_register) = number;
        hardware_register(attribute_register) = 0;
    }
    for (uint32_t number = 0; number < list.count; ++number)
    {
        set_region(number, list.regions[number]);
    }
    __asm volatile("dmb" ::: "memory");
    hardware_register(control_register) = 1U;
    __asm volatile("dsb\n\tisb" ::: "memory");
}

uint32_t cortex_m4::open_region_count()
{
    return list_regions().open_count;
}

region_t cortex_m4::open_region(uint32_t number)
{
    return covered(list_regions().regions[number]);
}
