/** @file
 * Typed form of the information from a server about itself, a session and each frame.
 */
#ifndef VANTOR_SESSION_H
#define VANTOR_SESSION_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/calibration.h"
#include "vantor/message_parser.h"
#include "vantor/sample.h"
#include "vantor/sample_buffer.h"
#include "vantor/truth.h"
#include "vantor/utc_time.h"

namespace vantor
{

/** Memory usage of a server, in bytes. */
struct memory_use
{
    uint64_t size = 0;         /**< total */
    uint64_t live = 0;         /**< currently in use */
    uint64_t peak = 0;         /**< maximum in use so far */
    uint64_t largest_free = 0; /**< largest request that would succeed now */
    uint64_t failures = 0;     /**< number of requests that failed */
};

/** Stack usage of a server, in bytes. */
struct stack_use
{
    uint64_t size = 0; /**< total */
    uint64_t peak = 0; /**< maximum in use so far */
};

/** What a server reports about its board; members that it does not report have no value. */
struct board_info
{
    std::optional<std::string> name;        /**< kind of board */
    std::optional<std::string> id;          /**< distinguishes boards of one kind */
    std::optional<std::string> reset_cause; /**< why the board started */
    std::optional<std::string> last_fault;  /**< the last fault */
    std::optional<std::string> sensors;     /**< kind of its sensors, such as "simulated" */
};

/** What a server reports about itself. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct server_info
{
    std::string server_version;
    int protocol_version = 0;
    std::string sensor;                      /**< model of the sensors */
    unsigned sensor_count = 0;               /**< number of sensor positions on the board */
    std::vector<unsigned> connected_sensors; /**< numbers of the connected sensors, 1 or more */
    double ticks_per_second = 0.0;           /**< unit of all ticks; 0 if the server has no clock */
    uint32_t max_baudrate = 0;               /**< 0 if the baud rate of the link cannot be changed */
    std::optional<std::string> last_drop;    /**< why it last disconnected a host; no value if it has not */
    std::optional<board_info> board;         /**< no value if not reported */
    std::optional<memory_use> memory;        /**< no value if not reported */
    std::optional<stack_use> stack;          /**< no value if not reported */
    /** Of a replayed recording: the only configuration that the server accepts. No value for other servers.
     */
    std::optional<nlohmann::json> configuration;
};

/** Position of a sub-sweep in a sweep, in samples. */
struct subsweep_layout
{
    size_t offset = 0;
    size_t length = 0;
};

/** Layout of the frames of an item. */
struct item_layout
{
    size_t group = 0; /**< index of the item's group in the session, from 0 */
    size_t index = 0; /**< index of the item in its group, from 0 */
    int calibration_temperature = 0;
    size_t frame_length = 0;     /**< number of samples in a frame */
    size_t sweep_length = 0;     /**< number of samples in a sweep */
    double max_sweep_rate = 0.0; /**< in hertz; NaN if not reported */
    bool high_speed_mode = false;
    double base_step_length_m = 0.0; /**< distance of one base step, in metres */
    std::vector<subsweep_layout> subsweeps;

    /** Distance of each sample of a sweep, in metres; NaN outside all sub-sweeps; see set_distances() */
    std::vector<double> distances_m;

    /** Number of sweeps in a frame. */
    [[nodiscard]] size_t sweeps() const noexcept
    {
        return sweep_length == 0 ? 0 : frame_length / sweep_length;
    }
};

/** What a server reports once for a session, before the first frame. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct session_metadata
{
    uint32_t tick_period = 0; /**< ticks between two frames if the server paces them, otherwise 0 */
    std::vector<calibration> calibrations;
    std::vector<item_layout> items; /**< the items of all groups, in the order used in frames */
    nlohmann::json document;        /**< the complete message, as received */

    /** Number of samples of all items in one frame. */
    [[nodiscard]] size_t frame_length() const noexcept
    {
        size_t length = 0;
        for (const auto &item : items)
        {
            length += item.frame_length;
        }
        return length;
    }
};

/** One item of one frame. */
struct frame_item
{
    const item_layout *layout = nullptr; /**< owned by the session's metadata */
    std::span<const sample> samples;     /**< sweep after sweep; owned by the frame */
    uint32_t tick = 0;                   /**< time of the measurement; wraps around */
    double seconds = 0.0; /**< time of the measurement since the first frame of the stream, by the server's
                             clock; 0 if it has none */
    /** Time of `tick`, found from the ticks in answers to "ping" and when these were sent and received: the
     * middle of the interval that they allow. No value while it is not known, or if the server has no clock.
     */
    std::optional<utc_time> utc;
    int temperature = 0; /**< relative, in degrees Celsius; use it only to compare with other values */
    bool data_saturated = false;
    bool calibration_needed = false;
    bool frame_delayed = false;
    std::optional<bool> data_valid;  /**< with clear-channel assessment */
    std::optional<double> cca_value; /**< with clear-channel assessment and debug, like the next two */
    std::optional<bool> cca_detected;
    std::optional<bool> tx_enabled;

    /**
     * Returns the samples of one sub-sweep of one sweep.
     *
     * @param sweep     0 to layout->sweeps() - 1
     * @param subsweep  0 to layout->subsweeps.size() - 1
     */
    [[nodiscard]] std::span<const sample> subsweep(size_t sweep, size_t subsweep) const;

    /**
     * Returns the distances of the samples of one sub-sweep, in metres.
     *
     * @param subsweep  0 to layout->subsweeps.size() - 1
     */
    [[nodiscard]] std::span<const double> distances(size_t subsweep) const;
};

