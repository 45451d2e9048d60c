/** @file
 * Exit codes of the command; `vantor --help` lists them.
 */
#ifndef VANTOR_EXIT_CODE_H
#define VANTOR_EXIT_CODE_H

namespace vantor
{

/** How a command ended. */
enum class exit_code
{
    success = 0,
    failure = 1,       /**< any other failure */
    usage = 2,         /**< the command line is wrong */
    bad_file = 3,      /**< a configuration, a scene, a recording or a file of detections cannot be used */
    no_connection = 4, /**< no server, connection lost, or no answer in time */
    refused = 5,       /**< the server reported an error */
    bad_link = 6,      /**< invalid data from the server */
    not_written = 7,   /**< the output cannot be written */
    damaged = 8,       /**< a recording is damaged */
    interrupted = 130, /**< Ctrl-C; everything recorded so far is intact */
};

} // namespace vantor

#endif
