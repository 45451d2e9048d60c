/** @file
 * Which boards `vantor record` records.
 */
#include "commands/recorded_boards.h"

#include <string>
#include <utility>
#include <variant>

#include "commands/board_arguments.h"
#include "commands/server_links.h"
#include "commands/truth_option.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "vantor/address.h"
#include "vantor/calibration_file.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

/** Rejects options that do not fit the boards. */
void check_options(const record_options &options, size_t boards)
{
    if (boards > 1 && !options.truth.empty())
    {
        throw usage_error("--truth is the file of one server, but " + std::to_string(boards) +
                          " boards are given: leave it out, which records the truth of sim: addresses, or "
                          "record each board with its own command");
    }
}

} // namespace

nlohmann::json read_configuration(const std::filesystem::path &file, const record_options &options,
                                  const command_streams &streams)
{
    nlohmann::json configuration;
    if (file.empty() && !options.calibration.empty())
    {
        throw usage_error("--calibration needs a CONFIG: a replay does not calibrate.");
    }
    if (!file.empty())
    {
        configuration = load_configuration(file);
        if (!options.no_validate)
        {
            require_valid(configuration, file, streams.err, no_validate_advice);
        }
    }
    if (!options.calibration.empty())
    {
        add_calibrations(configuration, options.calibration);
    }
    return configuration;
}

board_list list_boards(const record_options &options, const command_streams &streams,
                       const std::shared_ptr<event_loop> &loop)
{
    const auto given = board_arguments(options.configuration, options.connect, options.boards);
    check_options(options, given.size());
    board_list list;
    for (const auto &board : given)
    {
        const auto where = parse_address(board.address);
        if (board.file.empty() && std::holds_alternative<simulator_address>(where))
        {
            throw usage_error(configuration_missing);
        }
        auto served = server_with_truth(where, options.truth);
        list.boards.push_back({.file = board.file,
                               .configuration = read_configuration(board.file, options, streams),
                               .address = board.address,
                               .open_links = links_to(served.where, loop, streams),
                               .truth = served.truth.get()});
        list.truths.push_back(std::move(served.truth));
    }
    return list;
}

} // namespace vantor
