/** @file
 * Types of the `k330` sensor library that several of its interfaces share.
 */
#ifndef ZET_DEFINITIONS_K330_H
#define ZET_DEFINITIONS_K330_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_definitions_common.h"

/** Highest number of sub-sweeps in one configuration. */
#define ZET_MAX_NUM_SUBSWEEPS 4U

/** Number of 32-bit words in a calibration result. */
#define ZET_CAL_RESULT_WORDS 60U

/** One complex sample: 4 bytes. */
typedef struct
{
    int16_t real; /**< in-phase part */
    int16_t imag; /**< quadrature part */
} zet_int16_complex_t;

/** Calibration result of one sensor: 240 opaque bytes that may be stored and passed in again later. */
typedef struct
{
    uint32_t data[ZET_CAL_RESULT_WORDS];
} zet_cal_result_t;

/** Information that can be extracted from a calibration result. */
typedef struct
{
    int16_t temperature; /**< during calibration: relative, in degrees Celsius; use it only to compare */
} zet_cal_info_t;

/**
 * Pulse profile: the length of the transmitted pulse. A short pulse resolves targets that are close to each
 * other; a long one has more energy and a longer range.
 */
ZET_BYTE_ENUM(zet_config_profile_t){
    ZET_CONFIG_PROFILE_1 = 1, /**< shortest pulse */
    ZET_CONFIG_PROFILE_2 = 2, ZET_CONFIG_PROFILE_3 = 3,
    ZET_CONFIG_PROFILE_4 = 4, ZET_CONFIG_PROFILE_5 = 5, /**< longest pulse */
};

/** Idle state of the sensor: a deeper state needs less power but takes longer to leave. */
ZET_BYTE_ENUM(zet_config_idle_state_t){
    ZET_CONFIG_IDLE_STATE_DEEP_SLEEP = 0,
    ZET_CONFIG_IDLE_STATE_SLEEP = 1,
    ZET_CONFIG_IDLE_STATE_READY = 2,
};

/** Pulse repetition frequency: a higher one gives more pulses per second but a shorter range. */
ZET_BYTE_ENUM(zet_config_prf_t){
    ZET_CONFIG_PRF_19_5_MHZ = 0, ZET_CONFIG_PRF_15_6_MHZ = 1, ZET_CONFIG_PRF_13_0_MHZ = 2,
    ZET_CONFIG_PRF_8_7_MHZ = 3,  ZET_CONFIG_PRF_6_5_MHZ = 4,  ZET_CONFIG_PRF_5_2_MHZ = 5,
};

#ifdef __cplusplus
static_assert(sizeof(zet_int16_complex_t) == 4, "samples are streamed as stored in memory");
static_assert(sizeof(zet_cal_result_t) == 240, "a calibration result is 240 bytes");
static_assert(sizeof(zet_config_profile_t) == 1 && sizeof(zet_config_prf_t) == 1 &&
                  sizeof(zet_config_idle_state_t) == 1 && sizeof(zet_log_level_t) == 1,
              "enumerations are one byte wide");
#else
_Static_assert(sizeof(zet_int16_complex_t) == 4, "samples are streamed as stored in memory");
_Static_assert(sizeof(zet_cal_result_t) == 240, "a calibration result is 240 bytes");
#endif

#endif
