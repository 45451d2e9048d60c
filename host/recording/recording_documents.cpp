/** @file
 * Reads the documents of a recording.
 */
#include "recording/recording_documents.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "recording/input_file.h"
#include "recording/sha512.h"
#include "recording/sigmf.h"
#include "vantor/board_collection.h"
#include "vantor/configuration.h"
#include "vantor/recording_error.h"
#include "vantor/tick_clock.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** More frames than any recording has. */
constexpr uint64_t most_frames = 1'000'000'000'000;

/** The lists of items in a collection: one, or two while the metadata of the items are being replaced. */
constexpr std::array<const char *, 2> stream_members = {"core:streams", next_streams_member};

/** Whether a path exists, also after links; throws bad_recording if that is unknown, for example without
 * permission. */
bool is_there(const std::filesystem::path &path)
{
    std::error_code failure;
    const bool found = std::filesystem::exists(path, failure);
    if (failure && failure != std::errc::too_many_symbolic_link_levels)
    {
        throw bad_recording("Cannot read " + path.string() + ": " + failure.message() + ".");
    }
    return found;
}

/** Whether a directory has the metadata of the first item, and so was a recording once. */
bool has_first_item(const std::filesystem::path &directory)
{
    std::error_code failure;
    return std::filesystem::exists(directory / (item_name({}) + ".sigmf-meta"), failure);
}

/** The file with the samples of the first item, which is created before the documents. */
std::filesystem::path first_samples(const std::filesystem::path &directory)
{
    return directory / (item_name({}) + ".sigmf-data");
}

/** Whether a recorder has not yet written the documents in this directory, and so no frames. */
bool has_only_files(const std::filesystem::path &directory)
{
    std::error_code failure;
    return std::filesystem::file_size(first_samples(directory), failure) == 0;
}

/** Calls a function that reads a document; turns each of its exceptions into bad_recording. */
template <typename function_t> auto read_checked(const std::filesystem::path &path, function_t read)
{
    try
    {
        return read();
    }
    catch (const json::exception &)
    {
        throw bad_recording(path.string() + " was not written by \"vantor record\": a member is missing or "
                                            "has the wrong type.");
    }
    catch (const protocol_error &failure)
    {
        throw bad_recording(path.string() + ": " + failure.what());
    }
    catch (const configuration_error &failure)
    {
        const std::string reason = failure.what();
        throw bad_recording(reason.starts_with(path.string()) ? reason : path.string() + ": " + reason);
    }
}

/** Whether a value is a whole number of the type int. */
bool is_int(const json &value)
{
    using limits = std::numeric_limits<int>;
    return value.is_number_integer() && value >= limits::min() && value <= limits::max();
}

/** Reads the description of the session from an object that contains it. */
session_description read_session(const json &members)
{
    const auto &about = members.at("vantor:server");
    session_description session;
    session.configuration = members.at("vantor:configuration");
    session.metadata = decode_metadata(members.at("vantor:metadata"));
    set_distances(session.metadata, session.configuration);
    session.server.server_version = about.at("version").get<std::string>();
    if (!is_int(about.at("protocol_version")))
    {
        throw protocol_error("The version of the protocol is not a whole number.");
    }
    session.server.protocol_version = about["protocol_version"].get<int>();
    session.server.sensor = about.at("sensor").get<std::string>();
    session.server.ticks_per_second = about.at("ticks_per_second").get<double>();
    if (members.contains("vantor:source"))
    {
        session.source = members["vantor:source"];
    }
    if (members.contains(truth_member))
    {
        session.truth = members[truth_member];
        if (!session.truth.is_object())
        {
            throw configuration_error(std::string(truth_member) + " is not an object.");
        }
    }
    if (list_items(session.configuration).size() != session.metadata.items.size())
    {
        throw configuration_error(
            "The configuration and the metadata of the recording have different numbers of items.");
    }
    return session;
}

/** Whether a capture has the numbers that vantor writes. */
bool has_capture_numbers(const json &capture)
{
    return capture.at("core:sample_start").is_number_unsigned() &&
           capture.at("core:global_index").is_number_unsigned() &&
           is_int(capture.value("vantor:calibration_temperature", json(0)));
}

/** Throws a JSON exception if a segment of frames is not described as vantor does. */
void check_capture(const json &capture, size_t frame_length)
{
    static_cast<void>(capture.value("core:datetime", std::string()));
    static_cast<void>(capture.value("vantor:break", std::string()));
    const double gap = capture.value("vantor:break_s", 0.0);
    if (!has_capture_numbers(capture) || !(gap >= 0.0 && gap <= longest_time) ||
        capture["core:global_index"] < capture["core:sample_start"] ||
        (frame_length > 0 && capture["core:sample_start"].get<uint64_t>() % frame_length != 0))
    {
        throw json::other_error::create(500, "impossible capture", &capture);
    }
}

