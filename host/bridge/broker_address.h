/** @file
 * Addresses of message brokers, and of boards behind them.
 */
#ifndef VANTOR_BROKER_ADDRESS_H
#define VANTOR_BROKER_ADDRESS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vantor/errors.h"

namespace vantor
{

/** Kinds of message brokers. */
enum class broker_kind
{
    nats, /**< a NATS server with JetStream */
    mqtt  /**< an MQTT 5 broker */
};

/** A message broker. */
struct broker_address
{
    broker_kind kind = broker_kind::nats;
    std::string host; /**< name or IP address; an IPv6 address without brackets */
    uint16_t port = 0;
};

/** A board behind a broker. */
struct remote_board_address
{
    broker_address broker;
    std::string site;
    std::string board;
    /** where the frames begin; no value for those that arrive from now on */
    std::optional<std::chrono::sys_time<std::chrono::nanoseconds>> from;
};

/** Whether a text is the address of something at a broker, valid or not, rather than of a server. */
bool is_broker_address(std::string_view text) noexcept;

/**
 * Parses the address of a broker: "nats:HOST[:PORT]" or "mqtt:HOST[:PORT]", with an IPv6 address in brackets.
 *
 * @throws address_error if it is not one
 */
broker_address parse_broker_address(std::string_view text);

/**
 * Parses the address of a board: "nats:HOST[:PORT]/SITE/BOARD[@TIME]", with a time as
 * 2026-11-23T12:00:00[.5]Z.
 *
 * @throws address_error if it is not one, or is behind an MQTT broker, which keeps nothing to read
 */
remote_board_address parse_remote_board_address(std::string_view text);

/** Formats an address so that parse_broker_address() can read it. */
std::string to_string(const broker_address &where);

} // namespace vantor

#endif
