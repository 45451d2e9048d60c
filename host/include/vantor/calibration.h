/** @file
 * The result of calibrating a sensor.
 */
#ifndef VANTOR_CALIBRATION_H
#define VANTOR_CALIBRATION_H

#include <string>

namespace vantor
{

/** A calibration result, in the form of an element of "calibration_info" in a configuration document. */
struct calibration
{
    unsigned sensor_id = 0; /**< 1 or more */
    int temperature = 0; /**< sensor temperature during the calibration, in degrees Celsius; not absolute */
    std::string data;    /**< hexadecimal digits */
};

} // namespace vantor

#endif
