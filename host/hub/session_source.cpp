/** @file
 * A server's session as a source of frames.
 */
#include "vantor/session_source.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "hub/clock_watch.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Maximum time without a frame, in seconds. */
constexpr double longest_silence = 10.0;

/** Maximum time without a frame at low frame rates: this many frame periods, and some seconds more. */
constexpr double longest_gap = 3.0;
constexpr double answer_time = 5.0;

/** How long a program that was asked to stop waits for the end of the stream. */
constexpr std::chrono::milliseconds time_to_stop{500};

/** A duration in seconds. */
double seconds_of(std::chrono::steady_clock::duration span)
{
    return std::chrono::duration<double>(span).count();
}

/** Frames that can arrive before an answer: more than can be on the way. */
constexpr size_t most_measured = 1U << 15U;
constexpr uint64_t most_measured_bytes = 64U << 20U;

/** Whether two items measure at the same distances and in the same order. */
bool is_same_layout(const item_layout &one, const item_layout &other)
{
    const auto is_same_place = [](const subsweep_layout &left, const subsweep_layout &right) {
        return left.offset == right.offset && left.length == right.length;
    };
    return one.frame_length == other.frame_length && one.sweep_length == other.sweep_length &&
           one.base_step_length_m == other.base_step_length_m &&
           std::ranges::equal(one.subsweeps, other.subsweeps, is_same_place);
}

/** Whether two servers may be the same board. */
bool is_same_board(const std::optional<board_info> &one, const std::optional<board_info> &other)
{
    const auto nothing = board_info{};
    const auto &left = one.value_or(nothing);
    const auto &right = other.value_or(nothing);
    return left.name == right.name && left.id == right.id;
}

/** Whether an item of a frame asks for a new calibration. */
bool asks_for_calibration(const frame &received)
{
    return std::any_of(received.items().begin(), received.items().end(),
                       [](const frame_item &item) { return item.calibration_needed; });
}

/** The tick of the first item; 0 if there is none. */
uint32_t tick_of(const frame &received)
{
    return received.items().empty() ? 0 : received.items().front().tick;
}

/** The temperatures at which the sensors of all items were calibrated. */
std::vector<int> calibration_temperatures(const session_metadata &metadata)
{
    std::vector<int> temperatures;
    for (const auto &item : metadata.items)
    {
        temperatures.push_back(item.calibration_temperature);
    }
    return temperatures;
}

} // namespace

session_source::session_source(client &server, nlohmann::json configuration, session_policy policy,
                               event_loop &loop, truth_file *truth)
    : server_(server), configuration_(std::move(configuration)), policy_(policy), loop_(loop),
      clock_watch_(std::make_unique<clock_watch>(server, loop)), truth_(truth),
      sensor_(server.server().sensor), board_(server.server().board),
      ticks_per_second_(server.server().ticks_per_second)
{
    configure();
    if (truth_ != nullptr)
    {
        scene_ = begin_truth();
    }
}

session_source::~session_source() = default;

void session_source::start()
{
    begin_stream();
    last_frame_ = loop_.now();
    silence_ = {};
}

std::optional<frame> session_source::receive(std::chrono::milliseconds timeout)
try
{
    if (calibration_due_ && !stopped_ && !lost_)
    {
        stop_for_calibration();
    }
    if (!measured_.empty())
    {
        return take_measured();
    }
    if (lost_)
    {
        connect_again(timeout);
        return std::nullopt;
    }
    if (stopped_)
    {
        calibrate_again();
    }
    return wait_for_frame(timeout);
}
catch (const connection_lost &)
{
    return note_lost_link();
}
catch (const timeout_error &)
{
    return note_lost_link();
}

std::optional<nlohmann::json> session_source::stats()
try
{
    if (lost_)
    {
        return std::nullopt;
    }
    return ask(
        [this] { return server_.stats([this](frame &&received) { keep_measured(std::move(received)); }); });
}
catch (const connection_lost &)
{
    return note_lost_link();
}
catch (const timeout_error &)
{
    return note_lost_link();
}

void session_source::end()
{
    if (lost_)
    {
        throw connection_lost("The link was lost, and could not be connected again before the end.");
    }
    finish_stream({});
    server_.end();
}

/** Stops the stream unless that has been done, and counts the frames that are dropped. */
void session_source::finish_stream(std::optional<std::chrono::milliseconds> timeout)
{
    if (!stopped_)
    {
        stop(timeout);
    }
    due_at_end_ += measured_.size();
}

/** Stops the stream, and counts the frames that were due since the last one that was received. */
void session_source::stop(std::optional<std::chrono::milliseconds> timeout)
{
    const uint64_t known = missing_ - earlier_missing_;
    uint64_t missing = known;
    uint64_t arrived = 0;
    const auto count_late = [&](const frame &late) {
        missing = late.missing();
        ++arrived;
    };
    const uint64_t left_out = server_.stop(count_late, timeout);
    due_at_end_ += arrived + std::max(missing, left_out) - known;
}

