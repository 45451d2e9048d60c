/** @file
 * Speed of a session on a PC: time to the first frame, frames per second and allocations per frame, for
 * sessions with 1, 5, 10 and 50 items.
 *
 * Server core, backend and simulator run in one process, on the virtual clock and with a link that only
 * counts bytes. So the time does not include any waiting.
 */
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "board_memory.h"
#include "zet_simulator.h"
#include "zet_vantor_server.h"

namespace
{

constexpr int sensors = 5;

uint64_t bytes_sent;
uint64_t allocations;

void count_bytes(const void * /*data*/, uint32_t size)
{
    bytes_sent += size;
}

uint32_t tick()
{
    return static_cast<uint32_t>(zet_simulator_virtual_clock().now_us());
}

/** An item like those in examples/two_sensors.json: two sub-sweeps with 60 points, 8 sweeps in a frame. */
std::string item(int sensor_id)
{
    return R"({"sensor_id":)" + std::to_string(sensor_id) +
           R"(,"config":{"sweeps_per_frame":8,"subsweeps":[)"
           R"({"start_point":80,"num_points":60,"step_length":2,"profile":1,"hwaas":16},)"
           R"({"start_point":200,"num_points":60,"step_length":4,"profile":3,"hwaas":16}]}})";
}

/** The command that configures a session with this many items, in groups of all sensors. The last may be
 * smaller. */
std::string configure_command(int64_t items)
{
    std::string groups;
    for (int64_t i = 0; i < items; ++i)
    {
        const int sensor = static_cast<int>(i % sensors);
        groups += sensor == 0 ? (i == 0 ? "[" : "],[") : ",";
        groups += item(sensor + 1);
    }
    return R"({"command":"configure","configuration":{"groups":[)" + groups + "]]}}\n";
}

void send(const std::string &command)
{
    zet_vantor_server_receive(command.data(), command.size());
}

/** A server on a simulated board, with a link that counts bytes. */
class server_t
{
public:
    server_t()
    {
        memory_lend(memory_.data(), memory_.size());
        zet_simulator_options_t board = {};
        board.sensor_count = sensors;
        board.clock = zet_simulator_virtual_clock();
        zet_vantor_server_port_t port = {};
        port.link.write = count_bytes;
        port.link.get_tick = tick;
        port.link.ticks_per_second = 1000000;
        port.line = line_.data();
        port.line_size = line_.size();
        port.max_values = 16384;
        if (!zet_simulator_start(&board) || !zet_vantor_server_init(&port))
        {
            std::abort();
        }
    }
    server_t(const server_t &) = delete;
    server_t &operator=(const server_t &) = delete;
    ~server_t()
    {
        zet_vantor_server_deinit();
        zet_simulator_stop();
    }

private:
    std::array<char, 65536> line_ = {};
    std::array<std::byte, size_t{1024} * 1024> memory_;
};

/** Time from the configuration document to the first frame, including the calibration of every sensor. */
void time_to_first_frame(benchmark::State &state)
{
    const server_t server;
    const std::string configure = configure_command(state.range(0));
    for ([[maybe_unused]] auto iteration : state)
    {
        send(configure);
        send("{\"command\":\"frame\"}\n");
        state.PauseTiming();
        send("{\"command\":\"end\"}\n");
        state.ResumeTiming();
    }
}

/** Time of one frame in a stream. */
void frames(benchmark::State &state)
{
    const server_t server;
    send(configure_command(state.range(0)));
    send("{\"command\":\"start\"}\n");
    zet_vantor_server_step();
    const uint64_t bytes_before = bytes_sent;
    const uint64_t allocations_before = allocations;
    for ([[maybe_unused]] auto iteration : state)
    {
        zet_vantor_server_step();
    }
    const auto count = static_cast<double>(state.iterations());
    state.counters["frames_per_second"] = benchmark::Counter(count, benchmark::Counter::kIsRate);
    state.counters["allocations_per_frame"] = static_cast<double>(allocations - allocations_before) / count;
    state.counters["bytes_per_frame"] = static_cast<double>(bytes_sent - bytes_before) / count;
}

} // namespace

extern "C" void *__real_zet_integration_mem_alloc(size_t size); // NOLINT: required by the linker

extern "C" void *__wrap_zet_integration_mem_alloc(size_t size); // NOLINT: required by the linker

extern "C" void *__wrap_zet_integration_mem_alloc(size_t size) // NOLINT: required by the linker
{
    ++allocations;
    return __real_zet_integration_mem_alloc(size);
}

BENCHMARK(time_to_first_frame)->Arg(1)->Arg(5)->Arg(10)->Arg(50)->Unit(benchmark::kMillisecond);
BENCHMARK(frames)->Arg(1)->Arg(5)->Arg(10)->Arg(50)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
