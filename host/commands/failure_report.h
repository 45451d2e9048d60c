/** @file
 * Reports why a command failed.
 */
#ifndef VANTOR_FAILURE_REPORT_H
#define VANTOR_FAILURE_REPORT_H

#include <exception>
#include <iosfwd>
#include <string>

#include "commands/exit_code.h"

namespace vantor
{

/**
 * Prints the message of an exception.
 *
 * @param failure  the exception
 * @param about    what it is about, such as the name of a board; empty for the whole command
 * @return its exit code
 */
exit_code report_failure(std::ostream &err, const std::exception_ptr &failure, const std::string &about = {});

/** The message of an exception. */
std::string message_of(const std::exception_ptr &failure);

} // namespace vantor

#endif
