/** @file
 * What a person should know before using the frames of a stream or a recording.
 */
#include "recording/stream_facts.h"

#include <algorithm>

#include "recording/number_text.h"

namespace vantor
{
namespace
{

/** How long no frame arrives at the end before that is reported: in seconds, and in frame periods. */
constexpr double least_silence = 1.0;
constexpr double silent_periods = 3.0;

/** The frames that arrived for each one that was due; 1 if that is unknown. */
double share_of_rate(const stream_facts &facts)
{
    if (facts.nominal_rate > 0.0 && facts.measured_rate > 0.0)
    {
        return facts.measured_rate / facts.nominal_rate;
    }
    const auto due = static_cast<double>(facts.frames + facts.missing);
    return due > 0.0 ? static_cast<double>(facts.frames) / due : 1.0;
}

/** What has measured share_of_rate(). */
std::string describe_measurement(const stream_facts &facts)
{
    if (facts.measured_rate > 0.0)
    {
        return ", by the clock of this computer";
    }
    // Without a clock, only damaged messages are counted.
    return facts.has_clock ? ", by the clock of the server" : "";
}

/** Adds a warning if no frame has arrived for some frame periods at the end. */
void describe_silence(const stream_facts &facts, std::vector<std::string> &lines)
{
    const double period = facts.nominal_rate > 0.0 ? 1.0 / facts.nominal_rate : 0.0;
    const double silence = facts.silence + static_cast<double>(facts.due_at_end) * period;
    if (!facts.end_known)
    {
        lines.emplace_back(
            "the server did not answer at the end: how many frames were due then is not known");
    }
    if (facts.frames == 0)
    {
        lines.emplace_back("no frame was recorded");
    }
    else if (silence > std::max(least_silence, silent_periods * period))
    {
        lines.push_back(
            "no frame in the last " + fixed(silence, 1) + " s" +
            (facts.due_at_end > 1 ? ": " + counted(facts.due_at_end, "frame") + " were due" : ""));
    }
}

/** What to do about frames that need a calibration. */
std::string calibration_advice(const stream_facts &facts)
{
    const bool calibrated = std::any_of(facts.breaks.begin(), facts.breaks.end(), [](const segment &part) {
        return part.reason == "calibrated again";
    });
    return calibrated ? "measured before the new calibration"
                      : "calibrate again, or record with --recalibrate";
}

/** Adds the warning of one flag of an item, if it is set in any frame. */
void describe_flag(const std::string &name, uint64_t number, uint64_t frames, const item_flags &item,
                   const std::string &advice, std::vector<std::string> &lines)
{
    if (number > 0)
    {
        lines.push_back(name + ": " + std::to_string(number) + " of " + counted(frames, "frame") +
                        " of group " + std::to_string(item.group) + ", item " + std::to_string(item.item) +
                        "; " + advice);
    }
}

} // namespace

stream_facts recording_facts(const session_description &session, uint64_t frames, uint64_t missing,
                             const std::vector<capture> &captures)
{
    stream_facts facts;
    facts.frames = frames;
    facts.missing = missing;
    facts.nominal_rate = nominal_frame_rate(session.configuration, session.metadata, session.server);
    facts.has_clock = session.server.ticks_per_second > 0.0;
    for (const auto &part : captures)
    {
        if (part.begins)
        {
            facts.breaks.push_back(*part.begins);
        }
    }
    return facts;
}

item_flags flags_of(const item_layout &layout, const frame_figures &figures)
{
    return {.group = layout.group + 1,
            .item = layout.index + 1,
            .counts = {.saturated = figures.saturated,
                       .invalid = figures.channel.invalid,
                       .delayed = figures.delayed,
                       .calibration_needed = figures.calibration_needed}};
}

uint64_t notable_invalid(const flag_counts &counts, const std::vector<segment> &breaks)
{
    return counts.invalid > breaks.size() + 1 ? counts.invalid : 0;
}

std::vector<std::string> describe_gaps(const stream_facts &facts)
{
    std::vector<std::string> lines;
    if (facts.lost)
    {
        lines.emplace_back("link lost, and not connected again before the end");
    }
    describe_silence(facts, lines);
    if (facts.missing > 0)
    {
        lines.push_back("missing: " + counted(facts.missing, "frame") +
                        "; the host, the link, the server or a sensor was too slow, or data were damaged");
    }
    if (facts.refused_rate > 0.0)
    {
        lines.push_back("rate not as requested: the server measures " + rate_text(facts.nominal_rate) +
                        " frames/s, the configuration requests " + rate_text(facts.refused_rate));
    }
    const double share = share_of_rate(facts);
    if (facts.nominal_rate > 0.0 && share < least_share_of_rate)
    {
        lines.push_back("rate not reached: " + rate_text(share * facts.nominal_rate) + " of " +
                        rate_text(facts.nominal_rate) + " frames/s" + describe_measurement(facts));
    }
    if (facts.damaged > 0)
    {
        lines.push_back("damaged: " + counted(facts.damaged, "message"));
    }
    if (facts.truth_missing > 0)
    {
        lines.push_back("truth missing: " + counted(facts.truth_missing, "line") +
                        "; the server could not write them, or wrote another file");
    }
    if (!facts.truth_fault.empty())
    {
        lines.push_back("truth of a session missing: " + facts.truth_fault);
    }
    for (const auto &part : facts.breaks)
    {
        lines.push_back("break of " + fixed(part.gap, 1) + " s: " + part.reason);
    }
    if (facts.unlisted_breaks > 0)
    {
        lines.push_back(counted(facts.unlisted_breaks, "further break") + ", not listed");
    }
    return lines;
}

std::vector<std::string> describe_flags(const stream_facts &facts, const item_flags &item)
{
    std::vector<std::string> lines;
    const auto &counts = item.counts;
    const auto add = [&](const std::string &name, uint64_t number, const std::string &advice) {
        describe_flag(name, number, facts.frames, item, advice, lines);
    };
    add("saturated", counts.saturated, "use a lower receiver_gain");
    add("invalid", notable_invalid(counts, facts.breaks),
        "the channel was busy or the transmitter off; their samples are not used");
    add("delayed", counts.delayed, "use a lower frame_rate or a faster link");
    add("calibration needed", counts.calibration_needed, calibration_advice(facts));
    return lines;
}

std::vector<std::string> describe_warnings(const stream_facts &facts)
{
    auto lines = describe_gaps(facts);
    for (const auto &item : facts.items)
    {
        const auto flags = describe_flags(facts, item);
        lines.insert(lines.end(), flags.begin(), flags.end());
    }
    return lines;
}

} // namespace vantor
