/** @file
 * Speed of the client library, compared with a program that only receives the same bytes from a socket and
 * drops them. The bytes come over TCP from another process, which sends as fast as it can.
 *
 * Both are measured in turns, in processor time of all threads of the receiving process. Prints a JSON line
 * for each size of frames: medians over the rounds, and the lowest and the highest ratio of a round.
 *
 * Usage: link_benchmark [ROUNDS] [MEGABYTES]    rounds for each size; received in half a round
 */
#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <nlohmann/json.hpp>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vantor/client.h"

namespace
{

using nlohmann::json;

/** Number of bytes that the other program receives at once, like the library. */
constexpr size_t read_size = 65536;

/** Ticks between two frames. */
constexpr uint32_t period = 1000;

/** The first tick: all ticks have ten digits, so that they can be replaced in place. */
constexpr uint32_t first_tick = 1000000000;

/** Number of sensors, and of items in a group. */
constexpr size_t sensors = 5;

/** Throws if a call of the system has failed. */
int checked(int result, const char *call)
{
    if (result < 0)
    {
        throw std::runtime_error(std::string(call) + " has failed");
    }
    return result;
}

/** Frames of one size. */
struct workload_t
{
    const char *name = nullptr;
    size_t items = 0;
    size_t points = 0; /**< of each item */

    /** Size of the samples of a frame, in bytes. */
    [[nodiscard]] size_t payload() const
    {
        return items * points * sizeof(vantor::sample);
    }

    /** Makes a document that has the same value for each item, in groups. */
    [[nodiscard]] std::string for_each_item(const std::string &item) const
    {
        std::string groups;
        for (size_t i = 0; i < items; ++i)
        {
            groups += i % sensors != 0 ? "," : (i == 0 ? "[" : "],[");
            groups += item;
        }
        return "[" + groups + "]]";
    }

    /** The configuration document. */
    [[nodiscard]] json configuration() const
    {
        auto groups = json::parse(for_each_item("{}"));
        for (auto &group : groups)
        {
            for (size_t i = 0; i < group.size(); ++i)
            {
                group[i] = {{"sensor_id", i + 1}, {"config", {{"num_points", points}}}};
            }
        }
        return {{"update_rate", 1000}, {"groups", groups}};
    }

    /** The session metadata. */
    [[nodiscard]] std::string metadata() const
    {
        const auto length = std::to_string(points);
        return R"({"status":"ok","tick_period":1000,"payload_size":0,"metadata":)" +
               for_each_item(R"({"calibration_temperature":24,"frame_data_length":)" + length +
                             R"(,"sweep_data_length":)" + length +
                             R"(,"max_sweep_rate":3125.5,"high_speed_mode":true,"base_step_length_m":0.0025,)"
                             R"("subsweep_data_offset":[0],"subsweep_data_length":[)" +
                             length + "]}") +
               "}\n";
    }

