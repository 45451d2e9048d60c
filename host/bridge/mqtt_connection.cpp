/** @file
 * A connection to an MQTT broker.
 */
#include "bridge/mqtt_connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <utility>

#include <mqtt_protocol.h>
#include <poll.h>

namespace vantor
{
namespace
{

/** Largest file with credentials, in bytes. */
constexpr uintmax_t most_credentials = 4096;

/** How long connecting may take. */
constexpr std::chrono::seconds mqtt_connect_time{5};

/** After how many seconds without a message the broker is asked whether it is there. */
constexpr int keep_alive = 10;

/** Room for what surrounds the bytes of a message. */
constexpr size_t packet_room = 512;

/** Reason codes from here on are failures. */
constexpr int first_failure = MQTT_RC_UNSPECIFIED;

/** Every message is acknowledged. */
constexpr int quality_of_service = 1;

/** What a code of the library, or of the broker, means. */
std::string text_of(int reason)
{
    if (reason == MQTT_RC_SESSION_TAKEN_OVER)
    {
        return "another bridge of the site has the same name; use --bridge-name";
    }
    // Not every broker says why.
    const bool is_closed =
        reason == MOSQ_ERR_CONN_LOST || (reason == MOSQ_ERR_ERRNO && (errno == EPIPE || errno == ECONNRESET));
    if (is_closed)
    {
        return "it was closed; if that happens again and again, another bridge of the site has the same name";
    }
    const std::string text =
        reason >= first_failure ? mosquitto_reason_string(reason) : mosquitto_strerror(reason);
    return text.substr(0, text.find_last_not_of('.') + 1);
}

/** Checks that a file can be read: the library does not say which one cannot. */
void require_readable(const std::filesystem::path &file, const std::string &what)
{
    if (!std::ifstream(file))
    {
        throw broker_error("Cannot read " + what + " " + file.string() + ".");
    }
}

/** Throws broker_error unless a call of the library has succeeded. @param action  what was to be done */
void require_success(int status, const std::string &action)
{
    if (status != MOSQ_ERR_SUCCESS)
    {
        throw broker_error("Cannot " + action + ": " + text_of(status) + ".");
    }
}

/** Reads a line of a file without its end. */
std::string read_line(std::istream &input)
{
    std::string line;
    std::getline(input, line);
    line.erase(line.find_last_not_of('\r') + 1);
    return line;
}

/** Has the library not ask the user for the password of a key. */
int give_no_password(char * /*buffer*/, int /*size*/, int /*is_written*/, void * /*user*/)
{
    return 0;
}

} // namespace

mqtt_connection::library_use::library_use()
{
    mosquitto_lib_init();
}

mqtt_connection::library_use::~library_use()
{
    mosquitto_lib_cleanup();
}

mqtt_connection::mqtt_connection(const mqtt_settings &settings, std::function<void(const answer &)> answered)
    : where_(settings.where), answered_(std::move(answered)),
      link_(mosquitto_new(settings.client.c_str(), true, this))
{
    if (!link_)
    {
        throw broker_error("Cannot use the MQTT library.");
    }
    require_success(mosquitto_int_option(link_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5),
                    "use MQTT 5");
    set_callbacks();
    set_will(settings.will);
    set_security(settings.security);
}

/** Has the library report what happens. */
void mqtt_connection::set_callbacks()
{
    mosquitto_connect_v5_callback_set(link_.get(), on_connect);
    mosquitto_disconnect_v5_callback_set(link_.get(), on_disconnect);
    mosquitto_publish_v5_callback_set(link_.get(), on_publish);
    mosquitto_log_callback_set(link_.get(), on_log);
}

/** Sets what the broker publishes if the connection is lost. */
void mqtt_connection::set_will(const mqtt_message &will)
{
    require_success(mosquitto_will_set_v5(link_.get(), will.topic.c_str(),
                                          static_cast<int>(will.bytes.size()), will.bytes.data(),
                                          quality_of_service, will.retained, nullptr),
                    "set the last will");
}

/** Sets what proves who is who. */
void mqtt_connection::set_security(const broker_security &security)
{
    if (!security.authorities.empty())
    {
        require_readable(security.authorities, "the certificates in");
        const bool has_certificate = !security.certificate.empty();
        if (has_certificate)
        {
            require_readable(security.certificate, "the certificate");
            require_readable(security.key, "the key");
        }
        require_success(mosquitto_tls_set(link_.get(), security.authorities.c_str(), nullptr,
                                          has_certificate ? security.certificate.c_str() : nullptr,
                                          has_certificate ? security.key.c_str() : nullptr, give_no_password),
                        "use TLS");
    }
    if (!security.credentials.empty())
    {
        std::error_code fault;
        // Devices and pipes have no size.
        const auto size = std::filesystem::file_size(security.credentials, fault);
        std::ifstream input(security.credentials);
        const auto user = fault || size > most_credentials ? "" : read_line(input);
        const auto password = user.empty() ? "" : read_line(input);
        if (!input || user.empty())
        {
            throw broker_error("Cannot read a user and a password, each in a line, from " +
                               security.credentials.string() + ".");
        }
        require_success(mosquitto_username_pw_set(link_.get(), user.c_str(), password.c_str()),
                        "use the credentials in " + security.credentials.string());
    }
}

void mqtt_connection::connect()
{
    deadline_ = clock::now() + mqtt_connect_time;
    check(mosquitto_connect_bind_async(link_.get(), where_.host.c_str(), where_.port, keep_alive, nullptr));
}

int mqtt_connection::publish(const mqtt_message &sent)
{
    int number = 0;
    check(mosquitto_publish_v5(link_.get(), &number, sent.topic.c_str(), static_cast<int>(sent.bytes.size()),
                               sent.bytes.data(), quality_of_service, sent.retained, nullptr));
    return number;
}

void mqtt_connection::wait(int wake, std::chrono::milliseconds most)
{
    const bool writes = !has_begun_ || mosquitto_want_write(link_.get());
    const auto events = static_cast<short>(writes ? POLLIN | POLLOUT : POLLIN); // NOLINT(google-runtime-int)
    std::array<pollfd, 2> watched{{{.fd = mosquitto_socket(link_.get()), .events = events, .revents = 0},
                                   {.fd = wake, .events = POLLIN, .revents = 0}}};
    ::poll(watched.data(), watched.size(), static_cast<int>(most.count()));
    has_begun_ = has_begun_ || watched[0].revents != 0;
    // Also without an event: TLS may have received more than was read.
    check(mosquitto_loop_read(link_.get(), 1));
    if ((watched[0].revents & POLLOUT) != 0) // NOLINT(hicpp-signed-bitwise)
    {
        check(mosquitto_loop_write(link_.get(), 1));
    }
    check(mosquitto_loop_misc(link_.get()));
    if (!is_up_ && clock::now() > deadline_)
    {
        throw broker_error("Cannot connect to " + to_string(where_) + ": it did not answer in time.");
    }
}

void mqtt_connection::close() noexcept
{
    mosquitto_disconnect_v5(link_.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr);
}

/** Throws broker_error if the connection is lost. @param status  of a call of the library */
void mqtt_connection::check(int status)
{
    if (end_reason_ != 0)
    {
        fail(end_reason_);
    }
    if (status != MOSQ_ERR_SUCCESS)
    {
        fail(status);
    }
}

/** Throws broker_error. @param reason  why the connection is lost */
void mqtt_connection::fail(int reason) const
{
    const bool is_certain = reason >= first_failure || tls_fault_.empty();
    throw broker_error((is_up_ ? "Lost the connection to " : "Cannot connect to ") + to_string(where_) +
                       ": " + (is_certain ? text_of(reason) : tls_fault_) + ".");
}

/** The broker has accepted the connection, or not. */
void mqtt_connection::on_connect(mosquitto * /*link*/, void *self, int reason, int /*flags*/,
                                 const mosquitto_property *properties)
{
    auto &of = *static_cast<mqtt_connection *>(self);
    uint32_t largest = 0;
    if (reason != MQTT_RC_SUCCESS)
    {
        of.end_reason_ = reason;
        return;
    }
    if (mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, &largest, false) != nullptr)
    {
        of.largest_ = largest - std::min<size_t>(largest, packet_room);
    }
    of.is_up_ = true;
}

