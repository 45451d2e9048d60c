/** @file
 * The command line of `vantor_server`.
 */
#ifndef VANTOR_LINUX_OPTIONS_H
#define VANTOR_LINUX_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "zet_definitions_common.h"

/** Kinds of link to the host. */
enum class link_kind_t
{
    tcp,
    local, /**< a socket in the file system */
    pty,
    stdio,
};

/** The options given on the command line. */
struct options_t
{
    link_kind_t link = link_kind_t::tcp;
    bool check_scene = false; /**< check the scene instead of serving hosts */
    bool json = false;        /**< report about the scene in JSON */
    std::string tcp_host = "127.0.0.1";
    uint16_t tcp_port = 0;
    std::string socket_path; /**< of a local link */
    uint16_t sensor_count = 5;
    uint16_t board = 0; /**< number of the board in its scene; 0 for the only one */
    uint64_t seed = 1;
    size_t memory_size = size_t{16} * 1024 * 1024;
    double clock_error_ppm = 0.0; /**< how much faster the real clock of the board runs than that of the PC */
    bool virtual_clock = false;
    bool scene_goes_on = false;  /**< the scene starts with the server, not with each session */
    bool ideal = false;          /**< the sensors have no imperfections */
    uint32_t stall_limit_s = 10; /**< how long a host may accept no data; 0 for any time */
    uint32_t first_tick = 0;     /**< what the clock of the board shows when the server starts */
    std::string board_name = "simulated board"; /**< reported by `identify` */
    std::string board_id;                       /**< reported by `identify`; empty for none */
    std::string scene_path;                     /**< empty for the built-in scene */
    std::optional<double> scene_start_s; /**< when the scene starts, since 1970 UTC; empty for not so */
    std::string truth_path;              /**< where the truth is written; empty for nowhere */
    zet_log_level_t log_level = ZET_LOG_LEVEL_WARNING;
};

/** What to do after the command line has been read. */
enum class options_result_t
{
    run,     /**< start the server */
    done,    /**< help or version was printed */
    refused, /**< the command line is wrong; reported on stderr */
};

/** Parses the command line. */
options_result_t parse_options(int argc, char **argv, options_t &options);

#endif
