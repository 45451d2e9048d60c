/** @file
 * The files of a recording in memory, to damage them one by one.
 */
#ifndef VANTOR_RECORDING_FILES_H
#define VANTOR_RECORDING_FILES_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "example_recording.h"
#include "temporary_directory.h"
#include "vantor/recording_writer.h"

namespace vantor::test
{

/** A small recording on disk whose original files are also in memory. */
class recording_files
{
public:
    static constexpr uint32_t frames = 2;

    /** @param finished  false for a recording whose program was killed */
    explicit recording_files(bool finished)
    {
        {
            recording_writer writer(path, example_description());
            for (uint32_t number = 0; number < frames; ++number)
            {
                writer.add(example_frame(number));
            }
            if (finished)
            {
                writer.finish();
            }
        }
        for (const auto &entry : std::filesystem::directory_iterator(path))
        {
            original[entry.path().filename().string()] = read_file(entry.path());
        }
    }

    /** Writes a file. */
    void write(const std::string &name, const std::string &content) const
    {
        std::ofstream(path / name, std::ios::binary) << content;
    }

    /** Writes all files as they were. */
    void restore() const
    {
        for (const auto &[name, content] : original)
        {
            write(name, content);
        }
    }

    /** The number of frames that are complete when one file is cut to this length. */
    [[nodiscard]] uint64_t frames_left(const std::string &name, size_t length) const
    {
        const auto &content = original.at(name);
        if (name.ends_with(".sigmf-data"))
        {
            return length / (content.size() / frames);
        }
        const auto lines =
            std::count(content.begin(), content.begin() + static_cast<ptrdiff_t>(length), '\n');
        return name.ends_with(".csv") ? static_cast<uint64_t>(std::max<ptrdiff_t>(lines - 1, 0)) : frames;
    }

    /**
     * The lengths to which a file is cut: a sample of them and the last ones; all in the whole campaign.
     *
     * @param step  between two lengths of the sample
     */
    [[nodiscard]] std::vector<size_t> cuts(const std::string &name, size_t step) const
    {
        constexpr size_t last = 16;
        const auto size = original.at(name).size();
        const char *const campaign = std::getenv("VANTOR_CAMPAIGN");
        const bool all = campaign != nullptr && std::string(campaign) == "whole";
        std::vector<size_t> lengths;
        for (size_t length = 0; length < size; length += all || length + last > size ? 1 : step)
        {
            lengths.push_back(length);
        }
        return lengths;
    }

    temporary_directory directory;
    std::filesystem::path path = directory / "out";
    std::map<std::string, std::string> original;
};

} // namespace vantor::test

#endif
