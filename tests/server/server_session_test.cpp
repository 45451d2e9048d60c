/** @file
 * The server core: every command in every state, and complete and failed sessions.
 */
#include "server_fixture.h"

#include "zet_vantor_server_error_messages.h"

namespace
{

class server_session : public server_fixture
{
protected:
    void SetUp() override
    {
        server_fixture::SetUp();
        start();
    }

    /** Sends "configure", which must fail, and returns the code. */
    static std::string failed_configure()
    {
        const std::string code = refusal(configure_command);
        EXPECT_EQ(fake_backend.calls.back(), "destroy_session");
        EXPECT_EQ(refusal(R"({"command":"start"})"), "wrong_state");
        return code;
    }
};

TEST_F(server_session, passes_the_log_level_to_the_backend)
{
    EXPECT_EQ(fake_backend.nox_log_level, ZET_LOG_LEVEL_WARNING);
    EXPECT_EQ(fake_backend.calls, (std::vector<std::string>{"init"}));
}

TEST_F(server_session, identifies_itself)
{
    EXPECT_EQ(ask(R"({"command":"identify"})").line,
              R"({"status":"ok","command":"identify","payload_size":0,"server_version":"0.1.0",)"
              R"("protocol_version":1,"sensor":"k330","sensor_count":5,"connected_sensors":[1,2],)"
              R"("ticks_per_second":1000000,"max_baudrate":0,)"
              R"("board":{"name":"example board","id":"0042","reset_cause":"watchdog",)"
              R"("last_fault":"hard fault at 0x08001234","sensors":"simulated"},)"
              R"("memory":{"size":65536,"live":1024,"peak":9216,"largest_free":64500,"failures":0},)"
              R"("stack":{"size":11264,"peak":3120}})");
}

TEST_F(server_session, identifies_a_board_without_sensors)
{
    fake_backend.sensor_count = 0;
    const message_t answer = ask(R"({"command":"identify"})");
    EXPECT_EQ(answer.members["sensor_count"], 0);
    EXPECT_EQ(answer.members["connected_sensors"], nlohmann::json::array());
}

/** What "identify" reports about the board. */
nlohmann::json reported_board()
{
    zet_vantor_server_receive("{\"command\":\"identify\"}\n", 23);
    return take_messages().at(0).members.at("board");
}

TEST_F(server_session, reports_what_is_known_about_the_board)
{
    fake_port.board = {
        .name = "x1", .id = nullptr, .reset_cause = "", .last_fault = nullptr, .sensors = "real"};
    EXPECT_EQ(reported_board(), nlohmann::json({{"name", "x1"}, {"reset_cause", ""}, {"sensors", "real"}}));
    fake_port.board = {
        .name = nullptr, .id = "7", .reset_cause = nullptr, .last_fault = "none", .sensors = nullptr};
    EXPECT_EQ(reported_board(), nlohmann::json({{"id", "7"}, {"last_fault", "none"}}));
    fake_port.board = {};
    EXPECT_EQ(reported_board(), nlohmann::json::object());
}

TEST_F(server_session, reports_a_board_with_any_characters_in_its_texts)
{
    fake_port.board = {.name = "\"a\\b\"\n\x01/\t",
                       .id = "Gr\xc3\xb6\xc3\x9f\x65",
                       .reset_cause = "\xff",
                       .last_fault = nullptr,
                       .sensors = nullptr};
    const auto board = reported_board();
    EXPECT_EQ(board["name"], "\"a\\b\"\n\x01/\t");
    EXPECT_EQ(board["id"], "Größe");
    EXPECT_EQ(board["reset_cause"], "\xef\xbf\xbd");
}

TEST_F(server_session, reports_no_board_when_the_port_describes_none)
{
    zet_vantor_server_deinit();
    zet_vantor_server_port_t port = plain_port();
    port.board = nullptr;
    start(port);
    EXPECT_FALSE(ask(R"({"command":"identify"})").members.contains("board"));
}

TEST_F(server_session, executes_each_command_only_in_the_states_that_allow_it)
{
    const struct
    {
        std::string command;
        std::string states;
    } commands[] = {
        {R"({"command":"identify"})", "idle configured streaming"},
        {R"({"command":"ping"})", "idle configured streaming"},
        {R"({"command":"log","level":"OFF"})", "idle configured streaming"},
        {R"({"command":"stats"})", "idle configured streaming"},
        {R"({"command":"end"})", "idle configured streaming"},
        {std::string(configure_command), "idle"},
        {R"({"command":"start"})", "configured"},
        {R"({"command":"frame"})", "configured"},
        {R"({"command":"stop"})", "streaming"},
    };
    for (const auto &[command, states] : commands)
    {
        for (const std::string state : {"idle", "configured", "streaming"})
        {
            enter(state);
            const message_t answer = ask(command);
            const bool allowed = states.find(state) != std::string::npos;
            EXPECT_EQ(answer.members["status"], allowed ? "ok" : "error") << command << " when " << state;
            if (!allowed)
            {
                EXPECT_EQ(answer.members["code"], "wrong_state") << command << " when " << state;
            }
        }
    }
}

TEST_F(server_session, reports_which_command_is_needed_first)
{
    const auto hint = [](std::string_view state, std::string_view command) {
        enter(state);
        return ask(command).members.value("message", "");
    };
    EXPECT_EQ(hint("idle", R"({"command":"start"})"), "There is no session: send \"configure\" first.");
    EXPECT_EQ(hint("idle", R"({"command":"frame"})"), "There is no session: send \"configure\" first.");
    EXPECT_EQ(hint("idle", R"({"command":"stop"})"), "No frames are streaming: send \"start\" first.");
    EXPECT_EQ(hint("configured", R"({"command":"stop"})"), "No frames are streaming: send \"start\" first.");
    EXPECT_EQ(hint("configured", configure_command), "There is already a session: send \"end\" first.");
    EXPECT_EQ(hint("streaming", configure_command), "There is already a session: send \"end\" first.");
    EXPECT_EQ(hint("streaming", R"({"command":"start"})"), "Frames are streaming: send \"stop\" first.");
    EXPECT_EQ(hint("streaming", R"({"command":"frame"})"), "Frames are streaming: send \"stop\" first.");
    EXPECT_EQ(hint("streaming", R"({"command":"baudrate","baudrate":9600})"),
              "Frames are streaming: send \"stop\" first.");
}

TEST_F(server_session, does_not_change_its_state_when_it_refuses_a_command)
{
    enter("streaming");
    EXPECT_EQ(refusal(configure_command), "wrong_state");
    EXPECT_EQ(refusal(R"({"command":"start"})"), "wrong_state");
    EXPECT_EQ(refusal("nonsense"), "bad_json");
    EXPECT_EQ(refusal(R"({"command":"log","level":"LOUD"})"), "bad_argument");
    zet_vantor_server_step();
    EXPECT_EQ(take_messages().size(), 1U);
    EXPECT_EQ(calls("destroy_session"), 0);
}

TEST_F(server_session, answers_configure_with_the_metadata)
{
    const message_t answer = ask(configure_command);
    EXPECT_EQ(answer.members["status"], "ok");
    EXPECT_EQ(answer.members["tick_period"], 0);
    EXPECT_EQ(answer.members["metadata"][0][0]["frame_data_length"], 100);
    EXPECT_EQ(answer.members["calibration_info"][0]["data"].get<std::string>().size(), 480U);
    EXPECT_EQ(fake_backend.calls,
              (std::vector<std::string>{"init", "parse_configuration", "send_session_metadata"}));
}

TEST_F(server_session, sends_one_frame_on_demand)
{
    execute(configure_command);
    const message_t frame = ask(R"({"command":"frame"})");
    EXPECT_EQ(frame.line, fake_frame_header);
    EXPECT_EQ(frame.payload.size(), 4U * fake_frame_samples);
    EXPECT_EQ(frame.payload.substr(0, 3), "\n{}");
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
    EXPECT_EQ(calls("read_data_frames"), 1);
}

TEST_F(server_session, streams_one_frame_in_each_step)
{
    enter("streaming");
    EXPECT_TRUE(fake_port.sent.empty());
    for (int i = 1; i <= 5; ++i)
    {
        EXPECT_EQ(zet_vantor_server_step(), 0U);
        EXPECT_EQ(take_messages().size(), 1U);
        EXPECT_EQ(calls("read_data_frames"), i);
    }
}

TEST_F(server_session, sends_no_frame_after_the_answer_to_stop)
{
    enter("streaming");
    zet_vantor_server_step();
    take_messages();
    EXPECT_EQ(ask(R"({"command":"stop"})").line,
              R"({"status":"ok","command":"stop","payload_size":0,"frames_left_out":0})");
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
    execute(R"({"command":"start"})");
    zet_vantor_server_step();
    EXPECT_EQ(take_messages().size(), 1U);
}

TEST_F(server_session, ends_a_session_once)
{
    enter("configured");
    execute(R"({"command":"end"})");
    execute(R"({"command":"end"})");
    EXPECT_EQ(calls("destroy_session"), 1);
    enter("streaming");
    execute(R"({"command":"end"})");
    EXPECT_EQ(calls("destroy_session"), 2);
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
}

TEST_F(server_session, ends_the_session_when_the_server_ends)
{
    enter("streaming");
    zet_vantor_server_deinit();
    started = false;
    const std::vector<std::string> last(fake_backend.calls.end() - 2, fake_backend.calls.end());
    EXPECT_EQ(last, (std::vector<std::string>{"destroy_session", "deinit"}));
}

TEST_F(server_session, reports_the_error_of_the_backend_when_a_configuration_is_refused)
{
    fake_backend.parse_result = false;
    fake_backend.parse_message = error_invalid_prf;
    const message_t answer = ask(configure_command);
    EXPECT_EQ(answer.members["code"], "invalid_prf");
    EXPECT_EQ(answer.members["message"], error_invalid_prf);
    EXPECT_EQ(calls("send_session_metadata"), 0);
    EXPECT_EQ(calls("destroy_session"), 1);
}

TEST_F(server_session, has_a_code_for_a_configuration_refused_without_a_message)
{
    fake_backend.parse_result = false;
    EXPECT_EQ(failed_configure(), "configuration_refused");
}

TEST_F(server_session, refuses_a_session_in_which_an_item_failed)
{
    fake_backend.parse_message = error_config_sensor_id_str;
    EXPECT_EQ(failed_configure(), "config_sensor_id");
    EXPECT_EQ(calls("send_session_metadata"), 0);
}

TEST_F(server_session, has_a_code_for_metadata_that_cannot_be_sent)
{
    fake_backend.metadata_result = false;
    EXPECT_EQ(failed_configure(), "metadata_failed");
}

TEST_F(server_session, works_after_a_configuration_was_refused)
{
    fake_backend.parse_result = false;
    EXPECT_EQ(failed_configure(), "configuration_refused");
    fake_backend.parse_result = true;
    enter("streaming");
    zet_vantor_server_step();
    EXPECT_EQ(take_messages().size(), 1U);
}

TEST_F(server_session, ends_when_a_frame_on_demand_fails)
{
    enter("configured");
    fake_backend.frame_result = false;
    fake_backend.frame_message = error_nox_data_str;
    EXPECT_EQ(refusal(R"({"command":"frame"})"), "nox_data");
    EXPECT_EQ(calls("destroy_session"), 1);
    EXPECT_EQ(refusal(R"({"command":"frame"})"), "wrong_state");
}

TEST_F(server_session, ends_when_a_frame_of_the_stream_fails)
{
    enter("streaming");
    fake_backend.frame_result = false;
    fake_backend.frame_message = error_send_data_str;
    zet_vantor_server_step();
    const std::vector<message_t> messages = take_messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].members["code"], "send_data");
    EXPECT_EQ(calls("destroy_session"), 1);
    zet_vantor_server_step();
    EXPECT_TRUE(fake_port.sent.empty());
    EXPECT_EQ(refusal(R"({"command":"stop"})"), "wrong_state");
}

