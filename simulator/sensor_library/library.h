/** @file
 * Shared by the complete simulated sensor library: the board record, the log, the live objects.
 */
#ifndef ZET_SIMULATOR_LIBRARY_H
#define ZET_SIMULATOR_LIBRARY_H

#include <cstddef>
#include <cstdint>

#include "zet_hal_definitions_k330.h"
#include "zet_integration_log.h"

namespace zet_simulator
{

/** The kinds of objects behind the library's handles. */
enum class object_kind : uint8_t
{
    config,
    sensor,
    processing,
};

/** The start of every object behind a handle of the library. */
struct object
{
    object *next;     /**< next live object in the same bucket */
    object_kind kind; /**< kind of the object */
};

/** Returns the registered board record; null before registration. */
const zet_hal_k330_t *library_hal();

/** Writes a line to the library's log if its level is enabled. */
void library_log(zet_log_level_t level, const char *format, ...) ZET_PRINTF_FORMAT(2, 3);

/** Writes a line to the diagnostic log if that is on. */
void library_diagnostic_log(const char *format, ...) ZET_PRINTF_FORMAT(1, 2);

/**
 * Creates an object, all zero except its head, and registers it as live.
 *
 * @param size  size of the complete object, in bytes
 * @return the object; null when memory is exhausted (which is logged)
 */
object *object_create(object_kind kind, size_t size);

/** Removes an object from the registry and frees it. */
void object_destroy(object *object);

/**
 * Finds the live object behind a handle, without accessing what the handle points to.
 *
 * @param handle     the handle as passed by the caller
 * @param operation  name of the operation that was called, for the log
 * @return the object; null, with a log line that says why, when the handle is null, was never created or
 *         has been destroyed
 */
object *object_find(const void *handle, object_kind kind, const char *operation);

} // namespace zet_simulator

#endif
