/** @file
 * A stand-in for the program vantor_server; its last argument says how it behaves.
 */
#include <chrono>
#include <iostream>
#include <string>
#include <thread>

#include "fake_server.h"

int main(int argc, char **argv)
{
    const std::string behaviour = argc > 3 ? argv[argc - 1] : "";
    if (argc < 3 || std::string(argv[1]) != "--tcp" || std::string(argv[2]) != "0" || behaviour == "refuse")
    {
        std::cerr << "fake program: refused\n";
        return 1;
    }
    if (behaviour == "mumble")
    {
        std::cout << "hello\n" << std::flush;
    }
    if (behaviour != "mute" && behaviour != "mumble")
    {
        static vantor::test::fake_server server;
        server.on("start", vantor::test::stream_frames(20));
        std::cout << "listening on " << server.address() << "\n" << std::flush;
        std::this_thread::sleep_for(std::chrono::minutes(1));
    }
    std::this_thread::sleep_for(std::chrono::minutes(1));
    return 0;
}