TEST_F(server_session, has_a_code_for_a_frame_that_fails_without_a_message)
{
    enter("configured");
    fake_backend.frame_result = false;
    EXPECT_EQ(refusal(R"({"command":"frame"})"), "nox_data");
}

TEST_F(server_session, ends_when_the_host_disconnects)
{
    for (const char *state : {"configured", "streaming"})
    {
        enter(state);
        const long destroyed = calls("destroy_session");
        zet_vantor_server_link_lost();
        EXPECT_EQ(calls("destroy_session"), destroyed + 1);
        EXPECT_TRUE(fake_port.sent.empty());
        zet_vantor_server_step();
        EXPECT_TRUE(fake_port.sent.empty());
        EXPECT_EQ(refusal(R"({"command":"frame"})"), "wrong_state");
    }
}

TEST_F(server_session, does_not_end_a_session_that_does_not_exist_when_the_host_disconnects)
{
    zet_vantor_server_link_lost();
    EXPECT_EQ(calls("destroy_session"), 0);
    execute(configure_command);
}

TEST_F(server_session, counts_frames_and_errors)
{
    enter("streaming");
    zet_vantor_server_step();
    zet_vantor_server_step();
    take_messages();
    EXPECT_EQ(refusal("x"), "bad_json");
    EXPECT_EQ(refusal("y"), "bad_json");
    EXPECT_EQ(refusal(R"({"command":"z"})"), "unknown_command");
    fake_port.memory = {1, 2, 3, 4, 5, 6, 7};
    const nlohmann::json stats = ask(R"({"command":"stats"})").members;
    EXPECT_EQ(stats["frames"], 2);
    EXPECT_EQ(stats["errors"], (nlohmann::json{{"bad_json", 2}, {"unknown_command", 1}}));
    EXPECT_EQ(stats["memory"],
              (nlohmann::json{{"size", 1}, {"live", 2}, {"peak", 3}, {"largest_free", 4}, {"failures", 5}}));
    EXPECT_EQ(stats["stack"], (nlohmann::json{{"size", 6}, {"peak", 7}}));
    fake_port.memory.stack_size = 0;
    EXPECT_FALSE(ask(R"({"command":"identify"})").members.contains("stack"));
}

