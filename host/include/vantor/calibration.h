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
    int temperature = 0;    /**< during calibration: relative, in degrees Celsius; use it only to compare */
    std::string data;       /**< hexadecimal digits */
};

} // namespace vantor

#endif
