/** @file
 * Program `vantor_server`: the server on a simulated board, for a host on the same machine or network.
 */
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "board_memory.h"
#include "clock.h"
#include "console.h"
#include "link.h"
#include "options.h"
#include "scene_check.h"
#include "scene_file.h"
#include "server.h"
#include "truth.h"
#include "zet_log_levels.h"
#include "zet_simulator.h"
#include "zet_vantor_server.h"

namespace
{

/** The exit code for a wrong command line, the same as for `vantor`. */
constexpr int wrong_command_line = 2;

/** Least severe level that is logged to standard error; set from the command line. */
zet_log_level_t stderr_log_level;

/** Writes a log line of the board to standard error if it is severe enough, and offers it to the host. */
void log_line(zet_log_level_t level, const char *module, const char *text)
{
    if (level <= stderr_log_level && !zet_vantor_server_has_given_up_wait())
    {
        print_error(std::string(zet_log_level_prefixes[level].data()) + module + ": " + text);
    }
    zet_vantor_server_log(level, module, text);
}

/** Returns what the sensors see. */
zet_simulator_scene_t scene_of(const options_t &options)
{
    zet_simulator_scene_t scene = options.scene_path.empty()
                                      ? *zet_simulator_default_scene()
                                      : read_scene_file(options.scene_path, options.sensor_count);
    select_board(scene, options.board, options.scene_path);
    if (options.ideal)
    {
        scene.hardware_count = 0;
    }
    return scene;
}

/** Returns the clock of the scene; null if it starts with each session. */
signed_clock_t *scene_clock(const options_t &options, const zet_simulator_clock_t &clock)
{
    if (options.scene_start_s)
    {
        return clock_since(*options.scene_start_s);
    }
    return options.scene_goes_on ? clock_of_board(clock) : nullptr;
}

/** The part by which the clock of the board runs faster than that of the PC. */
double clock_error(const options_t &options)
{
    const double parts_per_million = 1.0e-6;
    return options.clock_error_ppm * parts_per_million;
}

/** Starts the clock of the board. */
zet_simulator_clock_t start_clock(const options_t &options)
{
    if (!options.virtual_clock)
    {
        return real_clock(clock_error(options), options.first_tick);
    }
    const zet_simulator_clock_t clock = zet_simulator_virtual_clock();
    clock.sleep_until_us(options.first_tick);
    return clock;
}

/** Describes the board to the simulator. */
zet_simulator_options_t board_options(const options_t &options, const zet_simulator_scene_t &scene)
{
    zet_simulator_options_t board = {};
    board.scene = &scene;
    board.sensor_count = options.sensor_count;
    board.seed = options.seed;
    board.board = options.board;
    board.clock = start_clock(options);
    board.scene_now_us = scene_clock(options, board.clock);
    board.clock_error = options.scene_start_s ? clock_error(options) : 0.0;
    // On a virtual clock no wait takes time.
    board.wait_until_us = options.virtual_clock ? nullptr : wait_for_sensor;
    board.log = log_line;
    board.log_level = ZET_LOG_LEVEL_DEBUG;
    if (!options.truth_path.empty())
    {
        board.observer = write_truth(options, scene);
    }
    return board;
}

/** Prints where hosts can connect, and warns if other machines can. */
void announce(const link_t &link, link_kind_t kind)
{
    if (kind != link_kind_t::stdio)
    {
        print_output("listening on " + link.address());
    }
    if (link.is_open_to_network())
    {
        const std::string warning = "Everyone who can reach " + link.address() +
                                    " over the network can use this server; SECURITY.md says more";
        log_line(ZET_LOG_LEVEL_WARNING, "link", warning.c_str());
    }
}

/** Serves hosts until the program must end; false when the server could not be started. */
bool serve_hosts(link_t &link, const options_t &options, const zet_simulator_clock_t &clock)
{
    zet_vantor_server_board_t description = {};
    description.name = options.board_name.c_str();
    description.id = options.board_id.empty() ? nullptr : options.board_id.c_str();
    description.sensors = "simulated";
    return serve(link, clock, options.virtual_clock, options.log_level, description);
}

/** Returns whether the board's memory was freed completely; prints how much was not. */
bool is_memory_freed()
{
    zet_vantor_server_memory_t kept = {};
    memory_get(&kept);
    if (kept.live != 0U)
    {
        print_error("vantor_server: " + std::to_string(kept.live) +
                    " bytes of the board's memory were not freed");
    }
    return kept.live == 0U;
}

/** Runs the server with the given options. */
int run(const options_t &options)
{
    if (options.check_scene)
    {
        return check_scene(options) ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    stderr_log_level = options.log_level;
    const zet_simulator_scene_t scene = scene_of(options);
    const std::unique_ptr<link_t> link = make_link(options);
    link->set_stall_limit(int64_t{options.stall_limit_s} * 1000000);
    // Not before, so that signals end a lookup of a host name.
    catch_stop_signals();
    const auto memory = std::make_unique_for_overwrite<std::byte[]>(options.memory_size);
    memory_lend(memory.get(), options.memory_size);
    const zet_simulator_options_t board = board_options(options, scene);
    if (!zet_simulator_start(&board))
    {
        print_error("vantor_server: cannot start the simulated board");
        return EXIT_FAILURE;
    }
    announce(*link, options.link);
    const bool served = serve_hosts(*link, options, board.clock);
    zet_simulator_stop();
    return is_memory_freed() && served ? EXIT_SUCCESS : EXIT_FAILURE;
}

/** Ends the program after help was printed. */
int end_after_help()
{
    if (!std::cout.flush())
    {
        print_error("vantor_server: cannot write to standard output");
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv)
{
    open_standard_streams();
    try
    {
        options_t options;
        switch (parse_options(argc, argv, options))
        {
        case options_result_t::run:
            return run(options);
        case options_result_t::done:
            return end_after_help();
        case options_result_t::refused:
            return wrong_command_line;
        }
    }
    catch (const std::exception &error)
    {
        print_error(std::string("vantor_server: ") + error.what());
    }
    return EXIT_FAILURE;
}
