/** @file
 * Collects the frames of a board in batches.
 */
#include "bridge/batcher.h"

#include <cstdio>
#include <random>
#include <utility>

#include "configuration/optional_members.h"
#include "recording/utc_text.h"

namespace vantor
{
namespace
{

/** What a server has reported about itself, with the names of "identify". */
nlohmann::ordered_json to_json(const server_info &server)
{
    nlohmann::ordered_json document = {{"server_version", server.server_version},
                                       {"sensor", server.sensor},
                                       {"sensor_count", server.sensor_count},
                                       {"connected_sensors", server.connected_sensors},
                                       {"ticks_per_second", server.ticks_per_second}};
    if (server.board)
    {
        auto board = nlohmann::ordered_json::object();
        set_if_known(board, "name", server.board->name);
        set_if_known(board, "id", server.board->id);
        set_if_known(board, "reset_cause", server.board->reset_cause);
        set_if_known(board, "last_fault", server.board->last_fault);
        set_if_known(board, "sensors", server.board->sensors);
        document["board"] = std::move(board);
    }
    return document;
}

/** A text that no other session has: when it began, and a random number. */
std::string new_session_name(const event_loop &loop)
{
    std::random_device source;
    std::array<char, 9> number{};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): a number of fixed length
    (void)std::snprintf(number.data(), number.size(), "%08x", source());
    return utc_text(loop.utc(loop.now())) + "-" + number.data();
}

} // namespace

batcher::batcher(std::string site, std::string board, const server_info &server, const session_source &source,
                 batch_limits limits, const event_loop &loop, batch_handler done)
    : source_(source), limits_(limits), loop_(loop), done_(std::move(done)), server_(to_json(server))
{
    next_.site = std::move(site);
    next_.board = std::move(board);
    begin_session();
}

void batcher::check()
{
    if (next_.frames > 0 && loop_.now() - begun_ >= limits_.time)
    {
        complete();
    }
}

void batcher::begin(const segment &next)
{
    end(next.reason);
    missing_before_ += next_.missing;
    begin_session();
}

void batcher::add(const std::shared_ptr<const frame> &received)
{
    auto message = encode_frame(*received);
    if (next_.frames > 0 && messages_.size() + message.size() > limits_.bytes)
    {
        complete();
    }
    if (next_.frames == 0)
    {
        begun_ = loop_.now();
        next_.utc = received->items().empty() ? std::nullopt : received->items().front().utc;
    }
    ++next_.frames;
    next_.missing = received->missing() - missing_before_;
    messages_ += message;
    if (messages_.size() >= limits_.bytes)
    {
        complete();
    }
}

void batcher::end(const std::string &reason)
{
    next_.end = reason;
    complete();
    next_.end.reset();
}

/** Begins a session: its first batch describes it. */
void batcher::begin_session()
{
    next_.session = new_session_name(loop_);
    next_.number = 0;
    next_.first = 0;
    next_.missing = 0;
    described_ = {};
}

/** Passes the batch on, and begins the next one. */
void batcher::complete()
{
    const auto now = loop_.now();
    if (next_.number == 0 || now - described_ >= limits_.description)
    {
        described_ = now;
        next_.content =
            std::make_shared<const batch_session>(batch_session{.server = server_,
                                                                .configuration = source_.configuration(),
                                                                .metadata = source_.metadata().document});
    }
    done_(encode_batch(next_, messages_), next_.frames);
    messages_.clear();
    next_.content.reset();
    next_.utc.reset();
    next_.first += std::exchange(next_.frames, 0);
    ++next_.number;
}

} // namespace vantor
