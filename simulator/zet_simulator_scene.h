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

/* A port with little memory defines ZET_SIMULATOR_SMALL_SCENE: the scene has fewer entries, and its targets
 * move along the line of sight only, without tracks. */
#ifdef ZET_SIMULATOR_SMALL_SCENE
/** Most targets in a scene. */
#define ZET_SIMULATOR_MAX_TARGETS 6U
/** Most interferers in a scene. */
#define ZET_SIMULATOR_MAX_INTERFERERS 1U
/** Most temperatures in a scene. */
#define ZET_SIMULATOR_MAX_TEMPERATURES 1U
/** Most faults in a scene. */
#define ZET_SIMULATOR_MAX_FAULTS 2U
/** Most descriptions of hardware in a scene. */
#define ZET_SIMULATOR_MAX_HARDWARE 1U
#else
/** Most targets in a scene. */
#define ZET_SIMULATOR_MAX_TARGETS 64U
/** Most interferers in a scene. */
#define ZET_SIMULATOR_MAX_INTERFERERS 8U
/** Most temperatures in a scene. */
#define ZET_SIMULATOR_MAX_TEMPERATURES 8U
/** Most faults in a scene. */
#define ZET_SIMULATOR_MAX_FAULTS 16U
/** Most descriptions of hardware in a scene. */
#define ZET_SIMULATOR_MAX_HARDWARE 64U
/** Most oscillations of all targets of a scene. */
#define ZET_SIMULATOR_MAX_OSCILLATIONS 256U
/** Most keyframes of all targets of a scene. */
#define ZET_SIMULATOR_MAX_KEYFRAMES 8192U
/** Most positions of sensors in a scene. */
#define ZET_SIMULATOR_MAX_POSES 64U
#endif

/** How the cross-section of a target differs from frame to frame. The phase of one that differs is random. */
ZET_BYTE_ENUM(zet_simulator_fluctuation_t){
    ZET_SIMULATOR_FLUCTUATION_NONE = 0,   /**< it is constant */
    ZET_SIMULATOR_FLUCTUATION_SWERLING_1, /**< many equal scatterers: exponential distribution */
    ZET_SIMULATOR_FLUCTUATION_SWERLING_3, /**< one large and many small ones: chi-square, 4 degrees of freedom
                                           */
};

#ifndef ZET_SIMULATOR_SMALL_SCENE
/** A part of the periodic motion of a target: A sin(2 pi (f t + phase + wander sin(2 pi f_w t))). */
typedef struct
{
    float amplitude_m;         /**< A along the line of sight, in metres */
    float frequency_hz;        /**< f, in hertz */
    float phase_turns;         /**< phase at time 0, in turns */
    float wander_turns;        /**< how far an uneven rate is ahead or behind, in turns */
    float wander_frequency_hz; /**< f_w, how often, in hertz */
    float amplitude_xyz_m[3];  /**< A along x, y and z, in metres, of a target with a place */
} zet_simulator_oscillation_t;

/** Where a target is at a time. */
typedef struct
{
    float time_s;      /**< time of the scene, in seconds */
    float position[3]; /**< place in metres; of a target without a place, the first is its distance */
} zet_simulator_keyframe_t;

/** Where a sensor is and where it looks. The first entry for this sensor is used, otherwise the first for
 * every sensor; without one it is at the origin, looks along y and has no antenna pattern. */
typedef struct
{
    zet_sensor_id_t sensor_id; /**< the sensor; 0 for every sensor */
    uint32_t board;            /**< the board, if several boards see the scene; 0 for every board */
    float place_m[3];          /**< x, y, z in metres */
    float direction[3];        /**< where it looks, a vector of any length; all 0 for along y */
    float beam_deg;            /**< one-way width of its beam at half power; 0 for no pattern */
} zet_simulator_pose_t;
#endif

/**
 * A target: a point that reflects, or a surface that mirrors.
 *
 * Its position is the sum of the start, velocity times time, the track and the oscillations. The position is
 * a distance from every sensor, or a place in space.
 */
