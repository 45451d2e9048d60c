/** @file
 * Registration, contract violations, live objects, transfers and probes.
 */
#include "library.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "zet_diagnostic_log.h"
#include "zet_nox_k330.h"
#include "zet_probes.h"

uint32_t stand_in_violations;
char stand_in_last_violation[160];

namespace
{

using namespace stand_in;

/** The state of the library; all zero at start. */
struct library_state_t
{
    const zet_hal_k330_t *hal;
    decltype(zet_hal_k330_t::log) write_log; /**< also of a record that was refused */
    object_t *objects;
    uint32_t last_serial;
    zet_probes_callback_rw_t *callback;
    void *client_reference;
    zet_log_level_t log_level;
    bool diagnostic_log;
};

library_state_t library;

constexpr uint8_t guard_byte = 0xA5;

/** The member that is missing in a board's record; null if it is complete. */
const char *missing_part(const zet_hal_k330_t &hal)
{
    return hal.transfer == nullptr           ? "transfer"
           : hal.mem_alloc == nullptr        ? "mem_alloc"
           : hal.mem_free == nullptr         ? "mem_free"
           : hal.log == nullptr              ? "log"
           : hal.max_spi_transfer_size == 0U ? "max_spi_transfer_size"
                                             : nullptr;
}

/** Formats a line and passes it to the board. */
[[gnu::format(printf, 2, 0)]] void write_line(zet_log_level_t level, const char *format, va_list arguments)
{
    char line[sizeof(stand_in_last_violation)];
    if (library.write_log != nullptr && std::vsnprintf(line, sizeof(line), format, arguments) >= 0)
    {
        library.write_log(level, "stand_in", "%s", line);
    }
}

/** The name of a kind of objects. */
const char *name_of(object_kind_t kind)
{
    return kind == object_kind_t::config   ? "configuration"
           : kind == object_kind_t::sensor ? "sensor"
                                           : "processing";
}

/** Transfers one piece, in 16-bit words if the board and the piece allow it. */
void transfer_piece(zet_sensor_id_t sensor_id, uint8_t *data, size_t size)
{
    const auto transfer16 = library.hal->optimization.transfer16;
    const bool has_words = size % 2U == 0U && reinterpret_cast<uintptr_t>(data) % alignof(uint16_t) == 0U;
    if (transfer16 != nullptr && has_words)
    {
        transfer16(sensor_id, reinterpret_cast<uint16_t *>(data), size / 2U);
        return;
    }
    library.hal->transfer(sensor_id, data, size);
}

/** Transfers one piece between guards. Returns false if a guard was overwritten. */
bool exchange_guarded(zet_sensor_id_t sensor_id, uint8_t *data, size_t size)
{
    uint8_t guard[guard_size];
    uint8_t before[guard_size];
    uint8_t after[guard_size];
    std::memset(guard, guard_byte, guard_size);
    std::memcpy(before, data - guard_size, guard_size);
    std::memcpy(after, data + size, guard_size);
    std::memcpy(data - guard_size, guard, guard_size);
    std::memcpy(data + size, guard, guard_size);
    transfer_piece(sensor_id, data, size);
    const bool intact = std::memcmp(data - guard_size, guard, guard_size) == 0 &&
                        std::memcmp(data + size, guard, guard_size) == 0;
    std::memcpy(data - guard_size, before, guard_size);
    std::memcpy(data + size, after, guard_size);
    return intact;
}

/** Length of the next piece: even if the longest transfer allows it, so that words can be used. */
size_t piece_size(size_t rest)
{
    const size_t longest = library.hal->max_spi_transfer_size;
    if (rest <= longest)
    {
        return rest % 2U == 0U || rest == 1U ? rest : rest - 1U;
    }
    return longest % 2U == 0U || longest == 1U ? longest : longest - 1U;
}

} // namespace

