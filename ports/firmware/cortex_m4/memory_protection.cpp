/** @file
 * The memory protection unit.
 */
#include "memory_protection.h"

#include <bit>

#include "cortex_m4.h"

using cortex_m4::hardware_register;

extern "C" {

// From the linker script; the sizes are the symbols' addresses.
extern uint8_t flash_begin[];
extern uint8_t flash_size[];
extern uint8_t ram_begin[];
extern uint8_t ram_size[];
extern uint8_t null_guard_size[];
extern uint8_t stack_guard_begin[];
extern uint8_t stack_guard_size[];
}

namespace
{

constexpr uintptr_t control_register = 0xE000ED94U;
constexpr uintptr_t base_address_register = 0xE000ED9CU;
constexpr uintptr_t attribute_register = 0xE000EDA0U;

/** Rights to a region, as the attribute register takes them. */
enum rights_t : uint32_t
{
    no_access = 1U << 28U,
    read_execute = 6U << 24U | 2U << 16U,
    read_write = 1U << 28U | 3U << 24U | 6U << 16U,
    read_write_device = 1U << 28U | 3U << 24U | 5U << 16U,
};

/** Sets a region; of regions that overlap the one with the highest number counts. */
void set_region(uint32_t number, uintptr_t begin, uint32_t size, rights_t rights)
{
    const uint32_t log2_size = static_cast<uint32_t>(std::countr_zero(size));
    hardware_register(base_address_register) = begin | 1U << 4U | number;
    hardware_register(attribute_register) = rights | (log2_size - 1U) << 1U | 1U;
}

} // namespace

void cortex_m4::protect_memory()
{
    const auto address = [](const uint8_t *symbol) { return reinterpret_cast<uintptr_t>(symbol); };
    set_region(0, address(flash_begin), address(flash_size), read_execute);
    set_region(1, address(ram_begin), address(ram_size), read_write);
    set_region(2, 0x40000000U, 0x20000000U, read_write_device);
    set_region(3, 0, address(null_guard_size), no_access);
    set_region(4, address(stack_guard_begin), address(stack_guard_size), no_access);
    hardware_register(control_register) = 1U;
    __asm volatile("dsb\n\tisb" ::: "memory");
}
