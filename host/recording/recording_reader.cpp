/** @file
 * Reads a recording.
 */
#include "recording/recording_reader.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <system_error>

#include "recording/point_distances.h"
#include "recording/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Reads a JSON document of a recording. */
json read_document(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open())
    {
        throw bad_recording("Cannot read " + path.string() +
                            ": give the directory of a recording, as printed by \"vantor record\".");
    }
    try
    {
        return parse_json_text(text, path.string());
    }
    catch (const configuration_error &failure)
    {
        throw bad_recording(failure.what());
    }
}

/** Reads the description of the session from the collection. */
session_description read_session(const json &collection)
{
    const auto &about = collection.at("vantor:server");
    session_description session;
    session.configuration = collection.at("vantor:configuration");
    session.metadata = decode_metadata(collection.at("vantor:metadata"));
    session.server.server_version = about.at("version").get<std::string>();
    session.server.protocol_version = about.at("protocol_version").get<int>();
    session.server.sensor = about.at("sensor").get<std::string>();
    session.server.ticks_per_second = about.at("ticks_per_second").get<double>();
    return session;
}

/** Returns the directory of a recording, given the directory itself or one of its files. */
std::filesystem::path directory_of(const std::filesystem::path &place)
{
    std::error_code failure;
    if (!std::filesystem::exists(place, failure))
    {
        throw bad_recording(
            place.string() +
            " does not exist: give the directory of a recording, as printed by \"vantor record\".");
    }
    const auto directory = std::filesystem::is_directory(place) ? place : place.parent_path();
    return directory.empty() ? "." : directory;
}

} // namespace

recording_reader::recording_reader(const std::filesystem::path &place) : directory_(directory_of(place))
{
    const auto file = directory_ / (std::string(collection_name) + ".sigmf-collection");
    const auto document = read_document(file);
    try
    {
        session_ = read_session(document.at("collection"));
        open_items();
    }
    catch (const json::exception &)
    {
        throw bad_recording(file.string() + " was not written by \"vantor record\": a member is missing.");
    }
    catch (const protocol_error &failure)
    {
        throw bad_recording(file.string() + ": " + failure.what());
    }
    catch (const configuration_error &failure)
    {
        throw bad_recording(file.string() + ": " + failure.what());
    }
    frames_ = count_frames();
}

/** Opens the files of each item. */
void recording_reader::open_items()
{
    const auto configurations = list_items(session_.configuration);
    if (configurations.size() != session_.metadata.items.size())
    {
        throw bad_recording(
            "The configuration and the metadata of the recording have different numbers of items.");
    }
    for (size_t i = 0; i < configurations.size(); ++i)
    {
        const auto &layout = session_.metadata.items[i];
        auto document = read_document(directory_ / (item_name(layout) + ".sigmf-meta"));
        items_.push_back({.name = item_name(layout),
                          .layout = layout,
                          .configuration = configurations[i],
                          .distances = point_distances(layout, configurations[i]),
                          .document = std::move(document)});
        data_.emplace_back(directory_ / (item_name(layout) + ".sigmf-data"), std::ios::binary);
    }
}

/** Counts the frames that are complete in every item. */
uint64_t recording_reader::count_frames() const
{
    uint64_t least = items_.empty() ? 0 : std::numeric_limits<uint64_t>::max();
    for (const auto &item : items_)
    {
        std::error_code failure;
        const auto size = std::filesystem::file_size(directory_ / (item.name + ".sigmf-data"), failure);
        if (failure)
        {
            throw bad_recording("The samples of " + item.name + " are missing: " + failure.message() + ".");
        }
        const auto frame_size = item.layout.frame_length * sizeof(sample);
        least = std::min<uint64_t>(least, frame_size == 0 ? 0 : size / frame_size);
    }
    return least;
}

void recording_reader::read_frame(size_t item, uint64_t number, std::vector<sample> &samples)
{
    const auto length = items_.at(item).layout.frame_length;
    samples.resize(length);
    auto &file = data_.at(item);
    file.seekg(static_cast<std::streamoff>(number * length * sizeof(sample)));
    // A file stream reads only char; the file contains samples.
    file.read(reinterpret_cast<char *>(samples.data()),
              static_cast<std::streamsize>(length * sizeof(sample)));
    if (!file)
    {
        throw bad_recording("The samples of " + items_[item].name + " cannot be read.");
    }
    ++reads_;
    if (on_read_)
    {
        on_read_(reads_);
    }
}

} // namespace vantor
