/** @file
 * A board of a bridge.
 */
#include "bridge/bridge_board.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "vantor/errors.h"
#include "vantor/hub.h"
#include "vantor/session_source.h"

namespace vantor
{
namespace
{

/** How long to wait before connecting again: longer after each failure in a row. */
constexpr std::chrono::milliseconds shortest_pause{500};
constexpr std::chrono::milliseconds longest_pause{30000};

/** What a server reports about itself as the name of its board. */
std::string reported_name(const server_info &server)
{
    const auto board = server.board.value_or(board_info{});
    return to_batch_name(board.id.value_or(board.name.value_or("")));
}

} // namespace

bridge_board::bridge_board(bridged_board about, bridge_context &context)
    : about_(std::move(about)), context_(context), pause_(shortest_pause)
{
    state_.address = about_.address;
    state_.board = about_.name;
}

void bridge_board::run()
{
    while (!context_.stop())
    {
        try
        {
            measure();
        }
        catch (const cancelled &) // NOLINT(bugprone-empty-catch): the bridge ends
        {
        }
        catch (const std::exception &failure)
        {
            note_failure(failure.what());
        }
        if (!context_.stop())
        {
            wait();
        }
    }
}

void bridge_board::complete_batch()
{
    if (batcher_ != nullptr)
    {
        batcher_->check();
    }
}

board_state bridge_board::report(double elapsed)
{
    state_.rate = elapsed > 0.0 ? static_cast<double>(state_.frames - reported_frames_) / elapsed : 0.0;
    reported_frames_ = state_.frames;
    state_.waiting = context_.batches.waiting(state_.board);
    return state_;
}

/** Notes a frame for the state of the board. */
void bridge_board::add(const std::shared_ptr<const frame> &received)
{
    pause_ = shortest_pause;
    ++state_.frames;
    state_.lost = lost_before_ + received->missing();
    state_.calibration_needed = std::ranges::any_of(received->items(), &frame_item::calibration_needed);
    if (!received->items().empty())
    {
        state_.temperature = received->items().front().temperature;
    }
}

void bridge_board::begin(const segment & /*next*/)
{
    ++state_.sessions;
}

/** Connects, and measures until the session ends. */
void bridge_board::measure()
{
    client server(about_.open_links, {}, context_.loop);
    set_name(server.server());
    state_.server = server.server();
    stream(server);
}

/** Names the board when its server is known for the first time. */
void bridge_board::set_name(const server_info &server)
{
    if (!state_.board.empty())
    {
        return;
    }
    const auto name = reported_name(server);
    if (!context_.claim_name(name))
    {
        throw error("Another board of this bridge is called \"" + name +
                    "\". Give this one a name: --connect " + name + "-2=" + about_.address + ".");
    }
    state_.board = name;
}

/** Measures with a server until the session ends. */
void bridge_board::stream(client &server)
{
    session_source source(server, about_.configuration, {.recalibrate = context_.recalibrate},
                          *context_.loop);
    batcher batches(context_.site, state_.board, server.server(), source, context_.limits, *context_.loop,
                    [this](const std::string &bytes, uint64_t frames) { publish(bytes, frames); });
    hub frames(source, {this, &batches}, *context_.loop);
    batcher_ = &batches;
    state_.online = true;
    state_.fault.clear();
    ++state_.sessions;
    lost_before_ = state_.lost;
    context_.report(state_.board + ": measuring");
    std::string reason = "the bridge was stopped";
    std::exception_ptr failure;
    try
    {
        frames.run({.stop = context_.stop});
    }
    catch (const std::exception &lost)
    {
        reason = lost.what();
        failure = std::current_exception();
    }
    batcher_ = nullptr;
    state_.online = false;
    batches.end(reason);
    if (failure)
    {
        std::rethrow_exception(failure);
    }
}

/** Passes a batch on. */
void bridge_board::publish(const std::string &bytes, uint64_t frames)
{
    if (!context_.batches.add(state_.board, bytes))
    {
        state_.dropped += frames;
        if (batcher_ != nullptr)
        {
            batcher_->describe_again();
        }
        return;
    }
    context_.batches.run();
}

/** Notes why there is no session. */
void bridge_board::note_failure(const std::string &reason)
{
    const auto &name = state_.board.empty() ? state_.address : state_.board;
    if (state_.fault != reason)
    {
        context_.report(name + ": " + reason);
    }
    state_.fault = reason;
}

/** Waits before the next session. */
void bridge_board::wait()
{
    auto &loop = *context_.loop;
    loop.run_until([] { return false; }, loop.now() + pause_);
    pause_ = std::min(2 * pause_, longest_pause);
}

} // namespace vantor
