/** @file
 * An MQTT broker as the broker of a bridge.
 */
#ifndef VANTOR_MQTT_BROKER_H
#define VANTOR_MQTT_BROKER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bridge/broker.h"
#include "bridge/broker_address.h"
#include "bridge/broker_reports.h"
#include "bridge/mqtt_connection.h"

namespace vantor
{

/**
 * Publishes batches to an MQTT 5 broker, which acknowledges each.
 *
 * The library can block while it looks up a name, so that a thread of this object calls it. A connection that
 * is lost is not used again: what the library had not sent is forgotten with it.
 */
class mqtt_broker : public broker
{
public:
    /** Names this connection. */
    struct identity
    {
        std::string site;
        std::string bridge; /**< name of the bridge: no other of the site has it */
    };

    /**
     * Connects in the background, again and again.
     *
     * @param where     the broker
     * @param names     who connects
     * @param security  what proves who is who; its credentials are a file with the name and the password of
     *                  the user, each in a line
     * @param loop      runs what is called when a batch is stored; must outlive this object
     * @throws broker_error if a file of @p security cannot be used
     */
    mqtt_broker(const broker_address &where, const identity &names, const broker_security &security,
                event_loop &loop);
    mqtt_broker(const mqtt_broker &) = delete;
    mqtt_broker &operator=(const mqtt_broker &) = delete;
    mqtt_broker(mqtt_broker &&) = delete;
    mqtt_broker &operator=(mqtt_broker &&) = delete;
    ~mqtt_broker() override;

    [[nodiscard]] bool ready() const override;
    [[nodiscard]] std::string fault() const override;
    [[nodiscard]] size_t largest() const override;
    [[nodiscard]] std::string limit_names() const override;
    void publish(outgoing_batch sent, std::function<void(bool stored)> done) override;
    void publish_state(const std::string &board, std::string state) override;
    void check() override;

private:
    using clock = std::chrono::steady_clock;

    /** A message that the thread has to publish. */
    struct job
    {
        mqtt_message message;
        uint64_t token = 0; /**< of the batch; 0 if it is not one */
    };

    /** A message whose answer is to come. */
    struct sent_message
    {
        uint64_t token = 0; /**< as for a job */
        size_t size = 0;
    };

    void add_job(job added);
    void wake() const noexcept;
    void work();
    void serve();
    void begin();
    void publish_jobs();
    void send(const job &one);
    void wait_for_broker(clock::time_point until);
    void finish();
    void disconnect();
    void pause(std::chrono::milliseconds time) const;
    void take_answer(const mqtt_connection::answer &received);
    void new_link();
    [[nodiscard]] bool stops() const;
    [[nodiscard]] mqtt_message presence(bool is_online) const;

    identity names_;
    mqtt_settings settings_;
    int wake_ = -1; /**< readable when the thread has something to do */
    broker_reports reports_;
    // Of the thread.
    std::unique_ptr<mqtt_connection> link_;
    std::map<int, sent_message> under_way_; /**< by number of the message */
    clock::time_point heard_; /**< when the broker has answered last, or nothing was under way */
    // Of both.
    mutable std::mutex mutex_;
    std::deque<job> jobs_;
    size_t largest_ = std::numeric_limits<size_t>::max();
    bool ready_ = false;
    bool stop_ = false;
    std::thread thread_;
};

} // namespace vantor

#endif
