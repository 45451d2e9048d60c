/** @file
 * A board behind a message broker.
 */
#include "bridge/remote_board.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "vantor/client.h"

namespace vantor
{
namespace
{

/** How long to wait for the description of a session: bridges repeat it within this time. */
constexpr std::chrono::seconds description_time{12};

/** Most sessions whose descriptions are kept. */
constexpr size_t most_known = 16;

/** How long to wait for a single frame. */
constexpr std::chrono::seconds frame_time{10};

/** A message with a member in front: the number of frames that were lost before it. */
std::string with_missing(std::string_view message, uint64_t missing)
{
    if (missing == 0)
    {
        return std::string(message);
    }
    const auto counted = std::min<uint64_t>(missing, std::numeric_limits<uint32_t>::max());
    return "{\"missing\":" + std::to_string(counted) + "," + std::string(message.substr(1));
}

} // namespace

remote_board::remote_board(remote_board_address where, const broker_security &security, event_loop &loop,
                           reporter report)
    : where_(std::move(where)), report_(std::move(report)), loop_(loop),
      reader_(where_, security, loop, [] {})
{
    const auto is_known = [this] {
        fill();
        return described_ != nullptr || !reader_.fault().empty();
    };
    loop.run_until(is_known, loop.now() + description_time);
    loop.check_cancelled();
    if (!described_)
    {
        const auto fault = reader_.fault();
        throw broker_error(fault.empty() ? "Board " + where_.board + " at site " + where_.site +
                                               " has sent nothing that describes its session."
                                         : fault);
    }
    begin();
}

nlohmann::ordered_json remote_board::identity() const
{
    nlohmann::ordered_json about;
    // Not others, which would change what the server says about itself.
    for (const auto *name :
         {"server_version", "sensor", "sensor_count", "connected_sensors", "ticks_per_second", "board"})
    {
        if (const auto found = session_->server.find(name); found != session_->server.end())
        {
            about[name] = *found;
        }
    }
    if (auto &version = about["server_version"]; version.is_string())
    {
        version = version.get<std::string>() + " (bridge)";
    }
    about["protocol_version"] = protocol_version;
    return about;
}

const nlohmann::json &remote_board::configuration() const
{
    return session_->configuration;
}

const nlohmann::json &remote_board::metadata() const
{
    return session_->metadata;
}

void remote_board::begin()
{
    fill();
    if (ready_.empty() && !described_)
    {
        // Another session has begun that nothing describes yet.
        return;
    }
    session_ = ready_.empty() ? described_ : ready_.front().session;
    session_name_ = ready_.empty() ? described_name_ : ready_.front().session_name;
}

void remote_board::start()
{
    // Frames are due when they arrive.
}

std::optional<std::string> remote_board::take_due()
{
    if (has_ended() || ready_.empty())
    {
        return std::nullopt;
    }
    return ready_.take();
}

void remote_board::note_sent(uint64_t end)
{
    ready_.note_sent(end);
}

void remote_board::put_back_unread(uint64_t read)
{
    ready_.put_back_unread(read);
}

std::optional<std::string> remote_board::take_next()
{
    const auto is_there = [this] {
        fill();
        return !ready_.empty();
    };
    loop_.run_until(is_there, loop_.now() + frame_time);
    loop_.check_cancelled();
    return take_due();
}

event_loop::time_point::duration remote_board::time_until_due()
{
    // A host is asked for commands meanwhile.
    constexpr std::chrono::milliseconds patience{10};
    return ready_.empty() ? patience : std::chrono::milliseconds(0);
}

bool remote_board::has_ended()
{
    fill();
    const auto &arrived = ready_.empty() ? described_name_ : ready_.front().session_name;
    return arrived != session_name_;
}

/** Reads what has arrived, until there are frames to take. */
void remote_board::fill()
{
    if (auto fault = reader_.fault(); session_ && fault != fault_)
    {
        report_("broker: " + (fault.empty() ? "connected again" : fault));
        fault_ = std::move(fault);
    }
    while (ready_.empty())
    {
        auto stored = reader_.take();
        if (!stored)
        {
            return;
        }
        try
        {
            add(*stored);
        }
        catch (const bad_batch &fault)
        {
            report_("A batch of board " + where_.board + " is damaged: " + fault.what());
        }
    }
}

/** Adds a batch to those that can be taken, if it is wanted. */
void remote_board::add(const stored_batch &stored)
{
    const auto content = decode_batch(stored.bytes);
    const auto &header = content.header;
    const auto found = order_.add(header);
    if (found.repeated)
    {
        return;
    }
    describe(header, found.begins);
    if (session_ && !described_)
    {
        lost_ += found.lost_frames + header.frames;
        report_("Board " + where_.board + ": " + std::to_string(header.frames) +
                " frames cannot be used, because the description of their session is missing.");
        return;
    }
    if (!described_ || !is_wanted(header, stored))
    {
        return;
    }
    note_loss(found);
    for (const auto message : content.messages)
    {
        ready_.push({.message = with_missing(message, header.missing + lost_),
                     .session_name = header.session,
                     .session = described_});
    }
}

/** Keeps what describes the session. @param begins  whether it is another one than before */
void remote_board::describe(const batch_header &header, bool begins)
{
    if (begins)
    {
        const auto known = known_.find(header.session);
        described_ = known == known_.end() ? nullptr : known->second;
        described_name_ = described_ ? header.session : described_name_;
        lost_ = 0;
    }
    if (header.content)
    {
        described_ = header.content;
        described_name_ = header.session;
        if (known_.size() >= most_known)
        {
            known_.clear();
        }
        known_[header.session] = header.content;
    }
}

/** Whether the frames of a batch were asked for. */
bool remote_board::is_wanted(const batch_header &header, const stored_batch &stored) const
{
    if (!where_.from)
    {
        return !stored.is_old;
    }
    const std::chrono::duration<double> from = where_.from->time_since_epoch();
    const double moment = header.utc
                              ? std::chrono::duration<double>(header.utc->moment.time_since_epoch()).count()
                              : stored.utc_s;
    return moment >= from.count();
}

/** Counts and reports the frames that were lost between bridge and here. */
void remote_board::note_loss(const batch_order::verdict &found)
{
    lost_ += found.lost_frames;
    if (found.goes_on)
    {
        report_("Board " + where_.board +
                ": two of its sessions arrive at the same time. Do two bridges pass it on?");
    }
    if (found.unfinished)
    {
        report_("Board " + where_.board + ": the end of its last session is missing, perhaps with frames.");
    }
    if (found.lost_batches > 0)
    {
        report_("Board " + where_.board + ": " + std::to_string(found.lost_batches) + " batches with " +
                std::to_string(found.lost_frames) + " frames are missing.");
    }
}

} // namespace vantor
