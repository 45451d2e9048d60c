/** @file
 * What a person should know before using the frames of a stream.
 */
#include "commands/stream_warnings.h"

#include "commands/text_table.h"

namespace vantor
{
namespace
{

/** The share of the nominal frame rate from which on it counts as reached. */
constexpr double least_share_of_rate = 0.99;

/** A number with a noun in singular or plural. */
std::string count(uint64_t number, const std::string &noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

/** Adds warnings of missing frames and of breaks. */
void describe_gaps(const stream_facts &facts, std::vector<std::string> &lines)
{
    if (facts.missing > 0)
    {
        lines.push_back("missing: " + count(facts.missing, "frame") +
                        " that server or sensor left out, or the link lost");
    }
    const auto due = static_cast<double>(facts.frames + facts.missing);
    const double share = due > 0.0 ? static_cast<double>(facts.frames) / due : 1.0;
    if (facts.nominal_rate > 0.0 && share < least_share_of_rate)
    {
        lines.push_back("rate not reached: " + fixed(share * facts.nominal_rate, 1) + " of " +
                        fixed(facts.nominal_rate, 1) + " frames/s");
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
    // The first frame of each session is never valid.
    add("invalid", counts.invalid > facts.breaks.size() + 1 ? counts.invalid : 0,
        "the channel was busy; their samples are not used");
    add("delayed", counts.delayed, "use a lower frame_rate or a faster link");
    add("calibration needed", counts.calibration_needed, "calibrate again, or record with --recalibrate");
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

std::string short_warnings(const frame_tally &tally)
{
    std::string text;
    const auto total = tally.total();
    append(text, tally.missing(), "missing");
    append(text, total.saturated, "saturated");
    append(text, total.invalid, "invalid");
    append(text, total.delayed, "delayed");
    append(text, total.calibration_needed, "need calibration");
    append(text, tally.breaks().size(), tally.breaks().size() == 1 ? "break" : "breaks");
    return text;
}

} // namespace vantor
