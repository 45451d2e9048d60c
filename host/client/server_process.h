/** @file
 * Runs the program vantor_server as a child process.
 */
#ifndef VANTOR_SERVER_PROCESS_H
#define VANTOR_SERVER_PROCESS_H

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

namespace vantor
{

/**
 * Finds the program vantor_server: the one named by the environment variable VANTOR_SERVER, otherwise the one
 * in the directory of the running program, otherwise the one in PATH.
 *
 * @throws connect_error if there is none
 */
std::filesystem::path find_server_program();

/**
 * A running vantor_server that communicates over a socket, its standard input and output. The destructor ends
 * it. It also exits when the socket closes, so it never outlives this process.
 */
class server_process
{
public:
    /**
     * Starts the server.
     *
     * @param program      the program file
     * @param arguments    its arguments
     * @param ending_time  how long it may take to exit before it is killed
     * @throws connect_error if it cannot be started
     */
    server_process(const std::filesystem::path &program, const std::vector<std::string> &arguments,
                   std::chrono::milliseconds ending_time = std::chrono::milliseconds(500));
    server_process(const server_process &) = delete;
    server_process &operator=(const server_process &) = delete;
    server_process(server_process &&) = delete;
    server_process &operator=(server_process &&) = delete;
    ~server_process();

    /** Releases the other end of the server's socket; the caller must close it. */
    [[nodiscard]] int take_link() noexcept;

private:
    int start(const std::filesystem::path &program, const std::vector<std::string> &arguments, int socket);
    void end() noexcept;
    [[nodiscard]] bool wait_for_end() const noexcept;

    std::chrono::milliseconds ending_time_;
    pid_t process_ = -1;
    int link_ = -1;
};

/**
 * Runs the program vantor_server until it exits or closes its output.
 *
 * @param arguments  its arguments, not for a link
 * @return what it prints on its standard output
 * @throws connect_error if it cannot be found or started
 */
std::string output_of_server(const std::vector<std::string> &arguments);

} // namespace vantor

#endif