namespace stand_in
{

bool refuse(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(stand_in_last_violation, sizeof(stand_in_last_violation), format, arguments);
    va_end(arguments);
    ++stand_in_violations;
    return log(ZET_LOG_LEVEL_ERROR, "contract violation: %s", stand_in_last_violation);
}

bool log(zet_log_level_t level, const char *format, ...)
{
    if (level <= library.log_level)
    {
        va_list arguments;
        va_start(arguments, format);
        write_line(level, format, arguments);
        va_end(arguments);
    }
    return false;
}

void log_diagnostics(const char *format, ...)
{
    if (library.diagnostic_log)
    {
        va_list arguments;
        va_start(arguments, format);
        write_line(ZET_LOG_LEVEL_INFO, format, arguments);
        va_end(arguments);
    }
}

bool is_registered(const char *operation)
{
    return library.hal != nullptr || refuse("%s: no board is registered", operation);
}

void *allocate(size_t size, const char *operation)
{
    if (!is_registered(operation))
    {
        return nullptr;
    }
    void *memory = library.hal->mem_alloc(size);
    if (memory == nullptr)
    {
        log(ZET_LOG_LEVEL_ERROR, "%s: out of memory", operation);
    }
    else if (reinterpret_cast<uintptr_t>(memory) % alignof(std::max_align_t) != 0U)
    {
        refuse("%s: mem_alloc returned memory that is not aligned for every type", operation);
        library.hal->mem_free(memory);
        memory = nullptr;
    }
    return memory;
}

void adopt(object_t *created, object_kind_t kind)
{
    created->magic = kind;
    created->serial = ++library.last_serial;
    created->next = library.objects;
    library.objects = created;
}

object_t *live_objects()
{
    return library.objects;
}

object_t *find_object(const void *handle, object_kind_t kind, const char *operation)
{
    if (!is_registered(operation))
    {
        return nullptr;
    }
    for (object_t *candidate = library.objects; candidate != nullptr; candidate = candidate->next)
    {
        if (candidate == handle && candidate->magic == kind)
        {
            return candidate;
        }
    }
    refuse("%s: the %s handle is %s", operation, name_of(kind), handle == nullptr ? "null" : "not alive");
    return nullptr;
}

void destroy(object_t *found)
{
    object_t **link = &library.objects;
    while (*link != found)
    {
        link = &(*link)->next;
    }
    *link = found->next;
    found->magic = {};
    library.hal->mem_free(found);
}

bool exchange(zet_sensor_id_t sensor_id, uint8_t *data, size_t size)
{
    while (size > 0U)
    {
        const size_t piece = piece_size(size);
        if (!exchange_guarded(sensor_id, data, piece))
        {
            return refuse("sensor %lu: the transfer of %lu bytes wrote outside of its buffer",
                          static_cast<unsigned long>(sensor_id), static_cast<unsigned long>(piece));
        }
        data += piece;
        size -= piece;
    }
    return true;
}

bool fire_probe(zet_sensor_id_t sensor_id, zet_cpd_k330_meas_session_parameters_t &block)
{
    const zet_probes_header_t header = {ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, sensor_id, 0};
    return library.callback == nullptr ||
           library.callback(&header, &block, sizeof(block), library.client_reference) ||
           log(ZET_LOG_LEVEL_ERROR, "sensor %lu: the probe refused the parameters",
               static_cast<unsigned long>(sensor_id));
}

bool is_buffer_usable(const void *buffer, uint32_t size, uint32_t needed_size, const char *operation)
{
    if (buffer == nullptr || reinterpret_cast<uintptr_t>(buffer) % alignof(uint32_t) != 0U)
    {
        return refuse("%s: the buffer is null or not aligned to 4 bytes", operation);
    }
    return size >= needed_size ||
           refuse("%s: the buffer has %lu bytes; %lu are needed", operation, static_cast<unsigned long>(size),
                  static_cast<unsigned long>(needed_size));
}

} // namespace stand_in

void stand_in_reset(void)
{
    library = {};
    reset_lines();
    stand_in_violations = 0;
    stand_in_last_violation[0] = '\0';
}

bool zet_nox_hal_register(const zet_hal_k330_t *hal)
{
    if (hal == nullptr)
    {
        return refuse("%s: the record is null", __func__);
    }
    library.write_log = hal->log;
    const char *missing = missing_part(*hal);
    if (missing != nullptr)
    {
        return refuse("%s: the record lacks %s", __func__, missing);
    }
    library.hal = hal;
    return true;
}

void zet_nox_set_log_level(zet_log_level_t level)
{
    if (!is_registered(__func__))
    {
        return;
    }
    if (level > ZET_LOG_LEVEL_DEBUG)
    {
        refuse("%s: %u is not a level", __func__, static_cast<unsigned>(level));
        return;
    }
    library.log_level = level;
}

void zet_diagnostic_log_enable(bool enable)
{
    if (is_registered(__func__))
    {
        library.diagnostic_log = enable;
    }
}

void zet_probes_register_callback(zet_probe_id_t probe_id, zet_probes_callback_rw_t *callback,
                                  void *client_reference)
{
    if (!is_registered(__func__))
    {
        return;
    }
    if (probe_id >= ZET_PROBE_ID_MAX)
    {
        refuse("%s: %u is not a probe", __func__, static_cast<unsigned>(probe_id));
        return;
    }
    // Other probes are never called.
    if (probe_id == ZET_PROBE_ID_MEAS_SESSION_PARAMETERS)
    {
        library.callback = callback;
        library.client_reference = client_reference;
    }
}
