/** @file
 * A connection to an MQTT broker.
 */
#ifndef VANTOR_MQTT_CONNECTION_H
#define VANTOR_MQTT_CONNECTION_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include <mosquitto.h>

#include "bridge/broker.h"
#include "bridge/broker_address.h"

namespace vantor
{

/** A message for an MQTT broker. */
struct mqtt_message
{
    std::string topic;
    std::string bytes;
    bool retained = false; /**< the broker keeps it for those who subscribe later */
};

/** How to connect to an MQTT broker. */
struct mqtt_settings
{
    broker_address where;
    std::string client; /**< name of this connection; the broker ends another one of the same name */
    mqtt_message will;  /**< what the broker publishes if the connection is lost */
    broker_security
        security; /**< its credentials are a file with the user's name and the password, in lines */
};

/**
 * A connection to an MQTT broker: once, when it is lost, this object can only be destroyed. Messages are
 * published with quality of service 1. No function waits, except wait(), and connect() for the name service.
 */
class mqtt_connection
{
public:
    /** An answer of the broker to a message. */
    struct answer
    {
        int message = 0;        /**< its number */
        std::string refusal;    /**< why the broker has not taken it; empty if it has */
        bool too_large = false; /**< for this broker */
        bool unread = false;    /**< nobody is subscribed to it */
    };

    /**
     * @param settings  how to connect
     * @param answered  called by wait() for each answer; must not throw
     * @throws broker_error if a file of the settings cannot be used
     */
    mqtt_connection(const mqtt_settings &settings, std::function<void(const answer &)> answered);
    mqtt_connection(const mqtt_connection &) = delete;
    mqtt_connection &operator=(const mqtt_connection &) = delete;
    mqtt_connection(mqtt_connection &&) = delete;
    mqtt_connection &operator=(mqtt_connection &&) = delete;
    ~mqtt_connection() = default;

    /** Begins to connect. @throws broker_error if that fails at once */
    void connect();

    /** Whether the broker has accepted the connection. */
    [[nodiscard]] bool is_up() const noexcept
    {
        return is_up_;
    }

    /** Largest message of the broker, in bytes, as it said itself. */
    [[nodiscard]] size_t largest() const noexcept
    {
        return largest_;
    }

    /**
     * Publishes a message.
     *
     * @return its number
     * @throws broker_error if the connection is lost
     */
    int publish(const mqtt_message &sent);

    /**
     * Sends and receives what can be sent and received now; waits for that first.
     *
     * @param wake  ends the wait when it becomes readable
     * @param most  longest wait
     * @throws broker_error if the connection is lost, or is not accepted
     */
    void wait(int wake, std::chrono::milliseconds most);

    /** Ends the connection, so that the broker does not publish the will. */
    void close() noexcept;

private:
    /** Initialises the library while it exists. */
    struct library_use
    {
        library_use();
        library_use(const library_use &) = delete;
        library_use &operator=(const library_use &) = delete;
        library_use(library_use &&) = delete;
        library_use &operator=(library_use &&) = delete;
        ~library_use();
    };

    /** Destroys an object of the library. */
    struct deleter
    {
        void operator()(mosquitto *object) const noexcept
        {
            mosquitto_destroy(object);
        }
    };

    static void on_connect(mosquitto *link, void *self, int reason, int flags,
                           const mosquitto_property *properties);
    static void on_disconnect(mosquitto *link, void *self, int reason, const mosquitto_property *properties);
    static void on_publish(mosquitto *link, void *self, int message, int reason,
                           const mosquitto_property *properties);
    static void on_log(mosquitto *link, void *self, int level, const char *text);
    void set_callbacks();
    void set_will(const mqtt_message &will);
    void set_security(const broker_security &security);
    void check(int status);
    [[noreturn]] void fail(int reason) const;

    using clock = std::chrono::steady_clock;

    broker_address where_;
    std::function<void(const answer &)> answered_;
    library_use library_;
    std::unique_ptr<mosquitto, deleter> link_;
    std::string tls_fault_; /**< what the library has said about TLS */
    size_t largest_ = std::numeric_limits<size_t>::max();
    clock::time_point deadline_; /**< for the broker to accept the connection */
    int end_reason_ = 0;         /**< why the broker has ended the connection, or does not accept it */
    bool is_up_ = false;
    bool has_begun_ = false; /**< the socket was connected, or that has failed */
};

} // namespace vantor

#endif