TEST_F(server_session, counts_every_byte)
{
    const std::string command = "{\"command\":\"stats\"}\n";
    send("\r\n");
    send(command.substr(0, 5));
    send(command.substr(5));
    const size_t first_answer = fake_port.sent.size();
    const nlohmann::json first = take_messages().front().members;
    EXPECT_EQ(first["bytes_sent"], 0);
    EXPECT_EQ(first["bytes_received"], 2 + command.size());
    send(std::string(configure_command) + "\n{\"command\":\"frame\"}\n");
    const size_t metadata_and_frame = fake_port.sent.size();
    take_messages();
    EXPECT_EQ(ask(R"({"command":"stats"})").members["bytes_sent"], first_answer + metadata_and_frame);
}

TEST_F(server_session, keeps_its_counts_when_the_host_disconnects)
{
    enter("configured");
    ask(R"({"command":"frame"})");
    refusal("x");
    zet_vantor_server_link_lost();
    const nlohmann::json stats = ask(R"({"command":"stats"})").members;
    EXPECT_EQ(stats["frames"], 1);
    EXPECT_EQ(stats["errors"]["bad_json"], 1);
}

TEST_F(server_session, is_idle_without_a_session_or_an_incomplete_line)
{
    EXPECT_TRUE(zet_vantor_server_is_idle());
    send("{\"command\"");
    EXPECT_FALSE(zet_vantor_server_is_idle());
    send(":\"ping\"}\n");
    EXPECT_TRUE(zet_vantor_server_is_idle());
    send(std::string(10000, 'x'));
    EXPECT_FALSE(zet_vantor_server_is_idle());
    send("\n");
    EXPECT_TRUE(zet_vantor_server_is_idle());
    take_messages();
    enter("configured");
    EXPECT_FALSE(zet_vantor_server_is_idle());
    ask(R"({"command":"start"})");
    EXPECT_FALSE(zet_vantor_server_is_idle());
    send("{\"command\":\"end\"}\n");
    EXPECT_TRUE(zet_vantor_server_is_idle());
}

