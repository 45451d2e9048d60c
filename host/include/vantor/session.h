/** @file
 * What a server says of itself, of a session and of each frame, in typed form.
 */
#ifndef VANTOR_SESSION_H
#define VANTOR_SESSION_H

#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/calibration.h"
#include "vantor/message_parser.h"

namespace vantor
{

/** One complex sample, in-phase part first. */
using sample = std::complex<int16_t>;

/** Use of a server's memory, in bytes. */
struct memory_use
{
    uint64_t size = 0;         /**< in all */
    uint64_t live = 0;         /**< in use now */
    uint64_t peak = 0;         /**< most that was ever in use at a time */
    uint64_t largest_free = 0; /**< largest request that could be met now */
    uint64_t failures = 0;     /**< number of requests that could not be met */
};

/** Use of a server's stack, in bytes. */
struct stack_use
{
    uint64_t size = 0; /**< in all */
    uint64_t peak = 0; /**< most that was ever in use at a time */
};

/** What a server reports of its board; nothing for what it does not know. */
struct board_info
{
    std::optional<std::string> name;        /**< kind of board */
    std::optional<std::string> id;          /**< distinguishes boards of one kind */
    std::optional<std::string> reset_cause; /**< why the board started */
    std::optional<std::string> last_fault;  /**< what the last fault was */
    std::optional<std::string> sensors;     /**< what kind of sensors it has, such as "simulated" */
};

/** What a server says of itself. */
struct server_info
{
    std::string server_version;
    int protocol_version = 0;
    std::string sensor;                      /**< model of the sensors */
    unsigned sensor_count = 0;               /**< places for sensors on the board */
    std::vector<unsigned> connected_sensors; /**< numbers of the sensors that are there, from 1 */
    double ticks_per_second = 0.0;           /**< unit of every tick; 0 when the server has no clock */
    uint32_t max_baudrate = 0;               /**< 0 when the link has no baud rate to change */
    std::optional<board_info> board;         /**< nothing when the server does not know it */
    std::optional<memory_use> memory;        /**< nothing when the server does not know it */
    std::optional<stack_use> stack;          /**< nothing when the server does not know it */
};

/** Where a sub-sweep lies within a sweep, in samples. */
struct subsweep_layout
{
    size_t offset = 0;
    size_t length = 0;
};

/** How the frames of an item are laid out. */
struct item_layout
{
    size_t group = 0; /**< place of the item's group in the session, from 0 */
    size_t index = 0; /**< place of the item in its group, from 0 */
    int calibration_temperature = 0;
    size_t frame_length = 0;     /**< samples of a frame */
    size_t sweep_length = 0;     /**< samples of a sweep */
    double max_sweep_rate = 0.0; /**< in hertz; not a number when the server does not know it */
    bool high_speed_mode = false;
    double base_step_length_m = 0.0; /**< distance of one base step, in metres */
    std::vector<subsweep_layout> subsweeps;

    /** Number of sweeps in a frame. */
    [[nodiscard]] size_t sweeps() const noexcept
    {
        return sweep_length == 0 ? 0 : frame_length / sweep_length;
    }
};

/** What a server says once, before the first frame of a session. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct session_metadata
{
    uint32_t tick_period = 0; /**< ticks between two frames when the server paces them, else 0 */
    std::vector<calibration> calibrations;
    std::vector<item_layout> items; /**< of all groups, in the order in which frames carry them */
    nlohmann::json document;        /**< the whole message, as received */

    /** Samples of one frame of all items. */
    [[nodiscard]] size_t frame_length() const noexcept;
};

/** One item of one frame. */
struct frame_item
{
    const item_layout *layout = nullptr; /**< owned by the session's metadata */
    std::span<const sample> samples;     /**< sweep after sweep; owned by the frame */
    uint32_t tick = 0;                   /**< when the item was measured; wraps around */
    int temperature = 0;                 /**< in degrees Celsius, for comparison, not absolute */
    bool data_saturated = false;
    bool calibration_needed = false;
    bool frame_delayed = false;
    std::optional<bool> data_valid;  /**< with clear-channel assessment */
    std::optional<double> cca_value; /**< with clear-channel assessment and debug, as are the next two */
    std::optional<bool> cca_detected;
    std::optional<bool> tx_enabled;

    /**
     * The samples of one sub-sweep of one sweep.
     *
     * @param sweep     0 to layout->sweeps() - 1
     * @param subsweep  0 to layout->subsweeps.size() - 1
     */
    [[nodiscard]] std::span<const sample> subsweep(size_t sweep, size_t subsweep) const;
};

/** One frame of all items of a session. It may be moved but not copied: its items point into it. */
class frame
{
public:
    frame(const frame &) = delete;
    frame &operator=(const frame &) = delete;
    frame(frame &&) = default;
    frame &operator=(frame &&) = default;
    ~frame() = default;

    /** The items, in the order of the session's metadata. */
    [[nodiscard]] std::span<const frame_item> items() const noexcept
    {
        return items_;
    }

    /** The samples of all items back to back. */
    [[nodiscard]] std::span<const sample> samples() const noexcept
    {
        return samples_;
    }

private:
    friend frame decode_frame(const message &received, std::shared_ptr<const session_metadata> metadata);
    frame() = default;

    std::shared_ptr<const session_metadata> metadata_; /**< keeps the layouts alive */
    std::vector<sample> samples_;
    std::vector<frame_item> items_;
};

/**
 * Reads the answer to "identify".
 *
 * @throws protocol_error when a member is missing or out of range
 */
server_info decode_server_info(const nlohmann::json &document);

/**
 * Reads a session metadata message.
 *
 * @throws protocol_error when a member is missing, out of range, or the lengths contradict one another
 */
session_metadata decode_metadata(const nlohmann::json &document);

/**
 * Reads a frame message and cuts its payload into items.
 *
 * @throws protocol_error when the message does not have the shape and the length that the metadata announced
 */
frame decode_frame(const message &received, std::shared_ptr<const session_metadata> metadata);

} // namespace vantor

#endif
