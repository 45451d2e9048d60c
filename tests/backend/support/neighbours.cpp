/** @file
 * Shared parts of the stand-ins: recording, requested failures, and the data that they return.
 */
#include "neighbours.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

namespace backend_tests
{

namespace
{

std::unique_ptr<neighbours_t> current;

} // namespace

neighbours_t &neighbours()
{
    return *current;
}

board_memory_t &memory()
{
    return current->memory;
}

void reset_neighbours()
{
    current = std::make_unique<neighbours_t>();
}

void record(call_kind_t kind, std::string_view name, std::initializer_list<std::string> arguments)
{
    neighbours().calls.add(kind, call_text(name, arguments));
}

void refuse(const std::string &operation, int nth)
{
    neighbours().refusals.emplace_back(operation, nth - 1);
}

bool refused(const std::string &operation)
{
    neighbours().times_called[operation] += 1;
    bool is_refused = false;
    for (auto &[name, still_to_pass] : neighbours().refusals)
    {
        if (name == operation)
        {
            is_refused = is_refused || still_to_pass == 0;
            still_to_pass -= 1;
        }
    }
    if (is_refused)
    {
        neighbours().calls_at_failure = neighbours().calls;
    }
    return is_refused;
}

int times_called(const std::string &operation)
{
    return neighbours().times_called[operation];
}

zet_processing_metadata_t default_metadata()
{
    return {
        .frame_data_length = 4,
        .sweep_data_length = 2,
        .subsweep_data_offset = {0, 10, 20, 30},
        .subsweep_data_length = {10, 11, 12, 13},
        .max_sweep_rate = 2000.0F,
        .high_speed_mode = false,
    };
}

zet_cal_result_t calibration_of(zet_sensor_id_t sensor_id, int16_t temperature)
{
    zet_cal_result_t result{};
    result.data[0] = sensor_id;
    result.data[1] = static_cast<uint32_t>(temperature);
    for (uint32_t word = 2; word < ZET_CAL_RESULT_WORDS; ++word)
    {
        result.data[word] = (sensor_id << 24U) + word;
    }
    return result;
}

std::string calibration_text(zet_sensor_id_t sensor_id, int16_t temperature)
{
    const zet_cal_result_t result = calibration_of(sensor_id, temperature);
    std::string text;
    for (const uint32_t word : result.data)
    {
        std::array<char, 9> digits{};
        (void)std::snprintf(digits.data(), digits.size(), "%02x%02x%02x%02x", word & 0xFFU,
                            (word >> 8U) & 0xFFU, (word >> 16U) & 0xFFU, word >> 24U);
        text += digits.data();
    }
    return text;
}

size_t delete_leaked_json()
{
    const std::set<cJSON *> leaked = std::move(neighbours().unattached);
    neighbours().unattached.clear();
    for (cJSON *document : leaked)
    {
        cJSON_Delete(document);
    }
    return leaked.size();
}

} // namespace backend_tests
