/** @file
 * Processing of frames.
 */
#include "library.h"
#include "zet_processing_cca.h"

/** The processing of a configuration. */
struct zet_processing : stand_in::object_t
{
    static constexpr auto kind = stand_in::object_kind_t::processing;

    uint32_t config_serial = 0;
    uint32_t sample_count = 0;
};

namespace
{

using namespace stand_in;

constexpr float meters_per_point = 0.0025F;

/** Checks that a buffer contains an unprocessed frame of the processing's configuration. */
bool has_frame(const zet_processing_t *handle, const void *buffer, const char *operation)
{
    const auto *processing = find<zet_processing>(handle, operation);
    if (processing == nullptr ||
        !is_buffer_usable(buffer, sizeof(frame_head_t), sizeof(frame_head_t), operation))
    {
        return false;
    }
    const auto *head = static_cast<const frame_head_t *>(buffer);
    if (head->magic != frame_magic)
    {
        return refuse("%s: the buffer contains no frame that was just read", operation);
    }
    return (head->config_serial == processing->config_serial &&
            head->sample_count == processing->sample_count) ||
           refuse("%s: the frame was measured with another configuration", operation);
}

} // namespace

zet_processing_t *zet_processing_create(const zet_config_t *config, zet_processing_metadata_t *metadata)
{
    const auto *found = find<zet_config>(config, __func__);
    if (found == nullptr)
    {
        return nullptr;
    }
    if (metadata == nullptr)
    {
        refuse("%s: the pointer to the metadata is null", __func__);
        return nullptr;
    }
    auto *processing = is_config_valid(*found) ? create<zet_processing>(__func__) : nullptr;
    if (processing != nullptr)
    {
        processing->config_serial = found->serial;
        processing->sample_count = samples_per_frame(*found);
        *metadata = metadata_of(*found);
    }
    return processing;
}

void zet_processing_execute(zet_processing_t *processing, void *buffer, zet_processing_result_t *result)
{
    if (!has_frame(processing, buffer, __func__))
    {
        return;
    }
    if (result == nullptr)
    {
        refuse("%s: the pointer to the result is null", __func__);
        return;
    }
    auto *head = static_cast<frame_head_t *>(buffer);
    head->magic = 0;
    *result = {};
    result->temperature = STAND_IN_TEMPERATURE;
    result->frame = reinterpret_cast<zet_int16_complex_t *>(head + 1);
}

bool zet_processing_cca_check(const zet_processing_t *processing, const void *buffer, float *cca_value)
{
    if (!has_frame(processing, buffer, __func__))
    {
        return false;
    }
    if (cca_value == nullptr)
    {
        return refuse("%s: the pointer to the value is null", __func__);
    }
    if (static_cast<const frame_head_t *>(buffer)->has_cca == 0U)
    {
        return refuse("%s: the configuration does not enable the clear-channel measurement", __func__);
    }
    *cca_value = STAND_IN_CCA_VALUE;
    return true;
}

float zet_processing_points_to_meter(int32_t points)
{
    return is_registered(__func__) ? static_cast<float>(points) * meters_per_point : 0.0F;
}

void zet_processing_destroy(zet_processing_t *processing)
{
    destroy_handle<zet_processing>(processing, __func__);
}
