/** @file
 * `--truth FILE`, and the truth of private simulated servers.
 */
#include "commands/truth_option.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "commands/usage_error.h"

namespace vantor
{
namespace
{

/** Whether the arguments of a private server already name a file for the truth. */
bool names_truth(const simulator_address &where)
{
    return std::ranges::any_of(where.arguments, [](const std::string &argument) {
        return argument == "--truth" || argument.starts_with("--truth=");
    });
}

} // namespace

command_option truth_option(std::filesystem::path &target)
{
    return {.name = "--truth",
            .help = "Add the truth from this file, which a simulated server on this machine writes with its "
                    "option --truth; not needed with sim:",
            .value = &target,
            .value_name = "FILE"};
}

truthful_server server_with_truth(address where, const std::filesystem::path &file)
{
    auto *const simulated = std::get_if<simulator_address>(&where);
    if (!file.empty())
    {
        return {.where = std::move(where), .truth = std::make_unique<truth_file>(file)};
    }
    if (simulated == nullptr)
    {
        return {.where = std::move(where), .truth = nullptr};
    }
    if (names_truth(*simulated))
    {
        throw usage_error("--truth among the options of sim: also needs --truth of this command, with the "
                          "same file; without both, the truth is recorded too");
    }
    auto truth = std::make_unique<private_truth_file>();
    simulated->arguments.emplace_back("--truth");
    simulated->arguments.push_back(truth->path().string());
    return {.where = std::move(where), .truth = std::move(truth)};
}

} // namespace vantor
