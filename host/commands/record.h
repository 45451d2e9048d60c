/** @file
 * `vantor record`: configures a server and records its frames.
 */
#ifndef VANTOR_RECORD_H
#define VANTOR_RECORD_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/board_arguments.h"
#include "commands/command.h"
#include "vantor/client.h"
#include "vantor/event_loop.h"
#include "vantor/truth_file.h"

namespace vantor
{

/** The options of `vantor record`. */
struct record_options
{
    std::filesystem::path configuration; /**< of the servers in connect; empty for replayed recordings */
    std::vector<std::string> connect;    /**< addresses; default_address if these and boards are empty */
    std::vector<std::string> boards;     /**< others, each with a configuration: CONFIG=ADDRESS */
    std::filesystem::path output;        /**< a new directory; empty for one in "recordings" */
    uint64_t frames = 0;                 /**< of each board; 0 for no limit */
    std::optional<double> seconds;       /**< no value for no limit */
    std::filesystem::path calibration;   /**< calibration file; empty for none */
    bool no_validate = false;            /**< do not check the configuration first */
    bool recalibrate = false;            /**< go on in a new segment when a sensor asks for a calibration */
    bool reconnect = false;              /**< go on in a new segment when the link was lost */
    uint64_t queue_megabytes = 64;       /**< of frames that can wait for the disk */
    std::filesystem::path truth;         /**< file that the server writes; empty for none */
    bool json = false;                   /**< print JSON instead of a table */
};

/** The directory for a recording: the one that is given, or a new one in "recordings". */
std::filesystem::path output_directory(const record_options &options);

/**
 * Records the sessions of one or several boards, and prints a summary.
 *
 * @return success, or interrupted; with several boards, also that of the first failure, which is printed
 * @throws usage_error, configuration_error, recording_error and the exceptions of the client; everything
 *         recorded before the exception is intact
 */
exit_code record(const record_options &options, const command_streams &streams);

/**
 * Like the function above for one board, over links that the caller opens.
 *
 * @param open_links  opens a link to the server
 * @param loop        the event loop of the links
 * @param truth       the truth of the server; null if there is none
 */
exit_code record(const record_options &options, const command_streams &streams,
                 const client::link_factory &open_links, const std::shared_ptr<event_loop> &loop,
                 truth_file *truth = nullptr);

/** The command. */
command record_command();

} // namespace vantor

#endif
