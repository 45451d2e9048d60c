/** @file
 * Runs the server core over a link.
 */
#ifndef VANTOR_LINUX_SERVER_H
#define VANTOR_LINUX_SERVER_H

#include "link.h"
#include "zet_simulator.h"
#include "zet_vantor_server.h"

/**
 * Serves one host after the other until the program is to end or no host can come any more.
 *
 * The simulated board must have been started.
 *
 * @param link           where the hosts come from
 * @param clock          the clock of the board; the server's tick is taken from it
 * @param virtual_clock  whether that clock moves only when somebody sleeps on it
 * @param log_level      threshold of the sensor library's log
 * @param board          what the server reports of the board
 * @return false when the server could not be brought up (the reason is logged)
 */
bool serve(link_t &link, const zet_simulator_clock_t &clock, bool virtual_clock, zet_log_level_t log_level,
           const zet_vantor_server_board_t &board);

#endif
