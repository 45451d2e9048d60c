/** @file
 * Shows servers, for `vantor view`.
 */
#ifndef VANTOR_VIEW_BOARDS_H
#define VANTOR_VIEW_BOARDS_H

#include "commands/command.h"
#include "commands/view_run.h"

namespace vantor
{

/**
 * Shows one or several servers until the user asks to stop. One that is lost does not end the others.
 *
 * @throws usage_error, configuration_error and the exceptions of the client if a server cannot be shown at
 * all
 * @throws recording_error if a recording from the start cannot be created
 */
exit_code view_boards(const view_options &options, const command_streams &streams);

} // namespace vantor

#endif
