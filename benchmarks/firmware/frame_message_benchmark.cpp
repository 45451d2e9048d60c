/** @file
 * Counts the instructions of a frame message on a Cortex-M4F by number of items: building, sending and
 * freeing the document, and writing the samples. Also counts those of a hand-written function for the same
 * bytes, of the session metadata, of the link, and of the text of a number.
 */
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include <cjson/cJSON.h>

#include "board_memory.h"
#include "cycle_counter.h"
#include "free_sensors.h"
#include "hand_written_message.h"
#include "interrupts.h"
#include "link.h"
#include "semihosting.h"
#include "start.h"
#include "zet_decimal.h"
#include "zet_definitions_k330.h"
#include "zet_integration.h"
#include "zet_simulator.h"
#include "zet_vantor_server_system_k330.h"

// From the linker script.
extern "C" {
extern uint8_t heap_begin[];
extern uint8_t heap_end[];
}

namespace
{

constexpr uint32_t tick = 3141592653U;
constexpr uint32_t points = 10;

const zet_int16_complex_t samples[points] = {};

/** Shapes of the sessions: number of groups, and of items in a group. */
constexpr uint32_t shapes[][2] = {{1, 1}, {1, 5}, {10, 1}, {10, 5}};

// ---- a link that needs almost no instructions, and one that computes a hash

uint32_t bytes_sent;
uint32_t hash;

void count_bytes(const void * /*data*/, uint32_t size)
{
    bytes_sent += size;
}

/** Computes the FNV-1a hash of the bytes. */
void hash_bytes(const void *data, uint32_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(data);
    for (uint32_t i = 0; i < size; ++i)
    {
        hash = (hash ^ bytes[i]) * 16777619U;
    }
    bytes_sent += size;
}

uint32_t get_tick()
{
    return tick;
}

// ---- an allocator that counts

uint32_t allocations;

void *counting_alloc(size_t size)
{
    ++allocations;
    return zet_integration_mem_alloc(size);
}

// ---- sessions

[[noreturn]] void fail(const char *what)
{
    console_write(what);
    console_exit(1);
}

/** Configures a session. */
void configure(const message_shape_t &shape)
{
    static char text[4352];
    const char *const assessment = shape.is_assessed ? ",\"cca_enable\":true,\"cca_debug\":true" : "";
    char *end = text;
    end += std::sprintf(end, "{\"groups\":[");
    for (uint32_t group = 0; group < shape.groups; ++group)
    {
        end += std::sprintf(end, group > 0 ? ",[" : "[");
        for (uint32_t item = 0; item < shape.items_per_group; ++item)
        {
            end += std::sprintf(end, "%s{\"sensor_id\":%u,\"config\":{\"num_points\":%u}%s}",
                                item > 0 ? "," : "", static_cast<unsigned>(item + 1),
                                static_cast<unsigned>(points), assessment);
        }
        end += std::sprintf(end, "]");
    }
    (void)std::sprintf(end, "]}");
    cJSON *document = cJSON_Parse(text);
    float update_rate = 0.0F;
    const char *error = nullptr;
    const bool configured =
        document != nullptr && zet_vantor_server_system_parse_configuration(document, &update_rate, &error);
    cJSON_Delete(document);
    if (!configured)
    {
        fail(error != nullptr ? error : "the session could not be configured\n");
    }
}

/** Measures a frame. */
void read_frame(write_data_function_t *write)
{
    vantor_server_interface_t link = {};
    link.write = write;
    link.get_tick = get_tick;
    const char *error = nullptr;
    if (!zet_vantor_server_system_read_data_frames(&link, &error))
    {
        fail("the frame could not be read\n");
    }
}

/** Fails if the server's message and the hand-written message are different. */
void compare_bytes(const message_shape_t &shape)
{
    hash = 2166136261U;
    read_frame(hash_bytes);
    const uint32_t built = hash;
    hash = 2166136261U;
    hand_written_message(hash_bytes, shape, samples);
    if (hash != built)
    {
        fail("the hand-written message is different\n");
    }
}

uint32_t count_allocations()
{
    cJSON_Hooks counting = {counting_alloc, zet_integration_mem_free};
    cJSON_Hooks plain = {zet_integration_mem_alloc, zet_integration_mem_free};
    allocations = 0;
    cJSON_InitHooks(&counting);
    read_frame(count_bytes);
    cJSON_InitHooks(&plain);
    return allocations;
}

/** Counts the instructions of the session metadata. */
uint32_t count_metadata()
{
    const uint32_t begin = cycle_count();
    if (!zet_vantor_server_system_send_session_metadata(count_bytes, 0))
    {
        fail("the metadata could not be sent\n");
    }
    return instructions_between(begin, cycle_count());
}

/** Counts the instructions of a frame that is sent over the link, whose port accepts every byte at once. */
uint32_t count_sent_frame()
{
    const uint32_t begin = cycle_count();
    read_frame(link_write);
    const uint32_t end = cycle_count();
    if (link_is_sending())
    {
        fail("the port of the link has not accepted the frame\n");
    }
    return instructions_between(begin, end);
}

/** Counts the instructions of the frames in a session with this shape. */
void count_shape(const message_shape_t &shape)
{
    configure(shape);
    free_sensors(true);
    const uint32_t metadata = count_metadata();
    compare_bytes(shape);

    bytes_sent = 0;
    const uint32_t begin = cycle_count();
    read_frame(count_bytes);
    const uint32_t end = cycle_count();
    const uint32_t message = instructions_between(message_begin, end);
    const uint32_t frame = instructions_between(begin, end);
    const uint32_t bytes = bytes_sent;
    const uint32_t sending = count_sent_frame() - frame;

    const uint32_t floor_begin = cycle_count();
    hand_written_message(count_bytes, shape, samples);
    const uint32_t floor = instructions_between(floor_begin, cycle_count());

    char line[240];
    (void)std::snprintf(line, sizeof line,
                        "{\"items\": %u, \"assessed\": %s, \"bytes\": %u, \"sending\": %u, \"message\": %u, "
                        "\"frame\": %u, \"by_hand\": %u, "
                        "\"allocations\": %u, \"metadata\": %u}\n",
                        static_cast<unsigned>(shape.groups * shape.items_per_group),
                        shape.is_assessed ? "true" : "false", static_cast<unsigned>(bytes),
                        static_cast<unsigned>(sending), static_cast<unsigned>(message),
                        static_cast<unsigned>(frame), static_cast<unsigned>(floor),
                        static_cast<unsigned>(count_allocations()), static_cast<unsigned>(metadata));
    console_write(line);
    free_sensors(false);
    zet_vantor_server_system_destroy_session();
}

/** Counts the instructions of a call of link_write with this number of bytes. */
uint32_t count_write(uint32_t size)
{
    const uint32_t begin = cycle_count();
    link_write(samples, size);
    return instructions_between(begin, cycle_count());
}

/**
 * Counts the instructions of an interrupt that sends one byte, and prints them. The emulated port accepts
 * every byte at once, so they are those of an interrupt without a byte, and of one more byte in an interrupt.
 */
void count_interrupt()
{
    const uint32_t byte = (count_write(36) - count_write(4)) / 32U;
    const uint32_t begin = cycle_count();
    raise_link_interrupt();
    const uint32_t interrupt = instructions_between(begin, cycle_count());
    char line[60];
    (void)std::snprintf(line, sizeof line, "{\"interrupt\": %u}\n", static_cast<unsigned>(interrupt + byte));
    console_write(line);
}

/** Counts the instructions of the texts of many floats, and prints the maximum. */
void count_floats()
{
    char text[zet_decimal_text_size];
    uint32_t most = 0;
    for (uint32_t bits = 1; bits < 0x7F800000U; bits += 104729)
    {
        const uint32_t begin = cycle_count();
        (void)zet_decimal_write_float(std::bit_cast<float>(bits), text);
        most = std::max(most, instructions_between(begin, cycle_count()));
    }
    char line[60];
    (void)std::snprintf(line, sizeof line, "{\"float_text\": %u}\n", static_cast<unsigned>(most));
    console_write(line);
}

} // namespace

void sensor_handler()
{
}

void run_board()
{
    board_start();
    start_cycle_count();
    memory_lend(heap_begin, static_cast<size_t>(heap_end - heap_begin));
    zet_simulator_options_t options = {};
    options.sensor_count = 5;
    options.clock = zet_simulator_virtual_clock();
    if (!zet_simulator_start(&options) || !zet_vantor_server_system_init(ZET_LOG_LEVEL_ERROR))
    {
        fail("the board could not be started\n");
    }
    link_open();
    for (const bool is_assessed : {false, true})
    {
        for (const auto &shape : shapes)
        {
            count_shape({shape[0], shape[1], tick, free_temperature, points, is_assessed});
        }
    }
    count_interrupt();
    count_floats();
    console_exit(0);
}
