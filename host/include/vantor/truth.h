/** @file
 * The truth of simulated sensors: what they should have found in a frame.
 */
#ifndef VANTOR_TRUTH_H
#define VANTOR_TRUTH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantor
{

/** A target, at the middle of a frame. */
struct target_truth
{
    size_t target = 0;         /**< its index in the list of the scene, at most 65535 */
    size_t body = 0;           /**< targets with the same number are one thing; 0 if it is one on its own */
    double distance_m = 0.0;   /**< from the sensor */
    double velocity_m_s = 0.0; /**< along the line of sight; positive if it moves away */
    double amplitude = 0.0;    /**< of its echo without noise and clipping, in LSB; 0 without a transmitter */
    double phase_rad = 0.0;    /**< of the sample at the peak of its echo, -pi to pi */
    std::optional<double> snr_db; /**< power of the peak over that of the noise; no value without an echo */
};

/** What one sensor should have found in one frame. */
struct item_truth
{
    unsigned sensor_id = 0;    /**< 1 or more */
    uint32_t tick = 0;         /**< as in the frame; wraps around */
    double time_s = 0.0;       /**< of the scene, at the first sweep */
    int temperature = 0;       /**< in degrees Celsius */
    double noise_power = 0.0;  /**< mean square of the magnitude of noise in a sample */
    double interference = 0.0; /**< power of interferers, as a multiple of the receiver's own noise */
    std::vector<target_truth> targets;
};

/** What all sensors should have found in a frame. */
struct frame_truth
{
    std::vector<std::optional<item_truth>> items; /**< for each item of the frame; no value if unknown */
};

/**
 * Decodes what one sensor should have found, from a line of a truth file.
 *
 * @throws protocol_error if a member is missing or out of range, a target is there twice, or there are more
 * than 64
 */
item_truth decode_truth(const nlohmann::json &document);

/** Encodes what one sensor should have found, as in a line of a truth file. */
nlohmann::ordered_json encode_truth(const item_truth &truth);

} // namespace vantor

#endif
