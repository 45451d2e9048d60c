/** @file
 * The result of calibrating a sensor.
 */
#ifndef VANTOR_CALIBRATION_H
#define VANTOR_CALIBRATION_H

#include <string>

namespace vantor
{

/** A calibration result, as "calibration_info" in a configuration document accepts it. */
struct calibration
{
    unsigned sensor_id = 0; /**< from 1 */
    int temperature = 0;    /**< at which it was made, in degrees Celsius as the sensor counts them */
    std::string data;       /**< hexadecimal digits */
};

} // namespace vantor

#endif
