/** @file
 * The scene: what the simulated sensors see, and which faults they have.
 *
 * The time of a scene starts with the first frame of a session, for all sensors at once. A session begins
 * with the first sensor handle that is created while none exists, so every session sees the scene from its
 * beginning.
 */
#ifndef ZET_SIMULATOR_SCENE_H
#define ZET_SIMULATOR_SCENE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "zet_definitions_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Most targets in a scene. */
#define ZET_SIMULATOR_MAX_TARGETS 16U
/** Most interferers in a scene. */
#define ZET_SIMULATOR_MAX_INTERFERERS 8U
/** Most temperatures in a scene. */
#define ZET_SIMULATOR_MAX_TEMPERATURES 8U
/** Most faults in a scene. */
#define ZET_SIMULATOR_MAX_FAULTS 16U

/** A point target. */
typedef struct
{
    zet_sensor_id_t sensor_id;      /**< the sensor that sees it; 0 for every sensor */
    float distance_m;               /**< distance at time 0, in metres, more than 0 */
    float strength_m2;              /**< radar cross-section, in square metres, more than 0 */
    float velocity_m_s;             /**< in metres per second; positive when it moves away */
    float oscillation_amplitude_m;  /**< amplitude of a sine added to the distance, in metres */
    float oscillation_frequency_hz; /**< its frequency, in hertz */
    float nearest_m;                /**< a moving target turns back at this distance, in metres ... */
    float farthest_m;               /**< ... and at this one; if both are 0, it never turns */
} zet_simulator_target_t;

/** An interfering transmitter in the sensor's band. */
typedef struct
{
    zet_sensor_id_t sensor_id; /**< the sensor that receives it; 0 for every sensor */
    float strength;            /**< received power, as a multiple of the receiver's own noise power */
    float start_s;             /**< when it starts, in seconds */
    float duration_s;          /**< how long it lasts, in seconds; 0 for unlimited */
    float period_s;            /**< time from start to start, in seconds; 0 when it does not repeat */
} zet_simulator_interferer_t;

/** The temperature of a sensor. The first entry for this sensor is used, otherwise the first for every
 * sensor; 25 degrees without one. */
typedef struct
{
    zet_sensor_id_t sensor_id; /**< the sensor; 0 for every sensor */
    float celsius;             /**< at time 0, in degrees Celsius */
    float drift_celsius_per_s; /**< its drift, in degrees per second */
} zet_simulator_temperature_t;

/** What can go wrong. */
ZET_BYTE_ENUM(zet_simulator_fault_kind_t){
    ZET_SIMULATOR_FAULT_ABSENT_SENSOR = 0,   /**< no sensor answers at the position */
    ZET_SIMULATOR_FAULT_FAILING_CALIBRATION, /**< a calibration step fails */
    ZET_SIMULATOR_FAULT_FAILING_PREPARE,     /**< a configuration cannot be loaded */
    ZET_SIMULATOR_FAULT_FAILING_MEASURE,     /**< a measurement does not start */
    ZET_SIMULATOR_FAULT_LOST_INTERRUPT,      /**< an interrupt never comes */
    ZET_SIMULATOR_FAULT_FAILING_READ,        /**< a frame cannot be read */
    ZET_SIMULATOR_FAULT_SLOW_LINK,           /**< reading a frame takes time */
};

/** A fault. It affects calls of one operation, after a number of successful ones. */
typedef struct
{
    zet_sensor_id_t sensor_id;       /**< the affected sensor; 0 for every sensor */
    zet_simulator_fault_kind_t kind; /**< what fails */
    uint32_t skip;                   /**< number of calls that succeed before the fault */
    uint32_t count;                  /**< number of calls that it affects; 0 for all that follow */
    uint32_t bytes_per_second;       /**< transfer rate of a slow link */
} zet_simulator_fault_t;

/** What the sensors see. */
typedef struct
{
    uint8_t target_count;
    uint8_t interferer_count;
    uint8_t temperature_count;
    uint8_t fault_count;
    zet_simulator_target_t targets[ZET_SIMULATOR_MAX_TARGETS];
    zet_simulator_interferer_t interferers[ZET_SIMULATOR_MAX_INTERFERERS];
    zet_simulator_temperature_t temperatures[ZET_SIMULATOR_MAX_TEMPERATURES];
    zet_simulator_fault_t faults[ZET_SIMULATOR_MAX_FAULTS];
} zet_simulator_scene_t;

/**
 * Returns the built-in scene: a small reflector at 0.5 m, a breathing person at 1.2 m, a wall at 3.5 m.
 *
 * @return the scene, valid for the lifetime of the program
 */
const zet_simulator_scene_t *zet_simulator_default_scene(void);

/**
 * Checks every value of a scene against its range.
 *
 * @param scene       the scene
 * @param error       receives one sentence that names the invalid value and says what it must be
 * @param error_size  size of @p error in bytes; 256 is enough for every sentence
 */
bool zet_simulator_scene_is_valid(const zet_simulator_scene_t *scene, char *error, size_t error_size);

/**
 * Checks that a board has every sensor that a scene names.
 *
 * @param scene         a valid scene
 * @param sensor_count  sensor positions on the board
 * @param error         receives one sentence that names the sensor
 * @param error_size    size of @p error in bytes; 256 is enough for every sentence
 */
bool zet_simulator_scene_fits_board(const zet_simulator_scene_t *scene, uint16_t sensor_count, char *error,
                                    size_t error_size);

#ifdef __cplusplus
}
#endif

#endif
