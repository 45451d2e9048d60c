/** @file
 * Options that several commands have.
 */
#include "commands/common_options.h"

namespace vantor
{

void add_connect_option(CLI::App &command, std::string &where)
{
    command
        .add_option("--connect", where,
                    "The server: tcp:HOST:PORT, serial:DEVICE@BAUD, or sim: for a simulated one of its own")
        ->type_name("WHERE")
        ->capture_default_str();
}

void add_json_flag(CLI::App &command, bool &json)
{
    command.add_flag("--json", json, "Print JSON, for programs");
}

void add_recording_argument(CLI::App &command, std::filesystem::path &recording)
{
    command.add_option("RECORDING", recording, "Directory that \"vantor record\" wrote")
        ->required()
        ->type_name("");
}

} // namespace vantor
