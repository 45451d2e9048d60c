/** @file
 * The SigMF documents of a recording: one for each item, and a collection that lists them.
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

#include "vantor/capture.h"
#include "vantor/collection_stream.h"
#include "vantor/session_description.h"

namespace vantor
{

/** File name of the collection, without extension. */
inline constexpr const char *collection_name = "session";

/** Member of a collection whose items are being replaced. */
inline constexpr const char *next_streams_member = "vantor:next_streams";

/** Member of the metadata of an item: SHA-512 of its frame table. */
inline constexpr const char *table_digest_member = "vantor:frame_table_sha512";

/** Member of the metadata of an item: the number of breaks that are not listed, if there are any. */
inline constexpr const char *unlisted_breaks_member = "vantor:breaks_not_listed";

/** Member of the metadata of an item that are not final: the most frames that are written at once, if not 1.
 */
inline constexpr const char *block_frames_member = "vantor:frames_per_block";

/** Most frames that are written at once. */
inline constexpr uint64_t most_block_frames = 64;

/** Member of the description of a session: the scene whose truth is recorded, if it is. */
inline constexpr const char *truth_member = "vantor:truth";

/** Version of the vantor namespace. */
inline constexpr const char *extension_version = "0.1.0";

/** The state of an item's recording. */
struct item_state
{
    uint64_t frames = 0;
    uint64_t block_frames = 1;   /**< most frames that are written at once */
    double seconds = 0.0;        /**< from the first to the last frame */
    uint64_t frames_missing = 0; /**< between its frames */
    uint64_t unlisted_breaks = 0;
    std::string digest;       /**< digest of the samples; empty while recording */
    std::string table_digest; /**< digest of the frame table; empty while recording */
};

/** The most frames that are written at once: few enough that little is lost if the program is killed. */
uint64_t frames_per_block(const session_metadata &metadata);

/** The name of an item's files, without extension: "group-1-item-2". */
std::string item_name(const item_layout &layout);

/** Frames per second from the first to the last frame, gaps included; 0 if not known yet. */
double measured_frame_rate(uint64_t frames, double seconds);

/**
 * The metadata document of one item.
 *
 * @param session   the session
 * @param index     index of the item in the session metadata
 * @param state     the state of the recording
 * @param captures  the segments without gaps; the first one starts at frame 0
 */
nlohmann::ordered_json item_document(const session_description &session, size_t index,
                                     const item_state &state, const std::vector<capture> &captures);

/**
 * Changes the metadata document of an item so that it describes a finished recording.
 *
 * @param document  the document
 * @param session   the session
 * @param index     index of the item in the session metadata
 * @param state     the state of the recording; its digest is not empty
 * @param captures  its segments without gaps
 */
void finish_item_document(nlohmann::ordered_json &document, const session_description &session, size_t index,
                          const item_state &state, const std::vector<capture> &captures);

/** The collection of a recording without items: version of the standard and extensions. */
nlohmann::ordered_json empty_collection();

/** The list of items in a collection. */
nlohmann::ordered_json describe_streams(const std::vector<collection_stream> &streams);

/**
 * Lists the items of the next version of a collection, too: a program that is killed while it replaces the
 * metadata of the items then leaves only documents that the collection lists.
 */
void announce_streams(nlohmann::ordered_json &document, const std::vector<collection_stream> &next);

/** The collection document of a session. */
nlohmann::ordered_json collection_document(const session_description &session,
                                           const std::vector<collection_stream> &streams);

} // namespace vantor

#endif