void session_source::end_promptly()
{
    if (lost_)
    {
        return;
    }
    try
    {
        finish_stream(time_to_stop);
    }
    catch (const error &)
    {
        end_known_ = false;
    }
    catch (const cancelled &)
    {
        end_known_ = false;
    }
    server_.end_promptly();
}

/** Sets up the session. */
void session_source::configure()
{
    if (truth_ != nullptr)
    {
        truth_->expect_session();
    }
    try
    {
        metadata_ = server_.configure(configuration_);
    }
    catch (const cancelled &)
    {
        server_.end_promptly();
        throw;
    }
    rate_ = nominal_frame_rate(configuration_, *metadata_, server_.server());
}

/** Starts the stream, and asks for the clock before. */
void session_source::begin_stream()
{
    const bool sensors_pace = rate_ > 0.0 && metadata_->tick_period == 0;
    constexpr double longest_period = 3600.0;
    const std::chrono::duration<double> period(sensors_pace ? std::min(1.0 / rate_, longest_period) : 0.0);
    clock_watch_->begin(std::chrono::duration_cast<clock::duration>(period));
    server_.start();
}

unsigned session_source::clock_contradictions() const noexcept
{
    return clock_watch_->contradictions();
}

double session_source::refused_rate() const noexcept
{
    constexpr double tolerance = 0.01;
    const double requested = paced_frame_rate(configuration_);
    const double period = metadata_->tick_period;
    if (period <= 0.0 || requested <= 0.0)
    {
        return 0.0;
    }
    // Periods are whole ticks.
    const double expected = ticks_per_second_ / requested;
    return std::abs(period - expected) > std::max(1.0, tolerance * expected) ? requested : 0.0;
}

/** In a handler: has the next call connect again, or throws what was caught. */
std::nullopt_t session_source::note_lost_link()
{
    if (!policy_.reconnect)
    {
        throw;
    }
    lost_ = true;
    return std::nullopt;
}

/** In a handler: counts a damaged message, or throws it if nothing else has arrived for too long. */
void session_source::note_damage(const bad_message &fault, clock::duration span)
{
    if (silent_for(span))
    {
        throw;
    }
    damage_ = fault.what();
    ++damaged_messages_;
    clock_watch_->note_damage();
}

/** Sends a request to the server, and waits for its answer also after damaged messages. */
template <typename request_t> std::invoke_result_t<request_t> session_source::ask(request_t request)
{
    const auto before = loop_.now();
    while (true)
    {
        try
        {
            return request();
        }
        catch (const bad_message &fault)
        {
            note_damage(fault, loop_.now() - before);
        }
    }
}

/** Stops the stream; frames that have been measured are still received. */
void session_source::stop_for_calibration()
{
    ask([this] { return server_.stop([this](frame &&received) { keep_measured(std::move(received)); }); });
    stopped_ = true;
}

/** Keeps a frame that has arrived instead of an answer. A server that sends only frames has failed. */
void session_source::keep_measured(frame &&received)
{
    measured_bytes_ += received.samples().size_bytes();
    measured_.push_back(std::move(received));
    if (measured_.size() > most_measured || measured_bytes_ > most_measured_bytes)
    {
        throw timeout_error("The server has sent " + std::to_string(measured_.size()) +
                            " frames instead of an answer.");
    }
}

/** Returns the first frame that arrived before an answer. */
frame session_source::take_measured()
{
    auto received = std::move(measured_.front());
    measured_.pop_front();
    measured_bytes_ -= received.samples().size_bytes();
    note_frame(received);
    return received;
}

/** Ends the session, and begins one with new calibrations. */
void session_source::calibrate_again()
{
    server_.end();
    begin_segment("calibrated again");
    // Otherwise a sensor that still asks would be calibrated after every frame.
    asked_ = true;
}

/** Waits, then tries once to connect, and to begin a session. */
void session_source::connect_again(std::chrono::milliseconds wait)
{
    loop_.run_until([] { return false; }, loop_.now() + wait);
    loop_.check_cancelled();
    try
    {
        server_.reconnect();
        begin_segment(connected_again);
        lost_ = false;
    }
    catch (const server_error &refusal)
    {
        if (refusal.code() != "busy")
        {
            throw;
        }
    }
    catch (const connect_error &) // NOLINT(bugprone-empty-catch): the next call tries again
    {
    }
}

/** Begins a session like the one before. */
void session_source::begin_segment(const char *reason)
{
    const auto before = metadata_;
    if (std::exchange(calibration_due_, false))
    {
        configuration_.erase("calibration_info");
    }
    configure();
    check_session(*before);
    continue_truth();
    if (lost_)
    {
        clock_watch_->reset();
    }
    begin_stream();
    if (last_tick_)
    {
        resumed_ = reason;
    }
    lost_before_ = lost_;
    silence_ = {};
    missing_bytes_ = 0;
    damage_.reset();
    asked_ = false;
    stopped_ = false;
    earlier_missing_ = missing_;
}

