/** @file
 * Tests of `vantor scan` and of its time limit of a second per device.
 */
#include "commands/scan.h"

#include <array>
#include <map>
#include <sstream>

#include <gmock/gmock.h>

#include "commands/deadline_link.h"
#include "scripted_server.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::host_connection;
using testing::HasSubstr;

/** Devices with servers, and a scan of them. */
class scan_test : public testing::Test
{
protected:
    /** The server at a device. */
    test::scripted_server &server(const std::string &device)
    {
        return servers_.try_emplace(device, clock).first->second;
    }

    /** Scans devices by name. */
    exit_code run(std::vector<std::string> devices)
    {
        options.devices = std::move(devices);
        const auto open = [this](const address &where) {
            const auto &line = std::get<serial_address>(where);
            baudrate = line.baudrate;
            if (line.device == "missing")
            {
                throw connect_error("missing is not there.");
            }
            return server(line.device).links()();
        };
        return scan(options, {out, err}, open, std::make_shared<event_loop>(clock.source()));
    }

    /** Scans one device that does not answer in time; returns the duration. */
    test::manual_clock::duration time_of_a_vain_scan(const test::reaction &reaction_to_end)
    {
        server("device").on("end", reaction_to_end);
        EXPECT_EQ(run({"device"}), exit_code::no_connection);
        EXPECT_EQ(out.str(), "");
        EXPECT_THAT(err.str(), HasSubstr("vantor: device does not answer.\n"));
        return clock.now();
    }

    /** Makes the device answer both commands, each after a delay. */
    void answer_after(std::chrono::milliseconds first, std::chrono::milliseconds second)
    {
        auto &device = server("device");
        device.on("end", [=, &device](host_connection &host, const json &) {
            device.pause(first);
            host.send({{"status", "ok"}, {"command", "end"}, {"payload_size", 0}}, "");
        });
        device.on("identify", [=, &device](host_connection &host, const json &) {
            device.pause(second);
            host.send(test::identity(), "");
        });
    }

    test::manual_clock clock;
    std::ostringstream out;
    std::ostringstream err;
    scan_options options;
    uint32_t baudrate = 0;

private:
    std::map<std::string, test::scripted_server> servers_;
};

/** The header of a frame whose payload takes longer than a scan. */
constexpr const char *endless_frame = "{\"result_info\":[],\"status\":\"ok\",\"payload_size\":1000000}\n";

TEST_F(scan_test, finds_the_servers_among_other_devices)
{
    server("silent").on("end", [](host_connection &, const json &) {});
    options.baudrate = 921600;
    EXPECT_EQ(run({"first", "silent", "missing", "second"}), exit_code::success);
    EXPECT_EQ(out.str(), "serial:first@921600  vantor_server 0.1.0, k330, connected: 1, 2\n"
                         "serial:second@921600  vantor_server 0.1.0, k330, connected: 1, 2\n");
    EXPECT_EQ(err.str(), "vantor: silent does not answer.\nvantor: missing is not there.\n");
    EXPECT_EQ(baudrate, 921600U);
}

TEST_F(scan_test, shows_the_name_of_a_board)
{
    server("first").on("identify", [](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["board"] = {{"name", "garage\x1b"}, {"id", "7"}};
        host.send(identity, "");
    });
    server("second").on("identify", [](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["board"] = {{"id", "7"}};
        host.send(identity, "");
    });
    EXPECT_EQ(run({"first", "second"}), exit_code::success);
    EXPECT_EQ(out.str(), "serial:first@115200  vantor_server 0.1.0, k330, connected: 1, 2, board: garage?\n"
                         "serial:second@115200  vantor_server 0.1.0, k330, connected: 1, 2\n");
}

TEST_F(scan_test, prints_names_of_devices_without_control_characters)
{
    EXPECT_EQ(run({"first\x1b[2J", "missing"}), exit_code::success);
    EXPECT_THAT(out.str(), testing::StartsWith("serial:first?[2J@115200  vantor_server"));
}

TEST_F(scan_test, prints_json_for_programs)
{
    options.json = true;
    EXPECT_EQ(run({"first", "missing"}), exit_code::success);
    const auto found = json::parse(out.str());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0]["address"], "serial:first@115200");
    EXPECT_EQ(found[0]["connected_sensors"], json({1, 2}));
    EXPECT_EQ(run({"missing"}), exit_code::no_connection);
    EXPECT_THAT(out.str(), testing::EndsWith("[]\n"));
    EXPECT_THAT(err.str(), HasSubstr("no serial device answers at 115200 baud"));
}

TEST_F(scan_test, reports_that_there_is_no_device)
{
    options.list_devices = [] { return std::vector<std::string>(); };
    EXPECT_EQ(run({}), exit_code::no_connection);
    EXPECT_EQ(err.str(), "vantor: this machine has no serial device; connect the board, or name a device\n");
    options.list_devices = [] { return std::vector<std::string>{"first", "missing"}; };
    EXPECT_EQ(run({}), exit_code::success);
    EXPECT_THAT(out.str(), testing::StartsWith("serial:first@115200"));
}

TEST_F(scan_test, skips_a_silent_device)
{
    EXPECT_EQ(time_of_a_vain_scan([](host_connection &, const json &) {}), 500ms);
}

TEST_F(scan_test, skips_each_device_within_a_second)
{
    for (const char *name : {"a", "b", "c"})
    {
        server(name).on("end", [](host_connection &host, const json &) { host.send(endless_frame); });
    }
    EXPECT_EQ(run({"a", "b", "c"}), exit_code::no_connection);
    EXPECT_LE(clock.now(), 3s);
    EXPECT_EQ(clock.now(), 3 * 900ms);
}

/** The times at which a device that never stops sends again. */
constexpr int many = 3000;

