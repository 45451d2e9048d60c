/** @file
 * Tests that every part of the repository includes only what it is allowed to include.
 */
#include "include_rules.h"

#include <gtest/gtest.h>

namespace structure_tests
{

namespace
{

using strings_t = std::vector<std::string>;

/** Whether a name is a header of the C or C++ standard library. */
bool is_standard(const std::string &name)
{
    static const std::set<std::string> of_c{"stdbool.h", "stddef.h", "stdint.h"};
    return of_c.contains(name) || name.find_first_of("./") == std::string::npos;
}

std::vector<source_t> read_repository()
{
    std::set<std::string> folders;
    for (const auto &[part, rule] : include_rules())
    {
        folders.insert(std::filesystem::path(part).begin()->string());
    }
    return read_sources(PROJECT_ROOT, folders);
}

const std::vector<source_t> &repository_sources()
{
    static const std::vector<source_t> sources = read_repository();
    return sources;
}

/** One header of each part. */
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
    "host/include/vantor/plan.h",
    "host/include/vantor/session.h",
    "host/include/vantor/recording_error.h",
    "host/include/vantor/frame_sink.h",
    "host/configuration/check/schema_check.h",
    "host/client/link_tcp.h",
    "host/recording/sigmf.h",
    "host/export/exporter.h",
    "host/plot/picture.h",
    "host/replay/replay_server.h",
    "host/score/score.h",
    "host/selftest/selftest.h",
    "host/view/view_server.h",
    "host/commands/command.h",
};

/** The headers of the interfaces to the board and to the sensor library. */
const strings_t interfaces{headers.begin(), headers.begin() + 2};

/** The headers of the application. */
const strings_t of_application{headers.begin() + 2, headers.begin() + 7};

/** The public headers of the host, from the lowest layer to the highest. */
const strings_t of_errors{headers[14]};
const strings_t of_plan{headers[15]};
const strings_t of_session{headers[16]};
const strings_t of_recording{headers[17]};
const strings_t of_hub{headers[18]};

/** Joins lists of headers. */
strings_t joined(const strings_t &first, const strings_t &second, const strings_t &third = {})
{
    strings_t all = first;
    all.insert(all.end(), second.begin(), second.end());
    all.insert(all.end(), third.begin(), third.end());
    return all;
}

/** The headers that a source may include. */
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

TEST(include_rules, resolve_relative_paths)
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

TEST(include_rules, let_the_interfaces_include_only_interfaces)
{
    EXPECT_EQ(may_include("nox/a.h"), (strings_t{"nox/zet_sensor.h"}));
    EXPECT_EQ(may_include("integration/a.h"),
              (strings_t{"nox/zet_sensor.h", "integration/zet_integration.h"}));
}

TEST(include_rules, let_a_part_of_the_host_include_only_parts_below_it)
{
    const strings_t public_of_recording{headers.begin() + 14, headers.begin() + 18};
    const strings_t to_recording =
        joined(public_of_recording, {"host/configuration/check/schema_check.h", "host/recording/sigmf.h"});
    EXPECT_EQ(may_include("host/configuration/a.cpp"),
              joined(of_errors, of_plan, {"host/configuration/check/schema_check.h"}));
    EXPECT_EQ(
        may_include("host/client/a.cpp"),
        joined(of_errors, of_plan,
               joined(of_session, {"host/configuration/check/schema_check.h", "host/client/link_tcp.h"})));
    EXPECT_EQ(may_include("host/recording/a.cpp"), to_recording);
    EXPECT_EQ(may_include("host/hub/a.cpp"),
              joined(public_of_recording, of_hub,
                     {"host/configuration/check/schema_check.h", "host/recording/sigmf.h"}));
    EXPECT_EQ(may_include("host/export/a.cpp"), joined(to_recording, {"host/export/exporter.h"}));
    EXPECT_EQ(may_include("host/plot/a.cpp"), joined(to_recording, {"host/plot/picture.h"}));
    EXPECT_EQ(may_include("host/score/a.cpp"), joined(to_recording, {"host/score/score.h"}));
    EXPECT_EQ(may_include("host/replay/a.cpp"),
              joined(joined(public_of_recording, of_hub),
                     {"host/configuration/check/schema_check.h", "host/client/link_tcp.h"},
                     {"host/recording/sigmf.h", "host/replay/replay_server.h"}));
    EXPECT_EQ(may_include("host/view/a.cpp"),
              joined(joined(public_of_recording, of_hub),
                     {"host/configuration/check/schema_check.h", "host/client/link_tcp.h"},
                     {"host/recording/sigmf.h", "host/view/view_server.h"}));
    EXPECT_EQ(may_include("host/selftest/a.cpp"),
              joined(of_errors, of_session, {"host/client/link_tcp.h", "host/selftest/selftest.h"}));
    EXPECT_EQ(may_include("host/commands/a.cpp"), (strings_t{headers.begin() + 14, headers.end()}));
}

TEST(include_rules, let_a_public_header_of_the_host_include_only_public_ones_below_it)
{
    const auto header = [](const std::string &name) { return "host/include/vantor/" + name + ".h"; };
    EXPECT_EQ(may_include(header("calibration")), strings_t{});
    EXPECT_EQ(may_include(header("errors")), of_errors);
    EXPECT_EQ(may_include(header("wish")), joined(of_errors, of_plan));
    EXPECT_EQ(may_include(header("client")), joined(of_errors, of_session));
    EXPECT_EQ(may_include(header("recording_writer")),
              joined(of_errors, of_plan, joined(of_session, of_recording)));
    EXPECT_EQ(may_include(header("session_source")),
              joined(joined(of_errors, of_plan), joined(of_session, of_recording), of_hub));
    EXPECT_EQ(broken_rules({{header("other"), {}}}), (strings_t{header("other") + " has no include rule"}));
}

TEST(include_rules, do_not_let_the_server_or_the_simulator_include_a_port)
{
    EXPECT_EQ(may_include("application/a.cpp"), joined(interfaces, of_application));
    EXPECT_EQ(may_include("simulator/a.cpp"), joined(interfaces, {"simulator/zet_simulator.h"}));
}

TEST(include_rules, let_a_part_of_the_application_include_only_parts_below_it)
{
    const std::string server = "application/vantor_server/zet_vantor_server";
    const strings_t shared{"nox/zet_sensor.h", "application/common/zet_json_writer.h",
                           server + "_base_internal.h"};
    EXPECT_EQ(may_include("application/common/a.cpp"), shared);
    EXPECT_EQ(may_include(server + "_utils.cpp"), shared);
    EXPECT_EQ(may_include(server + "_error_messages.cpp"), shared);
    EXPECT_EQ(may_include(server + "_system_k330.cpp"),
              joined(interfaces, {"application/common/zet_json_writer.h", server + "_base_internal.h",
                                  server + "_system_k330.h"}));
}

TEST(include_rules, let_the_allocator_include_only_one_header_of_the_server)
{
    EXPECT_EQ(may_include("ports/common/a.cpp"),
              (strings_t{"nox/zet_sensor.h", "integration/zet_integration.h",
                         "application/vantor_server/zet_vantor_server.h", "ports/common/board_memory.h"}));
}

TEST(include_rules, do_not_let_the_linux_port_include_another_port)
{
    EXPECT_EQ(may_include("ports/linux/a.cpp"),
              joined(interfaces, of_application,
                     {"simulator/zet_simulator.h", "ports/common/board_memory.h", "ports/linux/options.h"}));
}

TEST(include_rules, let_only_one_file_of_the_firmware_include_the_simulator)
{
    const strings_t parts{"ports/common/board_memory.h", "ports/firmware/port.h",
                          "ports/firmware/cortex_m4/stack.h", "boards/one/board_numbers.h"};
    const strings_t of_firmware = joined(interfaces, of_application, parts);
    EXPECT_EQ(may_include("ports/firmware/a.cpp"), of_firmware);
    EXPECT_EQ(may_include("ports/firmware/cortex_m4/a.cpp"), of_firmware);
    EXPECT_EQ(may_include("ports/firmware/cortex_m4/sensors_simulator.cpp"), of_firmware);

    EXPECT_EQ(may_include("ports/firmware/sensors_simulator.cpp"),
              joined(interfaces, joined(of_application, {"simulator/zet_simulator.h"}), parts));
}

TEST(include_rules, let_boards_include_the_firmware_but_not_the_server_or_the_simulator)
{
    EXPECT_EQ(
        may_include("boards/one/board.cpp"),
        (strings_t{"nox/zet_sensor.h", "integration/zet_integration.h", "ports/firmware/port.h",
                   "ports/firmware/cortex_m4/stack.h", "boards/one/board_numbers.h", "boards/one/pins.h"}));
}

TEST(include_rules, report_sources_without_a_rule)
{
    // "simulators" begins with the name of a part.
    EXPECT_EQ(broken_rules({{"elsewhere/a.cpp", {}}, {"host/a.cpp", {}}, {"simulators/a.cpp", {}}}),
              (strings_t{"elsewhere/a.cpp has no include rule", "host/a.cpp has no include rule",
                         "simulators/a.cpp has no include rule"}));
}

TEST(include_rules, allow_a_name_of_several_files_if_one_of_them_may_be_included)
{
    const std::vector<source_t> sources{{"boards/one/board.cpp", {"board.h", "board/board.h"}},
                                        {"ports/firmware/board.h", {}},
                                        {"simulator/board/board.h", {}}};
    EXPECT_EQ(broken_rules(sources), (strings_t{"boards/one/board.cpp includes board/board.h of simulator"}));
}

TEST(include_rules, prefer_the_file_of_the_same_folder_even_if_it_must_not_be_included)
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

TEST(library_headers, are_not_files_of_the_repository)
{
    const std::vector<source_t> sources{{"host/client/client.cpp", {"client/link.h", "asio.hpp", "vector"}},
                                        {"host/client/link.h", {}},
                                        {"ports/main.cpp", {"csignal"}}};
    EXPECT_EQ(library_headers(sources, "host"), (std::set<std::string>{"asio.hpp", "vector"}));
}

TEST(include_rules, have_no_cycle)
{
    EXPECT_EQ(parts_in_cycles(include_rules()), (std::set<std::string>{}));
}

TEST(include_cycles, are_found_directly_and_through_other_parts)
{
    EXPECT_EQ(parts_in_cycles({{"a", {"b"}}, {"b", {"c"}}, {"c", {}}}), (std::set<std::string>{}));
    EXPECT_EQ(parts_in_cycles({{"a", {"b"}}, {"b", {"a", "c"}}, {"c", {}}}),
              (std::set<std::string>{"a", "b"}));
    EXPECT_EQ(parts_in_cycles({{"a", {"b"}}, {"b", {"c"}}, {"c", {"a"}}}),
              (std::set<std::string>{"a", "b", "c"}));
}

TEST(include_cycles, are_found_through_single_files_and_inner_parts)
{
    EXPECT_EQ(parts_in_cycles({{"a", {"b/x.h"}}, {"b", {"a"}}}), (std::set<std::string>{"a", "b"}));
    EXPECT_EQ(parts_in_cycles({{"a", {"b/x.h"}}, {"b", {"a"}}, {"b/x.h", {}}}), (std::set<std::string>{}));
    EXPECT_EQ(parts_in_cycles({{"a", {"b"}}, {"b/c", {"a"}}}), (std::set<std::string>{"a", "b/c"}));
}

TEST(repository, does_not_break_an_include_rule)
{
    const std::vector<source_t> &sources = repository_sources();
    EXPECT_GT(sources.size(), 30U) << "too few sources found";
    EXPECT_EQ(broken_rules(sources), strings_t{});
}

TEST(repository, interfaces_include_only_c_standard_headers)
{
    const std::vector<source_t> &sources = repository_sources();
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
    const std::vector<source_t> &sources = repository_sources();
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
    EXPECT_FALSE(library_headers(repository_sources(), "host").contains("cjson/cJSON.h"));
}

} // namespace structure_tests
