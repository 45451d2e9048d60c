/** @file
 * The rules for which part of the repository may include from which.
 */
#include "include_rules.h"

#include <algorithm>
#include <functional>
#include <regex>

#include "repository.h"

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

/** Whether a path is a part of the repository, or below it. `*` in @p part matches one name. */
bool is_in(const fs::path &path, const fs::path &part)
{
    const auto same = [](const fs::path &of_part, const fs::path &of_path) {
        return of_part == "*" || of_part == of_path;
    };
    return std::mismatch(part.begin(), part.end(), path.begin(), path.end(), same).first == part.end();
}

/** The innermost part that contains a path; empty if there is none. */
std::string part_of(const fs::path &path, const rules_t &rules)
{
    std::string innermost;
    for (const auto &[part, may_include] : rules)
    {
        // In the order of the map, an inner part comes after the one that contains it.
        if (is_in(path, part))
        {
            innermost = part;
        }
    }
    return innermost;
}

bool is_permitted(const std::string &from, const fs::path &to, const rules_t &rules)
{
    const std::set<std::string> &may_include = rules.at(from);
    return part_of(to, rules) == from ||
           std::any_of(may_include.begin(), may_include.end(),
                       [&](const std::string &part) { return is_in(to, part); });
}

/** Whether a part may include another one, or a path in it that is not a part itself. */
bool may_reach(const std::string &from, const std::string &to, const rules_t &rules)
{
    const std::set<std::string> &may_include = rules.at(from);
    return is_permitted(from, to, rules) ||
           std::any_of(may_include.begin(), may_include.end(),
                       [&](const std::string &permitted) { return part_of(permitted, rules) == to; });
}

std::vector<fs::path> files_with(const std::vector<source_t> &sources,
                                 const std::function<bool(const fs::path &)> &condition)
{
    std::vector<fs::path> found;
    for (const source_t &source : sources)
    {
        if (condition(source.path))
        {
            found.push_back(source.path);
        }
    }
    return found;
}

/** The files whose path ends with an included name; only the one in the including file's folder, if it
 * exists. */
std::vector<fs::path> named_files(const source_t &source, const std::string &name,
                                  const std::vector<source_t> &sources)
{
    const fs::path same_folder = (source.path.parent_path() / name).lexically_normal();
    std::vector<fs::path> files =
        files_with(sources, [&](const fs::path &path) { return path == same_folder; });
    if (files.empty())
    {
        files = files_with(sources, [&](const fs::path &path) {
            return ("/" + path.generic_string()).ends_with("/" + name);
        });
    }
    return files;
}

/** The files with the file name of an included one, because a path with dots may lead to any of them. */
std::vector<fs::path> files_with_name(const std::string &name, const std::vector<source_t> &sources)
{
    return files_with(sources,
                      [&](const fs::path &path) { return path.filename() == fs::path(name).filename(); });
}

/** The parts that contain an included file and that the including file must not include. */
std::set<std::string> forbidden_parts(const source_t &source, const std::string &name,
                                      const std::vector<source_t> &sources, const rules_t &rules)
{
    const std::string from = part_of(source.path, rules);
    const auto permitted = [&](const fs::path &file) { return is_permitted(from, file, rules); };
    std::vector<fs::path> files = named_files(source, name, sources);
    if (std::any_of(files.begin(), files.end(), permitted))
    {
        return {};
    }
    if (files.empty())
    {
        files = files_with_name(name, sources);
    }
    std::set<std::string> parts;
    for (const fs::path &file : files)
    {
        if (!permitted(file))
        {
            parts.insert(part_of(file, rules));
        }
    }
    return parts;
}

/** A set with the elements of both. */
std::set<std::string> joined(std::set<std::string> first, const std::set<std::string> &second)
{
    first.insert(second.begin(), second.end());
    return first;
}

/** The public headers of a layer of the host: each may include those before it, and those of lower layers. */
class public_layer
{
public:
    public_layer(rules_t &rules, std::set<std::string> below, const std::vector<std::string> &names)
        : all_(std::move(below))
    {
        for (const std::string &name : names)
        {
            const std::string header = "host/include/vantor/" + name + ".h";
            rules[header] = all_;
            all_.insert(header);
        }
    }

    /** The headers of this layer and of those below it. */
    [[nodiscard]] const std::set<std::string> &all() const
    {
        return all_;
    }

private:
    std::set<std::string> all_;
};

