/** @file
 * What a bridge knows about a board.
 */
#ifndef VANTOR_BOARD_STATE_H
#define VANTOR_BOARD_STATE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "vantor/session.h"

namespace vantor
{

/** What a bridge knows about a board. Counts begin with the bridge. */
struct board_state
{
    std::string board;                 /**< its name; empty while it is not known */
    std::string address;               /**< of its server */
    bool online = false;               /**< a session runs */
    std::string fault;                 /**< why none runs; empty if one does, or has not been tried */
    std::optional<server_info> server; /**< of the last session */
    uint64_t sessions = 0;
    uint64_t frames = 0;            /**< that reached the bridge */
    uint64_t lost = 0;              /**< that were lost before they reached the bridge */
    uint64_t dropped = 0;           /**< that were dropped because the spool was full */
    uint64_t waiting = 0;           /**< batches that the broker does not have yet */
    double rate = 0.0;              /**< frames per second, since the last report */
    std::optional<int> temperature; /**< of the first sensor, relative, in degrees Celsius */
    bool calibration_needed = false;
};

/** The members of a reported state that are not about the board itself. */
struct state_report
{
    std::string site;
    std::string bridge;                                    /**< name of the bridge that reports */
    std::chrono::sys_time<std::chrono::nanoseconds> now{}; /**< when the state was as it is, in UTC */
    std::chrono::seconds interval{};                       /**< when to expect the next report */
};

/** Encodes the state of a board, as docs/fleet.md describes. */
std::string encode_state(const board_state &state, const state_report &about);

/** A state that was decoded. */
struct decoded_state
{
    board_state state;
    std::string site;
    std::string bridge;      /**< name of the bridge that has reported it; empty if unknown */
    double utc_s = 0.0;      /**< when it was reported, in seconds since 1970-01-01 UTC */
    double interval_s = 0.0; /**< when to expect the next report */
};

/**
 * Decodes the state of a board.
 *
 * @throws bad_batch if the bytes are not one
 */
decoded_state decode_state(std::string_view bytes);

} // namespace vantor

#endif
