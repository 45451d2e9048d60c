/** @file
 * Tests that the document of the client library describes every call.
 */
#include <regex>

#include <gtest/gtest.h>

#include "repository.h"

namespace structure_tests
{

namespace
{

/** The public functions that a header declares in its class `client`. */
std::set<std::string> declared_calls()
{
    const std::string header = text_of(std::filesystem::path(PROJECT_ROOT) / "host/include/vantor/client.h");
    const size_t begin = header.find("class client");
    const std::string declarations = header.substr(begin, header.find("\nprivate:", begin) - begin);
    const std::regex function(R"rx(\n    (?!using)[^\n*/]*?\b(\w+)\([^\n]*\n?[^\n]*;)rx");
    std::set<std::string> names;
    for (std::sregex_iterator match(declarations.begin(), declarations.end(), function), end; match != end;
         ++match)
    {
        names.insert((*match)[1].str());
    }
    names.erase("client");
    return names;
}

} // namespace

TEST(client_document, describes_every_call)
{
    const std::string document = text_of(std::filesystem::path(PROJECT_ROOT) / "docs/client.md");
    const std::set<std::string> calls = declared_calls();
    EXPECT_GE(calls.size(), 15U) << "the calls were not found";
    for (const std::string &name : calls)
    {
        EXPECT_NE(document.find(name + "("), std::string::npos) << name;
    }
}

} // namespace structure_tests
