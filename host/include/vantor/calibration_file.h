/** @file
 * Calibration files, with which a session can reuse the calibrations of an earlier one.
 */
#ifndef VANTOR_CALIBRATION_FILE_H
#define VANTOR_CALIBRATION_FILE_H

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/calibration.h"

namespace vantor
{

/** The text of a calibration file: an object with "calibration_info", as in a configuration document. */
std::string calibration_text(const std::vector<calibration> &calibrations);

/**
 * Checks that a file of these calibrations can be used.
 *
 * @param sensors  the numbers of the sensors that were to be calibrated
 * @throws protocol_error if not
 */
void check_calibrations(const std::vector<calibration> &calibrations, const std::set<unsigned> &sensors);

/**
 * Adds calibrations of a file to a configuration document: those of sensors that the document uses and whose
 * calibration it does not already contain.
 *
 * @param configuration  the document
 * @param file           a regular file
 * @throws configuration_error if the file cannot be read or is not a calibration file, has two calibrations
 *         of a sensor, or none for any of these sensors
 */
void add_calibrations(nlohmann::json &configuration, const std::filesystem::path &file);

/**
 * Adds calibrations of an earlier session to a configuration document: those of sensors that the document
 * uses and whose calibration it does not already contain.
 *
 * @param configuration  a valid document
 * @param calibrations   the calibrations
 */
void add_calibrations(nlohmann::json &configuration, const std::vector<calibration> &calibrations);

} // namespace vantor

#endif
