/** @file
 * Calibration files, with which a session can reuse the calibrations of an earlier one.
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
 * Adds the calibrations of a file to a configuration document, except for sensors whose calibration the
 * document already contains.
 *
 * @throws configuration_error if the file cannot be read or is not a calibration file
 */
void add_calibrations(nlohmann::json &configuration, const std::filesystem::path &file);

} // namespace vantor

#endif
