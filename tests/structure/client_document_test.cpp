/** @file
 * Tests that the document of the libraries describes every call of their classes.
 */
#include <algorithm>
#include <regex>

#include <gtest/gtest.h>

#include "repository.h"

namespace structure_tests
{

namespace
{

/** The public functions of the class after which a public header is named. */
std::set<std::string> declared_calls(const std::string &class_name)
{
    const std::string header =
        text_of(std::filesystem::path(PROJECT_ROOT) / "host/include/vantor" / (class_name + ".h"));
    const size_t begin = header.find("\nclass " + class_name);
    const size_t hidden = std::min(header.find("\nprivate:", begin), header.find("\nprotected:", begin));
    const std::string declarations = header.substr(begin, hidden - begin);
    const std::regex function(R"rx(\n    (?!using|friend)[^\n*/ ][^\n*/]*?\b(\w+)\()rx");
    std::set<std::string> names;
    for (std::sregex_iterator match(declarations.begin(), declarations.end(), function), end; match != end;
         ++match)
    {
        names.insert((*match)[1].str());
    }
    names.erase(class_name);
    return names;
}

} // namespace

TEST(client_document, describes_every_call)
{
    const std::string document = text_of(std::filesystem::path(PROJECT_ROOT) / "docs/client.md");
    const std::map<std::string, size_t> least{{"board_collection", 6},
                                              {"client", 15},
                                              {"frame_sink", 3},
                                              {"frame_source", 5},
                                              {"hub", 5},
                                              {"recording_reader", 8},
                                              {"recording_sink", 2},
                                              {"recording_writer", 7},
                                              {"session_source", 3},
                                              {"truth_file", 5}};
    for (const auto &[class_name, count] : least)
    {
        const std::set<std::string> calls = declared_calls(class_name);
        EXPECT_GE(calls.size(), count) << "the calls of " << class_name << " were not found";
        for (const std::string &name : calls)
        {
            EXPECT_NE(document.find(name + "("), std::string::npos) << class_name << "::" << name;
        }
    }
}

} // namespace structure_tests
