/** @file
 * A NATS server with JetStream as the broker of a bridge.
 */
#ifndef VANTOR_NATS_BROKER_H
#define VANTOR_NATS_BROKER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bridge/broker.h"
#include "bridge/broker_address.h"
#include "bridge/broker_reports.h"
#include "bridge/nats_connection.h"
#include "bridge/nats_names.h"

namespace vantor
{

/** How a stream is created if the server does not have it. */
struct nats_storage
{
    std::chrono::hours keep{24}; /**< how long batches are kept */
    uint64_t most_bytes = 0;     /**< of all batches; 0 for no limit */
    int64_t replicas = 1;        /**< servers of a cluster that keep each batch */
};

/**
 * Puts batches into a stream of a NATS server, which acknowledges each.
 *
 * The library can block, so that a thread of this object calls it.
 */
class nats_broker : public broker
{
public:
    /**
     * Connects in the background, again and again.
     *
     * @param where    the server
     * @param site     name of the site
     * @param storage  how to create the streams of the site, unless they exist
     * @param security what proves who is who
     * @param loop     runs what is called when a batch is stored; must outlive this object
     * @throws broker_error if a file of @p security cannot be read
     */
    nats_broker(broker_address where, const std::string &site, nats_storage storage,
                const broker_security &security, event_loop &loop);
    nats_broker(const nats_broker &) = delete;
    nats_broker &operator=(const nats_broker &) = delete;
    nats_broker(nats_broker &&) = delete;
    nats_broker &operator=(nats_broker &&) = delete;
    ~nats_broker() override;

    [[nodiscard]] bool ready() const override;
    [[nodiscard]] std::string fault() const override;
    [[nodiscard]] size_t largest() const override;
    [[nodiscard]] std::string limit_names() const override;
    void publish(outgoing_batch sent, std::function<void(bool stored)> done) override;
    void publish_state(const std::string &board, std::string state) override;
    void check() override;

private:
    /** A message that the thread has to publish. */
    struct job
    {
        std::string subject;
        std::string bytes;
        std::string id;     /**< empty for a state */
        uint64_t token = 0; /**< of the batch */
    };

    /** What the library calls: it may do so until the subscription has ended, that is, later than expected.
     */
    struct answer_sink
    {
        std::mutex mutex;
        nats_broker *owner = nullptr; /**< null when it is destroyed */
    };

    static void on_answer(natsConnection *link, natsSubscription *subscription, natsMsg *received,
                          void *closure);
    void add_job(job added);
    void work();
    bool wait_for_work(std::deque<job> &taken);
    void connect();
    void subscribe();
    void create_stream(jsCtx &streams, const std::string &name, const std::string &subject, bool is_state);
    void disconnect() noexcept;
    void send(const job &sent);
    void forget_job(uint64_t token);
    void take_answer(uint64_t token, const std::string &fault);
    [[nodiscard]] bool is_connected() const;

    broker_address where_;
    nats_names names_;
    nats_storage storage_;
    std::string inbox_; /**< answers arrive at this subject, followed by a token */
    broker_reports reports_;
    // Of the thread.
    nats_dialer dialer_;
    nats_subscription answers_subscription_;
    nats_link link_;
    // Of both.
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<job> jobs_;
    size_t largest_ = std::numeric_limits<size_t>::max();
    bool ready_ = false;
    bool stop_ = false;
    std::shared_ptr<answer_sink> sink_ = std::make_shared<answer_sink>();
    std::thread thread_;
};

} // namespace vantor

#endif
