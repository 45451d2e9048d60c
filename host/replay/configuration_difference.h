/** @file
 * Compares a requested configuration with that of a recording.
 */
#ifndef VANTOR_CONFIGURATION_DIFFERENCE_H
#define VANTOR_CONFIGURATION_DIFFERENCE_H

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vantor
{

/** A member that differs between two configurations. */
struct configuration_difference
{
    std::string pointer;      /**< where, as a JSON pointer (RFC 6901) */
    nlohmann::json requested; /**< the value in effect there, which may be a default; null if there is none */
    nlohmann::json recorded;  /**< the same in the recording */
};

/**
 * Finds the first member with which a requested configuration measures something else than a recording.
 *
 * A missing member has its default. Members that do not change what is measured are not compared:
 * calibrations, log settings, and what a server ignores. Rates are compared.
 *
 * @param recorded   the configuration of the recording, which a server has accepted
 * @param requested  any JSON document
 * @return the difference, or nothing if both measure the same
 */
std::optional<configuration_difference> first_difference(const nlohmann::json &recorded,
                                                         const nlohmann::json &requested);

/** Describes a difference in one sentence. */
std::string difference_text(const configuration_difference &difference);

} // namespace vantor

#endif
