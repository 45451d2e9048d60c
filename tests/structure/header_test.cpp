/** @file
 * Tests that every public header compiles alone, as C11 and as C++20.
 */
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "repository.h"

namespace structure_tests
{

namespace
{

namespace fs = std::filesystem;

/** The headers of the application that boards and C programs include. Its other headers are internal. */
std::vector<fs::path> public_headers_of_application()
{
    const fs::path application = fs::path(PROJECT_ROOT) / "application";
    return {
        application / "common/zet_cjson_utils.h",
        application / "vantor_server/zet_vantor_server.h",
        application / "vantor_server/zet_vantor_server_base.h",
        application / "vantor_server/zet_vantor_server_base_internal.h",
        application / "vantor_server/zet_vantor_server_error_messages.h",
        application / "vantor_server/zet_vantor_server_system_k330.h",
        application / "vantor_server/zet_vantor_server_utils.h",
    };
}

/** The headers for C and C++. */
std::vector<fs::path> public_headers()
{
    std::vector<fs::path> headers = public_headers_of_application();
    for (const char *wall : {"nox", "integration"})
    {
        const std::vector<fs::path> of_wall = headers_of(wall);
        headers.insert(headers.end(), of_wall.begin(), of_wall.end());
    }
    return headers;
}

/** The headers for C++. */
std::vector<fs::path> headers()
{
    std::vector<fs::path> all;
    for (const char *folder : {"nox", "integration", "application", "ports/common"})
    {
        const std::vector<fs::path> of_folder = headers_of(folder);
        all.insert(all.end(), of_folder.begin(), of_folder.end());
    }
    return all;
}

std::string header_name(const ::testing::TestParamInfo<fs::path> &header)
{
    return header.param.stem().string();
}

/** Compiler options that add every folder with a public header to the include path. */
std::string include_options()
{
    std::set<std::string> folders;
    for (const fs::path &header : headers())
    {
        folders.insert(header.parent_path().string());
    }
    std::string options = " -isystem " CJSON_INCLUDE_DIR;
    for (const std::string &folder : folders)
    {
        options += " -I'" + folder + "'";
    }
    return options;
}

/** Compiles a header as a translation unit. */
bool compiles(const std::string &compiler_and_language, const fs::path &header)
{
    const std::string command = compiler_and_language +
                                " -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror" +
                                include_options() + " -include '" + header.string() + "' /dev/null";
    return std::system(command.c_str()) == 0; // NOLINT(cert-env33-c): the test runs the compiler
}

class public_header : public ::testing::TestWithParam<fs::path>
{
};

class header : public ::testing::TestWithParam<fs::path>
{
};

} // namespace

TEST_P(public_header, compiles_alone_as_c11)
{
    EXPECT_TRUE(compiles(C_COMPILER " -std=c11 -x c", GetParam()));
}

INSTANTIATE_TEST_SUITE_P(c, public_header, ::testing::ValuesIn(public_headers()), header_name);

TEST_P(header, compiles_alone_as_cpp20)
{
    EXPECT_TRUE(compiles(CXX_COMPILER " -std=c++20 -x c++", GetParam()));
}

INSTANTIATE_TEST_SUITE_P(cpp, header, ::testing::ValuesIn(headers()), header_name);

TEST(public_headers, are_all_found)
{
    EXPECT_GE(public_headers().size(), 24U);
}

} // namespace structure_tests
