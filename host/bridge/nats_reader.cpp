/** @file
 * Reads the batches of a board from a NATS server.
 */
#include "bridge/nats_reader.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace vantor
{
namespace
{

using namespace std::chrono_literals;

/** Most bytes of batches that wait to be taken; a single one can be larger. */
constexpr size_t most_bytes = size_t{8} << 20U;

/** Bytes of memory that a batch needs beside its own. */
constexpr size_t batch_overhead = 256;

/** How long to wait for a message at a time, in milliseconds. */
constexpr int64_t wait_time = 200;

/** After how many of these waits to subscribe again: the server may have forgotten the subscription. */
constexpr int most_waits = 75;

/** How long to wait before connecting again. */
constexpr std::chrono::milliseconds reconnect_time{500};

/** Bridges describe a session again within this time. */
constexpr std::chrono::nanoseconds lead_time = 20s;

} // namespace

nats_reader::nats_reader(remote_board_address where, const broker_security &security, event_loop &loop,
                         std::function<void()> arrived)
    : where_(std::move(where)), names_(where_.site), loop_(loop), arrived_(std::move(arrived)),
      dialer_(where_.broker, security)
{
    thread_ = std::thread([this] { work(); });
}

nats_reader::~nats_reader()
{
    *alive_ = false;
    {
        const std::scoped_lock lock(mutex_);
        stop_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

std::optional<stored_batch> nats_reader::take()
{
    std::optional<stored_batch> taken;
    {
        const std::scoped_lock lock(mutex_);
        if (batches_.empty())
        {
            return std::nullopt;
        }
        taken = std::move(batches_.front());
        batches_.pop_front();
        bytes_ -= taken->bytes.size() + batch_overhead;
    }
    changed_.notify_one();
    return taken;
}

std::string nats_reader::fault() const
{
    const std::scoped_lock lock(mutex_);
    return fault_;
}

/** The thread: reads until it has to end. */
void nats_reader::work()
{
    while (!stopping())
    {
        try
        {
            read_stream();
        }
        catch (const broker_error &failure)
        {
            {
                const std::scoped_lock lock(mutex_);
                fault_ = failure.what();
            }
            wake();
        }
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, reconnect_time, [this] { return stop_; });
    }
}

/** Connects, and reads until the connection is lost or has been silent for long. */
void nats_reader::read_stream()
{
    nats_subscription subscription;
    nats_streams streams;
    const auto link = dialer_.connect();
    streams = open_streams(*link);
    const auto stream = state_of(*streams);
    if (begin_time_ == 0)
    {
        find_begin(*streams, stream);
        created_ = stream.created;
    }
    if (stream.last < last_read_ || stream.created != created_)
    {
        // The server has lost the stream that was read, or does not know its end yet.
        last_read_ = last_old_ = 0;
        begin_time_ = std::max(begin_time_, last_time_ - lead_time.count());
        created_ = stream.created;
    }
    subscription = subscribe(*streams);
    {
        const std::scoped_lock lock(mutex_);
        fault_.clear();
    }
    int waits = 0;
    while (!stopping() && waits < most_waits &&
           natsConnection_Status(link.get()) == NATS_CONN_STATUS_CONNECTED)
    {
        waits = read_next(*subscription) ? 0 : waits + 1;
    }
}

/** Finds out where to begin, and what was stored before. */
void nats_reader::find_begin(jsCtx &streams, const stream_state &stream)
{
    if (stream.messages == 0)
    {
        // Not asked for its last message: some servers cannot answer that.
        refuse_board();
    }
    natsMsg *found = nullptr;
    jsErrCode code{};
    const auto subject = names_.frames_of(where_.board);
    const auto status =
        js_GetLastMsg(&found, &streams, names_.frames_stream.c_str(), subject.c_str(), nullptr, &code);
    const nats_message last(found);
    if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr)
    {
        refuse_board();
    }
    require(status, "ask for the frames of board " + where_.board);
    if (where_.from)
    {
        begin_time_ = (where_.from->time_since_epoch() - lead_time).count();
        return;
    }
    begin_time_ = natsMsg_GetTime(found) - lead_time.count();
    last_old_ = natsMsg_GetSequence(found);
}

/** The state of the stream on the server; empty if the stream does not exist. */
nats_reader::stream_state nats_reader::state_of(jsCtx &streams) const
{
    jsStreamInfo *found = nullptr;
    jsErrCode code{};
    const auto status = js_GetStreamInfo(&found, &streams, names_.frames_stream.c_str(), nullptr, &code);
    const std::unique_ptr<jsStreamInfo, nats_deleter<jsStreamInfo_Destroy>> info(found);
    if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr)
    {
        return {};
    }
    require(status, "ask for the frames of board " + where_.board);
    return {.messages = info->State.Msgs, .last = info->State.LastSeq, .created = info->Created};
}

