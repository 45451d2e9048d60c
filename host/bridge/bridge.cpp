/** @file
 * Passes the frames of many boards to a message broker.
 */
#include "bridge/bridge.h"

#include <utility>

namespace vantor
{
namespace
{

/** How often batches are completed and published. */
constexpr std::chrono::milliseconds work_interval{20};

/** Waits until it is time for work again. */
void wait_for_work(event_loop &loop)
try
{
    loop.run_until([] { return false; }, loop.now() + work_interval);
    loop.check_cancelled();
}
catch (const cancelled &) // NOLINT(bugprone-empty-catch): the boards end, and then the work
{
}

} // namespace

bridge::bridge(bridge_settings settings, std::vector<bridged_board> boards, spool &store, broker &target,
               std::shared_ptr<event_loop> loop)
    : settings_(std::move(settings)), spool_(store), broker_(target), loop_(std::move(loop)),
      publisher_(store, target, *loop_, settings_.site),
      context_{.site = settings_.site,
               .limits = settings_.limits,
               .recalibrate = settings_.recalibrate,
               .batches = publisher_,
               .loop = loop_,
               .report = [this](const std::string &line) { calls_.line(line); },
               .claim_name = [this](const std::string &name) { return names_.insert(name).second; },
               .stop = [this] { return calls_.stop(); }}
{
    for (auto &board : boards)
    {
        if (!board.name.empty())
        {
            names_.insert(board.name);
        }
        boards_.emplace_back(std::move(board), context_);
    }
}

void bridge::run(const handlers &calls)
{
    calls_ = calls;
    reported_ = loop_->now();
    running_ = boards_.size();
    for (auto &board : boards_)
    {
        loop_->spawn([this, &board] {
            board.run();
            --running_;
        });
    }
    loop_->spawn([this] { work(); });
    for (const auto &failure : loop_->run_tasks())
    {
        if (failure)
        {
            std::rethrow_exception(failure);
        }
    }
}

bridge_report bridge::report() const
{
    auto now = report_;
    now.published = publisher_.counted();
    now.waiting = publisher_.waiting();
    now.spool_used = spool_.used();
    now.spool_size = spool_.size();
    now.broker_ready = broker_.ready();
    return now;
}

/** Completes and publishes batches, and reports, until the boards have ended. */
void bridge::work()
{
    while (running_ > 0)
    {
        for (auto &board : boards_)
        {
            board.complete_batch();
        }
        publisher_.run();
        watch_broker();
        watch_losses();
        if (loop_->now() - reported_ >= settings_.interval)
        {
            publish_states();
        }
        wait_for_work(*loop_);
    }
    drain();
}

/** Waits until the broker has everything, or for too long. */
void bridge::drain()
{
    publish_states();
    const auto deadline = loop_->now() + settings_.patience;
    while (publisher_.waiting() > 0 && loop_->now() < deadline)
    {
        publisher_.run();
        wait_for_work(*loop_);
    }
    publish_states();
}

/** Tells the user when the broker goes away and comes back. */
void bridge::watch_broker()
{
    auto fault = broker_.fault();
    if (fault != fault_)
    {
        calls_.line("broker: " + (fault.empty() ? "connected" : fault));
        fault_ = std::move(fault);
    }
}

/** Reports each reason for lost batches once. */
void bridge::watch_losses()
{
    const auto &now = publisher_.counted();
    if (now.refused > 0 && told_.refused == 0)
    {
        calls_.line("spool: frames are dropped, because the spool is full");
    }
    if (now.unwritten > 0 && told_.unwritten == 0)
    {
        calls_.line("spool: frames are dropped, because the spool cannot be written");
    }
    if (now.too_large > 0 && told_.too_large == 0)
    {
        calls_.line("broker: it does not take batches of more than " + std::to_string(broker_.largest()) +
                    " bytes, so that large frames are lost: raise its " + broker_.limit_names() +
                    ", or measure smaller frames");
    }
    told_ = now;
}

/** Reports the states of all boards. */
void bridge::publish_states()
{
    const auto now = loop_->now();
    const double elapsed = std::chrono::duration<double>(now - std::exchange(reported_, now)).count();
    report_.boards.clear();
    for (auto &board : boards_)
    {
        report_.boards.push_back(board.report(elapsed));
        const auto &state = report_.boards.back();
        if (!state.board.empty())
        {
            broker_.publish_state(state.board, encode_state(state, {.site = settings_.site,
                                                                    .bridge = settings_.name,
                                                                    .now = loop_->utc(now),
                                                                    .interval = settings_.interval}));
        }
    }
    calls_.report(report());
}

} // namespace vantor
