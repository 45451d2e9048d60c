/** @file
 * Reports what has been recorded.
 */
#ifndef VANTOR_RECORDING_REPORT_H
#define VANTOR_RECORDING_REPORT_H

#include <iosfwd>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/configuration.h"
#include "vantor/frame_tally.h"
#include "vantor/hub.h"
#include "vantor/recording_sink.h"
#include "vantor/recording_writer.h"
#include "vantor/session_source.h"

namespace vantor
{

/** The parts of a recorder that has finished. */
struct finished_recording
{
    const recording_writer &writer;
    const recording_sink &recorder;
    const hub &stream;
    const frame_tally &tally;
    const session_source &source;
    bool simulated;      /**< the sensors are */
    bool frames_reached; /**< the stream ended with the requested number of frames */
    std::vector<item_configuration> items;
};

/** Describes the recording as JSON. */
nlohmann::ordered_json report_json(const finished_recording &recorded);

/**
 * Prints a table of the items, the totals and the warnings.
 *
 * @param json  print JSON instead
 */
void print_report(const finished_recording &recorded, std::ostream &out, bool json);

} // namespace vantor

#endif
