/** @file
 * Registration of the board, the library's log, and the registry of live objects, which detects stale
 * handles.
 */
#include "sensor_library/library.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "zet_diagnostic_log.h"
#include "zet_nox_k330.h"

namespace
{

using namespace zet_simulator;

constexpr char module_name[] = "k330";
constexpr size_t line_size = 192;

/** Number of lists into which the live objects are distributed by address. */
constexpr size_t bucket_count = 64;

/** The library's state; all zero at start. */
struct library
{
    const zet_hal_k330_t *hal;
    zet_log_level_t log_level;
    bool diagnostic_log;
    object *buckets[bucket_count];
};

library the_library;

/** Returns the list for an object at an address. */
object **bucket_of(const void *address)
{
    const uintptr_t number = reinterpret_cast<uintptr_t>(address);
    return &the_library.buckets[(number ^ (number >> 8U)) / 16U % bucket_count];
}

/** Formats a line and passes it to the board. */
void write_line(zet_log_level_t level, const char *format, va_list arguments)
{
    if (the_library.hal == nullptr)
    {
        return;
    }
    char line[line_size];
    if (std::vsnprintf(line, sizeof(line), format, arguments) >= 0)
    {
        the_library.hal->log(level, module_name, "%s", line);
    }
}

/** Returns the name of a kind of object, for the log. */
const char *name_of(object_kind kind)
{
    static const char *const names[] = {"configuration", "sensor", "processing"};
    return names[static_cast<size_t>(kind)];
}

} // namespace

namespace zet_simulator
{

const zet_hal_k330_t *library_hal()
{
    return the_library.hal;
}

void library_log(zet_log_level_t level, const char *format, ...)
{
    if (level > the_library.log_level)
    {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    write_line(level, format, arguments);
    va_end(arguments);
}

void library_diagnostic_log(const char *format, ...)
{
    if (!the_library.diagnostic_log)
    {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    write_line(ZET_LOG_LEVEL_INFO, format, arguments);
    va_end(arguments);
}

object *object_create(object_kind kind, size_t size)
{
    if (the_library.hal == nullptr)
    {
        return nullptr;
    }
    auto *created = static_cast<object *>(the_library.hal->mem_alloc(size));
    if (created == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "out of memory: cannot allocate %lu bytes for a %s",
                    static_cast<unsigned long>(size), name_of(kind));
        return nullptr;
    }
    std::memset(static_cast<void *>(created), 0, size);
    object **bucket = bucket_of(created);
    created->next = *bucket;
    created->kind = kind;
    *bucket = created;
    return created;
}

void object_destroy(object *object)
{
    zet_simulator::object **link = bucket_of(object);
    while (*link != object)
    {
        link = &(*link)->next;
    }
    *link = object->next;
    the_library.hal->mem_free(object);
}

object *object_find(const void *handle, object_kind kind, const char *operation)
{
    if (handle == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the %s is null", operation, name_of(kind));
        return nullptr;
    }
    for (object *candidate = *bucket_of(handle); candidate != nullptr; candidate = candidate->next)
    {
        if (candidate == handle && candidate->kind == kind)
        {
            return candidate;
        }
    }
    library_log(ZET_LOG_LEVEL_ERROR, "%s: the %s handle is invalid or has been destroyed", operation,
                name_of(kind));
    return nullptr;
}

} // namespace zet_simulator

bool zet_nox_hal_register(const zet_hal_k330_t *hal)
{
    if (hal == nullptr || hal->mem_alloc == nullptr || hal->mem_free == nullptr || hal->transfer == nullptr ||
        hal->log == nullptr)
    {
        return false;
    }
    the_library.hal = hal;
    return true;
}

void zet_nox_set_log_level(zet_log_level_t level)
{
    the_library.log_level = level;
}

void zet_diagnostic_log_enable(bool enable)
{
    the_library.diagnostic_log = enable;
}
