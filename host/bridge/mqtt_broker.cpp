/** @file
 * An MQTT broker as the broker of a bridge.
 */
#include "bridge/mqtt_broker.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace vantor
{
namespace
{

/** How long the broker may answer nothing while messages are under way. */
constexpr std::chrono::seconds most_silence{10};

/** How long to wait at the end until everything is sent. */
constexpr std::chrono::seconds flush_limit{1};

/** How often the connection is looked after without an event. */
constexpr std::chrono::milliseconds look_interval{500};

/** How long to wait before connecting again: at first, and at most. */
constexpr std::chrono::milliseconds first_pause{500};
constexpr std::chrono::milliseconds longest_mqtt_pause{8000};

/** A connection that lasts so long was a good one. */
constexpr std::chrono::seconds good_time{10};

/** Version of the document that reports whether a bridge is online. */
constexpr int presence_version = 1;

/** Where everything of a site is. */
std::string topics_of(const std::string &site)
{
    return "vantor/" + site + "/";
}

} // namespace

mqtt_broker::mqtt_broker(const broker_address &where, const identity &names, const broker_security &security,
                         event_loop &loop)
    : names_(names), settings_{.where = where,
                               .client = "vantor-" + names.site + "-" + names.bridge,
                               .will = presence(false),
                               .security = security},
      reports_(loop)
{
    new_link();
    wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0)
    {
        throw broker_error(std::string("Cannot make a descriptor: ") + std::strerror(errno) + ".");
    }
    thread_ = std::thread([this] { work(); });
}

mqtt_broker::~mqtt_broker()
{
    {
        const std::scoped_lock lock(mutex_);
        stop_ = true;
    }
    wake();
    thread_.join();
    ::close(wake_);
}

bool mqtt_broker::ready() const
{
    const std::scoped_lock lock(mutex_);
    return ready_;
}

std::string mqtt_broker::fault() const
{
    return reports_.fault();
}

size_t mqtt_broker::largest() const
{
    const std::scoped_lock lock(mutex_);
    return largest_;
}

std::string mqtt_broker::limit_names() const
{
    return "max_packet_size or message_size_limit";
}

void mqtt_broker::publish(outgoing_batch sent, std::function<void(bool stored)> done)
{
    add_job({.message = {.topic = topics_of(names_.site) + sent.board + "/frames",
                         .bytes = std::move(sent.bytes)},
             .token = reports_.expect(std::move(done))});
}

void mqtt_broker::publish_state(const std::string &board, std::string state)
{
    add_job({.message = {.topic = topics_of(names_.site) + board + "/state",
                         .bytes = std::move(state),
                         .retained = true}});
}

void mqtt_broker::check()
{
    // The thread knows when the broker was silent for too long.
}

/** Has the thread publish a message, if the broker is there. */
void mqtt_broker::add_job(job added)
{
    {
        const std::scoped_lock lock(mutex_);
        if (ready_)
        {
            jobs_.push_back(std::move(added));
            wake();
            return;
        }
    }
    if (added.token != 0)
    {
        reports_.answer(added.token, false);
    }
}

/** Ends a wait of the thread. */
void mqtt_broker::wake() const noexcept
{
    ::eventfd_write(wake_, 1);
}

/** The thread: connects, and publishes. */
void mqtt_broker::work()
{
    auto wait = first_pause;
    while (!stops())
    {
        const auto began = clock::now();
        try
        {
            serve();
            finish();
        }
        catch (const broker_error &failure)
        {
            reports_.note_fault(failure.what());
        }
        disconnect();
        wait = clock::now() - began > good_time ? first_pause : wait;
        pause(wait);
        wait = std::min(2 * wait, longest_mqtt_pause);
    }
}

/** Uses a connection until this object ends. Throws broker_error when it is lost. */
void mqtt_broker::serve()
{
    if (!link_)
    {
        new_link();
    }
    link_->connect();
    while (!stops())
    {
        wait_for_broker(clock::now() + look_interval);
        if (link_->is_up() && !ready())
        {
            begin();
        }
        publish_jobs();
    }
}

/** Takes messages from now on. */
void mqtt_broker::begin()
{
    auto online = presence(true);
    send({.message = std::move(online)});
    reports_.note_fault("");
    const std::scoped_lock lock(mutex_);
    ready_ = true;
    largest_ = link_->largest();
}

