/** @file
 * A stand-in for the program vantor_server on its standard input and output.
 */
#include <array>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <unistd.h>

#include "fake_server.h"

namespace
{

using boost::asio::ip::tcp;

/** Passes the bytes of the host to the server, and ends the program when the host disconnects. */
void carry_input(tcp::socket &server)
{
    std::array<char, 4096> piece{};
    ssize_t count = 0;
    while ((count = read(STDIN_FILENO, piece.data(), piece.size())) > 0)
    {
        boost::asio::write(server, boost::asio::buffer(piece.data(), static_cast<size_t>(count)));
    }
    std::_Exit(0);
}

/** Passes the bytes of the server to the host. */
void carry_output(tcp::socket &server)
{
    std::array<char, 4096> piece{};
    boost::system::error_code failure;
    while (!failure)
    {
        const auto count = server.read_some(boost::asio::buffer(piece), failure);
        std::cout.write(piece.data(), static_cast<std::streamsize>(count)).flush();
    }
}

/** Signal handler: reports that the program was asked to exit, and exits. */
extern "C" void report_exit(int /*number*/)
{
    std::_Exit(write(STDOUT_FILENO, "farewell\n", 9) == 9 ? 0 : 1);
}

/** Reports that it has started, and then waits for the request to exit. */
[[noreturn]] void wait_for_the_end(void (*what)(int))
{
    std::signal(SIGTERM, what);
    std::cout << "ready\n" << std::flush;
    while (true)
    {
        pause();
    }
}

/** Prints the arguments in one line. */
void print_arguments(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i)
    {
        std::cout << argv[i] << (i + 1 < argc ? " " : "\n");
    }
}

} // namespace

int main(int argc, char **argv)
{
    const std::string option = argc == 3 ? argv[2] : "";
    if (option == "--farewell")
    {
        wait_for_the_end(report_exit);
    }
    if (option == "--deaf")
    {
        wait_for_the_end(SIG_IGN);
    }
    if (argc > 1 && std::string(argv[1]) == "--check-scene")
    {
        print_arguments(argc, argv);
        return 0;
    }
    if (argc != 2 || std::string(argv[1]) != "--stdio")
    {
        std::cerr << "fake program: refused\n";
        return 1;
    }
    vantor::test::fake_server server;
    server.on("start", vantor::test::stream_frames(20));
    const auto port = server.address().substr(server.address().rfind(':') + 1);
    boost::asio::io_context io;
    tcp::socket connection(io);
    connection.connect({boost::asio::ip::address_v4::loopback(), static_cast<uint16_t>(std::stoi(port))});
    std::thread(carry_input, std::ref(connection)).detach();
    carry_output(connection);
    return 0;
}
