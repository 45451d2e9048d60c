/** @file
 * Runs the server core over a link.
 */
#ifndef VANTOR_LINUX_SERVER_H
#define VANTOR_LINUX_SERVER_H

#include "link.h"
#include "zet_simulator.h"
#include "zet_vantor_server.h"

/**
 * Serves one host after the other until the program must end or no more hosts can connect.
 *
 * The simulated board must have been started.
 *
 * @param link           the link to the hosts
 * @param clock          the clock of the board, which also provides the server's tick
 * @param virtual_clock  whether that clock advances only by sleeping
 * @param log_level      threshold of the sensor library's log
 * @param board          what the server reports about the board
 * @return false when the server could not be started (the reason is logged)
 */
bool serve(link_t &link, const zet_simulator_clock_t &clock, bool virtual_clock, zet_log_level_t log_level,
           const zet_vantor_server_board_t &board);

/**
 * Waits for a sensor of the simulated board, until a time on its clock. Meanwhile it receives from the host
 * that is being served, and rejects other hosts.
 *
 * @return false as soon as nobody needs the measurement
 */
bool wait_for_sensor(uint64_t time_us);

#endif