class server_start : public server_fixture
{
};

TEST_F(server_start, fails_and_deinitialises_the_backend_when_the_backend_fails)
{
    fake_backend.init_result = false;
    const zet_vantor_server_port_t port = plain_port();
    EXPECT_FALSE(zet_vantor_server_init(&port));
    EXPECT_EQ(fake_backend.calls, (std::vector<std::string>{"init", "deinit"}));
    EXPECT_TRUE(fake_port.sent.empty());
}

TEST_F(server_start, works_again_after_deinit)
{
    start();
    enter("streaming");
    refusal("x");
    zet_vantor_server_deinit();
    start();
    EXPECT_EQ(refusal(R"({"command":"stop"})"), "wrong_state");
    EXPECT_EQ(ask(R"({"command":"stats"})").members["errors"], (nlohmann::json{{"wrong_state", 1}}));
}

TEST_F(server_start, needs_neither_a_clock_nor_memory_figures)
{
    zet_vantor_server_port_t port = plain_port();
    port.link.get_tick = nullptr;
    port.link.restart_input = nullptr;
    port.get_memory = nullptr;
    start(port);
    EXPECT_EQ(zet_vantor_server_step(), ZET_VANTOR_SERVER_IDLE);
    const nlohmann::json stats = ask(R"({"command":"stats"})").members;
    EXPECT_FALSE(stats.contains("uptime_s"));
    EXPECT_FALSE(stats.contains("memory"));
    EXPECT_FALSE(stats.contains("stack"));
    EXPECT_EQ(ask(R"({"command":"identify"})").members["ticks_per_second"], 0);
    EXPECT_FALSE(ask(R"({"command":"ping"})").members.contains("tick"));
    enter("streaming");
    EXPECT_EQ(zet_vantor_server_step(), 0U);
    EXPECT_EQ(take_messages().size(), 1U);
    zet_vantor_server_link_lost();
}

