/** @file
 * From what a person wants to see to a configuration document.
 */
#ifndef VANTOR_WISH_H
#define VANTOR_WISH_H

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantor
{

/** What a person wants to see. */
struct wish
{
    std::optional<double> nearest_m = {}; /**< distance of the first point; 0.2 m if possible if missing */
    double farthest_m = 0.0;              /**< distance of the last point; above nearest_m */
    std::optional<double> resolution_m =
        {}; /**< two equal targets this far from each other shall have a dip of 3 dB between them */
    std::optional<double> frame_rate = {};        /**< in frames per second */
    std::optional<double> greatest_velocity = {}; /**< in metres per second */
    std::optional<double> smallest_velocity = {}; /**< in metres per second; only with a greatest one */
    std::optional<double> baudrate = {};          /**< of the link to the server */
    std::vector<unsigned> sensors = {1};          /**< numbers of the sensors that measure */
};

/** The value that was chosen for a member of the configuration, and why. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct decision
{
    std::string member;
    nlohmann::ordered_json value;
    std::string reason;
};

/** A part of a wish that cannot be met. */
struct shortfall
{
    std::string wish;     /**< such as "resolution" */
    std::string unit;     /**< of the numbers */
    double asked = 0.0;   /**< what the person wants */
    double nearest = 0.0; /**< what the configuration gives instead */
    std::string reason;
};

/** A shortfall as a sentence with rounded numbers. */
std::string to_string(const shortfall &part);

/** A configuration for a wish. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct choice
{
    nlohmann::ordered_json configuration; /**< a valid document */
    std::vector<decision> decisions;
    std::vector<shortfall> shortfalls; /**< empty if the configuration meets the wish */
};

/** Chooses the configuration that meets a wish, or the nearest one that is possible. */
choice choose_configuration(const wish &wanted);

} // namespace vantor

#endif
