/** @file
 * The live view of a server.
 */
#include "view/live_view.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "hub/keep_frames.h"
#include "recording/dated_directory.h"
#include "recording/number_text.h"
#include "vantor/calibration_file.h"
#include "vantor/configuration.h"
#include "vantor/configuration_check.h"
#include "vantor/errors.h"
#include "vantor/hub.h"
#include "vantor/recording_error.h"
#include "view/recording_name.h"
#include "view/view_messages.h"

namespace vantor
{
namespace
{

/** How much viewers can keep: the last minute. */
constexpr double longest_kept = 60.0;
constexpr double shortest_kept = 0.1;
constexpr size_t most_kept_bytes = 256U << 20U;

/** Time between two attempts to begin a session. */
constexpr std::chrono::seconds retry_interval{1};

/** Time between two requests for the statistics of the server, which slower streams would delay. */
constexpr std::chrono::seconds statistics_interval{5};
constexpr double slowest_rate_with_statistics = 1.0;

/** The longest reason that viewers receive with each state, in bytes: a server can send any text. */
constexpr size_t longest_reason = 2500;

/** The name of a server. */
std::string name_of(const server_info &server)
{
    const auto board = server.board ? server.board->name : std::nullopt;
    return board.value_or(server.sensor + " server");
}

/** What viewers of a server receive first. */
nlohmann::ordered_json greeting_of(const server_info &server, const std::string &address)
{
    auto hello = hello_message(view_kind::server, name_of(server), address);
    if (server.board && server.board->id)
    {
        hello["id"] = *server.board->id;
    }
    return hello;
}

/** The level of a line of the server's log, as viewers know it. */
std::string view_level(const std::string &level)
{
    std::string lower;
    std::transform(level.begin(), level.end(), std::back_inserter(lower),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower == "error" || lower == "warning" || lower == "info" ? lower : "verbose";
}

} // namespace

/** A session, and what is known of its stream. */
struct live_view::live_session
{
    live_session(client &server, const nlohmann::json &configuration, event_loop &loop, truth_file *truth)
        : source(server, configuration, {.recalibrate = false, .reconnect = true}, loop, truth),
          watch(sensors_of(configuration), loop)
    {
    }

