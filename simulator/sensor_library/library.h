/** @file
 * What all of the simulated sensor library shares: the board record, its log, its live objects.
 */
#ifndef ZET_SIMULATOR_LIBRARY_H
#define ZET_SIMULATOR_LIBRARY_H

#include <cstddef>
#include <cstdint>

#include "zet_hal_definitions_k330.h"
#include "zet_integration_log.h"

namespace zet_simulator
{

/** The kinds of objects behind the handles that the library gives out. */
enum class object_kind : uint8_t
{
    config,
    sensor,
    processing,
};

/** The start of every object that the library gives out as a handle. */
struct object
{
    object *next;     /**< next live object of the same bucket */
    object_kind kind; /**< what it is */
};

/** The registered board record; null before registration. */
const zet_hal_k330_t *library_hal();

/** Writes a line to the library's log when its level passes the threshold. */
void library_log(zet_log_level_t level, const char *format, ...) ZET_PRINTF_FORMAT(2, 3);

/** Writes a line of the diagnostic log when that is on. */
void library_diagnostic_log(const char *format, ...) ZET_PRINTF_FORMAT(1, 2);

/**
 * Makes an object, all zero but for its head, and counts it as live.
 *
 * @param size  size of the whole object, in bytes
 * @return the object; null when memory is exhausted (which is logged)
 */
object *object_create(object_kind kind, size_t size);

/** Ends the life of an object and frees it. */
void object_destroy(object *object);

/**
 * Finds the live object behind a handle, without touching what the handle points to.
 *
 * @param handle     the handle as the caller gave it
 * @param operation  name of the operation that was called, for the log
 * @return the object; null, with a log line that says why, when the handle is null, was never given out or
 * has been destroyed
 */
object *object_find(const void *handle, object_kind kind, const char *operation);

} // namespace zet_simulator

#endif
