/** @file
 * Contents, sealing and checking of calibration results.
 */
#include "sensor_library/calibration.h"

#include <cstring>

#include "common/noise.h"
#include "sensor_library/library.h"
#include "zet_sensor.h"

namespace
{

using namespace zet_simulator;

constexpr uint32_t calibration_magic = 0x4B334341;

/** How the 60 words of a result are used. */
struct sealed_calibration
{
    uint32_t magic;
    calibration content;
    uint32_t curves[47]; /**< the sensor's correction curves */
    uint32_t checksum;   /**< of all words before it */
};
static_assert(sizeof(sealed_calibration) == sizeof(zet_cal_result_t), "the layout fills the result");

/** The remainder of the polynomial division for each byte. */
struct remainder_table
{
    uint32_t of_byte[256];
};

constexpr remainder_table make_remainders()
{
    remainder_table remainders = {};
    for (uint32_t byte = 0; byte < 256U; ++byte)
    {
        uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit)
        {
            remainder = (remainder >> 1U) ^ ((remainder & 1U) != 0U ? 0xEDB88320U : 0U);
        }
        remainders.of_byte[byte] = remainder;
    }
    return remainders;
}

constexpr remainder_table remainders = make_remainders();

/** CRC-32 (ISO 3309, reflected polynomial 0xEDB88320): detects every change of one byte. */
uint32_t checksum_of(const void *data, size_t size)
{
    const auto *bytes = static_cast<const unsigned char *>(data);
    uint32_t remainder = UINT32_MAX;
    for (size_t i = 0; i < size; ++i)
    {
        remainder = remainder >> 8U ^ remainders.of_byte[(remainder ^ bytes[i]) & 0xFFU];
    }
    return ~remainder;
}

/** Returns a property that differs from sensor to sensor: a base value plus less than the spread. */
uint16_t property(zet_sensor_id_t sensor_id, uint32_t number, uint16_t base, uint32_t spread)
{
    const uint64_t random = scramble((static_cast<uint64_t>(sensor_id) << 32U) | (number + 1U));
    return static_cast<uint16_t>(base + random % spread);
}

/** Returns the words of the parameter block that depend on the sensor. */
calibration_parameters parameters_of(zet_sensor_id_t sensor_id, int16_t temperature)
{
    const uint16_t frequency_control = nominal_frequency_control(sensor_id, temperature);
    calibration_parameters parameters = {};
    parameters.pll_mmd_range = 1;
    parameters.pll_mmd_a = property(sensor_id, 1, 10, 4);
    parameters.pll_mmd_b = property(sensor_id, 2, 40, 4);
    parameters.pll_cpmp_ictrl_value = property(sensor_id, 3, 6, 3);
    parameters.vco_cbank_value = property(sensor_id, 4, 20, 12);
    parameters.vco_bias_value = property(sensor_id, 5, 12, 5);
    parameters.delay_cbank_value = property(sensor_id, 6, 30, 10);
    parameters.vfast2_ldo_on_level = property(sensor_id, 7, 7, 2);
    parameters.rx_freq_ctrl = frequency_control;
    parameters.tx_freq_ctrl = frequency_control;
    parameters.thresh1 = property(sensor_id, 8, 100, 20);
    parameters.thresh2 = property(sensor_id, 9, 200, 20);
    parameters.area1_phase = property(sensor_id, 10, 0, 24);
    parameters.area1_rxcoarse_offset = property(sensor_id, 11, 0, 2);
    parameters.area2_phase = property(sensor_id, 12, 0, 24);
    parameters.area2_rxcoarse_offset = property(sensor_id, 13, 0, 2);
    parameters.area3_phase = property(sensor_id, 14, 0, 24);
    parameters.area3_rxcoarse_offset = property(sensor_id, 15, 0, 2);
    return parameters;
}

} // namespace

namespace zet_simulator
{

uint16_t nominal_frequency_control(zet_sensor_id_t sensor_id, int16_t temperature)
{
    constexpr int32_t degrees_per_step = 4;
    constexpr int32_t lowest_temperature = -100;
    const int32_t steps = (temperature - lowest_temperature) / degrees_per_step;
    return static_cast<uint16_t>(property(sensor_id, 0, 512, 32) - steps);
}

void calibration_fill(zet_sensor_id_t sensor_id, int16_t temperature, zet_cal_result_t &result)
{
    sealed_calibration sealed;
    std::memset(&sealed, 0, sizeof(sealed));
    sealed.magic = calibration_magic;
    sealed.content.sensor_id = sensor_id;
    sealed.content.temperature = temperature;
    sealed.content.parameters = parameters_of(sensor_id, temperature);
    uint32_t number = 0;
    for (uint32_t &value : sealed.curves)
    {
        value = static_cast<uint32_t>(scramble((static_cast<uint64_t>(sensor_id) << 48U) | ++number));
    }
    sealed.checksum = checksum_of(&sealed, offsetof(sealed_calibration, checksum));
    std::memcpy(&result, &sealed, sizeof(result));
}

bool calibration_open(const zet_cal_result_t &result, calibration &opened)
{
    sealed_calibration sealed;
    std::memcpy(&sealed, &result, sizeof(sealed));
    if (sealed.magic != calibration_magic ||
        sealed.checksum != checksum_of(&sealed, offsetof(sealed_calibration, checksum)))
    {
        return false;
    }
    opened = sealed.content;
    return true;
}

} // namespace zet_simulator

bool zet_sensor_get_cal_info(const zet_cal_result_t *cal_result, zet_cal_info_t *cal_info)
{
    calibration opened;
    if (cal_result == nullptr || cal_info == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the calibration result or the information is null", __func__);
        return false;
    }
    if (!calibration_open(*cal_result, opened))
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the calibration result is damaged or incomplete", __func__);
        return false;
    }
    cal_info->temperature = opened.temperature;
    return true;
}

bool zet_sensor_validate_calibration(const zet_cal_result_t *cal_result)
{
    calibration opened;
    if (cal_result == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the calibration result is null", __func__);
        return false;
    }
    if (!calibration_open(*cal_result, opened))
    {
        library_log(ZET_LOG_LEVEL_WARNING,
                    "%s: the calibration result is damaged or not one of a k330 sensor; calibrate "
                    "the sensor again",
                    __func__);
        return false;
    }
    return true;
}