TEST_F(server_session, refuses_groups_before_any_sensor_is_set_up)
{
    const struct
    {
        const char *groups;
        const char *message;
    } rows[] = {
        {"[[1]]",
         "groups[0][0] is not an object: make every item an object with \"sensor_id\" and \"config\"."},
        {"[[{\"sensor_id\":1}],[{\"sensor_id\":1},null]]",
         "groups[1][1] is not an object: make every item an object with \"sensor_id\" and \"config\"."},
        {"[[{}],[[]]]",
         "groups[1][0] is not an object: make every item an object with \"sensor_id\" and \"config\"."},
        {"[[{\"sensor_id\":1},{\"sensor_id\":2},{\"sensor_id\":1}]]",
         "Sensor 1 is twice in the same group, in groups[0][0] and groups[0][2]: move one of the two "
         "items into another group."},
        {"[[],[{\"sensor_id\":2147483647},{\"sensor_id\":2147483647.0}]]",
         "Sensor 2147483647 is twice in the same group, in groups[1][0] and groups[1][1]: move one of the "
         "two items into another group."},
        {"[[{},{\"sensor_id\":1},{\"sensor_id\":1},{},{},{}]]",
         "Sensor 1 is twice in the same group, in groups[0][1] and groups[0][2]: move one of the two "
         "items into another group."},
        {"[[{\"sensor_id\":2},{},{},{},{},{\"sensor_id\":2},{}]]",
         "Sensor 2 is twice in the same group, in groups[0][0] and groups[0][5]: move one of the two "
         "items into another group."},
        {"[[{},{},{},{},{},{},{},1]]",
         "groups[0][7] is not an object: make every item an object with \"sensor_id\" and \"config\"."},
        {"[[{}],5]", "groups[1] is not an array: put its items into [ ]."},
        {"[null]", "groups[0] is not an array: put its items into [ ]."},
        {"{\"a\":1}", "\"groups\" is not an array: put its groups into [ ]."},
        {"[{\"sensor_id\":1,\"config\":{}}]", "groups[0] is not an array: put its items into [ ]."},
        {"[[{}],{\"a\":{\"sensor_id\":1},\"b\":{\"sensor_id\":1}}]",
         "groups[1] is not an array: put its items into [ ]."},
        {"{\"a\":[1]}", "\"groups\" is not an array: put its groups into [ ]."},
    };
    for (const auto &row : rows)
    {
        const message_t answer =
            ask(std::string(R"({"command":"configure","configuration":{"groups":)") + row.groups + "}}");
        EXPECT_EQ(answer.members["code"], "configuration_refused");
        EXPECT_EQ(answer.members["message"], row.message);
        EXPECT_EQ(calls("parse_configuration"), 0);
    }
    execute(configure_command);
}

TEST_F(server_session, leaves_other_faults_of_groups_to_the_backend)
{
    for (const char *groups :
         {"1", "[]", "[[]]", "{}", "[{}]", "{\"a\":{}}", "[{\"a\":{\"sensor_id\":1}}]", "[[{},{}]]",
          "[[{\"sensor_id\":0},{\"sensor_id\":0}]]", "[[{\"sensor_id\":\"1\"},{\"sensor_id\":\"1\"}]]",
          "[[{\"sensor_id\":1}],[{\"sensor_id\":1}]]",
          // Sensors are compared only in as many items as can have different ones, and one more.
          "[[{},{},{},{},{},{\"sensor_id\":1},{\"sensor_id\":1}]]"})
    {
        const long calls_before = calls("parse_configuration");
        execute(std::string(R"({"command":"configure","configuration":{"groups":)") + groups + "}}");
        execute(R"({"command":"end"})");
        EXPECT_EQ(calls("parse_configuration"), calls_before + 1) << groups;
    }
}

/** A document with one item. */
std::string document_with(const std::string &config, const std::string &members = "")
{
    return R"({"command":"configure","configuration":{"groups":[[{"sensor_id":1},{"sensor_id":2,"config":)" +
           config + members + "}]]}}";
}

