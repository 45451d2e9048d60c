/** @file
 * Reads configuration documents and lists their items.
 */
#ifndef VANTOR_CONFIGURATION_H
#define VANTOR_CONFIGURATION_H

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/errors.h"

namespace vantor
{

/** A file is not a usable configuration document. */
class configuration_error : public error
{
public:
    using error::error;
};

/** Positions of the points of a sub-sweep, in base steps, and its pulse. */
struct subsweep_range
{
    int num_points = 160; /**< number of points */
    int start_point = 80; /**< position of the first point */
    int step_length = 1;  /**< distance between two points */
    int profile = 3;      /**< which pulse */
};

/** One item of a configuration document. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct item_configuration
{
    unsigned sensor_id = 0;  /**< 1 or more */
    nlohmann::json document; /**< the item as it is in the document */
    double frame_rate = 0.0; /**< in hertz; 0 if not set */
    double sweep_rate = 0.0; /**< in hertz; 0 for the highest possible */
    std::vector<subsweep_range> subsweeps;
};

/**
 * Parses a JSON text; rejects repeated members, very deep nesting and very many values.
 *
 * @param text  the text
 * @param name  its name for error messages, such as the file name
 * @throws configuration_error with line and column if it is not JSON
 */
nlohmann::json parse_json_text(std::string_view text, const std::string &name);

/**
 * Reads a configuration document from a file or a pipe.
 *
 * @throws configuration_error if the file cannot be read, is too large or not JSON, repeats a member or is
 *         not an object
 */
nlohmann::json load_configuration(const std::filesystem::path &file);

/**
 * Lists the items of a document that a server has accepted, in the order used in frames.
 *
 * @param configuration  the document
 * @return one element per item
 * @throws configuration_error if it is not such a document, with the place
 */
std::vector<item_configuration> list_items(const nlohmann::json &configuration);

/**
 * Finds the rate at which the sensors deliver frames: the lowest "frame_rate", since a frame is complete when
 * the slowest sensor is.
 *
 * @param configuration  a document that a server has accepted
 * @return frames per second, rounded as in the server; 0 if no item has a frame rate
 */
double sensor_frame_rate(const nlohmann::json &configuration);

/** Returns the frame rate at which a document has the server pace the frames, in hertz; 0 if it does not. */
double paced_frame_rate(const nlohmann::json &configuration);

} // namespace vantor

#endif
