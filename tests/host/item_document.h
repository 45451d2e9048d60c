/** @file
 * A configuration document with one item.
 */
#ifndef VANTOR_ITEM_DOCUMENT_H
#define VANTOR_ITEM_DOCUMENT_H

#include <utility>

#include <nlohmann/json.hpp>

namespace vantor::test
{

/**
 * A document with one item, of sensor 1.
 *
 * @param config  its member "config"
 * @param item    its other members
 */
inline nlohmann::json document_with(const nlohmann::json &config,
                                    nlohmann::json item = nlohmann::json::object())
{
    using nlohmann::json;
    item["sensor_id"] = 1;
    item["config"] = config;
    return {{"groups", json::array({json::array({std::move(item)})})}};
}

} // namespace vantor::test

#endif
