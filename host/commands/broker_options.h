/** @file
 * Options of commands that use a message broker.
 */
#ifndef VANTOR_BROKER_OPTIONS_H
#define VANTOR_BROKER_OPTIONS_H

#include <vector>

#include "bridge/broker.h"
#include "commands/command.h"

namespace vantor
{

/** The options that prove to each other who broker and program are. */
std::vector<command_option> security_options(broker_security &target);

/**
 * Checks the options above.
 *
 * @throws usage_error if a certificate is given without its key, the other way round, or without TLS
 */
void require_complete(const broker_security &given);

} // namespace vantor

#endif
