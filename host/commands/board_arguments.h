/** @file
 * Boards on the command line.
 */
#ifndef VANTOR_BOARD_ARGUMENTS_H
#define VANTOR_BOARD_ARGUMENTS_H

#include <filesystem>
#include <string>
#include <vector>

namespace vantor
{

/** The server if none is given: a private simulated one. */
inline constexpr const char *default_address = "sim:";

/** A board on the command line. */
struct board_argument
{
    std::filesystem::path file; /**< of its configuration; empty if not given */
    std::string address;        /**< of its server, as given */
};

/**
 * The boards of the options `--connect` and `--board`, in this order; a private simulated server if there are
 * none.
 *
 * @param configuration  of the servers in connect; empty if not given
 * @param connect        addresses
 * @param boards         others, each as "CONFIG=ADDRESS"
 * @throws usage_error if a text is not CONFIG=ADDRESS, the configuration is for no server, there are too many
 * boards, or a server is given twice
 * @throws address_error if an address is not valid
 */
std::vector<board_argument> board_arguments(const std::filesystem::path &configuration,
                                            const std::vector<std::string> &connect,
                                            const std::vector<std::string> &boards);

} // namespace vantor

#endif