/** Whether a member is a number of frames, or missing, as in recordings of earlier versions. */
bool is_count(const json &global, const char *name)
{
    return !global.contains(name) || global[name].is_number_unsigned();
}

/** Whether the number of frames that are written at once is possible. */
bool has_possible_block(const json &global)
{
    return is_count(global, block_frames_member) &&
           global.value(block_frames_member, uint64_t{1}) <= most_block_frames;
}

/** Whether the metadata of a finished item have a digest and a possible number of frames. */
bool has_totals(const json &global)
{
    const auto &frames = global.at("vantor:frames");
    const bool has_digests =
        global["core:sha512"].is_string() && global.value(table_digest_member, json("")).is_string();
    return has_digests && is_count(global, "vantor:frames_missing") && frames.is_number_unsigned() &&
           frames.get<uint64_t>() <= most_frames;
}

/** Checks that the metadata of an item have the members that vantor uses, and belong to the session. */
void check_item_document(const json &document, const item_layout &layout)
{
    const auto &global = document.at("global");
    if (!document.at("captures").is_array())
    {
        throw json::other_error::create(500, "no captures", &document);
    }
    static_cast<void>(document["captures"].at(0));
    for (const auto &capture : document["captures"])
    {
        check_capture(capture, layout.frame_length);
    }
    if (global.at("vantor:samples_per_frame") != layout.frame_length ||
        !is_count(global, unlisted_breaks_member) || !has_possible_block(global) ||
        (global.contains("core:sha512") && !has_totals(global)))
    {
        throw json::other_error::create(500, "another session", &document);
    }
}

/** Reads the metadata of an item, and computes their digest. */
void read_item_document(const std::filesystem::path &directory, recorded_item &item, std::string &digest)
{
    const auto path = directory / (item.name + ".sigmf-meta");
    const auto text = read_document_text(path);
    digest = sha512_of(text);
    item.document = read_checked(path, [&] {
        auto document = parse_json_text(text, path.string());
        check_item_document(document, item.layout);
        return document;
    });
}

/** A document that contains the description of the session. */
struct description // NOLINT(bugprone-exception-escape): moving a JSON document does not throw
{
    json members;       /**< the object that contains it */
    std::string digest; /**< SHA-512 of the file */
    session_description session;
};

/** Reads the description of the session from the object at a place in a document. */
description read_description(const std::filesystem::path &path, const char *pointer)
{
    const auto text = read_document_text(path);
    return read_checked(path, [&] {
        description found;
        found.members = parse_json_text(text, path.string()).at(json::json_pointer(pointer));
        found.digest = sha512_of(text);
        found.session = read_session(found.members);
        return found;
    });
}

/** Reads the copy of the description in the first item; nothing if that is damaged, or has no copy. */
std::optional<description> read_copy(const std::filesystem::path &directory)
{
    try
    {
        return read_description(directory / (item_name({}) + ".sigmf-meta"), "/global/vantor:session");
    }
    catch (const bad_recording &)
    {
        return std::nullopt;
    }
}

/** Compares the description in the collection with its copy, which is right if the item has its digest. */
void compare_with_copy(recording_documents &documents, const description &copy)
{
    const bool trusted = is_listed(documents.collection, 0, item_name({}), copy.digest);
    for (const char *name :
         {"vantor:configuration", "vantor:metadata", "vantor:server", "vantor:source", truth_member})
    {
        const auto right = copy.members.value(name, json());
        if (documents.collection.value(name, json()) == right)
        {
            continue;
        }
        documents.faults.push_back(collection_path(documents.directory).filename().string() + ": " + name +
                                   " differs from its copy in " + item_name({}) + ".sigmf-meta.");
        documents.contradictory = !trusted;
        if (trusted)
        {
            documents.collection[name] = right;
            documents.session = copy.session;
        }
    }
}

/**
 * Reads the description of the session from the collection, or from its copy if that is damaged.
 *
 * @return whether a second document confirms it: the collection and its copy agree, or a digest shows which
 * one is right
 */
bool find_session(recording_documents &documents)
{
    const auto copy = read_copy(documents.directory);
    try
    {
        auto found = read_description(collection_path(documents.directory), "/collection");
        documents.collection = std::move(found.members);
        documents.session = std::move(found.session);
    }
    catch (const bad_recording &failure)
    {
        documents.faults.emplace_back(failure.what());
        if (!copy)
        {
            throw damaged_recording(documents.faults.front() +
                                    " No other document contains a copy of the description of the session.");
        }
        documents.session = copy->session;
        return false;
    }
    if (copy)
    {
        compare_with_copy(documents, *copy);
    }
    return copy && !documents.contradictory;
}

