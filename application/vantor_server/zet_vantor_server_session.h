/** @file
 * The session of the server core: its end, its frames and their pace.
 */
#ifndef ZET_VANTOR_SERVER_SESSION_H
#define ZET_VANTOR_SERVER_SESSION_H

#include "zet_vantor_server_errors.h"

/**
 * Ends the stream of a session, if it has one. The frames that were due since the last one are left out,
 * except the last of them: it would be measured now.
 */
void zet_server_end_stream();

/** Ends the session, if there is one. */
void zet_server_end_session();

/** Ends a session that could not be set up or has failed, and reports why. */
void zet_server_fail_session(zet_server_error_t error);

/** Returns whether the host has sent `end`, which no command precedes that needs the session. */
bool zet_server_is_end_ahead();

/** Returns whether the wait for a sensor has been given up since the last call. */
bool zet_server_take_given_up_wait();

/** Lets the port free what a session has lost: the server needs no memory between commands without a session.
 */
void zet_server_recover_memory();

/** Ends an abandoned stream's session if the `end` ahead was executed, or dropped as a damaged line. */
void zet_server_end_abandoned_stream();

/** Measures one frame and sends it. A failure ends the session. */
void zet_server_measure_frame();

/** Measures a frame if one is due. */
void zet_server_continue_stream();

#endif
