/** @file
 * A NATS server with JetStream as the broker of a bridge.
 */
#include "bridge/nats_broker.h"

#include <algorithm>
#include <array>
#include <utility>

#include <nlohmann/json.hpp>

namespace vantor
{
namespace
{

/** How long the server may take to answer. */
constexpr std::chrono::seconds answer_time{5};

/** How long to wait at the end until everything is sent, in milliseconds. */
constexpr int64_t flush_time = 1000;

/** Room for the headers of a message. */
constexpr size_t header_room = 1024;

/** Longest answer of the server. */
constexpr size_t longest_answer = 4096;

/** How long to wait before connecting again. */
constexpr std::chrono::milliseconds retry_time{500};

/** How long the server recognises a batch that is published again. */
constexpr std::chrono::minutes recognition_time{10};

/** Why the server has not stored a message in a stream, from its answer; empty if it has. */
std::string fault_in(natsMsg *received, const std::string &stream)
{
    if (natsMsg_IsNoResponders(received))
    {
        return "the server has no JetStream, or lost the stream";
    }
    const auto size = static_cast<size_t>(natsMsg_GetDataLength(received));
    if (size > longest_answer)
    {
        return "the answer of the server is not valid";
    }
    const auto document =
        nlohmann::json::parse(std::string_view(natsMsg_GetData(received), size), nullptr, false);
    if (!document.is_object())
    {
        return "the answer of the server is not valid";
    }
    const auto failure = document.find("error");
    if (failure == document.end())
    {
        const bool valid = document.contains("seq") && document.value("stream", nlohmann::json()) == stream;
        return valid ? "" : "the answer of the server is not valid";
    }
    const auto reason = failure->is_object() ? failure->value("description", nlohmann::json()) : *failure;
    return "the server refused a batch: " +
           (reason.is_string() ? reason.get<std::string>() : "it gives no reason");
}

/** A subject for answers that no other program uses. */
std::string new_inbox()
{
    natsInbox *created = nullptr;
    require(natsInbox_Create(&created), "use the NATS library");
    std::string name(created);
    natsInbox_Destroy(created);
    return name + ".";
}

/** Time in the unit of the library. */
int64_t nanoseconds(std::chrono::nanoseconds time)
{
    return time.count();
}

} // namespace

nats_broker::nats_broker(broker_address where, const std::string &site, nats_storage storage,
                         const broker_security &security, event_loop &loop)
    : where_(std::move(where)), names_(site), storage_(storage), inbox_(new_inbox()), reports_(loop),
      dialer_(where_, security)
{
    sink_->owner = this;
    thread_ = std::thread([this] { work(); });
}

nats_broker::~nats_broker()
{
    {
        const std::scoped_lock lock(mutex_);
        stop_ = true;
    }
    changed_.notify_one();
    thread_.join();
    const std::scoped_lock lock(sink_->mutex);
    sink_->owner = nullptr;
}

bool nats_broker::ready() const
{
    const std::scoped_lock lock(mutex_);
    return ready_;
}

std::string nats_broker::fault() const
{
    return reports_.fault();
}

size_t nats_broker::largest() const
{
    const std::scoped_lock lock(mutex_);
    return largest_;
}

std::string nats_broker::limit_names() const
{
    return "max_payload";
}

void nats_broker::publish(outgoing_batch sent, std::function<void(bool stored)> done)
{
    add_job({.subject = names_.frames_of(sent.board),
             .bytes = std::move(sent.bytes),
             .id = std::move(sent.id),
             .token = reports_.expect(std::move(done))});
}

void nats_broker::publish_state(const std::string &board, std::string state)
{
    if (ready())
    {
        add_job({.subject = names_.state_of(board), .bytes = std::move(state), .id = "", .token = 0});
    }
}

void nats_broker::check()
{
    for (const auto token : reports_.give_up(answer_time))
    {
        reports_.note_refusal("the server did not answer in time");
        forget_job(token);
    }
}

/** Has the thread publish a message. */
void nats_broker::add_job(job added)
{
    {
        const std::scoped_lock lock(mutex_);
        jobs_.push_back(std::move(added));
    }
    changed_.notify_one();
}

/** The thread: connects, and publishes. */
void nats_broker::work()
{
    std::deque<job> taken;
    bool goes_on = true;
    while (goes_on)
    {
        goes_on = wait_for_work(taken);
        try
        {
            if (goes_on && !is_connected())
            {
                connect();
            }
            for (const auto &sent : std::exchange(taken, {}))
            {
                send(sent);
            }
        }
        catch (const broker_error &failure)
        {
            taken.clear();
            reports_.note_fault(failure.what());
            disconnect();
        }
    }
    if (link_)
    {
        // What was published last, such as the states at the end.
        natsConnection_FlushTimeout(link_.get(), flush_time);
    }
    disconnect();
}

/** Waits for messages, or until it is time to connect; false if the thread has to end. */
bool nats_broker::wait_for_work(std::deque<job> &taken)
{
    std::unique_lock lock(mutex_);
    if (!jobs_.empty() || !stop_)
    {
        const auto is_due = [this] { return stop_ || (ready_ && !jobs_.empty()); };
        changed_.wait_for(lock, retry_time, is_due);
    }
    taken = std::exchange(jobs_, {});
    return !stop_;
}

/** Whether the connection works, as far as it is known. */
bool nats_broker::is_connected() const
{
    return link_ != nullptr && natsConnection_Status(link_.get()) == NATS_CONN_STATUS_CONNECTED;
}

/** Connects, and creates the streams unless they exist. */
void nats_broker::connect()
{
    disconnect();
    link_ = dialer_.connect();
    subscribe();
    const auto streams = open_streams(*link_);
    create_stream(*streams, names_.frames_stream, names_.frames_of("*"), false);
    create_stream(*streams, names_.states_stream, names_.state_of("*"), true);
    const auto largest = static_cast<size_t>(natsConnection_GetMaxPayload(link_.get()));
    reports_.note_fault("");
    const std::scoped_lock lock(mutex_);
    ready_ = true;
    largest_ = largest - std::min(largest, header_room);
}

/** Subscribes to the answers to batches. */
void nats_broker::subscribe()
{
    auto closure = std::make_unique<std::shared_ptr<answer_sink>>(sink_);
    natsSubscription *subscription = nullptr;
    require(natsConnection_Subscribe(&subscription, link_.get(), (inbox_ + "*").c_str(), on_answer,
                                     closure.get()),
            "subscribe to answers");
    answers_subscription_.reset(subscription);
    const auto release = [](void *ended) {
        delete static_cast<std::shared_ptr<answer_sink> *>(ended);
    }; // NOLINT
    // Also if this fails, the library may use it.
    auto *used = closure.release();
    require(natsSubscription_SetOnCompleteCB(subscription, release, used), "subscribe to answers");
}

/** Creates a stream unless the server has one of this name, whose settings stay. */
void nats_broker::create_stream(jsCtx &streams, const std::string &name, const std::string &subject,
                                bool is_state)
{
    jsStreamInfo *info = nullptr;
    jsErrCode code{};
    if (js_GetStreamInfo(&info, &streams, name.c_str(), nullptr, &code) == NATS_OK)
    {
        jsStreamInfo_Destroy(info);
        return;
    }
    jsStreamConfig wanted{};
    require(jsStreamConfig_Init(&wanted), "use JetStream");
    std::array<const char *, 1> subjects{subject.c_str()};
    wanted.Name = name.c_str();
    wanted.Subjects = subjects.data();
    wanted.SubjectsLen = static_cast<int>(subjects.size());
    wanted.Storage = js_FileStorage;
    wanted.Replicas = storage_.replicas;
    if (is_state)
    {
        wanted.MaxMsgsPerSubject = 1;
    }
    else
    {
        wanted.MaxAge = nanoseconds(storage_.keep);
        wanted.MaxBytes = storage_.most_bytes > 0 ? static_cast<int64_t>(storage_.most_bytes) : -1;
        wanted.Duplicates = nanoseconds(recognition_time);
    }
    const auto status = js_AddStream(&info, &streams, &wanted, nullptr, &code);
    jsStreamInfo_Destroy(info);
    require(status, "create the stream " + name + " of JetStream (error " + std::to_string(code) + ")");
}

/** Closes the connection. Answers to what was published are not expected any more. */
void nats_broker::disconnect() noexcept
{
    {
        const std::scoped_lock lock(mutex_);
        ready_ = false;
    }
    link_.reset();
    answers_subscription_.reset();
}

/** Publishes a message. */
void nats_broker::send(const job &sent)
{
    const auto reply = sent.id.empty() ? std::string() : inbox_ + std::to_string(sent.token);
    natsMsg *created = nullptr;
    require(natsMsg_Create(&created, sent.subject.c_str(), reply.empty() ? nullptr : reply.c_str(),
                           sent.bytes.data(), static_cast<int>(sent.bytes.size())),
            "make a message");
    const nats_message message(created);
    if (!sent.id.empty())
    {
        require(natsMsgHeader_Set(created, "Nats-Msg-Id", sent.id.c_str()), "make a message");
    }
    require(natsConnection_PublishMsg(link_.get(), created), "publish to " + to_string(where_));
}

/** Takes an answer of the server, on a thread of the library. */
void nats_broker::on_answer(natsConnection * /*link*/, natsSubscription * /*subscription*/, natsMsg *received,
                            void *closure)
{
    const nats_message owned(received);
    const auto sink = *static_cast<std::shared_ptr<answer_sink> *>(closure);
    const std::scoped_lock lock(sink->mutex);
    if (sink->owner == nullptr)
    {
        return;
    }
    if (const auto token = number_behind(sink->owner->inbox_, natsMsg_GetSubject(received)))
    {
        sink->owner->take_answer(*token, fault_in(received, sink->owner->names_.frames_stream));
    }
}

/** Reports an answer to a batch. */
void nats_broker::take_answer(uint64_t token, const std::string &fault)
{
    if (!fault.empty())
    {
        reports_.note_refusal(fault);
    }
    reports_.answer(token, fault.empty());
}

/** Does not publish a batch any more that has not been published yet. */
void nats_broker::forget_job(uint64_t token)
{
    const std::scoped_lock lock(mutex_);
    std::erase_if(jobs_, [token](const job &one) { return one.token == token; });
}

} // namespace vantor
