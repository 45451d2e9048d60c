/** @file
 * Tests that every folder includes only from those it may know.
 */
#include "include_rules.h"

#include <gtest/gtest.h>

namespace structure_tests
{

namespace
{

using strings = std::vector<std::string>;

/** Whether a name is that of a header of the C or C++ standard library. */
bool is_standard(const std::string &name)
{
    static const std::set<std::string> of_c{"stdbool.h", "stddef.h", "stdint.h"};
    return of_c.contains(name) || name.find_first_of("./") == std::string::npos;
}

std::vector<source_t> whole_repository()
{
    std::set<std::string> folders;
    for (const auto &[folder, rule] : include_rules())
    {
        folders.insert(folder);
    }
    return read_sources(PROJECT_ROOT, folders);
}

} // namespace

TEST(include_directives, are_found_in_both_forms_and_not_in_comments)
{
    EXPECT_EQ(included_names("#include <a.h>\n  #  include \"b/c.h\"\n// #include <d.h>\nint include;\n"),
              (strings{"a.h", "b/c.h"}));
}

TEST(include_rules, refuse_each_forbidden_direction)
{
    const std::vector<source_t> sources{
        {"application/core.cpp", {"board_clock.h", "zet_sensor.h", "vector"}},
        {"simulator/board_clock.h", {"core.h", "zet_sensor.h", "cjson/cJSON.h"}},
        {"application/core.h", {"link.h"}},
        {"host/client.cpp", {"core.h", "link.h", "asio.hpp"}},
        {"host/link.h", {}},
        {"ports/main.cpp", {"core.h", "board_clock.h", "client.h"}},
        {"host/client.h", {}},
        {"nox/zet_sensor.h", {"zet_board.h"}},
        {"integration/zet_board.h", {"zet_sensor.h"}},
    };
    EXPECT_EQ(broken_rules(sources), (strings{
                                         "application/core.cpp includes board_clock.h of simulator",
                                         "simulator/board_clock.h includes core.h of application",
                                         "application/core.h includes link.h of host",
                                         "host/client.cpp includes core.h of application",
                                         "ports/main.cpp includes client.h of host",
                                         "nox/zet_sensor.h includes zet_board.h of integration",
                                     }));
}

TEST(include_rules, see_through_relative_paths)
{
    const std::vector<source_t> sources{{"host/client.cpp", {"../application/core.h"}},
                                        {"application/core.h", {}}};
    EXPECT_EQ(broken_rules(sources),
              (strings{"host/client.cpp includes ../application/core.h of application"}));
}

TEST(include_rules, prefer_the_file_of_the_same_folder)
{
    const std::vector<source_t> sources{
        {"application/link.h", {}}, {"host/client.cpp", {"link.h"}}, {"host/link.h", {}}};
    EXPECT_EQ(broken_rules(sources), strings{});
}

TEST(library_headers, are_those_that_no_file_of_the_repository_bears)
{
    const std::vector<source_t> sources{{"host/client.cpp", {"host/link.h", "asio.hpp", "vector"}},
                                        {"host/link.h", {}},
                                        {"ports/main.cpp", {"csignal"}}};
    EXPECT_EQ(library_headers(sources, "host"), (std::set<std::string>{"asio.hpp", "vector"}));
}

TEST(repository, breaks_no_include_rule)
{
    const std::vector<source_t> sources = whole_repository();
    EXPECT_GT(sources.size(), 30U) << "the sources were not found";
    EXPECT_EQ(broken_rules(sources), strings{});
}

TEST(repository, walls_include_only_c_standard_headers)
{
    const std::vector<source_t> sources = whole_repository();
    for (const char *folder : {"nox", "integration"})
    {
        for (const std::string &name : library_headers(sources, folder))
        {
            EXPECT_TRUE(name.starts_with("std") && name.ends_with(".h")) << folder << " includes " << name;
        }
    }
}

TEST(repository, server_and_simulator_include_only_the_standard_library_and_cjson)
{
    const std::vector<source_t> sources = whole_repository();
    for (const char *folder : {"application", "simulator"})
    {
        for (const std::string &name : library_headers(sources, folder))
        {
            EXPECT_TRUE(is_standard(name) || name == "cjson/cJSON.h") << folder << " includes " << name;
        }
    }
}

TEST(repository, host_does_not_share_the_json_library_of_the_server)
{
    EXPECT_FALSE(library_headers(whole_repository(), "host").contains("cjson/cJSON.h"));
}

} // namespace structure_tests
