/** @file
 * A frame in the sensor's format, as stored in the caller's buffer: a head, then the samples.
 */
#ifndef ZET_SIMULATOR_FRAME_BUFFER_H
#define ZET_SIMULATOR_FRAME_BUFFER_H

#include <algorithm>
#include <cstdint>

#include "sensor_library/config.h"
#include "zet_definitions_k330.h"

namespace zet_simulator
{

/** Most samples in a frame: the size of the sensor's memory. */
constexpr uint32_t max_frame_samples = 16383;

/** Bytes that a calibration needs for any configuration. */
constexpr uint32_t calibration_work_size = 256;

/** Marks a buffer that contains a frame. */
constexpr uint32_t frame_magic = 0x4B334652;

/** The head of a frame. */
struct frame_head
{
    uint32_t magic;
    uint32_t sample_count;
    uint32_t frame_number; /**< counts the frames of a session */
    float cca_value;       /**< result of the clear-channel measurement; at most 0 when clear */
    int16_t temperature;
    bool has_cca;
    bool data_saturated;
    bool frame_delayed;
    bool calibration_needed;
};

/** Returns the samples in a sweep; the number of sub-sweeps must be valid. */
inline uint32_t samples_per_sweep(const zet_config &config)
{
    uint32_t samples = 0;
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        samples += config.subsweeps[i].num_points;
    }
    return samples;
}

/** Returns the samples in a frame. */
inline uint32_t samples_per_frame(const zet_config &config)
{
    return samples_per_sweep(config) * config.sweeps_per_frame;
}

/** Returns the size of the buffer for a number of samples, in bytes. */
inline uint32_t buffer_size_for(uint32_t samples)
{
    const auto frame_size = static_cast<uint32_t>(sizeof(frame_head) + samples * sizeof(zet_int16_complex_t));
    return std::max(frame_size, calibration_work_size);
}

/** Returns the address of a frame's samples. */
inline zet_int16_complex_t *samples_of(void *buffer)
{
    return reinterpret_cast<zet_int16_complex_t *>(static_cast<unsigned char *>(buffer) + sizeof(frame_head));
}

/** Checks a caller's buffer; logs what is wrong with it. */
bool buffer_is_usable(const void *buffer, const char *operation);

} // namespace zet_simulator

#endif
