/** @file
 * The rules about which part of the repository may include from which.
 */
#ifndef INCLUDE_RULES_H
#define INCLUDE_RULES_H

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace structure_tests
{

/** A source file and the names that its include directives give. */
struct source_t
{
    std::filesystem::path path;        /**< relative to the root of the repository */
    std::vector<std::string> included; /**< as written between quotes or angle brackets */
};

/** The sources in the given top-level folders, of those that exist. */
std::vector<source_t> read_sources(const std::filesystem::path &root, const std::set<std::string> &folders);

/** The names that the include directives of a text give. */
std::vector<std::string> included_names(const std::string &text);

/** Rooms with what they may include. */
using rules_t = std::map<std::string, std::set<std::string>>;

/**
 * The rooms, and for each one where it may include from.
 *
 * A room is a folder with everything below it, or one file; `*` stands for any one name. A file belongs to
 * the innermost room that it lies in, and may always include from that one.
 */
rules_t include_rules();

/**
 * Finds rooms that may include from each other, directly or through others.
 *
 * @return the rooms of every such circle
 */
std::set<std::string> rooms_in_circles(const rules_t &rules);

/**
 * Finds includes that break a rule, and sources that no rule is for.
 *
 * An include means the file beside the including one, else those whose path ends with the name. When there
 * are several, one that may be included is enough: the build has no other one in its search path. A name that
 * no file of the repository has belongs to a library and breaks no rule of this kind.
 *
 * @return one sentence for each
 */
std::vector<std::string> broken_rules(const std::vector<source_t> &sources);

/** The names that the sources of one folder include and that no source of the repository has. */
std::set<std::string> library_headers(const std::vector<source_t> &sources, const std::string &folder);

} // namespace structure_tests

#endif
