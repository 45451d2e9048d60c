/** @file
 * Reads scene files.
 */
#include "scene_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include "example_scenes.h"
#include "zet_simulator_scene_json.h"

namespace
{

/** Largest scene that is read, far more than a scene can have. */
constexpr size_t largest_scene = size_t{2} << 20;

/** Largest file with a track, far more than a track can have. */
constexpr size_t largest_track = size_t{1} << 20;

/** What a file is for, in messages. */
constexpr const char *scene_file = "the scene";
constexpr const char *track_file = "the track";

[[noreturn]] void fail(const char *what, const char *file, const std::string &path, const std::string &reason)
{
    throw std::runtime_error(std::string("cannot ") + what + " " + file + " \"" + path + "\": " + reason);
}

/** An open file. Opening it does not wait, also if it is a pipe. */
class file_t
{
public:
    explicit file_t(const std::string &path)
        : descriptor_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
    }
    file_t(const file_t &) = delete;
    file_t &operator=(const file_t &) = delete;
    ~file_t()
    {
        close(descriptor_);
    }

    int descriptor() const
    {
        return descriptor_;
    }

private:
    int descriptor_;
};

/** Throws if a file is not one that can be read to its end. */
void check_kind(const file_t &file, const char *use, const std::string &path)
{
    struct stat status = {};
    if (fstat(file.descriptor(), &status) != 0)
    {
        fail("read", use, path, std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode))
    {
        fail("read", use, path, "it is a directory; use a file");
    }
    if (!S_ISREG(status.st_mode))
    {
        fail("read", use, path, "it is not a regular file");
    }
}

/** Reads a file up to a largest size. */
std::string read_text(const char *use, const std::string &path, size_t most)
{
    const file_t file(path);
    if (file.descriptor() < 0)
    {
        fail("read", use, path, std::strerror(errno));
    }
    check_kind(file, use, path);
    std::string text(most + 1, '\0');
    size_t size = 0;
    for (ssize_t count = 1; count > 0 && size < text.size(); size += static_cast<size_t>(count))
    {
        count = read(file.descriptor(), text.data() + size, text.size() - size);
        if (count < 0)
        {
            fail("read", use, path, std::strerror(errno));
        }
    }
    text.resize(size);
    if (text.size() > most)
    {
        fail("use", use, path, "it has more than " + std::to_string(most >> 20) + " MiB");
    }
    return text;
}

/** Returns whether a text is a name, not that of a file with an ending or in a folder. */
bool is_plain_name(const std::string &text)
{
    return text.find_first_of("./") == std::string::npos;
}

/** Returns the example with a name; null if there is none. */
const example_scene_t *find_example(const std::string &name)
{
    const auto *const found =
        std::find_if(std::begin(example_scenes), std::end(example_scenes),
                     [&](const example_scene_t &example) { return example.name == name; });
    return found != std::end(example_scenes) ? found : nullptr;
}

/** Returns the text of the example with a name. */
std::string example_text(const std::string &name)
{
    if (const example_scene_t *const example = find_example(name))
    {
        return std::string(example->text);
    }
    std::string names;
    for (const example_scene_t &example : example_scenes)
    {
        names += (names.empty() ? "" : ", ") + std::string(example.name);
    }
    fail("read", scene_file, name, "the file does not exist; the examples are " + names);
}

/** Returns whether a scene is an example, not a file. A folder, such as a recording, may have its name. */
bool is_name_of_example(const std::string &text)
{
    struct stat status = {};
    const bool exists = stat(text.c_str(), &status) == 0;
    return is_plain_name(text) && (!exists || (S_ISDIR(status.st_mode) && find_example(text) != nullptr));
}

/** Where the files with tracks of a scene are, and the one that was read last. */
struct track_folder_t
{
    std::string path; /**< empty, or with a slash at its end */
    bool is_example;  /**< the scene is an example in this program, without files */
    std::string text;
};

/** Throws if a name is not that of a file in the folder of the scene, or in a folder in it. */
void check_track_name(const track_folder_t &folder, const std::string &name)
{
    if (folder.is_example)
    {
        fail("read", track_file, name, "an example that is used by its name has no files");
    }
    if (name.empty() || name.starts_with('/') || ("/" + name + "/").find("/../") != std::string::npos)
    {
        fail("read", track_file, name, "use a path from the folder of the scene, without \"..\"");
    }
}

/** Reads a file with a track for the simulator, which has no exceptions. */
zet_simulator_file_t read_track(void *context, const char *name, char *error, size_t error_size) noexcept
{
    auto &folder = *static_cast<track_folder_t *>(context);
    try
    {
        check_track_name(folder, name);
        folder.text = read_text(track_file, folder.path + name, largest_track);
        return {folder.text.c_str(), folder.text.size()};
    }
    catch (const std::exception &failure)
    {
        const std::string reason = failure.what();
        error[reason.copy(error, error_size - 1)] = '\0';
        return {nullptr, 0};
    }
}

} // namespace

zet_simulator_scene_t read_scene_file(const std::string &path, uint16_t sensor_count, uint32_t *body_count)
{
    const bool is_example = is_name_of_example(path);
    const std::string text = is_example ? example_text(path) : read_text(scene_file, path, largest_scene);
    zet_simulator_scene_t scene = {};
    std::array<char, 2048> fault = {};
    track_folder_t folder = {path.substr(0, path.rfind('/') + 1), is_example, ""};
    const zet_simulator_scene_source_t source = {text.c_str(), text.size(), sensor_count,
                                                 body_count,   read_track,  &folder};
    if (!zet_simulator_scene_from_json(&source, &scene, fault.data(), fault.size()))
    {
        fail("use", scene_file, path, fault.data());
    }
    return scene;
}

void select_board(zet_simulator_scene_t &scene, uint16_t board, const std::string &path)
{
    std::array<char, 1024> fault = {};
    if (!zet_simulator_scene_select_board(&scene, board, fault.data(), fault.size()))
    {
        fail("use", scene_file, path, std::string(fault.data()) + "; --board gives the number of this board");
    }
}