/** Finds the truth of the session that has been set up; returns its scene. */
nlohmann::json session_source::begin_truth()
{
    sensors_.clear();
    for (const auto &item : list_items(configuration_))
    {
        sensors_.push_back(item.sensor_id);
    }
    return truth_->begin_session({sensors_.begin(), sensors_.end()});
}

/** Finds the truth of another session. If there is none, that of its frames is missing. */
void session_source::continue_truth()
{
    if (truth_ == nullptr)
    {
        return;
    }
    try
    {
        begin_truth();
    }
    catch (const bad_recording &failure)
    {
        truth_fault_ = failure.what();
    }
}

/** Adds the truth to a frame. */
void session_source::add_truth(frame &received) const
{
    frame_truth found;
    for (size_t i = 0; i < sensors_.size(); ++i)
    {
        found.items.push_back(truth_->find(sensors_[i], received.items()[i].tick));
    }
    received.set_truth(std::make_shared<const frame_truth>(std::move(found)));
}

/** Throws if the frames have another meaning than before. */
void session_source::check_session(const session_metadata &before) const
{
    const auto &server = server_.server();
    const bool same = std::ranges::equal(before.items, metadata_->items, is_same_layout) &&
                      before.tick_period == metadata_->tick_period && sensor_ == server.sensor &&
                      is_same_board(board_, server.board) && ticks_per_second_ == server.ticks_per_second;
    if (!same)
    {
        throw protocol_error("The server now measures something else: it may be another server at the same "
                             "address. Begin a new recording.");
    }
}

/** Waits for the next frame; keeps account of silence and damage. */
std::optional<frame> session_source::wait_for_frame(std::chrono::milliseconds timeout)
{
    const auto before = loop_.now();
    auto received = poll(timeout);
    if (received)
    {
        note_frame(*received);
        return received;
    }
    silence_ += loop_.now() - before;
    if (frame_progressed())
    {
        silence_ = {};
    }
    else if (silent_for(silence_))
    {
        throw timeout_error(describe_silence());
    }
    return std::nullopt;
}

/** Waits for the next frame; nothing if none arrives in time or it is damaged. */
std::optional<frame> session_source::poll(std::chrono::milliseconds timeout)
{
    const auto before = loop_.now();
    try
    {
        clock_watch_->ask_if_due();
        return server_.receive_frame(std::min(timeout, clock_watch_->longest_wait()));
    }
    catch (const bad_message &fault)
    {
        note_damage(fault, silence_ + (loop_.now() - before));
        return std::nullopt;
    }
}

/** Whether no frame, and no further part of one, has arrived for too long. */
bool session_source::silent_for(clock::duration span) const
{
    const double longest = std::max(longest_silence, rate_ > 0.0 ? answer_time + longest_gap / rate_ : 0.0);
    return seconds_of(span) >= longest;
}

/** Describes for how long no frame has arrived, and why the last message was not one, if known. */
std::string session_source::describe_silence() const
{
    return "No frame from the server for " + std::to_string(std::lround(seconds_of(silence_))) +
           " s. Check the connection and the power supply of the sensors." +
           (damage_ ? " The last message was damaged: " + *damage_ : std::string());
}

/** Whether a frame has begun, or gone on at a sufficient rate since this last returned true. */
bool session_source::frame_progressed()
{
    const auto missing = server_.bytes_missing();
    const auto due = std::max<size_t>(1, static_cast<size_t>(slowest_payload_rate * seconds_of(silence_)));
    const bool progressed =
        !damage_ && missing != 0 && (missing_bytes_ == 0 || missing + due <= missing_bytes_);
    if (progressed)
    {
        missing_bytes_ = missing;
    }
    return progressed;
}

/** Seconds between the last frame and the first one of a segment: by the clock of the server, unless that may
 * have started again. */
double session_source::gap_before(const frame &received, clock::time_point now) const
{
    const double arrival = seconds_of(now - last_frame_);
    const double wrap = ticks_per_second_ > 0.0 ? 0x1p32 / ticks_per_second_ : 0.0;
    if (lost_before_ || arrival >= wrap / 2.0)
    {
        return arrival;
    }
    return static_cast<uint32_t>(tick_of(received) - *last_tick_) / ticks_per_second_;
}

/** Keeps account of a frame that has arrived. */
void session_source::note_frame(frame &received)
{
    const auto now = loop_.now();
    if (resumed_)
    {
        segment_ = {.number = segment_.number + 1,
                    .reason = *resumed_,
                    .gap = gap_before(received, now),
                    .calibration_temperatures = calibration_temperatures(*metadata_)};
        resumed_.reset();
    }
    last_frame_ = now;
    last_tick_ = tick_of(received);
    silence_ = {};
    missing_bytes_ = 0;
    damage_.reset();
    missing_ = earlier_missing_ + received.missing();
    received.set_missing(missing_);
    clock_watch_->add_times(received);
    if (truth_ != nullptr)
    {
        add_truth(received);
    }
    const bool asks = asks_for_calibration(received);
    calibration_due_ = calibration_due_ || (policy_.recalibrate && asks && !asked_);
    asked_ = asks;
}

} // namespace vantor
