/** @file
 * The figures that follow from a configuration document: distances, times, rates, velocities and sizes.
 */
#ifndef VANTOR_PLAN_H
#define VANTOR_PLAN_H

#include <cstddef>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/configuration_fault.h"

namespace vantor
{

/** Sweeps in a frame from which its velocity spectrum can be computed. */
inline constexpr size_t fewest_sweeps_of_spectrum = 16;

/** The part of a frame period that sensors can measure; the rest is for reading out and sending the frame. */
inline constexpr double measuring_share = 0.8;

/** A sub-sweep of an item. */
struct subsweep_plan
{
    size_t offset = 0;          /**< position of its first sample in a sweep */
    size_t points = 0;          /**< number of samples */
    double first_m = 0.0;       /**< distance of the first point */
    double last_m = 0.0;        /**< distance of the last point */
    double step_m = 0.0;        /**< distance between two points */
    double pulse_width_m = 0.0; /**< targets closer than this to each other look like one */
    double unambiguous_m = 0.0; /**< greatest distance with an echo that arrives before the next pulse */

    /** Number of points in the width of a pulse. */
    [[nodiscard]] double points_per_pulse() const noexcept
    {
        return pulse_width_m / step_m;
    }
};

/** An item of a session. */
struct item_plan
{
    size_t group = 0; /**< index of the item's group, from 0 */
    size_t index = 0; /**< index of the item in its group, from 0 */
    unsigned sensor_id = 0;
    std::vector<subsweep_plan> subsweeps;
    size_t sweeps = 1;       /**< sweeps in a frame */
    size_t sweep_length = 0; /**< samples in a sweep */
    bool high_speed_mode = false;
    double base_step_m = 0.0;    /**< unit of all distances in the configuration */
    double max_sweep_rate = 0.0; /**< in hertz */
    double sweep_rate = 0.0;     /**< in hertz: the configured one, or the highest */
    bool paced_sweeps = false;   /**< whether the sweep rate is configured */
    double sweep_s = 0.0;        /**< duration of a sweep, without waking up */
    double frame_s = 0.0;        /**< duration of a frame */
    double frame_rate = 0.0;     /**< configured, in hertz; 0 if the sensor does not pace the frames */

    /** Samples in a frame. */
    [[nodiscard]] size_t frame_length() const noexcept
    {
        return sweep_length * sweeps;
    }

    /** Highest velocity along the line of sight that the phase shows without ambiguity, in metres per second;
     * nothing with a single sweep. */
    [[nodiscard]] std::optional<double> greatest_velocity() const;

    /** Velocity that a target must differ by from another one, or from rest, to be told apart, in metres per
     * second; nothing with a single sweep. */
    [[nodiscard]] std::optional<double> smallest_velocity() const;
};

/** A session. */
struct session_plan
{
    std::vector<item_plan> items; /**< the items of all groups, in the order used in frames */
    double frame_rate = 0.0;      /**< configured, in frames per second; 0 for as fast as possible */
    double max_frame_rate = 0.0;  /**< with no time beside measuring, in frames per second */
    size_t payload_bytes = 0;     /**< samples of a frame */
    size_t header_bytes = 0;      /**< the longest header of a frame */
    size_t memory_bytes = 0;      /**< heap of a board that the session needs while it measures */
    bool sensors_assumed = true;  /**< whether the sensors' figures are assumed, not reported by a server */
    bool memory_assumed = true;   /**< whether the memory is assumed, not reported by a server */
    std::vector<configuration_fault>
        impossible_rates;                    /**< rates that the sensors refuse; none in a valid document */
    std::vector<configuration_fault> doubts; /**< what is accepted, but probably not wanted: rates that leave
                                                  out frames, no item */

    /** Bytes of a frame, at most. */
    [[nodiscard]] size_t frame_bytes() const noexcept
    {
        return payload_bytes + header_bytes;
    }

    /** Frame rate that is reached at most, in frames per second: the configured one; a part of it if every
     * frame makes the server leave out others; the highest one if none is configured. */
    [[nodiscard]] double expected_frame_rate() const noexcept;
};

/**
 * Derives the figures of a session from its configuration document and docs/k330.json.
 *
 * What only a server knows is assumed: see session_plan::sensors_assumed and session_plan::memory_assumed.
 * The effect of "cpd_overrides" is not included.
 *
 * @param document  a document in which check_configuration finds no fault
 */
session_plan plan(const nlohmann::json &document);

/**
 * Highest frame rate that can be configured without leaving frames out, in frames per second. A server
 * measures a frame, then reads it out and sends it: measuring takes at most measuring_share of the time that
 * is left beside sending.
 *
 * @param baudrate  of the link; nothing if its time is negligible
 */
double lasting_frame_rate(const session_plan &session, std::optional<double> baudrate);

/** Number of frames that a link carries if it sends nothing else, in frames per second. */
double link_frame_rate(const session_plan &session, double baudrate);

} // namespace vantor

#endif
