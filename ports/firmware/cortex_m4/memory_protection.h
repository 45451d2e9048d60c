/** @file
 * The memory protection unit: faults where a mistake would go unseen.
 */
#ifndef VANTOR_CORTEX_M4_MEMORY_PROTECTION_H
#define VANTOR_CORTEX_M4_MEMORY_PROTECTION_H

namespace cortex_m4
{

/**
 * Makes every access fault that is none of these: reading and executing the flash, reading and writing the
 * RAM, reading and writing the devices. Accesses near address 0, as through a null pointer, and below the end
 * of the program's stack fault, too.
 */
void protect_memory();

} // namespace cortex_m4

#endif
