/** @file
 * Prints what the host finds in many configuration documents. A test compares that with the Python package.
 *
 * Each document on the standard input is a line with its length in bytes, and then its text. Each line of the
 * output is a JSON object: "error" if the text is not a document, otherwise "faults" and, if there are none,
 * the "figures" of `vantor plan`, at 921,600 baud.
 */
#include <cstddef>
#include <iostream>
#include <string>

#include <nlohmann/json.hpp>

#include "commands/plan_report.h"
#include "commands/validation.h"
#include "vantor/configuration.h"
#include "vantor/configuration_check.h"
#include "vantor/plan.h"

namespace
{

/** Baud rate of the link that is assumed. */
constexpr double baudrate = 921600.0;

/** What the host finds in a text. */
nlohmann::ordered_json find_verdict(const std::string &text)
try
{
    const auto document = vantor::parse_json_text(text, "The text");
    const auto faults = vantor::find_faults(document, 10000);
    const bool valid = faults.count() == 0;
    return {{"faults", vantor::faults_json(faults.first())},
            {"figures", valid ? vantor::plan_json(vantor::plan(document), baudrate) : nullptr}};
}
catch (const vantor::configuration_error &failure)
{
    return {{"error", failure.what()}};
}

} // namespace

int main()
{
    std::string line;
    while (std::getline(std::cin, line))
    {
        std::string text(std::stoul(line), '\0');
        std::cin.read(text.data(), static_cast<std::streamsize>(text.size()));
        std::cout << find_verdict(text).dump() << "\n";
    }
}
