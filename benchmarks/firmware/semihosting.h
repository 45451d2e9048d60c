/** @file
 * Writes to the emulator's console and ends the emulator.
 */
#ifndef VANTOR_SEMIHOSTING_H
#define VANTOR_SEMIHOSTING_H

/** Writes a text to the emulator's standard output. */
void console_write(const char *text);

/** Ends the emulator with an exit code. */
[[noreturn]] void console_exit(int code);

#endif
