/** @file
 * What a person should know about a stream while it is recorded.
 */
#include "commands/stream_warnings.h"

#include "recording/stream_facts.h"

namespace vantor
{
namespace
{

/** Adds a number and a word, unless it is 0. */
void append(std::string &text, uint64_t number, const std::string &word)
{
    if (number > 0)
    {
        text += ", " + std::to_string(number) + " " + word;
    }
}

} // namespace

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
