/** @file
 * Stand-in for the server core: keeps the documents and payloads that the backend sends.
 */
#include <array>

#include "neighbours.h"
#include "zet_vantor_server_base_internal.h"

using namespace backend_tests;

namespace backend_tests
{

namespace
{

std::string frame_name(const void *data)
{
    for (const auto &[number, samples] : neighbours().frames)
    {
        if (data != nullptr && samples.data() == data)
        {
            return "frame " + std::to_string(number);
        }
    }
    return data == nullptr ? "null" : "unknown data";
}

} // namespace

void write_to_host(const void *data, uint32_t size)
{
    record(call_kind_t::link, "write", {frame_name(data), show(size)});
    neighbours().payload_blocks.push_back(data);
    if (data != nullptr)
    {
        const auto *bytes = static_cast<const uint8_t *>(data);
        neighbours().payload.insert(neighbours().payload.end(), bytes, bytes + size);
    }
}

uint32_t read_tick()
{
    record(call_kind_t::link, "get_tick", {});
    const uint32_t tick = neighbours().next_tick;
    neighbours().next_tick += 10;
    return tick;
}

} // namespace backend_tests

bool zet_vantor_server_write_json(write_data_function_t *write, cJSON *json)
{
    const neighbour_scope_t scope(block_owner_t::test, __func__);
    record(call_kind_t::link, __func__, {write == write_to_host ? "write" : "another operation"});
    if (refused(__func__))
    {
        return false;
    }
    static std::array<char, 65536> text;
    const bool printed = cJSON_PrintPreallocated(json, text.data(), static_cast<int>(text.size()),
                                                 static_cast<cJSON_bool>(false)) != 0;
    neighbours().documents.emplace_back(printed ? text.data() : "not printable");
    return true;
}