/** Adds the rules of the host. */
void add_host_rules(rules_t &rules)
{
    const public_layer basics(rules, {}, {"calibration", "errors"});
    const public_layer configuration(
        rules, basics.all(),
        {"configuration_fault", "configuration", "calibration_file", "configuration_check", "plan", "wish"});
    // The client does not need to know how a configuration is checked or planned.
    const public_layer client(rules, basics.all(),
                              {"time_source", "sample", "sample_buffer", "address", "loss_counter",
                               "tick_clock", "board_clock", "utc_time", "event_loop", "blocking_work", "link",
                               "message_parser", "truth", "session", "client"});
    const public_layer recording(rules, joined(configuration.all(), client.all()),
                                 {"arrived_frame", "flag_counts", "recording_error", "collection_stream",
                                  "board_collection", "segment", "capture", "frame_table", "item_statistics",
                                  "recorded_item", "session_description", "recording_source", "reported_plan",
                                  "truth_table", "recording_reader", "recording_writer"});
    const public_layer hub(rules, recording.all(),
                           {"frame_sink", "frame_source", "frame_tally", "hub", "recording_sink",
                            "truth_file", "session_source"});
    const std::set<std::string> below_pictures =
        joined(recording.all(), {"host/configuration", "host/recording"});
    rules["host/configuration"] = configuration.all();
    rules["host/client"] = joined(joined(client.all(), configuration.all()), {"host/configuration"});
    rules["host/recording"] = joined(recording.all(), {"host/configuration"});
    rules["host/hub"] = joined(hub.all(), {"host/configuration", "host/recording"});
    rules["host/export"] = below_pictures;
    rules["host/plot"] = below_pictures;
    rules["host/score"] = below_pictures;
    rules["host/replay"] =
        joined(hub.all(), {"host/client", "host/configuration", "host/hub", "host/recording"});
    rules["host/view"] = rules["host/replay"];
    rules["host/bridge"] = joined(rules["host/replay"], {"host/replay"});
    rules["host/selftest"] = joined(client.all(), {"host/client"});
    rules["host/commands"] = {"host/include",  "host/client", "host/configuration", "host/recording",
                              "host/export",   "host/plot",   "host/replay",        "host/score",
                              "host/selftest", "host/view",   "host/bridge"};
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
        if (!fs::exists(root / folder))
        {
            continue;
        }
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

rules_t include_rules()
{
    const std::string server = "application/vantor_server/zet_vantor_server";
    const std::string record_of_memory = server + ".h";
    const std::set<std::string> below_backend{"nox",
                                              "application/common",
                                              server + "_base.h",
                                              server + "_base_internal.h",
                                              server + "_error_messages.h",
                                              server + "_utils.h"};
    std::set<std::string> below_core = below_backend;
    below_core.insert({"integration", server + "_system_k330.h"});
    const std::string board_numbers = "boards/*/board_numbers.h";
    rules_t rules{
        {"nox", {}},
        {"integration", {"nox"}},
        {"application", {"application", "integration", "nox"}},
        {"application/common", below_backend},
        {server + ".h", {"nox", server + "_base.h"}},
        {server + "_base.h", {}},
        {server + "_base_internal.h", {server + "_base.h"}},
        {server + "_error_messages.h", {}},
        {server + "_system_k330.h", {"nox", server + "_base.h"}},
        {server + "_utils.h", {}},
        {server + "_error_messages.cpp", below_backend},
        {server + "_utils.cpp", below_backend},
        {server + "_system_k330.cpp", below_core},
        {"simulator", {"integration", "nox"}},
        {"ports/common", {record_of_memory, "integration", "nox"}},
        {"ports/linux", {"application", "simulator", "integration", "nox", "ports/common"}},
        {"ports/firmware", {"application", "integration", "nox", "ports/common", board_numbers}},
        {"ports/firmware/sensors_simulator.cpp",
         {"application", "simulator", "integration", "nox", "ports/common", "ports/firmware", board_numbers}},
        {"boards", {"integration", "nox", "ports/firmware", board_numbers}},
        {board_numbers, {}},
    };
    add_host_rules(rules);
    return rules;
}

std::set<std::string> parts_in_cycles(const rules_t &rules)
{
    // Remove parts that may not include any part that is left, until nothing changes.
    rules_t left = rules;
    const auto may_leave = [&](const rules_t::value_type &part) {
        return std::none_of(left.begin(), left.end(), [&](const rules_t::value_type &other) {
            return other.first != part.first && may_reach(part.first, other.first, rules);
        });
    };
    while (std::erase_if(left, may_leave) > 0)
    {
    }
    std::set<std::string> parts;
    for (const auto &[part, may_include] : left)
    {
        parts.insert(part);
    }
    return parts;
}

std::vector<std::string> broken_rules(const std::vector<source_t> &sources)
{
    const rules_t rules = include_rules();
    std::vector<std::string> broken;
    for (const source_t &source : sources)
    {
        if (part_of(source.path, rules).empty())
        {
            broken.push_back(source.path.generic_string() + " has no include rule");
            continue;
        }
        for (const std::string &name : source.included)
        {
            for (const std::string &part : forbidden_parts(source, name, sources, rules))
            {
                broken.push_back(source.path.generic_string() + " includes " + name + " of " + part);
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
            if (is_in(source.path, folder) && files_with_name(name, sources).empty())
            {
                names.insert(name);
            }
        }
    }
    return names;
}

} // namespace structure_tests
