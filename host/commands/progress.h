/** @file
 * A line on the terminal that tells how far something long is.
 */
#ifndef VANTOR_PROGRESS_H
#define VANTOR_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "vantor/time_source.h"

namespace vantor
{

/** Where a progress line goes, and when it is done. */
struct progress_goal
{
    uint64_t frames = 0;  /**< 0 for no such bound */
    double seconds = 0.0; /**< 0 for no such bound */
};

/** A line that is written over itself, a few times a second, with rate and time left. */
class progress_line
{
public:
    /**
     * @param out     where to; normally the standard error stream
     * @param active  false when that is no terminal: then nothing is ever written
     * @param goal    when it is done
     * @param now     the clock for rate and time left
     */
    progress_line(std::ostream &out, bool active, progress_goal goal,
                  time_source now = std::chrono::steady_clock::now);
    progress_line(const progress_line &) = delete;
    progress_line &operator=(const progress_line &) = delete;
    progress_line(progress_line &&) = delete;
    progress_line &operator=(progress_line &&) = delete;

    /** Removes the line. */
    ~progress_line();

    /** Tells how far it is; writes at most five times a second. */
    void update(uint64_t frames);

private:
    std::ostream &out_;
    bool active_;
    progress_goal goal_;
    time_source now_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point next_;
    size_t width_ = 0; /**< of the line that is on the terminal */
};

/**
 * The text of a progress line.
 *
 * @param frames   done
 * @param seconds  since the start
 * @param goal     when it is done
 */
std::string progress_text(uint64_t frames, double seconds, const progress_goal &goal);

} // namespace vantor

#endif
