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

/** A running vantor_server that listens on a free TCP port of this machine; it is ended when destroyed. */
class server_process
{
public:
    /**
     * Starts the server and waits until it listens.
     *
     * @param program    the program file
     * @param arguments  further arguments, after "--tcp 0"
     * @param timeout    how long starting may take
     * @throws connect_error when it cannot be started, ends at once, or does not listen in time
     */
    server_process(const std::filesystem::path &program, const std::vector<std::string> &arguments,
                   std::chrono::milliseconds timeout);
    server_process(const server_process &) = delete;
    server_process &operator=(const server_process &) = delete;
    server_process(server_process &&) = delete;
    server_process &operator=(server_process &&) = delete;
    ~server_process();

    /** Where the server listens, as "tcp:HOST:PORT". */
    [[nodiscard]] const std::string &address() const noexcept;

private:
    void start(const std::filesystem::path &program, const std::vector<std::string> &arguments);
    void wait_until_listening(std::chrono::milliseconds timeout);
    void end() noexcept;

    pid_t process_ = -1;
    int output_ = -1; // what the server writes to its standard output
    std::string address_;
};

} // namespace vantor

#endif
