/** @file
 * The captures of a recording: its segments of frames without gaps.
 */
#ifndef VANTOR_CAPTURE_LIST_H
#define VANTOR_CAPTURE_LIST_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vantor/capture.h"
#include "vantor/loss_counter.h"
#include "vantor/session_description.h"

namespace vantor
{

/** Most captures with which one that begins at a gap is listed: more would make the documents of a recording
 * too large to read. */
inline constexpr size_t most_captures = 10000;

/** Most captures with those that begin at breaks, which are listed even if there are too many gaps. */
inline constexpr size_t most_captures_with_breaks = 20000;

/** Makes captures from frames, and from the numbers of frames that are missing before them. */
class capture_list
{
public:
    /** Begins a segment after a break: the next frame is its first one. There is no break before frame 0. */
    void begin(const segment &next);

    /**
     * Adds a frame.
     *
     * @param missing  the number of frames missing before it, since the start of the recording; one less than
     *                 for the frame before if that one was only late
     * @return whether a capture begins with the frame; set its time then
     */
    bool add(uint64_t missing);

    /** Sets the time of the last capture. */
    void set_time(std::string datetime);

    /** The captures; the first one begins at frame 0. */
    [[nodiscard]] const std::vector<capture> &captures() const noexcept
    {
        return captures_;
    }

    /** The number of breaks that are not listed, because there are too many. */
    [[nodiscard]] uint64_t unlisted_breaks() const noexcept
    {
        return unlisted_breaks_;
    }

    /** The number of frames missing, including gaps that are not listed. */
    [[nodiscard]] uint64_t missing() const noexcept
    {
        return missing_;
    }

private:
    std::vector<capture> captures_{capture{}};
    std::optional<segment> next_;
    uint64_t frames_ = 0;
    uint64_t missing_ = 0;
    uint64_t unlisted_breaks_ = 0;
};

/**
 * Counts the frames that are missing from a recording: those that its documents list, and those that the
 * ticks of its frames show between and after them. A copy has some hundred bytes, and continues from the same
 * frame.
 */
class gap_counter
{
public:
    /**
     * @param known   the captures in its documents; not null
     * @param period  ticks between two frames; 0 if unknown, or if the documents list all gaps
     */
    gap_counter(std::shared_ptr<const std::vector<capture>> known, double period);

    /**
     * Adds a frame, which may have been measured later than it was due.
     *
     * @return the number of frames missing before it
     */
    uint64_t add(uint32_t tick, bool delayed);

    /** Moves to a frame without the ticks of those before it. Only with the period 0: then they do not count.
     */
    void skip_to(uint64_t frame);

    /** The capture in the documents that begins with the next frame; null if there is none. */
    [[nodiscard]] const capture *next_capture() const noexcept;

    /** The number of frames missing before the last frame; 0 before the first one. */
    [[nodiscard]] uint64_t missing() const noexcept
    {
        return missing_;
    }

private:
    std::shared_ptr<const std::vector<capture>> known_;
    size_t next_known_ = 0;
    double period_;
    loss_counter counter_;
    uint64_t frames_ = 0;
    uint64_t listed_ = 0;         /**< missing before the last known capture */
    uint64_t counted_before_ = 0; /**< of them, in the ticks since the last break */
    uint64_t missing_ = 0;
};

/**
 * Finds the captures of a recording: those that its documents list, and the gaps between and after them that
 * the ticks of its frames show.
 */
class gap_finder
{
public:
    /** The parameters are those of gap_counter. */
    gap_finder(std::vector<capture> known, double period);

    /** Adds a frame, which may have been measured later than it was due. */
    void add(uint32_t tick, bool delayed);

    /** The captures found. */
    [[nodiscard]] const capture_list &found() const noexcept
    {
        return found_;
    }

private:
    gap_counter counter_;
    capture_list found_;
};

/**
 * The period with which a gap_finder counts gaps that the documents of a recording do not list.
 *
 * @param session   the session
 * @param finished  whether the recording was finished: its documents list all gaps, up to the limit
 * @param captures  that they list
 * @return ticks between two frames; 0 if unknown, if all gaps are listed, or if breaks may not be listed
 */
double period_of_unlisted_gaps(const session_description &session, bool finished,
                               const std::vector<capture> &captures);

} // namespace vantor

#endif
