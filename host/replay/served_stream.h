/** @file
 * What a replay server sends.
 */
#ifndef VANTOR_SERVED_STREAM_H
#define VANTOR_SERVED_STREAM_H

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "vantor/event_loop.h"

namespace vantor
{

/** Frames of earlier or other sessions, as a replay server sends them. */
class served_stream
{
public:
    served_stream() = default;
    served_stream(const served_stream &) = delete;
    served_stream &operator=(const served_stream &) = delete;
    served_stream(served_stream &&) = delete;
    served_stream &operator=(served_stream &&) = delete;
    virtual ~served_stream() = default;

    /** What the answer to "identify" says about versions, sensors, clock and board. */
    [[nodiscard]] virtual nlohmann::ordered_json identity() const = 0;

    /** The only configuration document that is accepted. */
    [[nodiscard]] virtual const nlohmann::json &configuration() const = 0;

    /** The answer to it. */
    [[nodiscard]] virtual const nlohmann::json &metadata() const = 0;

    /** A session begins. */
    virtual void begin() = 0;

    /** The stream starts: the next frame is due now. */
    virtual void start() = 0;

    /**
     * Takes the next frame if it is due, as a message of the protocol.
     *
     * @throws bad_recording if a file cannot be read
     */
    virtual std::optional<std::string> take_due() = 0;

    /**
     * Takes the next frame, whether it is due or not; nothing if there is none for long.
     *
     * @throws bad_recording if a file cannot be read
     * @throws cancelled if waiting was cancelled
     */
    virtual std::optional<std::string> take_next() = 0;

    /**
     * The frame that was taken is now sent to the host, which may fail.
     *
     * @param end  bytes that hosts were sent, with this frame
     */
    virtual void note_sent(uint64_t /*end*/)
    {
    }

    /** Time until the next frame may be due, after start(). */
    [[nodiscard]] virtual event_loop::time_point::duration time_until_due() = 0;

    /** Whether the frames of the session are used up, and those of another one follow: the host is
     * disconnected then, as by a server that starts again. */
    [[nodiscard]] virtual bool has_ended()
    {
        return false;
    }
};

} // namespace vantor

#endif
