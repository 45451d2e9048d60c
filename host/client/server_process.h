/** @file
 * The program vantor_server as a child of this process.
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
 * Finds the program vantor_server: the one that the environment variable VANTOR_SERVER names, else the one in
 * the directory of the running program, else the one in PATH.
 *
 * @throws connect_error when there is none
 */
std::filesystem::path find_server_program();

/**
 * A running vantor_server that talks on its standard input and output, which are one socket. It is ended when
 * destroyed, and ends by itself when the socket closes, so it does not outlive this process however that
 * ends.
 */
class server_process
{
public:
    /**
     * Starts the server.
     *
     * @param program      the program file
     * @param arguments    further arguments, after "--stdio"
     * @param ending_time  how long it may take to end by itself before it is killed
     * @throws connect_error when it cannot be started
     */
    server_process(const std::filesystem::path &program, const std::vector<std::string> &arguments,
                   std::chrono::milliseconds ending_time = std::chrono::milliseconds(2000));
    server_process(const server_process &) = delete;
    server_process &operator=(const server_process &) = delete;
    server_process(server_process &&) = delete;
    server_process &operator=(server_process &&) = delete;
    ~server_process();

    /** The other end of the server's socket; whoever takes it closes it. */
    [[nodiscard]] int take_link() noexcept;

private:
    int start(const std::filesystem::path &program, const std::vector<std::string> &arguments, int socket);
    void end() noexcept;
    [[nodiscard]] bool wait_for_end() const noexcept;

    std::chrono::milliseconds ending_time_;
    pid_t process_ = -1;
    int link_ = -1;
};

} // namespace vantor

#endif
