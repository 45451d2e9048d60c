/** @file
 * A progress line on the terminal.
 */
#ifndef VANTOR_PROGRESS_H
#define VANTOR_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

#include "vantor/time_source.h"

namespace vantor
{

/** When the work is done. */
struct progress_goal
{
    uint64_t frames = 0;  /**< 0 for no limit */
    double seconds = 0.0; /**< 0 for no limit */
};

/** A line that is updated in place a few times per second, with rate and remaining time. */
class progress_line
{
public:
    /**
     * @param out     where to write; normally standard error
     * @param active  false if that is not a terminal: nothing is written then
     * @param goal    when the work is done
     * @param now     the clock for rate and remaining time
     */
    progress_line(std::ostream &out, bool active, progress_goal goal,
                  time_source now = std::chrono::steady_clock::now);
    progress_line(const progress_line &) = delete;
    progress_line &operator=(const progress_line &) = delete;
    progress_line(progress_line &&) = delete;
    progress_line &operator=(progress_line &&) = delete;

    /** Removes the line. */
    ~progress_line();

    /**
     * Sets the number of frames done; writes at most five times per second.
     *
     * @param notes  returns what is added to the text
     */
    void update(uint64_t frames, const std::function<std::string()> &notes = {});

private:
    std::ostream &out_;
    bool active_;
    progress_goal goal_;
    time_source now_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point next_;
    std::optional<std::chrono::steady_clock::time_point> first_; /**< when the first frames were done */
    uint64_t first_frames_ = 0;                                  /**< how many these were */
    size_t width_ = 0;                                           /**< width of the line on the terminal */
};

/**
 * Returns the text of a progress line.
 *
 * @param frames   number of frames done
 * @param rate     frames per second; 0 if unknown
 * @param seconds  time since the start
 * @param goal     when the work is done
 */
std::string progress_text(uint64_t frames, double rate, double seconds, const progress_goal &goal);

} // namespace vantor

#endif