typedef struct
{
    zet_sensor_id_t sensor_id;      /**< the sensor that sees it; 0 for every sensor */
    float distance_m;               /**< distance at time 0, in metres */
    float strength_m2;              /**< radar cross-section, in square metres; 0 for a surface */
    float velocity_m_s;             /**< in metres per second; positive when it moves away */
    float oscillation_amplitude_m;  /**< amplitude of a sine added to the distance, in metres */
    float oscillation_frequency_hz; /**< its frequency, in hertz */
    float nearest_m;                /**< a moving target turns back at this distance, in metres ... */
    float farthest_m;               /**< ... and at this one; if both are 0, it never turns */
    float enter_s;                  /**< when it appears, in seconds */
    float leave_s;                  /**< when it disappears, in seconds; 0 for never */
    float reflectivity;             /**< of a surface: reflected amplitude, at most 1; 0 for a point */
    zet_simulator_fluctuation_t fluctuation; /**< of its cross-section */
#ifndef ZET_SIMULATOR_SMALL_SCENE
    bool has_place;              /**< it is at a place, not at a distance */
    float place_m[3];            /**< place at time 0: x, y, z in metres */
    float place_velocity_m_s[3]; /**< velocity along x, y, z */
    uint16_t first_oscillation;  /**< its first oscillation in those of the scene ... */
    uint16_t oscillation_count;  /**< ... and how many it has */
    uint16_t first_keyframe;     /**< first keyframe of its track in those of the scene ... */
    uint16_t keyframe_count;     /**< ... and how many it has */
    uint32_t body;               /**< targets with the same number are one thing; 0 if it is one on its own */
#endif
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

/** What is not ideal in a sensor; a value of 0 switches an effect off. The first entry for this sensor is
 * used, otherwise the first for every sensor; without one the sensor is ideal. */
typedef struct
{
    zet_sensor_id_t sensor_id;   /**< the sensor; 0 for every sensor */
    float phase_noise_rad_per_m; /**< deviation of an echo's phase, for one pulse and per metre of distance */
    float phase_drift_rad_per_m; /**< slow deviation in each octave of its spectrum, per metre of distance */
    float sidelobe_level;        /**< amplitude of each sidelobe of a pulse, relative to the pulse */
    float ringing_level;        /**< amplitude at which the leakage begins to ring, relative to the leakage */
    float delay_drift_mm_per_k; /**< by which echoes move away per kelvin above the calibration */
    float gain_drift_per_k;     /**< relative loss of amplitude per kelvin above the calibration */
    float bursts_per_s;         /**< mean number of bursts of interference per second */
    float burst_s;              /**< duration of a burst, in seconds */
    float burst_strength;       /**< its power, as a multiple of the receiver's own noise power */
} zet_simulator_hardware_t;

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
    uint16_t target_count;
    uint16_t interferer_count;
    uint16_t temperature_count;
    uint16_t fault_count;
    uint16_t hardware_count;
    zet_simulator_target_t targets[ZET_SIMULATOR_MAX_TARGETS];
    zet_simulator_interferer_t interferers[ZET_SIMULATOR_MAX_INTERFERERS];
    zet_simulator_temperature_t temperatures[ZET_SIMULATOR_MAX_TEMPERATURES];
    zet_simulator_fault_t faults[ZET_SIMULATOR_MAX_FAULTS];
    zet_simulator_hardware_t hardware[ZET_SIMULATOR_MAX_HARDWARE];
#ifndef ZET_SIMULATOR_SMALL_SCENE
    uint16_t pose_count;
    uint16_t oscillation_count;
    uint16_t keyframe_count;
    zet_simulator_pose_t poses[ZET_SIMULATOR_MAX_POSES];
    zet_simulator_oscillation_t oscillations[ZET_SIMULATOR_MAX_OSCILLATIONS]; /**< those of all targets */
    zet_simulator_keyframe_t keyframes[ZET_SIMULATOR_MAX_KEYFRAMES];          /**< those of all targets */
#endif
} zet_simulator_scene_t;

/** Returns hardware with all effects but bursts, for every sensor. Its values are assumed, not those of a
 * measured sensor. */
zet_simulator_hardware_t zet_simulator_default_hardware(void);

/**
 * Returns the built-in scene: a small reflector at 0.5 m, a breathing person at 1.2 m, a wall at 3.5 m, seen
 * by sensors with the default hardware.
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

#ifndef ZET_SIMULATOR_SMALL_SCENE
/**
 * Removes the positions of sensors that belong to other boards.
 *
 * @param scene       a valid scene
 * @param board       number of this board, if several see the scene; otherwise 0
 * @param error       receives one sentence that says what is missing
 * @param error_size  size of @p error in bytes; 256 is enough for every sentence
 * @return false when the scene has entries for other boards but none for this one
 */
bool zet_simulator_scene_select_board(zet_simulator_scene_t *scene, uint16_t board, char *error,
                                      size_t error_size);
#endif

#ifdef __cplusplus
}
#endif

#endif
