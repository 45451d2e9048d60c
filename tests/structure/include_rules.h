/** @file
 * The rules about which folder of the repository may include from which.
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

/** The sources in the given top-level folders. */
std::vector<source_t> read_sources(const std::filesystem::path &root, const std::set<std::string> &folders);

/** The names that the include directives of a text give. */
std::vector<std::string> included_names(const std::string &text);

/** For each folder with a rule, the folders it may include from. It may always include from itself. */
std::map<std::string, std::set<std::string>> include_rules();

/**
 * Finds includes that break a rule.
 *
 * An included file is looked for beside the including one, then in the same top-level folder, then in every
 * other one. A name that no file of the repository bears belongs to a library and breaks no rule of this
 * kind.
 *
 * @return one sentence for each
 */
std::vector<std::string> broken_rules(const std::vector<source_t> &sources);

/** The names that the sources of one folder include and that no source of the repository bears. */
std::set<std::string> library_headers(const std::vector<source_t> &sources, const std::string &folder);

} // namespace structure_tests

#endif