TEST_F(scan_test, skips_a_device_that_sends_an_endless_message)
{
    EXPECT_EQ(time_of_a_vain_scan([&](host_connection &host, const json &) {
                  host.send(endless_frame);
                  for (int i = 0; i < many; ++i)
                  {
                      server("device").pause(7ms);
                      host.send("x");
                  }
              }),
              900ms);
}

TEST_F(scan_test, skips_a_device_that_sends_endless_messages)
{
    EXPECT_EQ(time_of_a_vain_scan([&](host_connection &host, const json &) {
                  for (int i = 0; i < many; ++i)
                  {
                      server("device").pause(1ms);
                      host.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}}, "");
                  }
              }),
              500ms);
}

TEST_F(scan_test, skips_a_device_that_answers_once_and_then_sends_endlessly)
{
    auto &device = server("device");
    device.on("identify", [&](host_connection &host, const json &) {
        host.send(endless_frame);
        for (int i = 0; i < many; ++i)
        {
            device.pause(1ms);
            host.send("xxxxxxxxxxxxxxxxxxxx");
        }
    });
    EXPECT_EQ(run({"device"}), exit_code::no_connection);
    EXPECT_EQ(clock.now(), 900ms);
}

TEST_F(scan_test, skips_a_device_that_sends_half_an_answer)
{
    const auto reaction = [&](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"command", "end"}, {"payload_size", 0}}, "");
        host.send("{\"status\":");
        for (int i = 0; i < many; ++i)
        {
            server("device").pause(10ms);
            host.send(" ");
        }
    };
    server("device").on("identify", [](host_connection &, const json &) {});
    EXPECT_EQ(time_of_a_vain_scan(reaction), 500ms);
}

TEST_F(scan_test, names_a_device_that_sends_other_data)
{
    server("device").on("end", [&](host_connection &host, const json &) { host.send("\xf8\x80\xf8"); });
    EXPECT_EQ(run({"device"}), exit_code::no_connection);
    EXPECT_THAT(err.str(),
                HasSubstr("vantor: device: The data received are not messages of a Vantor server; they "
                          "start with f8 80 f8. The baud rate may be wrong"));
    EXPECT_EQ(clock.now(), 500ms);
}

TEST_F(scan_test, names_a_device_with_an_invalid_answer)
{
    server("device").on("identify", [](host_connection &host, const json &) { host.send("garbage\n"); });
    EXPECT_EQ(run({"device"}), exit_code::no_connection);
    EXPECT_THAT(err.str(), HasSubstr("vantor: device: Invalid data from the server at byte "));
}

TEST_F(scan_test, skips_a_device_that_disconnects)
{
    EXPECT_EQ(time_of_a_vain_scan([&](host_connection &host, const json &) {
                  server("device").pause(20ms);
                  host.close();
              }),
              20ms);
}

TEST_F(scan_test, accepts_answers_at_the_last_moment)
{
    answer_after(500ms, 400ms);
    EXPECT_EQ(run({"device"}), exit_code::success);
    EXPECT_EQ(clock.now(), 900ms);
}

TEST_F(scan_test, skips_a_device_whose_first_answer_is_late)
{
    answer_after(501ms, 0ms);
    EXPECT_EQ(run({"device"}), exit_code::no_connection);
    EXPECT_EQ(clock.now(), 500ms);
}

TEST_F(scan_test, skips_a_device_whose_second_answer_is_late)
{
    answer_after(500ms, 401ms);
    EXPECT_EQ(run({"device"}), exit_code::no_connection);
    EXPECT_EQ(clock.now(), 900ms);
}

TEST(deadline_link, changes_the_baud_rate_of_the_line)
{
    test::manual_clock clock;
    test::scripted_line line(clock);
    deadline_link limited(line.open(), clock.source()() + 100ms, clock.source());
    EXPECT_EQ(limited.set_baudrate(115200), 9600U);
    EXPECT_EQ(line.baudrate(), 115200U);
}

TEST(deadline_link, never_waits_past_its_deadline)
{
    test::manual_clock clock;
    test::scripted_line line(clock);
    deadline_link limited(line.open(), clock.source()() + 100ms, clock.source());
    line.arrive(30ms, "answer");
    std::array<std::byte, 10> bytes{};
    EXPECT_EQ(limited.read_some(bytes, 50ms), 6U);
    EXPECT_EQ(clock.now(), 30ms);
    EXPECT_EQ(limited.read_some(bytes, 50ms), 0U);
    EXPECT_EQ(clock.now(), 80ms);
    limited.write(std::span(bytes).first(1), 50ms);
    EXPECT_EQ(limited.read_some(bytes, 50ms), 0U);
    EXPECT_EQ(clock.now(), 100ms);
    EXPECT_THROW(limited.read_some(bytes, 50ms), connection_lost);
    EXPECT_THROW(limited.write(std::span(bytes).first(1), 50ms), connection_lost);
    EXPECT_EQ(line.written().size(), 1U);
}

TEST(deadline_link, reads_into_two_buffers_until_its_deadline)
{
    test::manual_clock clock;
    test::scripted_line line(clock);
    deadline_link limited(line.open(), clock.source()() + 100ms, clock.source());
    line.arrive(30ms, "answer");
    std::array<std::byte, 10> bytes{};
    EXPECT_EQ(limited.read_both(std::span(bytes).first(2), std::span(bytes).subspan(2), 50ms), 2U);
    EXPECT_EQ(limited.read_both({}, bytes, 50ms), 4U);
    EXPECT_EQ(limited.read_both({}, bytes, 500ms), 0U);
    EXPECT_EQ(clock.now(), 100ms);
    EXPECT_THROW(limited.read_both({}, bytes, 50ms), connection_lost);
}

} // namespace
} // namespace vantor