    session_source source;
    stream_watch watch;
};

live_view::live_view(client &server, live_view_settings settings, viewers &all, event_loop &loop)
    : server_(server), settings_(std::move(settings)), viewers_(all), loop_(loop), rules_(rules()),
      tasks_(loop), recorder_(tasks_, loop), ring_(longest_kept, most_kept_bytes, loop),
      configuration_(settings_.configuration), next_statistics_(loop.now())
{
    viewers_.set_greeting(greeting_of(server_.server(), settings_.address));
    viewers_.set_state([this] { return state(); });
}

live_view::~live_view()
{
    viewers_.set_state({});
    tasks_.finish();
}

void live_view::run(const std::function<bool()> &stop)
try
{
    stop_ = stop;
    forward_log();
    begin_session(configuration_);
    if (!settings_.record.empty())
    {
        start_recording(settings_.record);
    }
    while (!stop_())
    {
        if (session_)
        {
            show_frames();
        }
        if (!session_)
        {
            wait_before_retry();
        }
        if (!stop_() && (!session_ || change_))
        {
            begin_next_session();
        }
    }
    end_recording([this](const recording_outcome &outcome) { note_outcome(outcome); });
    tasks_.finish();
}
catch (const cancelled &)
{
    end_recording([this](const recording_outcome &outcome) { note_outcome(outcome); });
    tasks_.finish();
}

/** What viewers can ask for. */
request_rules live_view::rules()
{
    const auto rule = [this](void (live_view::*execute)(const viewer_request &)) {
        return request_rule{.needs_control = true, .execute = [this, execute](const viewer_request &request) {
                                (this->*execute)(request);
                            }};
    };
    request_rules all{
        {"check", rule(&live_view::check)},   {"apply", rule(&live_view::apply)},
        {"record", rule(&live_view::record)}, {"stop_recording", rule(&live_view::stop_recording)},
        {"keep", rule(&live_view::keep)},     {"calibrate", rule(&live_view::calibrate)}};
    all["check"].needs_control = false;
    return all;
}

/** Checks a configuration, and derives its figures. */
void live_view::check(const viewer_request &request)
{
    const auto session = session_ ? std::optional(description()) : std::nullopt;
    viewers_.send(request.viewer, checked_message(request.document, session ? &*session : nullptr));
}

/** Begins another session after the present frame, unless its configuration has a fault. */
void live_view::apply(const viewer_request &request)
{
    const auto &configuration = object_in(request.document, "configuration");
    const auto faults = find_faults(configuration);
    if (faults.count() > 0)
    {
        auto refusal = failed_message("apply", "The configuration has faults: correct them first.");
        refusal["faults"] = view_faults(faults);
        viewers_.send(request.viewer, refusal);
        return;
    }
    if (list_items(configuration).empty())
    {
        throw request_error("The configuration has no items, so there is nothing to measure: add one.");
    }
    if (change_)
    {
        throw request_error("Another configuration is being applied: wait until it is.");
    }
    change_ = {.viewer = request.viewer, .configuration = configuration};
}

/** Begins a recording. */
void live_view::record(const viewer_request &request)
{
    if (recorder_.active())
    {
        throw request_error("A recording is going on: stop it first.");
    }
    require_session();
    const auto name = text_in(request.document, "name");
    const auto directory = name.empty() ? dated_directory(settings_.name) : named_recording(name);
    start_recording(directory);
    viewers_.send(request.viewer, done_message("record", "Recording to " + directory.string() + "."));
}

/** Ends the recording. */
void live_view::stop_recording(const viewer_request & /*request*/)
{
    if (!recorder_.active())
    {
        throw request_error("There is no recording to stop.");
    }
    end_recording([this](const recording_outcome &outcome) {
        viewers_.broadcast(done_message("stop_recording", outcome.text()));
    });
}

/** Writes the last frames to a recording, on a separate thread. */
void live_view::keep(const viewer_request &request)
{
    const double seconds = number_in(request.document, "seconds", shortest_kept, longest_kept);
    if (keeping_)
    {
        throw request_error("The last frames are still being written: wait until they are.");
    }
    require_session();
    const auto directory = dated_directory(settings_.name + "-kept");
    tasks_.start([this, viewer = request.viewer, directory, frames = ring_.last(seconds),
                  described = description()]() -> background_tasks::completion {
        nlohmann::ordered_json answer;
        try
        {
            const auto kept = keep_frames(frames, described, directory);
            answer =
                done_message("keep", "Kept " + counted(kept.frames, "frame") + " in " + directory.string() +
                                         ", " + std::to_string(kept.missing) + " missing.");
        }
        catch (const error &reason)
        {
            answer = failed_message("keep", reason.what());
        }
        return [this, viewer, answer] {
            keeping_ = false;
            viewers_.send(viewer, answer);
        };
    });
    keeping_ = true;
}

/** Calibrates the sensors again after the present frame. */
void live_view::calibrate(const viewer_request &request)
{
    require_session();
    session_->source.request_calibration();
    viewers_.send(request.viewer, done_message("calibrate", "The sensors are calibrated again."));
}

/** Shows frames until the session ends, another one has to begin, or the link is lost for good. */
void live_view::show_frames()
{
    hub stream(session_->source, {&session_->watch, &ring_, &recorder_, &viewers_}, loop_);
    try
    {
        stream.run({.stop = [this] {
            serve();
            return change_ || stop_();
        }});
    }
    catch (const server_error &failure)
    {
        lose(failure.what());
    }
    catch (const error &failure)
    {
        link_lost_ = true;
        lose(failure.what());
    }
}

/** Executes what viewers have asked for, and asks the server for its statistics. */
void live_view::serve()
{
    serve_viewers(viewers_, rules_, loop_);
    if (session_ && loop_.now() >= next_statistics_)
    {
        ask_for_statistics();
    }
}

/** Begins a session: the one that a viewer has chosen, or else again like the last one. */
void live_view::begin_next_session()
{
    const auto change = std::exchange(change_, std::nullopt);
    const std::string ended = change && recorder_.active() ? " The recording has ended." : "";
    if (change)
    {
        end_recording([this](const recording_outcome &outcome) { note_outcome(outcome); });
    }
    if (session_)
    {
        calibrations_ = session_->source.metadata().calibrations;
        session_.reset();
    }
    try
    {
        if (std::exchange(link_lost_, false))
        {
            server_.reconnect();
            forward_log();
        }
        begin_session(change ? change->configuration : configuration_);
        if (change)
        {
            viewers_.send(change->viewer, done_message("apply", "A new session has begun." + ended));
        }
    }
    catch (const error &failure)
    {
        link_lost_ = dynamic_cast<const server_error *>(&failure) == nullptr;
        reason_ = std::string(failure.what()).substr(0, longest_reason);
        if (change)
        {
            viewers_.send(change->viewer, failed_message("apply", failure.what() + ended));
        }
    }
}

/** Begins a session with the calibrations of the last one, and announces it. */
void live_view::begin_session(const nlohmann::json &configuration)
{
    auto document = configuration;
    add_calibrations(document, calibrations_);
    session_ = std::make_unique<live_session>(server_, document, loop_, settings_.truth);
    configuration_ = configuration;
    configuration_.erase("calibration_info");
    reason_.clear();
    ring_.clear();
    viewers_.begin_session(session_message(++session_number_, description()));
}

/** Notes that the session has ended by itself. */
void live_view::lose(const std::string &reason)
{
    reason_ = reason.substr(0, longest_reason);
    viewers_.send_log("error", reason);
    calibrations_ = session_->source.metadata().calibrations;
    end_recording([this](const recording_outcome &outcome) { note_outcome(outcome); });
    session_.reset();
}

/** Waits until a session can be tried again, or a viewer asks for something. */
void live_view::wait_before_retry()
{
    const auto again = loop_.now() + retry_interval;
    while (!change_ && loop_.run_until([this] { return viewers_.has_request(); }, again))
    {
        serve_viewers(viewers_, rules_, loop_);
    }
    loop_.check_cancelled();
}

/** Begins a recording of the present session. */
void live_view::start_recording(const std::filesystem::path &directory)
{
    const bool first = session_->watch.frames() == 0;
    recorder_.start(directory, description(),
                    first ? recording_start::with_stream : recording_start::within_stream);
}

/** Ends the recording, if there is one. */
void live_view::end_recording(std::function<void(const recording_outcome &)> done)
{
    recorder_.stop([this, done = std::move(done)](const recording_outcome &outcome) {
        if (!outcome.failure.empty())
        {
            failed_recordings_.push_back(outcome);
        }
        if (outcome.directory == settings_.record)
        {
            first_recording_ = outcome.streams;
        }
        done(outcome);
    });
}

/** Reports the result of a recording to all viewers if it ended without their request. */
void live_view::note_outcome(const recording_outcome &outcome)
{
    viewers_.broadcast(done_message("stop_recording", outcome.text()));
    viewers_.send_log(outcome.failure.empty() ? "info" : "error", outcome.text());
}

/** Asks the server for its statistics, unless that would delay a slow stream. */
void live_view::ask_for_statistics()
{
    next_statistics_ = loop_.now() + statistics_interval;
    const double rate = session_->source.nominal_rate();
    if (rate == 0.0 || rate >= slowest_rate_with_statistics)
    {
        if (const auto statistics = session_->source.stats())
        {
            statistics_ = *statistics;
        }
    }
}

/** Has the server send its log, for the viewers. */
void live_view::forward_log()
{
    server_.forward_log(
        "INFO", [this](const log_line &line) { viewers_.send_log(view_level(line.level), line.text); });
}

/** Throws request_error if there is no session. */
void live_view::require_session() const
{
    if (!session_)
    {
        throw request_error("There is no session: the connection to the server is lost.");
    }
}

/** The description of the present session. */
session_description live_view::description() const
{
    return {.configuration = configuration_,
            .metadata = session_->source.metadata(),
            .server = server_.server(),
            .source = settings_.source,
            .truth = session_->source.scene()};
}

/** The state that viewers receive. */
nlohmann::ordered_json live_view::state() const
{
    const bool lost = session_ ? session_->source.lost() : !reason_.empty();
    nlohmann::ordered_json all{
        {"type", "state"},
        {"connection", lost ? "lost" : "connected"},
        {"reason", reason_.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(reason_)},
        {"rate_due", session_ ? session_->source.nominal_rate() : 0.0},
        {"recorder", recorder_.state()},
        {"memory", usage_in(statistics_, "memory", {"live", "peak", "size"})},
        {"stack", usage_in(statistics_, "stack", {"peak", "size"})},
        {"position", nullptr}};
    const stream_watch nothing({}, loop_);
    (session_ ? session_->watch : nothing).add_to(all);
    return all;
}

} // namespace vantor