/**
 * Compares the metadata of the last item with the description of the session, and corrects them if they are
 * not those that the collection lists and a second document confirms the description.
 */
void compare_with_session(recording_documents &documents, bool confirmed)
{
    auto &item = documents.items.back();
    const bool listed =
        !documents.collection.is_null() &&
        is_listed(documents.collection, documents.items.size() - 1, item.name, documents.digests.back());
    const std::pair<const char *, json> expected[] = {
        {"vantor:samples_per_sweep", item.layout.sweep_length},
        {"vantor:base_step_length_m", item.layout.base_step_length_m},
        {"vantor:item_configuration", item.configuration.document}};
    for (const auto &[name, value] : expected)
    {
        auto &global = item.document["global"];
        if (global.contains(name) && !global[name].is_null() && global[name] != value)
        {
            documents.faults.push_back(item.name + ".sigmf-meta: " + name +
                                       " differs from the description of the session.");
            if (listed || !confirmed)
            {
                documents.contradictory = true;
                continue;
            }
            global[name] = value;
        }
    }
}

/** Reads the metadata of all items. @p confirmed  whether a second document confirms the description */
void read_items(recording_documents &documents, bool confirmed)
{
    const auto configurations = list_items(documents.session.configuration);
    for (size_t i = 0; i < configurations.size(); ++i)
    {
        const auto &layout = documents.session.metadata.items[i];
        auto &item = documents.items.emplace_back(recorded_item{.name = item_name(layout),
                                                                .layout = layout,
                                                                .configuration = configurations[i],
                                                                .document = nullptr});
        auto &digest = documents.digests.emplace_back();
        try
        {
            read_item_document(documents.directory, item, digest);
            compare_with_session(documents, confirmed);
        }
        catch (const bad_recording &failure)
        {
            documents.faults.emplace_back(failure.what());
        }
    }
}

} // namespace

bool is_finished(const recorded_item &item)
{
    return !item.document.is_null() && item.document["global"].contains("core:sha512");
}

bool is_listed(const json &collection, size_t index, const std::string &name, const std::string &digest)
{
    const json expected = {{"name", name}, {"hash", digest}};
    return std::any_of(stream_members.begin(), stream_members.end(), [&](const char *member) {
        const auto streams = collection.value(member, json());
        return streams.is_array() && index < streams.size() && streams[index] == expected;
    });
}

std::vector<collection_stream> listed_streams(const recording_documents &documents)
{
    std::vector<collection_stream> streams;
    for (size_t i = 0; i < documents.items.size(); ++i)
    {
        streams.push_back({.name = documents.items[i].name, .digest = documents.digests[i]});
    }
    return streams;
}

uint64_t read_block_frames(const std::vector<recorded_item> &items)
{
    uint64_t most = 1;
    for (const auto &item : items)
    {
        if (!item.document.is_null())
        {
            most = std::max(most, item.document["global"].value(block_frames_member, uint64_t{1}));
        }
    }
    return most;
}

std::filesystem::path collection_path(const std::filesystem::path &directory)
{
    return directory / (std::string(collection_name) + ".sigmf-collection");
}

bool has_documents(const std::filesystem::path &directory)
{
    std::error_code failure;
    return std::filesystem::exists(collection_path(directory), failure) || has_first_item(directory);
}

std::filesystem::path recording_directory(const std::filesystem::path &place)
{
    if (!is_there(place))
    {
        throw bad_recording(
            place.string() +
            " does not exist: give the directory of a recording, as printed by \"vantor record\".");
    }
    const auto directory = std::filesystem::is_directory(place) ? place : place.parent_path();
    return directory.empty() ? "." : directory;
}

recording_documents read_documents(const std::filesystem::path &place)
{
    recording_documents documents;
    documents.directory = recording_directory(place);
    const auto collection = collection_path(documents.directory);
    if (!is_there(collection) && !has_first_item(documents.directory))
    {
        if (board_collection::is_at(documents.directory))
        {
            throw bad_recording(documents.directory.string() +
                                " has recordings in its directories: give one of these.");
        }
        if (has_only_files(documents.directory))
        {
            if (input_file(first_samples(documents.directory)).is_being_written())
            {
                throw bad_recording("The recording in " + documents.directory.string() +
                                    " is just being started: try again in a moment.");
            }
            throw bad_recording("Nothing was recorded in " + documents.directory.string() +
                                ": the program was ended while it created the files. Remove the directory.");
        }
        throw bad_recording("Cannot read " + collection.string() +
                            ": give the directory of a recording, as printed by \"vantor record\".");
    }
    const bool confirmed = find_session(documents);
    read_items(documents, confirmed);
    return documents;
}

} // namespace vantor
