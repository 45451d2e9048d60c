/** @file
 * Suggests what to do after a command.
 */
#ifndef VANTOR_NEXT_COMMAND_H
#define VANTOR_NEXT_COMMAND_H

#include <filesystem>
#include <string>

#include "commands/command.h"

namespace vantor
{

/** A text as a word of a shell command, to be printed: in quotes if necessary. */
std::string shell_word(const std::string &word);

/**
 * Prints the command that usually follows, if a person is watching.
 *
 * @param command  such as "vantor record"
 * @param file     its argument; quoted for a shell if necessary
 * @param connect  the address of its server; empty if it needs none
 */
void suggest(const command_streams &streams, const std::string &command, const std::filesystem::path &file,
             const std::string &connect = {});

} // namespace vantor

#endif
