/** @file
 * Reads configuration documents from files, and lists their items.
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

/** A file holds no usable configuration document. */
class configuration_error : public error
{
public:
    using error::error;
};

/** Where the points of a sub-sweep lie, in base steps. */
struct subsweep_range
{
    int start_point = 80; /**< of the first point */
    int step_length = 1;  /**< from one point to the next */
};

/** One item of a configuration document. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct item_configuration
{
    unsigned sensor_id = 0;  /**< from 1 */
    nlohmann::json document; /**< the item as it stands in the document */
    double frame_rate = 0.0; /**< in hertz; 0 for none */
    double sweep_rate = 0.0; /**< in hertz; 0 for the highest possible */
    std::vector<subsweep_range> subsweeps;
};

/**
 * Reads a JSON text and refuses repeated members and nesting that no document needs.
 *
 * @param text  the text
 * @param name  what to call it in errors, such as its file name
 * @throws configuration_error with line and column when it is not JSON
 */
nlohmann::json parse_json_text(std::string_view text, const std::string &name);

/**
 * Reads a configuration document from a file or a pipe.
 *
 * @throws configuration_error when the file cannot be read, is too large or not JSON, repeats a member or is
 *         no object
 */
nlohmann::json load_configuration(const std::filesystem::path &file);

/**
 * Lists the items of a document that a server has accepted, in the order in which frames carry them.
 *
 * @param configuration  the document
 * @return one element per item
 * @throws configuration_error when it is no such document after all
 */
std::vector<item_configuration> list_items(const nlohmann::json &configuration);

} // namespace vantor

#endif
