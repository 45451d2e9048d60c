/** @file
 * Tests of addresses of brokers, and of boards behind them.
 */
#include "bridge/broker_address.h"

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

/** A broker as a text: host and port. */
std::string parts_of(const broker_address &where)
{
    return where.host + " " + std::to_string(where.port);
}

TEST(broker_address, has_a_host_and_a_port)
{
    EXPECT_EQ(parts_of(parse_broker_address("nats:broker.local")), "broker.local 4222");
    EXPECT_EQ(parts_of(parse_broker_address("nats:10.0.0.5:1")), "10.0.0.5 1");
    EXPECT_EQ(parts_of(parse_broker_address("nats:h:65535")), "h 65535");
    EXPECT_EQ(parts_of(parse_broker_address("nats:[::1]")), "::1 4222");
    EXPECT_EQ(parts_of(parse_broker_address("nats:[fe80::1%eth0]:6000")), "fe80::1%eth0 6000");
}

TEST(broker_address, is_formatted_as_it_is_parsed)
{
    for (const char *text : {"nats:broker.local:4222", "nats:h:1883", "nats:[::1]:6000"})
    {
        EXPECT_EQ(to_string(parse_broker_address(text)), text);
    }
}

TEST(broker_address, is_told_from_the_address_of_a_server)
{
    EXPECT_TRUE(is_broker_address("nats:h"));
    EXPECT_TRUE(is_broker_address("nats:"));
    EXPECT_TRUE(is_broker_address("nats:h/a/b"));
    for (const char *text : {"", "nats", "mqtt", "tcp:h:1", "sim:", "serial:/dev/ttyACM0", " nats:h"})
    {
        EXPECT_FALSE(is_broker_address(text)) << text;
    }
}

TEST(broker_address, refuses_what_is_not_one)
{
    for (const char *text : {"",           "nats",        "h",           "tcp:h:1",        "nats:",
                             "nats::4222", "nats:h:",     "nats:h:0",    "nats:h:65536",   "nats:h:-1",
                             "nats:h:+1",  "nats:h:1x",   "nats:h: 1",   "nats:h:1:2",     "nats:::1",
                             "nats:[]",    "nats:[::1",   "nats:[::1]x", "nats:[::1]4222", "nats:[::1]:",
                             "nats:h/x",   "nats:user@h", "nats:h i",    "nats://h"})
    {
        EXPECT_THAT(
            [&] { parse_broker_address(text); },
            ThrowsMessage<address_error>(AllOf(
                HasSubstr("\"" + std::string(text) + "\" is not a valid address"), HasSubstr("nats:HOST"))))
            << text;
    }
}

TEST(remote_board_address, has_a_broker_a_site_and_a_board)
{
    const auto where = parse_remote_board_address("nats:[::1]:6000/hall/door-2");
    EXPECT_EQ(to_string(where.broker), "nats:[::1]:6000");
    EXPECT_EQ(where.site, "hall");
    EXPECT_EQ(where.board, "door-2");
    EXPECT_FALSE(where.from.has_value());
}

/** The time in an address, since 1970. */
std::chrono::nanoseconds time_in(const std::string &text)
{
    return parse_remote_board_address("nats:h/s/b@" + text).from.value().time_since_epoch();
}

TEST(remote_board_address, can_have_a_time)
{
    EXPECT_EQ(parse_remote_board_address("nats:h/s/b@1970-01-01T00:00:00Z").board, "b");
    EXPECT_EQ(time_in("1970-01-01T00:00:00Z"), 0s);
    EXPECT_EQ(time_in("2026-11-23T12:00:00Z"), 1795435200s);
    EXPECT_EQ(time_in("2026-11-23T23:59:59Z"), 1795478399s);
    EXPECT_EQ(time_in("2028-02-29T00:00:00Z"), 1835395200s);
    EXPECT_EQ(time_in("2026-11-23T12:00:00.5Z"), 1795435200s + 500ms);
    EXPECT_EQ(time_in("2026-11-23T12:00:00.000001Z"), 1795435200s + 1us);
    EXPECT_EQ(time_in("2026-11-23T12:00:00.123456789Z"), 1795435200s + 123456789ns);
    EXPECT_EQ(time_in("2100-12-31T23:59:59.999999999Z"), 4133980800s - 1ns);
}

TEST(remote_board_address, refuses_what_is_not_a_time)
{
    for (const char *text : {"",
                             "Z",
                             "now",
                             "2026-11-23",
                             "2026-11-23T12:00:00",
                             "2026-11-23T12:00Z",
                             "2026-11-23 12:00:00Z",
                             "2026-11-23T12:00:00+01:00",
                             "2026-11-23T12:00:00ZZ",
                             "2026-11-23T12:00:00Z ",
                             " 2026-11-23T12:00:00Z",
                             "2026-11- 3T12:00:00Z",
                             "2026-11-3T12:00:00Z",
                             "26-11-23T12:00:00Z",
                             "2026-13-01T00:00:00Z",
                             "2026-00-01T00:00:00Z",
                             "2026-11-31T00:00:00Z",
                             "2026-02-29T00:00:00Z",
                             "2026-11-00T00:00:00Z",
                             "2026-11-23T24:00:00Z",
                             "2026-11-23T12:60:00Z",
                             "2026-11-23T12:00:60Z",
                             "2026-11-23T12:00:00.Z",
                             "2026-11-23T12:00:00.5",
                             "2026-11-23T12:00:00.5e3Z",
                             "2026-11-23T12:00:00.-5Z",
                             "2026-11-23T12:00:00.5xZ",
                             "2026-11-23T12:00:00.1234567890Z",
                             "2026-11-23T12:00:-1Z",
                             "1969-12-31T23:59:59Z",
                             "2101-01-01T00:00:00Z",
                             "9999-12-31T23:59:59Z",
                             "0000-01-01T00:00:00Z"})
    {
        EXPECT_THAT([&] { time_in(text); }, ThrowsMessage<address_error>(HasSubstr("2026-11-23T12:00:00Z")))
            << text;
    }
}

TEST(remote_board_address, refuses_what_is_not_one)
{
    for (const char *text :
         {"", "nats:h", "nats:h/s", "nats:h/s/", "nats:h//b", "nats:h/s/b/", "nats:h/s/b/c", "nats:h/s s/b",
          "nats:h/s/b.c", "nats:h/s/*", "nats:/s/b", "nats:h:0/s/b", "mqtt:h/s/b", "tcp:h:1/s/b",
          "nats:h/s/@2026-11-23T12:00:00Z", "nats:h@x/s/b"})
    {
        EXPECT_THROW(parse_remote_board_address(text), address_error) << text;
    }
    EXPECT_THAT([] { parse_remote_board_address("nats:h/s"); },
                ThrowsMessage<address_error>(HasSubstr("nats:HOST/SITE/BOARD")));
}

} // namespace
} // namespace vantor
