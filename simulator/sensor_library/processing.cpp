/** @file
 * Processing of frames, and the sizes of their buffers.
 */
#include <cstring>

#include "sensor_library/frame_buffer.h"
#include "sensor_library/signal.h"
#include "sensor_library/timing.h"
#include "zet_nox_k330.h"
#include "zet_processing.h"
#include "zet_processing_cca.h"

/** The processing of a configuration. */
struct zet_processing : zet_simulator::object
{
    uint32_t sample_count;
};

namespace
{

using namespace zet_simulator;

/** Finds the processing behind a handle; null, with a log line, when there is none. */
zet_processing *find_processing(const zet_processing_t *handle, const char *operation)
{
    return static_cast<zet_processing *>(object_find(handle, object_kind::processing, operation));
}

/** Reads the head of a frame; false, with a log line, when the buffer has no frame for this processing. */
bool open_frame(const zet_processing &processing, const void *buffer, frame_head &head, const char *operation)
{
    if (!buffer_is_usable(buffer, operation))
    {
        return false;
    }
    std::memcpy(&head, buffer, sizeof(head));
    if (head.magic != frame_magic)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the buffer contains no frame; read one first", operation);
        return false;
    }
    if (head.sample_count != processing.sample_count)
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "%s: the frame has %lu samples, but the processing is for %lu: it belongs to another "
                    "configuration",
                    operation, static_cast<unsigned long>(head.sample_count),
                    static_cast<unsigned long>(processing.sample_count));
        return false;
    }
    return true;
}

/** Describes the frames of a valid configuration. */
zet_processing_metadata_t metadata_of(const zet_config &config)
{
    zet_processing_metadata_t metadata = {};
    metadata.frame_data_length = static_cast<uint16_t>(samples_per_frame(config));
    metadata.sweep_data_length = static_cast<uint16_t>(samples_per_sweep(config));
    uint32_t offset = 0;
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        metadata.subsweep_data_offset[i] = static_cast<uint16_t>(offset);
        metadata.subsweep_data_length[i] = config.subsweeps[i].num_points;
        offset += config.subsweeps[i].num_points;
    }
    metadata.max_sweep_rate = timing_max_sweep_rate(config);
    metadata.high_speed_mode = timing_is_high_speed(config);
    return metadata;
}

} // namespace

namespace zet_simulator
{

bool buffer_is_usable(const void *buffer, const char *operation)
{
    if (buffer != nullptr && reinterpret_cast<uintptr_t>(buffer) % alignof(uint32_t) == 0U)
    {
        return true;
    }
    library_log(ZET_LOG_LEVEL_ERROR, "%s: the buffer is %s", operation,
                buffer == nullptr ? "null" : "not aligned to 4 bytes");
    return false;
}

} // namespace zet_simulator

bool zet_nox_get_buffer_size(const zet_config_t *config, uint32_t *buffer_size)
{
    const zet_config *found = config_find(config, __func__);
    if (buffer_size == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the pointer for the size is null", __func__);
        return false;
    }
    if (found == nullptr || !config_is_valid(*found))
    {
        return false;
    }
    *buffer_size = buffer_size_for(samples_per_frame(*found));
    return true;
}

zet_processing_t *zet_processing_create(const zet_config_t *config, zet_processing_metadata_t *metadata)
{
    const zet_config *found = config_find(config, __func__);
    if (metadata == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the pointer for the metadata is null", __func__);
        return nullptr;
    }
    if (found == nullptr || !config_is_valid(*found))
    {
        return nullptr;
    }
    auto *processing =
        static_cast<zet_processing *>(object_create(object_kind::processing, sizeof(zet_processing)));
    if (processing == nullptr)
    {
        return nullptr;
    }
    processing->sample_count = samples_per_frame(*found);
    *metadata = metadata_of(*found);
    return processing;
}

void zet_processing_execute(zet_processing_t *processing, void *buffer, zet_processing_result_t *result)
{
    if (result == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the pointer for the result is null", __func__);
        return;
    }
    *result = {};
    result->frame = static_cast<zet_int16_complex_t *>(buffer);
    const zet_processing *found = find_processing(processing, __func__);
    frame_head head = {};
    if (found == nullptr || !open_frame(*found, buffer, head, __func__))
    {
        return;
    }
    result->data_saturated = head.data_saturated;
    result->frame_delayed = head.frame_delayed;
    result->calibration_needed = head.calibration_needed;
    result->temperature = head.temperature;
    result->frame = samples_of(buffer);
}

bool zet_processing_cca_check(const zet_processing_t *processing, const void *buffer, float *cca_value)
{
    const zet_processing *found = find_processing(processing, __func__);
    if (cca_value == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the pointer for the value is null", __func__);
        return false;
    }
    frame_head head = {};
    if (found == nullptr || !open_frame(*found, buffer, head, __func__))
    {
        return false;
    }
    if (!head.has_cca)
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "%s: the frame has no clear-channel measurement; enable it in the configuration",
                    __func__);
        return false;
    }
    *cca_value = head.cca_value;
    return true;
}

float zet_processing_points_to_meter(int32_t points)
{
    return static_cast<float>(points * meters_per_step);
}

void zet_processing_destroy(zet_processing_t *processing)
{
    if (processing != nullptr && find_processing(processing, __func__) != nullptr)
    {
        object_destroy(processing);
    }
}
