/** @file
 * Tests of the text forms of addresses.
 */
#include "vantor/address.h"

#include <gmock/gmock.h>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

TEST(address, reads_tcp)
{
    const auto where = std::get<tcp_address>(parse_address("tcp:radar.local:5000"));
    EXPECT_EQ(where.host, "radar.local");
    EXPECT_EQ(where.port, 5000);
}

TEST(address, reads_ipv6_in_brackets)
{
    const auto where = std::get<tcp_address>(parse_address("tcp:[::1]:65535"));
    EXPECT_EQ(where.host, "::1");
    EXPECT_EQ(where.port, 65535);
}

TEST(address, reads_the_path_of_a_socket)
{
    EXPECT_EQ(std::get<unix_address>(parse_address("unix:/tmp/a:b")).path, "/tmp/a:b");
}

TEST(address, reads_serial_with_and_without_baud_rate)
{
    const auto with = std::get<serial_address>(parse_address("serial:/dev/ttyACM0@921600"));
    EXPECT_EQ(with.device, "/dev/ttyACM0");
    EXPECT_EQ(with.baudrate, 921600U);
    const auto without = std::get<serial_address>(parse_address("serial:/dev/pts/3"));
    EXPECT_EQ(without.device, "/dev/pts/3");
    EXPECT_EQ(without.baudrate, 115200U);
}

TEST(address, reads_simulator_arguments)
{
    EXPECT_THAT(std::get<simulator_address>(parse_address("sim:")).arguments, IsEmpty());
    EXPECT_THAT(
        std::get<simulator_address>(parse_address("sim:--scene \"my scene.json\" --seed 3")).arguments,
        ElementsAre("--scene", "my scene.json", "--seed", "3"));
    EXPECT_THAT(std::get<simulator_address>(parse_address("sim:--sensors 2")).arguments,
                ElementsAre("--sensors", "2"));
}

TEST(address, reads_simulator_arguments_with_spaces)
{
    for (const char *text : {R"(sim:--scene="my scene.json")", "sim:--scene='my scene.json'",
                             R"(sim:--scene=my\ scene.json)", R"(sim:"--scene=my scene.json")"})
    {
        EXPECT_THAT(std::get<simulator_address>(parse_address(text)).arguments,
                    ElementsAre("--scene=my scene.json"))
            << text;
    }
    EXPECT_THAT(std::get<simulator_address>(parse_address(R"(sim: '' "a\"b\\" 'c\d"e' f''g )")).arguments,
                ElementsAre("", R"(a"b\)", R"(c\d"e)", "fg"));
}

TEST(address, formats_simulator_arguments_so_that_they_can_be_read)
{
    const std::vector<std::string> arguments{"--scene", "my scene.json", "",    "it's",
                                             R"(a"b)",  R"(c\d)",        "e\tf"};
    const auto text = to_string(simulator_address{arguments});
    EXPECT_EQ(std::get<simulator_address>(parse_address(text)).arguments, arguments) << text;
}

TEST(address, refuses_open_quotes)
{
    for (const char *text : {R"(sim:--scene "my scene.json)", "sim:--scene 'my scene.json", R"(sim:a\)"})
    {
        EXPECT_THAT([&] { parse_address(text); },
                    testing::ThrowsMessage<address_error>(testing::HasSubstr("is not closed")))
            << text;
    }
}

TEST(address, formats_what_it_parses)
{
    for (const char *text :
         {"tcp:127.0.0.1:1", "tcp:[fe80::1]:80", "unix:radar socket", "serial:/dev/ttyUSB0@9600",
          "sim:", "sim:--sensors 2", "sim:--scene \"my scene.json\""})
    {
        EXPECT_EQ(to_string(parse_address(text)), text);
    }
}

TEST(address, refuses_everything_else)
{
    for (const char *text : {"", "tcp", "tcp:", "tcp:host", "tcp::5000", "tcp:host:0", "tcp:host:65536",
                             "tcp:host:12x", "unix", "unix:", "serial:", "serial:@9600", "serial:/dev/x@",
                             "serial:/dev/x@fast", "usb:1", "127.0.0.1:5000", "sim"})
    {
        EXPECT_THROW(parse_address(text), address_error) << text;
    }
}

} // namespace
} // namespace vantor