TEST_F(server_session, refuses_numbers_that_the_backend_would_truncate)
{
    const struct
    {
        const char *config;
        const char *message;
    } rows[] = {
        {R"({"num_points":65536})", "num_points is 65536; use 0 to 65535, within its range"},
        {R"({"num_points":-1})", "num_points is -1; use 0 to 65535, within its range"},
        {R"({"step_length":-65535})", "step_length is -65535; use 0 to 65535, within its range"},
        {R"({"hwaas":65537})", "hwaas is 65537; use 0 to 65535, within its range"},
        {R"({"sweeps_per_frame":65537})", "sweeps_per_frame is 65537; use 0 to 65535, within its range"},
        {R"({"profile":259})", "profile is 259; use 0 to 255, within its range"},
        {R"({"receiver_gain":256})", "receiver_gain is 256; use 0 to 255, within its range"},
        {R"({"start_point":2147483648})",
         "start_point is 2147483648; use -2147483648 to 2147483647, within its range"},
        {R"({"start_point":-2147483649})",
         "start_point is -2147483649; use -2147483648 to 2147483647, within its range"},
        {R"({"num_points":1e300})", "num_points is 1e+300; use 0 to 65535, within its range"},
        {R"({"num_points":-1e999})", "num_points is infinite; use 0 to 65535, within its range"},
        {R"({"subsweeps":[{},{"hwaas":65544}]})",
         "subsweeps[1].hwaas is 65544; use 0 to 65535, within its range"},
        {R"({"frame_rate":3.4028236e38})",
         "frame_rate is 3.4028236e+38; use -3.4028234e+38 to 3.4028234e+38, within its range"},
        {R"({"sweep_rate":-1e39})",
         "sweep_rate is -1e+39; use -3.4028234e+38 to 3.4028234e+38, within its range"},
    };
    for (const auto &row : rows)
    {
        const message_t answer = ask(document_with(row.config));
        EXPECT_EQ(answer.members["code"], "bad_config");
        EXPECT_EQ(answer.members["message"],
                  std::string("groups[0][1].config.") + row.message + " in docs/configuration.md.");
    }
    EXPECT_EQ(calls("parse_configuration"), 0);
}

TEST_F(server_session, refuses_a_threshold_that_the_backend_would_ignore)
{
    const message_t answer = ask(document_with("{}", R"(,"cca_enable":true,"cca_threshold":1e39)"));
    EXPECT_EQ(answer.members["code"], "bad_config");
    EXPECT_EQ(answer.members["message"], "groups[0][1].cca_threshold is 1e+39; use -3.4028234e+38 to "
                                         "3.4028234e+38, within its range in docs/configuration.md.");
    EXPECT_EQ(calls("parse_configuration"), 0);
}

TEST_F(server_session, leaves_numbers_that_the_backend_can_represent_to_it)
{
    for (const char *config :
         {R"({"num_points":65535,"step_length":0,"hwaas":65535,"sweeps_per_frame":65535})",
          R"({"profile":255,"receiver_gain":255,"start_point":-2147483648})",
          R"({"profile":0,"receiver_gain":0,"start_point":2147483647,"num_points":0})",
          R"({"frame_rate":3.4028235e38,"sweep_rate":-3.4028235e38})", R"({"num_points":"65536"})",
          R"({"num_points":1.5,"subsweeps":[1,{"num_points":65535}]})", R"({"subsweeps":{"a":5}})", "65536"})
    {
        const long calls_before = calls("parse_configuration");
        execute(
            document_with(config, R"(,"cca_threshold":-3.4028235e38,"cpd_overrides":{"tx_duration":70000})"));
        execute(R"({"command":"end"})");
        EXPECT_EQ(calls("parse_configuration"), calls_before + 1) << config;
    }
}

TEST_F(server_session, recovers_memory_only_when_nothing_is_in_use)
{
    execute(R"({"command":"ping"})");
    EXPECT_EQ(fake_port.recoveries, 1);
    execute(configure_command);
    execute(R"({"command":"start"})");
    execute(R"({"command":"stop"})");
    EXPECT_EQ(fake_port.recoveries, 1) << "the session needs its memory";
    execute(R"({"command":"end"})");
    EXPECT_EQ(fake_port.recoveries, 2);
    fake_backend.metadata_result = false;
    EXPECT_EQ(refusal(configure_command), "metadata_failed");
    EXPECT_EQ(fake_port.recoveries, 3);
    fake_backend.metadata_result = true;
    execute(configure_command);
    zet_vantor_server_link_lost();
    EXPECT_EQ(fake_port.recoveries, 4);
    EXPECT_EQ(fake_port.live_at_recovery, 0U);
}

} // namespace
