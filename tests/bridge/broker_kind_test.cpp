/** @file
 * Tests of the kinds of brokers in addresses.
 */
#include "bridge/broker_address.h"

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

using testing::HasSubstr;

/** The message with which an address of a board is refused; empty if it is accepted. */
std::string refusal_of_board(const std::string &text)
{
    try
    {
        (void)parse_remote_board_address(text);
        return "";
    }
    catch (const address_error &failure)
    {
        return failure.what();
    }
}

TEST(broker_kind, tells_kinds_of_brokers_and_their_usual_ports)
{
    const auto nats = parse_broker_address("nats:store");
    EXPECT_EQ(nats.kind, broker_kind::nats);
    EXPECT_EQ(nats.host, "store");
    EXPECT_EQ(nats.port, 4222);
    const auto mqtt = parse_broker_address("mqtt:[::1]");
    EXPECT_EQ(mqtt.kind, broker_kind::mqtt);
    EXPECT_EQ(mqtt.host, "::1");
    EXPECT_EQ(mqtt.port, 1883);
}

TEST(broker_kind, is_written_as_it_is_read)
{
    for (const std::string text : {"nats:store:4222", "mqtt:store:8883", "mqtt:[::1]:1883"})
    {
        EXPECT_EQ(to_string(parse_broker_address(text)), text);
    }
}

TEST(broker_kind, is_refused_if_it_is_not_one)
{
    for (const auto *text :
         {"", "mqtt", "mqtt:", "mqtt::1", "mqtt:store:0", "mqtt:store:70000", "mqtt:store/x", "mqtt:store:1x",
          "mqtts:store", "amqp:store", "mqtt:[::1", "mqtt:[::1]8883"})
    {
        EXPECT_THROW((void)parse_broker_address(text), address_error) << text;
    }
}

TEST(broker_kind, of_a_board_has_a_site_and_a_name)
{
    const auto where = parse_remote_board_address("nats:store/hall/door");
    EXPECT_EQ(where.site, "hall");
    EXPECT_EQ(where.board, "door");
    EXPECT_THAT(refusal_of_board("nats:store/hall"), HasSubstr("nats:HOST/SITE/BOARD"));
}

TEST(broker_kind, of_a_board_behind_an_mqtt_broker_is_refused_with_the_reason)
{
    EXPECT_TRUE(is_broker_address("mqtt:store"));
    EXPECT_THAT(refusal_of_board("mqtt:store/hall/door"), HasSubstr("only those behind a NATS server"));
}

} // namespace
} // namespace vantor
