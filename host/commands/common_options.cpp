/** @file
 * Options that several commands have.
 */
#include "commands/common_options.h"

#include <charconv>
#include <cmath>
#include <ostream>

#include <CLI/CLI.hpp>

#include "commands/text_table.h"

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

void print_json(std::ostream &out, const nlohmann::ordered_json &document)
{
    using on_error = nlohmann::ordered_json::error_handler_t;
    out << document.dump(2, ' ', false, on_error::replace) << "\n";
}

CLI::Validator finite_number(std::optional<double> bound)
{
    const std::string what = bound ? "a number above " + fixed(*bound, 0) : "a number";
    const auto check = [bound, what](const std::string &text) {
        double value = 0.0;
        const bool finite = CLI::detail::lexical_cast(text, value) && std::isfinite(value);
        return finite && (!bound || value > *bound) ? std::string() : text + " is not " + what;
    };
    return {check, ""};
}

CLI::Validator count_up_to(std::uint64_t bound)
{
    const auto check = [bound](const std::string &text) {
        std::uint64_t value = 0;
        const auto *const end = text.data() + text.size();
        const auto [stop, failure] = std::from_chars(text.data(), end, value);
        const bool fits = failure == std::errc{} && stop == end && value >= 1 && value <= bound;
        return fits ? std::string() : text + " is not a whole number from 1 to " + std::to_string(bound);
    };
    return {check, ""};
}

void add_recording_argument(CLI::App &command, std::filesystem::path &recording)
{
    command.add_option("RECORDING", recording, "Directory that \"vantor record\" wrote")
        ->required()
        ->type_name("");
}

} // namespace vantor
