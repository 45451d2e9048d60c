/** @file
 * The SigMF documents of a recording: one for each item, and the collection that holds them together.
 *
 * docs/recording.md describes every member.
 */
#ifndef VANTOR_SIGMF_H
#define VANTOR_SIGMF_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "configuration/configuration.h"
#include "vantor/session.h"

namespace vantor
{

/** Name of the collection's file, without extension. */
inline constexpr const char *collection_name = "session";

/** Names of the members of a recording's own namespace. */
inline constexpr const char *extension_version = "0.1.0";

/** A stretch of frames without loss. */
struct capture
{
    uint64_t first_frame = 0; /**< its place in the recording */
    uint64_t frames_lost = 0; /**< before it, since the start of the recording */
    std::string datetime;     /**< when its first frame arrived, as RFC 3339 in UTC */
};

/** What is known of an item's recording at some moment. */
struct item_state
{
    uint64_t frames = 0;
    double seconds = 0.0; /**< from the first to the last frame */
    std::string digest;   /**< of the samples; empty while recording goes on */
};

/** What a session is. */
struct session_description // NOLINT(bugprone-exception-escape): a JSON value moves without exceptions
{
    nlohmann::json configuration; /**< the configuration document */
    session_metadata metadata;    /**< what the server made of it */
    server_info server;
};

/** The name of an item's files, without extension: "group-1-item-2". */
std::string item_name(const item_layout &layout);

/** Frames per second of an item, measured; 0 when not known yet. */
double frame_rate(const item_state &state);

/**
 * The metadata document of one item.
 *
 * @param session   the session
 * @param index     the item's place in the session's metadata
 * @param state     how far the recording is
 * @param captures  the stretches without loss, the first starting at frame 0
 */
nlohmann::ordered_json item_document(const session_description &session, size_t index,
                                     const item_state &state, const std::vector<capture> &captures);

/** An item's entry in the collection. */
struct stream
{
    std::string name;   /**< of its files, without extension */
    std::string digest; /**< of its metadata document */
};

/** The collection document of a session. */
nlohmann::ordered_json collection_document(const session_description &session,
                                           const std::vector<stream> &streams);

} // namespace vantor

#endif
