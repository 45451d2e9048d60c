/** @file
 * The rules for which part of the repository may include from which.
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

/** A source file and the names in its include directives. */
struct source_t
{
    std::filesystem::path path;        /**< relative to the root of the repository */
    std::vector<std::string> included; /**< as written between quotes or angle brackets */
};

/** The sources in those top-level folders that exist. */
std::vector<source_t> read_sources(const std::filesystem::path &root, const std::set<std::string> &folders);

/** The names in the include directives of a text. */
std::vector<std::string> included_names(const std::string &text);

/** Parts of the repository, each with the parts that it may include. */
using rules_t = std::map<std::string, std::set<std::string>>;

/**
 * The parts of the repository, each with the parts that it may include.
 *
 * A part is a folder with everything below it, or one file; `*` matches any one name. A file belongs to the
 * innermost part that contains it, and may always include from that part.
 */
rules_t include_rules();

/**
 * Finds parts that may include each other, directly or through other parts.
 *
 * @return the parts in all such cycles
 */
std::set<std::string> parts_in_cycles(const rules_t &rules);

/**
 * Finds includes that break a rule, and sources without a rule.
 *
 * An include refers to the file in the folder of the including one, or else to those whose path ends with the
 * name. If there are several, one that may be included is enough: the build has no other one in its search
 * path. A name that no file of the repository has belongs to a library and does not break these rules.
 *
 * @return a message for each
 */
std::vector<std::string> broken_rules(const std::vector<source_t> &sources);

/** The names that the sources of a folder include and that are not files of the repository. */
std::set<std::string> library_headers(const std::vector<source_t> &sources, const std::string &folder);

} // namespace structure_tests

#endif
