/** @file
 * The rules about which folder of the repository may include from which.
 */
#include "include_rules.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>

namespace structure_tests
{

namespace
{

namespace fs = std::filesystem;

bool is_source(const fs::path &path)
{
    static const std::set<std::string> extensions{".h", ".hpp", ".c", ".cpp"};
    return extensions.contains(path.extension().string());
}

std::string text_of(const fs::path &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string folder_of(const fs::path &path)
{
    return path.begin()->string();
}

/** Whether a path ends with the elements of an included name. */
bool matches(const fs::path &path, const std::string &name)
{
    const std::string full = "/" + path.generic_string();
    return full.ends_with("/" + name);
}

/** The top-level folders from which an include may be served, the nearest only. */
std::set<std::string> folders_of(const source_t &source, const std::string &name,
                                 const std::vector<source_t> &sources)
{
    std::set<std::string> folders;
    for (const source_t &candidate : sources)
    {
        const fs::path beside = (source.path.parent_path() / name).lexically_normal();
        if (candidate.path == beside ||
            (matches(candidate.path, name) && folder_of(candidate.path) == folder_of(source.path)))
        {
            return {folder_of(candidate.path)};
        }
        if (matches(candidate.path, name) || candidate.path.filename() == fs::path(name).filename())
        {
            folders.insert(folder_of(candidate.path));
        }
    }
    return folders;
}

} // namespace

std::vector<std::string> included_names(const std::string &text)
{
    static const std::regex directive(R"rx((?:^|\n)[ \t]*#[ \t]*include[ \t]*[<"]([^>"\n]+)[>"])rx");
    std::vector<std::string> names;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), directive);
         match != std::sregex_iterator(); ++match)
    {
        names.push_back((*match)[1].str());
    }
    return names;
}

std::vector<source_t> read_sources(const fs::path &root, const std::set<std::string> &folders)
{
    std::vector<source_t> sources;
    for (const std::string &folder : folders)
    {
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root / folder))
        {
            if (entry.is_regular_file() && is_source(entry.path()))
            {
                sources.push_back({fs::relative(entry.path(), root), included_names(text_of(entry.path()))});
            }
        }
    }
    return sources;
}

std::map<std::string, std::set<std::string>> include_rules()
{
    return {
        {"nox", {}},
        {"integration", {"nox"}},
        {"application", {"integration", "nox"}},
        {"simulator", {"integration", "nox"}},
        {"ports", {"application", "simulator", "integration", "nox"}},
        {"host", {}},
    };
}

std::vector<std::string> broken_rules(const std::vector<source_t> &sources)
{
    const auto rules = include_rules();
    std::vector<std::string> broken;
    for (const source_t &source : sources)
    {
        const std::string from = folder_of(source.path);
        const auto rule = rules.find(from);
        if (rule == rules.end())
        {
            continue;
        }
        for (const std::string &name : source.included)
        {
            for (const std::string &to : folders_of(source, name, sources))
            {
                if (to != from && !rule->second.contains(to))
                {
                    broken.push_back(source.path.generic_string() + " includes " + name + " of " + to);
                }
            }
        }
    }
    return broken;
}

std::set<std::string> library_headers(const std::vector<source_t> &sources, const std::string &folder)
{
    std::set<std::string> names;
    for (const source_t &source : sources)
    {
        for (const std::string &name : source.included)
        {
            if (folder_of(source.path) == folder && folders_of(source, name, sources).empty())
            {
                names.insert(name);
            }
        }
    }
    return names;
}

} // namespace structure_tests