/** Throws broker_error, because the broker does not know the board. */
void nats_reader::refuse_board() const
{
    throw broker_error("There are no frames of board " + where_.board + " at site " + where_.site +
                       ". \"vantor fleet " + to_string(where_.broker) + "\" lists what there is.");
}

/** Subscribes to what was not read yet. */
nats_subscription nats_reader::subscribe(jsCtx &streams) const
{
    jsSubOptions wanted{};
    require(jsSubOptions_Init(&wanted), "use JetStream");
    wanted.Stream = names_.frames_stream.c_str();
    wanted.Ordered = true;
    if (last_read_ > 0)
    {
        wanted.Config.DeliverPolicy = js_DeliverByStartSequence;
        wanted.Config.OptStartSeq = last_read_ + 1;
    }
    else
    {
        wanted.Config.DeliverPolicy = js_DeliverByStartTime;
        wanted.Config.OptStartTime = std::max<int64_t>(1, begin_time_);
    }
    natsSubscription *created = nullptr;
    jsErrCode code{};
    require(
        js_SubscribeSync(&created, &streams, names_.frames_of(where_.board).c_str(), nullptr, &wanted, &code),
        "read the frames of board " + where_.board);
    return nats_subscription(created);
}

/** Reads the next message; false if none has arrived in time. */
bool nats_reader::read_next(natsSubscription &subscription)
{
    natsMsg *received = nullptr;
    const auto status = natsSubscription_NextMsg(&received, &subscription, wait_time);
    if (status == NATS_TIMEOUT)
    {
        return false;
    }
    require(status, "read the frames of board " + where_.board);
    const nats_message owned(received);
    add(*received);
    return true;
}

/** Adds a message to the batches that wait, when there is room. */
void nats_reader::add(natsMsg &received)
{
    jsMsgMetaData *found = nullptr;
    require(natsMsg_GetMetaData(&found, &received), "read the frames of board " + where_.board);
    const std::unique_ptr<jsMsgMetaData, nats_deleter<jsMsgMetaData_Destroy>> about(found);
    const auto sequence = about->Sequence.Stream;
    if (sequence <= last_read_)
    {
        return;
    }
    stored_batch added{
        .bytes = {natsMsg_GetData(&received), static_cast<size_t>(natsMsg_GetDataLength(&received))},
        .is_old = sequence <= last_old_,
        .utc_s = static_cast<double>(about->Timestamp) / std::nano::den};
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return stop_ || bytes_ < most_bytes; });
        bytes_ += added.bytes.size() + batch_overhead;
        batches_.push_back(std::move(added));
    }
    last_read_ = sequence;
    last_time_ = about->Timestamp;
    wake();
}

/** Tells the loop that something has happened. */
void nats_reader::wake()
{
    loop_.post([this, alive = alive_] {
        if (*alive)
        {
            arrived_();
        }
    });
}

/** Whether the thread has to end. */
bool nats_reader::stopping() const
{
    const std::scoped_lock lock(mutex_);
    return stop_;
}

} // namespace vantor