    /** A frame message. */
    [[nodiscard]] std::string frame() const
    {
        return R"({"result_info":)" +
               for_each_item(R"({"tick":1000000000,"data_saturated":false,"temperature":27,)"
                             R"("calibration_needed":false,"frame_delayed":false})") +
               R"(,"status":"ok","payload_size":)" + std::to_string(payload()) + "}\n" +
               std::string(payload(), 'x');
    }
};

/** The sizes that are measured. */
constexpr std::array<workload_t, 3> workloads{{{.name = "small frames", .items = 1, .points = 100},
                                               {.name = "ten items", .items = 10, .points = 1875},
                                               {.name = "large frames", .items = 1, .points = 16384}}};

/** Sends all bytes; false if the host has closed the connection. */
bool send_all(int host, std::string_view bytes)
{
    while (!bytes.empty())
    {
        const auto sent = send(host, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0)
        {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

/** Sends frames until the host closes the connection. Several are sent at once. */
void stream(int host, const workload_t &work)
{
    constexpr size_t block_size = 262144;
    std::string block;
    const auto frame = work.frame();
    do
    {
        block += frame;
    } while (block.size() < block_size);
    constexpr std::string_view before = "\"tick\":";
    std::vector<size_t> places;
    for (auto place = block.find(before); place != std::string::npos; place = block.find(before, place + 1))
    {
        places.push_back(place + before.size());
    }
    uint32_t tick = first_tick;
    do
    {
        for (size_t i = 0; i < places.size(); ++i)
        {
            std::to_chars(&block[places[i]], &block[places[i]] + 10, tick);
            tick += (i + 1) % work.items == 0 ? period : 0;
        }
    } while (send_all(host, block));
}

/** The answer to a command that starts no stream. */
std::string answer(const std::string &command, const workload_t &work)
{
    if (command == "configure")
    {
        return work.metadata();
    }
    json answer = {{"status", "ok"}, {"command", command}, {"payload_size", 0}};
    if (command == "identify")
    {
        answer.update(json{{"server_version", "0"},
                           {"protocol_version", vantor::protocol_version},
                           {"sensor", "k330"},
                           {"sensor_count", sensors},
                           {"connected_sensors", {1, 2, 3, 4, 5}},
                           {"ticks_per_second", 1000000},
                           {"max_baudrate", 0}});
    }
    return answer.dump() + "\n";
}

/** Serves one host until it closes the connection. */
void serve(int host, const workload_t &work)
{
    std::string input;
    std::array<char, 4096> piece{};
    for (auto count = recv(host, piece.data(), piece.size(), 0); count > 0;
         count = recv(host, piece.data(), piece.size(), 0))
    {
        input.append(piece.data(), static_cast<size_t>(count));
        for (auto end = input.find('\n'); end != std::string::npos; end = input.find('\n'))
        {
            const auto line = input.substr(0, end);
            input.erase(0, end + 1);
            if (line.empty())
            {
                continue;
            }
            const std::string command = json::parse(line)["command"];
            send_all(host, answer(command, work));
            if (command == "start")
            {
                stream(host, work);
            }
        }
    }
}

/** The processors that this process may use. */
cpu_set_t allowed_processors()
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    checked(sched_getaffinity(0, sizeof(allowed), &allowed), "sched_getaffinity");
    return allowed;
}

/**
 * Keeps this process on one of several processors. Bytes that were sent by the same processor are still in
 * its cache: they would be received faster in some rounds than in others.
 */
void stay_on_processor(const cpu_set_t &allowed, int index)
{
    cpu_set_t chosen;
    CPU_ZERO(&chosen);
    for (size_t processor = 0; processor < CPU_SETSIZE; ++processor)
    {
        if (CPU_ISSET(processor, &allowed) && index-- == 0)
        {
            CPU_SET(processor, &chosen);
        }
    }
    checked(sched_setaffinity(0, sizeof(chosen), &chosen), "sched_setaffinity");
}

/** A process that serves one host after the other. */
class sending_process_t
{
public:
    /** @param processors  the process stays on the first of them */
    sending_process_t(const workload_t &work, const cpu_set_t &processors)
    {
        const int listener = checked(socket(AF_INET, SOCK_STREAM, 0), "socket");
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address_);
        checked(bind(listener, reinterpret_cast<sockaddr *>(&address_), length), "bind");
        checked(getsockname(listener, reinterpret_cast<sockaddr *>(&address_), &length), "getsockname");
        checked(listen(listener, 1), "listen");
        process_ = checked(fork(), "fork");
        if (process_ == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            stay_on_processor(processors, 0);
            while (true)
            {
                const int host = checked(accept(listener, nullptr, nullptr), "accept");
                serve(host, work);
                close(host);
            }
        }
        close(listener);
    }
    sending_process_t(const sending_process_t &) = delete;
    sending_process_t &operator=(const sending_process_t &) = delete;
    ~sending_process_t()
    {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }

    /** Where it listens. */
    [[nodiscard]] const sockaddr_in &address() const
    {
        return address_;
    }

private:
    sockaddr_in address_{};
    pid_t process_ = 0;
};

/** Processor time of all threads of this process, in seconds. */
double processor_time()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/** Receives frames with the library; returns the processor time. */
double receive_frames(const sending_process_t &sender, const workload_t &work, size_t frames)
{
    vantor::client server(
        vantor::parse_address("tcp:127.0.0.1:" + std::to_string(ntohs(sender.address().sin_port))));
    server.configure(work.configuration());
    server.start();
    const auto begin = processor_time();
    for (size_t i = 0; i < frames; ++i)
    {
        const auto received = server.receive_frame(std::chrono::seconds(60));
        if (!received || received->missing() != 0 ||
            received->items().back().tick != first_tick + static_cast<uint32_t>(i) * period)
        {
            throw std::runtime_error("a frame is missing or wrong");
        }
    }
    return processor_time() - begin;
}

/** Receives bytes and drops them; returns the processor time. */
double receive_bytes(const sending_process_t &sender, size_t bytes)
{
    const int server = checked(socket(AF_INET, SOCK_STREAM, 0), "socket");
    checked(connect(server, reinterpret_cast<const sockaddr *>(&sender.address()), sizeof(sockaddr_in)),
            "connect");
    send_all(server, "{\"command\":\"start\"}\n");
    std::vector<std::byte> buffer(read_size);
    const auto begin = processor_time();
    size_t received = 0;
    while (received < bytes)
    {
        received += static_cast<size_t>(
            checked(static_cast<int>(recv(server, buffer.data(), buffer.size(), 0)), "recv"));
    }
    const auto time = processor_time() - begin;
    close(server);
    return time;
}

/** The value in the middle. */
double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/** Measures frames of one size, and prints the result. */
void measure(const workload_t &work, const cpu_set_t &processors, size_t rounds, size_t bytes)
{
    const sending_process_t sender(work, processors);
    const auto frame_size = work.frame().size();
    const size_t frames = bytes / frame_size + 1;
    std::vector<double> library;
    std::vector<double> socket;
    std::vector<double> ratios;
    for (size_t i = 0; i < rounds; ++i)
    {
        library.push_back(receive_frames(sender, work, frames) / static_cast<double>(frames));
        socket.push_back(receive_bytes(sender, frames * frame_size) / static_cast<double>(frames));
        ratios.push_back(socket.back() / library.back());
    }
    const auto [lowest, highest] = std::minmax_element(ratios.begin(), ratios.end());
    const nlohmann::ordered_json line = {
        {"frames", work.name},
        {"bytes", frame_size},
        {"rounds", rounds},
        {"library_us_per_frame", 1e6 * median(library)},
        {"socket_us_per_frame", 1e6 * median(socket)},
        {"frames_per_second", 1.0 / median(library)},
        {"gigabytes_per_second", 1e-9 * static_cast<double>(frame_size) / median(library)},
        {"ratio", median(ratios)},
        {"lowest_ratio", *lowest},
        {"highest_ratio", *highest}};
    std::cout << line << std::endl;
}

} // namespace

int main(int count, char **arguments)
try
{
    const size_t rounds = count > 1 ? std::stoul(arguments[1]) : 15;
    const size_t megabytes = count > 2 ? std::stoul(arguments[2]) : 200;
    const auto processors = allowed_processors();
    stay_on_processor(processors, CPU_COUNT(&processors) - 1);
    for (const auto &work : workloads)
    {
        // All ticks of a round have ten digits.
        constexpr size_t most_frames = 3000000;
        measure(work, processors, rounds, std::min(megabytes * 1000000, most_frames * work.frame().size()));
    }
}
catch (const std::exception &failure)
{
    std::cerr << failure.what() << "\n";
    return 1;
}
