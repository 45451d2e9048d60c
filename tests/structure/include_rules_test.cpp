/** @file
 * Tests that every part of the repository includes only from those it may know.
 */
#include "include_rules.h"

#include <gtest/gtest.h>

namespace structure_tests
{

namespace
{

using strings_t = std::vector<std::string>;

/** Whether a name is that of a header of the C or C++ standard library. */
bool is_standard(const std::string &name)
{
    static const std::set<std::string> of_c{"stdbool.h", "stddef.h", "stdint.h"};
    return of_c.contains(name) || name.find_first_of("./") == std::string::npos;
}

std::vector<source_t> read_repository()
{
    std::set<std::string> folders;
    for (const auto &[room, rule] : include_rules())
    {
        folders.insert(std::filesystem::path(room).begin()->string());
    }
    return read_sources(PROJECT_ROOT, folders);
}

const std::vector<source_t> &whole_repository()
{
    static const std::vector<source_t> sources = read_repository();
    return sources;
}

/** One header of each part that a rule can name. */
const strings_t headers{
    "nox/zet_sensor.h",
    "integration/zet_integration.h",
    "application/common/zet_json_writer.h",
    "application/vantor_server/zet_vantor_server.h",
    "application/vantor_server/zet_vantor_server_base_internal.h",
    "application/vantor_server/zet_vantor_server_line.h",
    "application/vantor_server/zet_vantor_server_system_k330.h",
    "simulator/zet_simulator.h",
    "ports/common/board_memory.h",
    "ports/linux/options.h",
    "ports/firmware/port.h",
    "ports/firmware/cortex_m4/stack.h",
    "boards/one/board_numbers.h",
    "boards/one/pins.h",
    "host/include/vantor/errors.h",
    "host/include/vantor/session.h",
    "host/configuration/check/schema_check.h",
    "host/client/link_tcp.h",
    "host/recording/sigmf.h",
    "host/export/exporter.h",
    "host/plot/picture.h",
    "host/replay/replay_server.h",
    "host/selftest/selftest.h",
    "host/commands/command.h",
};

/** Those of the walls. */
const strings_t walls{headers.begin(), headers.begin() + 2};

/** Those of the application. */
const strings_t of_application{headers.begin() + 2, headers.begin() + 7};

/** Those of the host up to the recordings. */
const strings_t up_to_recording{headers.begin() + 14, headers.begin() + 19};

/** Lists of headers, one behind the other. */
strings_t joined(const strings_t &first, const strings_t &second, const strings_t &third = {})
{
    strings_t all = first;
    all.insert(all.end(), second.begin(), second.end());
    all.insert(all.end(), third.begin(), third.end());
    return all;
}

/** Those of the headers that a source may include. */
strings_t may_include(const std::string &path)
{
    strings_t permitted;
    for (const std::string &header : headers)
    {
        const std::string name = std::filesystem::path(header).filename().string();
        if (broken_rules({{path, {name}}, {header, {}}}).empty())
        {
            permitted.push_back(header);
        }
    }
    return permitted;
}

} // namespace

TEST(include_directives, are_found_in_both_forms_and_not_in_comments)
{
    EXPECT_EQ(included_names("#include <a.h>\n  #  include \"b/c.h\"\n// #include <d.h>\nint include;\n"),
              (strings_t{"a.h", "b/c.h"}));
}

TEST(include_rules, refuse_each_forbidden_direction)
{
    const std::vector<source_t> sources{
        {"application/core.cpp", {"board_clock.h", "zet_sensor.h", "vector"}},
        {"simulator/board_clock.h", {"core.h", "zet_sensor.h", "cjson/cJSON.h"}},
        {"application/core.h", {"link.h"}},
        {"host/client/client.cpp", {"core.h", "link.h", "asio.hpp"}},
        {"host/client/link.h", {}},
        {"ports/linux/main.cpp", {"core.h", "board_clock.h", "client.h"}},
        {"host/client/client.h", {}},
        {"nox/zet_sensor.h", {"zet_board.h"}},
        {"integration/zet_board.h", {"zet_sensor.h"}},
    };
    EXPECT_EQ(broken_rules(sources), (strings_t{
                                         "application/core.cpp includes board_clock.h of simulator",
                                         "simulator/board_clock.h includes core.h of application",
                                         "application/core.h includes link.h of host/client",
                                         "host/client/client.cpp includes core.h of application",
                                         "ports/linux/main.cpp includes client.h of host/client",
                                         "nox/zet_sensor.h includes zet_board.h of integration",
                                     }));
}

TEST(include_rules, see_through_relative_paths)
{
    const std::vector<source_t> sources{{"host/client/client.cpp", {"../../application/core.h"}},
                                        {"application/core.h", {}}};
    EXPECT_EQ(broken_rules(sources),
              (strings_t{"host/client/client.cpp includes ../../application/core.h of application"}));
}

TEST(include_rules, prefer_the_file_of_the_same_folder)
{
    const std::vector<source_t> sources{
        {"application/link.h", {}}, {"host/client/client.cpp", {"link.h"}}, {"host/client/link.h", {}}};
    EXPECT_EQ(broken_rules(sources), strings_t{});
}

TEST(include_rules, let_the_walls_know_little)
{
    EXPECT_EQ(may_include("nox/a.h"), (strings_t{"nox/zet_sensor.h"}));
    EXPECT_EQ(may_include("integration/a.h"),
              (strings_t{"nox/zet_sensor.h", "integration/zet_integration.h"}));
}

TEST(include_rules, let_the_rooms_of_the_host_know_downwards_only)
{
    const strings_t recordings{up_to_recording[0], up_to_recording[1], up_to_recording[2],
                               up_to_recording[4]};
    EXPECT_EQ(may_include("host/include/vantor/errors.h"), (strings_t{up_to_recording[0]}));
    EXPECT_EQ(may_include("host/configuration/a.cpp"), (strings_t{up_to_recording[0], up_to_recording[2]}));
    EXPECT_EQ(may_include("host/include/vantor/a.h"), (strings_t{up_to_recording[0], up_to_recording[1]}));
    EXPECT_EQ(may_include("host/client/a.cpp"),
              (strings_t{up_to_recording.begin(), up_to_recording.end() - 1}));
    EXPECT_EQ(may_include("host/recording/a.cpp"), recordings);
    EXPECT_EQ(may_include("host/export/a.cpp"), joined(recordings, {"host/export/exporter.h"}));
    EXPECT_EQ(may_include("host/plot/a.cpp"), joined(recordings, {"host/plot/picture.h"}));
    EXPECT_EQ(may_include("host/replay/a.cpp"), joined(up_to_recording, {"host/replay/replay_server.h"}));
    EXPECT_EQ(
        may_include("host/selftest/a.cpp"),
        (strings_t{up_to_recording[0], up_to_recording[1], up_to_recording[3], "host/selftest/selftest.h"}));
    EXPECT_EQ(may_include("host/commands/a.cpp"), (strings_t{headers.begin() + 14, headers.end()}));
}

TEST(include_rules, let_neither_server_nor_simulator_know_a_port)
{
    EXPECT_EQ(may_include("application/a.cpp"), joined(walls, of_application));
    EXPECT_EQ(may_include("simulator/a.cpp"), joined(walls, {"simulator/zet_simulator.h"}));
}

TEST(include_rules, let_the_application_know_downwards_only)
{
    const std::string server = "application/vantor_server/zet_vantor_server";
    const strings_t shared{"nox/zet_sensor.h", "application/common/zet_json_writer.h",
                           server + "_base_internal.h"};
    EXPECT_EQ(may_include("application/common/a.cpp"), shared);
    EXPECT_EQ(may_include(server + "_utils.cpp"), shared);
    EXPECT_EQ(may_include(server + "_error_messages.cpp"), shared);
    EXPECT_EQ(may_include(server + "_system_k330.cpp"),
              joined(walls, {"application/common/zet_json_writer.h", server + "_base_internal.h",
                             server + "_system_k330.h"}));
}

TEST(include_rules, let_the_allocator_know_its_record_of_the_server)
{
    EXPECT_EQ(may_include("ports/common/a.cpp"),
              (strings_t{"nox/zet_sensor.h", "integration/zet_integration.h",
                         "application/vantor_server/zet_vantor_server.h", "ports/common/board_memory.h"}));
}

TEST(include_rules, let_the_port_for_linux_know_no_other_port)
{
    EXPECT_EQ(may_include("ports/linux/a.cpp"),
              joined(walls, of_application,
                     {"simulator/zet_simulator.h", "ports/common/board_memory.h", "ports/linux/options.h"}));
}

TEST(include_rules, let_one_file_of_the_firmware_know_the_simulator)
{
    const strings_t rooms{"ports/common/board_memory.h", "ports/firmware/port.h",
                          "ports/firmware/cortex_m4/stack.h", "boards/one/board_numbers.h"};
    const strings_t of_firmware = joined(walls, of_application, rooms);
    EXPECT_EQ(may_include("ports/firmware/a.cpp"), of_firmware);
    EXPECT_EQ(may_include("ports/firmware/cortex_m4/a.cpp"), of_firmware);
    EXPECT_EQ(may_include("ports/firmware/cortex_m4/sensors_simulator.cpp"), of_firmware);

    EXPECT_EQ(may_include("ports/firmware/sensors_simulator.cpp"),
              joined(walls, joined(of_application, {"simulator/zet_simulator.h"}), rooms));
}

TEST(include_rules, let_boards_know_the_firmware_and_neither_server_nor_simulator)
{
    EXPECT_EQ(
        may_include("boards/one/board.cpp"),
        (strings_t{"nox/zet_sensor.h", "integration/zet_integration.h", "ports/firmware/port.h",
                   "ports/firmware/cortex_m4/stack.h", "boards/one/board_numbers.h", "boards/one/pins.h"}));
}

TEST(include_rules, report_sources_without_a_rule)
{
    EXPECT_EQ(broken_rules({{"elsewhere/a.cpp", {}}, {"host/a.cpp", {}}}),
              (strings_t{"elsewhere/a.cpp has no include rule", "host/a.cpp has no include rule"}));
}

TEST(include_rules, take_a_name_of_several_files_for_the_one_that_may_be_included)
{
    const std::vector<source_t> sources{{"boards/one/board.cpp", {"board.h", "board/board.h"}},
                                        {"ports/firmware/board.h", {}},
                                        {"simulator/board/board.h", {}}};
    EXPECT_EQ(broken_rules(sources), (strings_t{"boards/one/board.cpp includes board/board.h of simulator"}));
}

TEST(include_rules, take_the_file_beside_before_one_that_may_be_included)
{
    const std::vector<source_t> sources{{"boards/one/board.cpp", {"../../simulator/board.h"}},
                                        {"ports/firmware/board.h", {}},
                                        {"simulator/board.h", {}}};
    EXPECT_EQ(broken_rules(sources),
              (strings_t{"boards/one/board.cpp includes ../../simulator/board.h of simulator"}));
}

TEST(sources, are_read_from_the_folders_that_exist)
{
    EXPECT_FALSE(read_sources(PROJECT_ROOT, {"nox", "no_such_folder"}).empty());
    EXPECT_TRUE(read_sources(PROJECT_ROOT, {"no_such_folder"}).empty());
}

TEST(library_headers, are_those_that_no_file_of_the_repository_has)
{
    const std::vector<source_t> sources{{"host/client/client.cpp", {"client/link.h", "asio.hpp", "vector"}},
                                        {"host/client/link.h", {}},
                                        {"ports/main.cpp", {"csignal"}}};
    EXPECT_EQ(library_headers(sources, "host"), (std::set<std::string>{"asio.hpp", "vector"}));
}

TEST(include_rules, have_no_circle)
{
    EXPECT_EQ(rooms_in_circles(include_rules()), (std::set<std::string>{}));
}

TEST(circles, are_found_directly_and_through_other_rooms)
{
    EXPECT_EQ(rooms_in_circles({{"a", {"b"}}, {"b", {"c"}}, {"c", {}}}), (std::set<std::string>{}));
    EXPECT_EQ(rooms_in_circles({{"a", {"b"}}, {"b", {"a", "c"}}, {"c", {}}}),
              (std::set<std::string>{"a", "b"}));
    EXPECT_EQ(rooms_in_circles({{"a", {"b"}}, {"b", {"c"}}, {"c", {"a"}}}),
              (std::set<std::string>{"a", "b", "c"}));
}

TEST(circles, are_found_through_single_files_and_rooms_within_rooms)
{
    EXPECT_EQ(rooms_in_circles({{"a", {"b/x.h"}}, {"b", {"a"}}}), (std::set<std::string>{"a", "b"}));
    EXPECT_EQ(rooms_in_circles({{"a", {"b/x.h"}}, {"b", {"a"}}, {"b/x.h", {}}}), (std::set<std::string>{}));
    EXPECT_EQ(rooms_in_circles({{"a", {"b"}}, {"b/c", {"a"}}}), (std::set<std::string>{"a", "b/c"}));
}

TEST(repository, breaks_no_include_rule)
{
    const std::vector<source_t> &sources = whole_repository();
    EXPECT_GT(sources.size(), 30U) << "the sources were not found";
    EXPECT_EQ(broken_rules(sources), strings_t{});
}

TEST(repository, walls_include_only_c_standard_headers)
{
    const std::vector<source_t> &sources = whole_repository();
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
    const std::vector<source_t> &sources = whole_repository();
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
