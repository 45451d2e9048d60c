/** @file
 * Describes a recording as JSON.
 */
#ifndef VANTOR_INFO_DOCUMENT_H
#define VANTOR_INFO_DOCUMENT_H

#include <nlohmann/json.hpp>

#include "recording/recording_check.h"

namespace vantor
{

/** Describes a recording and the result of its check. */
nlohmann::ordered_json to_json(const recording_check &check);

} // namespace vantor

#endif
