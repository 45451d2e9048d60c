/** @file
 * Calibrations kept in a file, so that a later session need not calibrate its sensors.
 */
#ifndef VANTOR_CALIBRATION_FILE_H
#define VANTOR_CALIBRATION_FILE_H

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/calibration.h"

namespace vantor
{

/** The text of a calibration file: an object with "calibration_info", as in a configuration document. */
std::string calibration_text(const std::vector<calibration> &calibrations);

/**
 * Puts the calibrations of a file into a configuration document. Those that the document has already stay.
 *
 * @throws configuration_error when the file cannot be read or holds no calibrations
 */
void add_calibrations(nlohmann::json &configuration, const std::filesystem::path &file);

} // namespace vantor

#endif
