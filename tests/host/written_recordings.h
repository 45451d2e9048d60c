/** @file
 * Recordings with given samples.
 */
#ifndef VANTOR_WRITTEN_RECORDINGS_H
#define VANTOR_WRITTEN_RECORDINGS_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/session.h"

namespace vantor::test
{

/**
 * Records frames with an echo at one point of each item whose phase changes by this much per frame. In frames
 * of the first item that are not valid, the echo is at another point.
 */
void write_turning_recording(const std::filesystem::path &directory, int frames, double turn,
                             const std::set<int> &not_valid = {});

/** Records frames of this many items, each with one sub-sweep. */
void write_items(const std::filesystem::path &directory, size_t items, int points, double base_step);

/** An item, and what its frames contain. */
struct written_item
{
    nlohmann::json config;                /**< of one sub-sweep */
    size_t points = 100;                  /**< number of points */
    size_t sweeps = 1;                    /**< sweeps in a frame */
    double max_sweep_rate = 1000;         /**< in hertz */
    uint32_t frame_ticks = 20000;         /**< time between frames, in microseconds */
    bool paced = true;                    /**< the server paces the frames by its clock */
    bool has_clock = true;                /**< the server has a clock */
    bool finished = true;                 /**< the recording is finished */
    std::map<int, uint64_t> missing = {}; /**< numbers of frames that are missing right before a frame */
    std::map<int, double> breaks = {};    /**< seconds of breaks right before a frame */
};

/** Returns a sample, given the numbers of frame, sweep and point. */
using sample_source = std::function<std::complex<double>(int frame, size_t sweep, size_t point)>;

/** Changes the description of the item in the header of a frame. */
using header_change = std::function<void(int frame, nlohmann::json &info)>;

/** Records frames of one item. */
void write_item(const std::filesystem::path &directory, const written_item &item, int frames,
                const sample_source &source, const header_change &change = {});

/** Number of frames of write_many_gaps(). */
inline constexpr int frames_between_gaps = 12000;

/** Records frames of which every second one is missing: more gaps than are listed. */
void write_many_gaps(const std::filesystem::path &directory, bool paced = true);

} // namespace vantor::test

#endif