/** Publishes what was added. */
void mqtt_broker::publish_jobs()
{
    std::deque<job> taken;
    {
        const std::scoped_lock lock(mutex_);
        taken = std::exchange(jobs_, {});
    }
    while (!taken.empty())
    {
        try
        {
            send(taken.front());
        }
        catch (const broker_error &)
        {
            const std::scoped_lock lock(mutex_);
            jobs_.insert(jobs_.begin(), std::make_move_iterator(taken.begin()),
                         std::make_move_iterator(taken.end()));
            throw;
        }
        taken.pop_front();
    }
}

/** Publishes a message. */
void mqtt_broker::send(const job &one)
{
    heard_ = under_way_.empty() ? clock::now() : heard_;
    const auto number = link_->publish(one.message);
    under_way_[number] = {.token = one.token, .size = one.message.bytes.size()};
}

/** Lets the connection work, until something has happened, or it is late. */
void mqtt_broker::wait_for_broker(clock::time_point until)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - clock::now());
    link_->wait(wake_, std::max(left, std::chrono::milliseconds(0)));
    eventfd_t count = 0;
    ::eventfd_read(wake_, &count);
    if (!under_way_.empty() && clock::now() - heard_ > most_silence)
    {
        throw broker_error(to_string(settings_.where) + " did not answer in time.");
    }
}

/** Publishes what was added last, such as the states at the end, and ends the connection. */
void mqtt_broker::finish()
{
    if (!link_->is_up())
    {
        return;
    }
    publish_jobs();
    send({.message = presence(false)});
    const auto until = clock::now() + flush_limit;
    while (!under_way_.empty() && clock::now() < until)
    {
        wait_for_broker(until);
    }
    link_->close();
}

/** Forgets the connection. What was under way is to be published again. */
void mqtt_broker::disconnect()
{
    std::deque<job> left;
    {
        const std::scoped_lock lock(mutex_);
        ready_ = false;
        left = std::exchange(jobs_, {});
    }
    link_.reset();
    for (const auto &[number, sent] : std::exchange(under_way_, {}))
    {
        left.push_back({.message = {}, .token = sent.token});
    }
    for (const auto &one : left)
    {
        if (one.token != 0)
        {
            reports_.answer(one.token, false);
        }
    }
}

/** Waits before the next connection, unless this object ends. */
void mqtt_broker::pause(std::chrono::milliseconds time) const
{
    const auto until = clock::now() + time;
    while (!stops() && clock::now() < until)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - clock::now());
        pollfd watched{.fd = wake_, .events = POLLIN, .revents = 0};
        ::poll(&watched, 1, std::max(0, static_cast<int>(left.count())));
        eventfd_t count = 0;
        ::eventfd_read(wake_, &count);
    }
}

/** Takes the answer to a message. */
void mqtt_broker::take_answer(const mqtt_connection::answer &received)
{
    const auto found = under_way_.extract(received.message);
    if (!found)
    {
        return;
    }
    const auto &sent = found.mapped();
    const bool is_batch = sent.token != 0;
    heard_ = is_batch || under_way_.empty() ? clock::now() : heard_;
    if (!received.refusal.empty() && !received.too_large)
    {
        reports_.note_refusal(received.refusal);
    }
    if (received.too_large && is_batch)
    {
        const std::scoped_lock lock(mutex_);
        largest_ = std::min(largest_, sent.size - 1);
    }
    if (is_batch)
    {
        if (received.unread)
        {
            reports_.note_refusal("nobody is subscribed to the batches, so that the broker has dropped some");
        }
        reports_.answer(sent.token, received.refusal.empty());
    }
}

/** Makes the next connection. */
void mqtt_broker::new_link()
{
    link_ = std::make_unique<mqtt_connection>(
        settings_, [this](const mqtt_connection::answer &received) { take_answer(received); });
}

/** Whether this object ends. */
bool mqtt_broker::stops() const
{
    const std::scoped_lock lock(mutex_);
    return stop_;
}

/** The message that reports whether this bridge is online. */
mqtt_message mqtt_broker::presence(bool is_online) const
{
    const nlohmann::ordered_json document = {{"vantor_bridge", presence_version},
                                             {"site", names_.site},
                                             {"bridge", names_.bridge},
                                             {"online", is_online}};
    return {.topic = topics_of(names_.site) + "bridges/" + names_.bridge,
            .bytes = document.dump() + "\n",
            .retained = true};
}

} // namespace vantor
