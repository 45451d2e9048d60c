/** @file
 * A progress line on the terminal.
 */
#include "commands/progress.h"

#include <algorithm>
#include <limits>
#include <ostream>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

#include "recording/number_text.h"

namespace vantor
{
namespace
{

constexpr std::chrono::milliseconds interval{200};

/** Longest remaining time that is shown, in seconds: about thirty years. */
constexpr double longest_wait = 1e9;

using in_seconds = std::chrono::duration<double>;

/** Width of the terminal; a usual one if it is unknown. A longer line would not be updated in place. */
size_t terminal_width()
{
    constexpr size_t usual = 80;
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : usual;
}

} // namespace

progress_line::progress_line(std::ostream &out, bool active, progress_goal goal, time_source now)
    : out_(out), active_(active), goal_(goal), now_(std::move(now)), start_(now_()), next_(start_ + interval)
{
}

progress_line::~progress_line()
{
    if (width_ > 0)
    {
        out_ << "\r" << std::string(width_, ' ') << "\r" << std::flush;
    }
}

void progress_line::update(uint64_t frames, const std::function<std::string()> &notes)
{
    const auto now = now_();
    if (!first_ && frames > 0)
    {
        first_ = now;
        first_frames_ = frames;
    }
    if (!active_ || now < next_)
    {
        return;
    }
    next_ = now + interval;
    const double span = first_ ? in_seconds(now - *first_).count() : 0.0;
    const double rate = span > 0.0 ? static_cast<double>(frames - first_frames_) / span : 0.0;
    auto text = progress_text(frames, rate, in_seconds(now - start_).count(), goal_) +
                (notes ? notes() : std::string());
    text.resize(std::min(text.size(), terminal_width() - 1));
    out_ << "\r" << text << std::string(width_ > text.size() ? width_ - text.size() : 0, ' ') << std::flush;
    width_ = std::max(width_, text.size());
}

std::string progress_text(uint64_t frames, double rate, double seconds, const progress_goal &goal)
{
    std::string text = std::to_string(frames);
    double left = std::numeric_limits<double>::infinity();
    if (goal.frames > 0)
    {
        text += " of " + std::to_string(goal.frames);
        left = rate > 0.0 ? static_cast<double>(goal.frames - std::min(frames, goal.frames)) / rate : left;
    }
    if (goal.seconds > 0.0)
    {
        left = std::min(left, std::max(goal.seconds - seconds, 0.0));
    }
    text += " frames, " + rate_text(rate) + " frames/s";
    return left < longest_wait ? text + ", " + fixed(left, 0) + " s left" : text;
}

} // namespace vantor
