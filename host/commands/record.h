/** @file
 * `vantor record`: from a configuration document to a recording.
 */
#ifndef VANTOR_RECORD_H
#define VANTOR_RECORD_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "commands/command.h"
#include "vantor/client.h"
#include "vantor/time_source.h"

namespace vantor
{

/** What is to be recorded, from where, for how long and into what. */
struct record_options
{
    std::filesystem::path configuration;
    std::string connect = "sim:";
    std::filesystem::path output;      /**< a new directory; empty for one in "recordings" */
    uint64_t frames = 0;               /**< 0 for no such bound */
    std::optional<double> seconds;     /**< nothing for no such bound */
    std::filesystem::path calibration; /**< a file of calibrations to use; empty for none */
    bool json = false;                 /**< print JSON instead of a table */
};

/**
 * Records a session and prints what the recording contains.
 *
 * @return success, or interrupted
 * @throws configuration_error, recording_error and the exceptions of the client; a recording that was begun
 * is intact nevertheless
 */
exit_code record(const record_options &options, const command_streams &streams);

/**
 * The same over links that the caller opens, instead of those to record_options::connect.
 *
 * @param open_links  opens the link to the server
 * @param now         the clock by which the links wait
 */
exit_code record(const record_options &options, const command_streams &streams,
                 const client::link_factory &open_links, const time_source &now);

/** The command. */
command record_command();

} // namespace vantor

#endif
