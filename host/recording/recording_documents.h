/** @file
 * Reads the documents of a recording: the collection and the metadata of the items.
 */
#ifndef VANTOR_RECORDING_DOCUMENTS_H
#define VANTOR_RECORDING_DOCUMENTS_H

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/collection_stream.h"
#include "vantor/recorded_item.h"
#include "vantor/session_description.h"

namespace vantor
{

/** The documents of a recording. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct recording_documents
{
    std::filesystem::path directory;
    session_description session;
    std::vector<recorded_item> items;
    std::vector<std::string> digests; /**< SHA-512 of each item's metadata file; empty if it cannot be read */
    nlohmann::json collection;        /**< the collection object; null if damaged */
    std::vector<std::string> faults;  /**< what is wrong with documents that are damaged */
    bool contradictory = false;       /**< two documents differ, and which one is right is unknown */
};

/**
 * Whether a collection lists the metadata of an item.
 *
 * @param collection  the collection object
 * @param index       index of the item
 * @param name        name of its files, without extension
 * @param digest      SHA-512 of its metadata file
 */
bool is_listed(const nlohmann::json &collection, size_t index, const std::string &name,
               const std::string &digest);

/** Whether the metadata of an item contain the number of frames and the digest of the samples. */
bool is_finished(const recorded_item &item);

/** The items of a recording as a collection lists them. */
std::vector<collection_stream> listed_streams(const recording_documents &documents);

/** The most frames that were written at once, by the metadata of the items that can be read. */
uint64_t read_block_frames(const std::vector<recorded_item> &items);

/** The path of the collection of a recording in this directory. */
std::filesystem::path collection_path(const std::filesystem::path &directory);

/** Whether a directory has the collection of a recording, or the metadata of its first item. */
bool has_documents(const std::filesystem::path &directory);

/**
 * The directory of a recording.
 *
 * @param place  the directory itself, or any of its files
 * @throws bad_recording if it does not exist
 */
std::filesystem::path recording_directory(const std::filesystem::path &place);

/**
 * Reads the documents. If one of them is damaged, the others replace it as far as possible.
 *
 * @param place  the directory of the recording, or any of its SigMF documents
 * @throws bad_recording if there is no recording
 * @throws damaged_recording if none of its documents describes the session
 */
recording_documents read_documents(const std::filesystem::path &place);

} // namespace vantor

#endif
