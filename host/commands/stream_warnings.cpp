/** @file
 * What a person should know before using the frames of a stream.
 */
#include "commands/stream_warnings.h"

#include <algorithm>

#include "commands/text_table.h"

namespace vantor
{
namespace
{

/** The share of the nominal frame rate from which on it counts as reached. */
constexpr double least_share_of_rate = 0.99;

/** How long no frame arrives at the end before that is reported: in seconds, and in frame periods. */
constexpr double least_silence = 1.0;
constexpr double silent_periods = 3.0;

/** A number with a noun in singular or plural. */
std::string count(uint64_t number, const std::string &noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

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

/** Adds a warning if no frame has arrived for some frame periods at the end. */
void describe_silence(const stream_facts &facts, std::vector<std::string> &lines)
{
    const double period = facts.nominal_rate > 0.0 ? 1.0 / facts.nominal_rate : 0.0;
    if (facts.frames == 0)
    {
        lines.emplace_back("no frame was recorded");
    }
    else if (facts.silence > std::max(least_silence, silent_periods * period))
    {
        lines.push_back("no frame in the last " + fixed(facts.silence, 1) + " s");
    }
}

/** Adds warnings of missing frames and of breaks. */
void describe_gaps(const stream_facts &facts, std::vector<std::string> &lines)
{
    describe_silence(facts, lines);
    if (facts.missing > 0)
    {
        lines.push_back("missing: " + count(facts.missing, "frame") +
                        "; the host, the link, the server or a sensor was too slow, or data were damaged");
    }
    if (facts.refused_rate > 0.0)
    {
        lines.push_back("rate not as requested: the server measures " + fixed(facts.nominal_rate, 1) +
                        " frames/s, the configuration requests " + fixed(facts.refused_rate, 1));
    }
    const double share = share_of_rate(facts);
    if (facts.nominal_rate > 0.0 && share < least_share_of_rate)
    {
        lines.push_back("rate not reached: " + fixed(share * facts.nominal_rate, 1) + " of " +
                        fixed(facts.nominal_rate, 1) + " frames/s, by the clock of the server");
    }
    if (facts.damaged > 0)
    {
        lines.push_back("damaged: " + count(facts.damaged, "message"));
    }
    for (const auto &part : facts.breaks)
    {
        lines.push_back("break of " + fixed(part.gap, 1) + " s: " + part.reason);
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

/** The number of invalid frames, without the first one of each session, which is never valid. */
uint64_t notable_invalid(const flag_counts &counts, const std::vector<segment> &breaks)
{
    return counts.invalid > breaks.size() + 1 ? counts.invalid : 0;
}

/** Adds the warning of one flag of an item, if it is set in any frame. */
void describe_flag(const std::string &name, uint64_t number, uint64_t frames, const item_flags &item,
                   const std::string &advice, std::vector<std::string> &lines)
{
    if (number > 0)
    {
        lines.push_back(name + ": " + std::to_string(number) + " of " + count(frames, "frame") +
                        " of group " + std::to_string(item.group) + ", item " + std::to_string(item.item) +
                        "; " + advice);
    }
}

/** Adds the warnings of one item. */
void describe_item(const stream_facts &facts, const item_flags &item, std::vector<std::string> &lines)
{
    const auto &counts = item.counts;
    const auto add = [&](const std::string &name, uint64_t number, const std::string &advice) {
        describe_flag(name, number, facts.frames, item, advice, lines);
    };
    add("saturated", counts.saturated, "use a lower receiver_gain");
    add("invalid", notable_invalid(counts, facts.breaks), "the channel was busy; their samples are not used");
    add("delayed", counts.delayed, "use a lower frame_rate or a faster link");
    add("calibration needed", counts.calibration_needed, calibration_advice(facts));
}

/** Adds a number and a word, unless it is 0. */
void append(std::string &text, uint64_t number, const std::string &word)
{
    if (number > 0)
    {
        text += ", " + std::to_string(number) + " " + word;
    }
}

} // namespace

std::vector<std::string> describe_warnings(const stream_facts &facts)
{
    std::vector<std::string> lines;
    describe_gaps(facts, lines);
    for (const auto &item : facts.items)
    {
        describe_item(facts, item, lines);
    }
    return lines;
}

std::string short_warnings(const frame_tally &tally, double nominal_rate)
{
    std::string text;
    const auto total = tally.total();
    uint64_t invalid = 0;
    for (const auto &counts : tally.items())
    {
        invalid += notable_invalid(counts, tally.breaks());
    }
    if (nominal_rate > 0.0 && tally.share() < least_share_of_rate)
    {
        text += ", rate not reached";
    }
    append(text, tally.missing(), "missing");
    append(text, total.saturated, "saturated");
    append(text, invalid, "invalid");
    append(text, total.delayed, "delayed");
    append(text, total.calibration_needed, "need calibration");
    append(text, tally.breaks().size(), tally.breaks().size() == 1 ? "break" : "breaks");
    return text;
}

} // namespace vantor
