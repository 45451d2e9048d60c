/** @file
 * What the server core reports about itself: the answers to `identify`, `ping` and `stats`.
 */
#ifndef ZET_VANTOR_SERVER_REPORTS_H
#define ZET_VANTOR_SERVER_REPORTS_H

/** Answers a command with a description of server, sensors and board. */
void zet_server_describe(const char *command);

/** Answers a command with the current tick, if there is a clock. */
void zet_server_report_tick(const char *command);

/** Answers a command with what was counted since the start. */
void zet_server_report_counts(const char *command);

#endif