/** One frame of all items of a session. It can be moved but not copied, since its items point into it. */
class frame
{
public:
    frame(const frame &) = delete;
    frame &operator=(const frame &) = delete;
    frame(frame &&) = default;
    frame &operator=(frame &&) = default;
    ~frame() = default;

    /** The metadata of the session in which the frame was measured. Not of a frame that was moved from. */
    [[nodiscard]] const session_metadata &metadata() const noexcept
    {
        return *metadata_;
    }

    /** The items, in the order of the session metadata. */
    [[nodiscard]] std::span<const frame_item> items() const noexcept
    {
        return items_;
    }

    /** The samples of all items, one item after the other. */
    [[nodiscard]] std::span<const sample> samples() const noexcept
    {
        const auto *received = std::get_if<sample_buffer>(&samples_);
        return received != nullptr ? received->samples() : *std::get_if<std::vector<sample>>(&samples_);
    }

    /**
     * Number of frames missing before this one since the start of the stream: lost on the link, or left out
     * by server or sensor. Without a known frame rate, or without ticks, it is the number of damaged
     * messages, and of frames that were lost on the way to the server.
     */
    [[nodiscard]] uint64_t missing() const noexcept
    {
        return missing_;
    }

    /** Sets missing(), for sources of frames. */
    void set_missing(uint64_t missing) noexcept
    {
        missing_ = missing;
    }

    /** What simulated sensors should have found; null if unknown. */
    [[nodiscard]] const std::shared_ptr<const frame_truth> &truth() const noexcept
    {
        return truth_;
    }

    /** Sets truth(), for sources of frames: null, or with a value for each item. */
    void set_truth(std::shared_ptr<const frame_truth> truth) noexcept
    {
        truth_ = std::move(truth);
    }

    /**
     * Sets frame_item::seconds, for sources of frames.
     *
     * @param seconds           of the first item
     * @param ticks_per_second  of the server; 0 if it has no clock
     */
    void set_seconds(double seconds, double ticks_per_second) noexcept;

    /** Sets frame_item::utc of an item, for sources of frames. */
    void set_utc(size_t item, std::optional<utc_time> time) noexcept
    {
        items_[item].utc = time;
    }

private:
    using storage = std::variant<std::vector<sample>, sample_buffer>;

    friend frame make_frame(std::shared_ptr<const session_metadata> metadata, std::vector<sample> samples,
                            std::vector<frame_item> items);
    friend frame make_frame(std::shared_ptr<const session_metadata> metadata, sample_buffer samples,
                            std::vector<frame_item> items);
    frame(std::shared_ptr<const session_metadata> metadata, storage samples, std::vector<frame_item> items);

    std::shared_ptr<const session_metadata> metadata_; /**< keeps the layouts alive */
    storage samples_;
    std::vector<frame_item> items_;
    uint64_t missing_ = 0;
    std::shared_ptr<const frame_truth> truth_;
};

/**
 * Decodes the answer to "identify".
 *
 * @throws protocol_error if a member is missing or out of range
 */
server_info decode_server_info(const nlohmann::json &document);

/**
 * Decodes a session metadata message.
 *
 * @throws protocol_error if a member is missing or out of range, or the lengths are inconsistent
 */
session_metadata decode_metadata(const nlohmann::json &document);

/**
 * Checks that a session measures what was requested: the same number of items, and the sub-sweeps of each
 * with as many points. Checks nothing if the configuration has items that the host cannot use.
 *
 * @throws protocol_error if not
 */
void check_requested(const session_metadata &metadata, const nlohmann::json &configuration);

/**
 * Sets the distances of all items, which depend on the configuration. They are NaN where it is unknown.
 *
 * @param metadata       of a session
 * @param configuration  the configuration document of the session
 */
void set_distances(session_metadata &metadata, const nlohmann::json &configuration);

/**
 * The rate at which the frames of a session are due, by the pace of the server or of the sensors.
 *
 * @param configuration  the configuration document of the session
 * @param metadata       the answer of the server to it
 * @param server         the server
 * @return frames per second; 0 if frames are measured as fast as possible, or the server paces them without a
 * clock
 */
double nominal_frame_rate(const nlohmann::json &configuration, const session_metadata &metadata,
                          const server_info &server);

/**
 * Makes a frame.
 *
 * @param metadata  of the session
 * @param samples   of all items, one item after the other
 * @param items     the items in the order of the metadata; their layouts and samples are set
 * @throws protocol_error if there are not as many samples or items as in the metadata
 */
frame make_frame(std::shared_ptr<const session_metadata> metadata, std::vector<sample> samples,
                 std::vector<frame_item> items);

/** Like make_frame() above, with samples that were received in place. */
frame make_frame(std::shared_ptr<const session_metadata> metadata, sample_buffer samples,
                 std::vector<frame_item> items);

/**
 * Encodes a frame as a server sends it: the header, a line feed, the samples. Items whose time is known also
 * have "utc_s", in seconds since 1970-01-01 UTC, and its bound "utc_bound_s".
 */
std::string encode_frame(const frame &encoded);

/**
 * Decodes a frame message and splits its payload into items. frame::missing() is what its header says: the
 * number of frames that were lost directly before it, on their way to the server.
 *
 * @throws protocol_error if the message does not have the structure and length announced in the metadata
 */
frame decode_frame(const message &received, std::shared_ptr<const session_metadata> metadata);

} // namespace vantor

#endif
