/** @file
 * Types that the sensor library, the board layer and the application share.
 */
#ifndef ZET_DEFINITIONS_COMMON_H
#define ZET_DEFINITIONS_COMMON_H

#include <stdint.h>

/**
 * Begins an enumeration that is one byte wide in both C and C++, so that records that contain it have the
 * same layout in both.
 */
#ifdef __cplusplus
#define ZET_BYTE_ENUM(type) enum type : uint8_t
#else
#define ZET_BYTE_ENUM(type)                                                                                  \
    typedef uint8_t type;                                                                                    \
    enum
#endif

/** Number of a sensor position on the board, counted from 1; 0 is not a sensor. */
typedef uint32_t zet_sensor_id_t;

/** Severity of a log line, the most severe first. A threshold passes its own level and more severe ones. */
ZET_BYTE_ENUM(zet_log_level_t){
    ZET_LOG_LEVEL_ERROR = 0,   /**< an operation failed */
    ZET_LOG_LEVEL_WARNING = 1, /**< something unexpected that did not stop the operation */
    ZET_LOG_LEVEL_INFO = 2,    /**< progress of a session */
    ZET_LOG_LEVEL_VERBOSE = 3, /**< details of an operation */
    ZET_LOG_LEVEL_DEBUG = 4,   /**< internals */
};

#endif
