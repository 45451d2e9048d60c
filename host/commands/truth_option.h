/** @file
 * `--truth FILE`, and the truth of private simulated servers.
 */
#ifndef VANTOR_TRUTH_OPTION_H
#define VANTOR_TRUTH_OPTION_H

#include <filesystem>
#include <memory>

#include "commands/command.h"
#include "vantor/address.h"
#include "vantor/truth_file.h"

namespace vantor
{

/** `--truth FILE`. */
command_option truth_option(std::filesystem::path &target);

/** A server, and the file to which it writes the truth. */
struct truthful_server
{
    address where;
    std::unique_ptr<truth_file> truth; /**< null if it writes none */
};

/**
 * Has a private simulated server write the truth, unless a file is given.
 *
 * @param where  the server
 * @param file   the value of `--truth`; empty if not given
 * @throws connect_error if no file can be created for a private server
 */
truthful_server server_with_truth(address where, const std::filesystem::path &file);

} // namespace vantor

#endif