/** The broker has ended the connection, or it was lost. */
void mqtt_connection::on_disconnect(mosquitto * /*link*/, void *self, int reason,
                                    const mosquitto_property * /*properties*/)
{
    auto &of = *static_cast<mqtt_connection *>(self);
    of.end_reason_ = of.end_reason_ == 0 ? reason : of.end_reason_;
}

/** The broker has answered to a message. */
void mqtt_connection::on_publish(mosquitto * /*link*/, void *self, int message, int reason,
                                 const mosquitto_property * /*properties*/)
{
    static_cast<mqtt_connection *>(self)->answered_(
        {.message = message,
         .refusal = reason >= first_failure ? "the broker refused a message: " + text_of(reason) : "",
         .too_large = reason == MQTT_RC_PACKET_TOO_LARGE,
         .unread = reason == MQTT_RC_NO_MATCHING_SUBSCRIBERS});
}

/** Notes what TLS says: the library only reports that something is wrong. */
void mqtt_connection::on_log(mosquitto * /*link*/, void *self, int level, const char *text)
{
    if (level == MOSQ_LOG_ERR)
    {
        std::string_view fault(text);
        fault.remove_prefix(fault.rfind(':') + 1);
        fault.remove_prefix(std::min(fault.find_first_not_of(' '), fault.size()));
        fault.remove_suffix(fault.ends_with('.') ? 1 : 0);
        static_cast<mqtt_connection *>(self)->tls_fault_ = fault;
    }
}

} // namespace vantor
