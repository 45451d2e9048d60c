/** @file
 * An item of a recording.
 */
#ifndef VANTOR_RECORDED_ITEM_H
#define VANTOR_RECORDED_ITEM_H

#include <string>

#include <nlohmann/json.hpp>

#include "vantor/configuration.h"
#include "vantor/session.h"

namespace vantor
{

/** One item of a recording. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct recorded_item
{
    std::string name;                 /**< name of its files, without extension */
    item_layout layout;               /**< of its frames, with the distance of each point */
    item_configuration configuration; /**< what was configured */
    nlohmann::json document;          /**< its SigMF metadata; null if damaged */
};

} // namespace vantor

#endif
