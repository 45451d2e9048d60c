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
constexpr size_t largest_scene = size_t{1} << 19;

[[noreturn]] void fail(const char *what, const std::string &path, const std::string &reason)
{
    throw std::runtime_error(std::string("cannot ") + what + " the scene \"" + path + "\": " + reason);
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
void check_kind(const file_t &file, const std::string &path)
{
    struct stat status = {};
    if (fstat(file.descriptor(), &status) != 0)
    {
        fail("read", path, std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode))
    {
        fail("read", path, "it is a directory; use a file");
    }
    if (!S_ISREG(status.st_mode))
    {
        fail("read", path, "it is not a regular file");
    }
}

/** Reads the text of a scene. */
std::string read_text(const std::string &path)
{
    const file_t file(path);
    if (file.descriptor() < 0)
    {
        fail("read", path, std::strerror(errno));
    }
    check_kind(file, path);
    std::string text(largest_scene + 1, '\0');
    size_t size = 0;
    for (ssize_t count = 1; count > 0 && size < text.size(); size += static_cast<size_t>(count))
    {
        count = read(file.descriptor(), text.data() + size, text.size() - size);
        if (count < 0)
        {
            fail("read", path, std::strerror(errno));
        }
    }
    text.resize(size);
    if (text.size() > largest_scene)
    {
        fail("use", path, "it has more than 512 KiB");
    }
    return text;
}

/** Returns whether a text is a name, not that of a file with an ending or in a folder. */
bool is_plain_name(const std::string &text)
{
    return text.find_first_of("./") == std::string::npos;
}

/** Returns the text of the example with a name. */
std::string example_text(const std::string &name)
{
    const auto *const found =
        std::find_if(std::begin(example_scenes), std::end(example_scenes),
                     [&](const example_scene_t &example) { return example.name == name; });
    if (found != std::end(example_scenes))
    {
        return std::string(found->text);
    }
    std::string names;
    for (const example_scene_t &example : example_scenes)
    {
        names += (names.empty() ? "" : ", ") + std::string(example.name);
    }
    fail("read", name, "the file does not exist; the examples are " + names);
}

} // namespace

zet_simulator_scene_t read_scene_file(const std::string &path, uint16_t sensor_count, uint32_t *body_count)
{
    const bool is_example = is_plain_name(path) && access(path.c_str(), F_OK) != 0;
    const std::string text = is_example ? example_text(path) : read_text(path);
    zet_simulator_scene_t scene = {};
    std::array<char, 1024> fault = {};
    const zet_simulator_scene_source_t source = {text.c_str(), text.size(), sensor_count, body_count};
    if (!zet_simulator_scene_from_json(&source, &scene, fault.data(), fault.size()))
    {
        fail("use", path, fault.data());
    }
    return scene;
}

void select_board(zet_simulator_scene_t &scene, uint16_t board, const std::string &path)
{
    std::array<char, 1024> fault = {};
    if (!zet_simulator_scene_select_board(&scene, board, fault.data(), fault.size()))
    {
        fail("use", path, std::string(fault.data()) + "; --board gives the number of this board");
    }
}
