/** @file
 * Which boards `vantor record` records, from its options.
 */
#ifndef VANTOR_RECORDED_BOARDS_H
#define VANTOR_RECORDED_BOARDS_H

#include <memory>
#include <vector>

#include "commands/board_recording.h"
#include "commands/command.h"
#include "commands/record.h"
#include "vantor/event_loop.h"
#include "vantor/truth_file.h"

namespace vantor
{

/** Boards, and the truth of those that are simulated. */
struct board_list
{
    std::vector<board_source> boards;
    std::vector<std::unique_ptr<truth_file>> truths; /**< to which the boards refer */
};

/**
 * Reads the options `--connect` and `--board`, and the configurations.
 *
 * @param streams  where faults of configurations are printed
 * @param loop     of the links
 * @return at least one board; a private simulated server if none is given
 * @throws usage_error, address_error, configuration_error
 */
board_list list_boards(const record_options &options, const command_streams &streams,
                       const std::shared_ptr<event_loop> &loop);

/**
 * Reads and checks a configuration document, and adds the calibrations.
 *
 * @param file  its path; empty for a replayed recording, which has its own
 * @return the document; null if there is none
 */
nlohmann::json read_configuration(const std::filesystem::path &file, const record_options &options,
                                  const command_streams &streams);

} // namespace vantor

#endif
