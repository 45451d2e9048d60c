/** @file
 * The live view of a server: sessions, recordings, and what viewers ask for.
 */
#ifndef VANTOR_LIVE_VIEW_H
#define VANTOR_LIVE_VIEW_H

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "hub/frame_ring.h"
#include "vantor/client.h"
#include "vantor/event_loop.h"
#include "vantor/session_source.h"
#include "view/background_tasks.h"
#include "view/stream_watch.h"
#include "view/view_recorder.h"
#include "view/view_requests.h"
#include "view/viewers.h"

namespace vantor
{

/** What a live view shows at first. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct live_view_settings
{
    nlohmann::json configuration;  /**< of the first session */
    std::string name;              /**< for the names of recordings */
    std::string address;           /**< of the server, as viewers see it */
    nlohmann::ordered_json source; /**< see describe_source() */
    std::filesystem::path record;  /**< directory of a recording that begins at once; empty for none */
    truth_file *truth = nullptr;   /**< of the server; null for none. Must outlive the view */
};

/**
 * Shows the frames of a server to viewers, and executes what they ask for: recordings, calibrations, other
 * configurations. When the link is lost, it connects again.
 */
class live_view
{
public:
    /**
     * @param server    a connected client; must outlive this object, like the viewers and the loop
     * @param settings  what to show at first
     * @param all       the viewers
     * @param loop      the loop of client and viewers
     */
    live_view(client &server, live_view_settings settings, viewers &all, event_loop &loop);
    live_view(const live_view &) = delete;
    live_view &operator=(const live_view &) = delete;
    live_view(live_view &&) = delete;
    live_view &operator=(live_view &&) = delete;
    ~live_view();

    /**
     * Runs until asked to stop, or event_loop::cancel().
     *
     * @param stop  called ten times a second; true ends the view
     * @throws the exceptions of session_source if there is no first session
     * @throws recording_error if the first recording cannot be created
     */
    void run(const std::function<bool()> &stop);

    /** What ended recordings that failed contain, and why they failed. */
    [[nodiscard]] const std::vector<recording_outcome> &failed_recordings() const noexcept
    {
        return failed_recordings_;
    }

    /** The items of the recording that began at once, after run(). */
    [[nodiscard]] const std::vector<collection_stream> &first_recording() const noexcept
    {
        return first_recording_;
    }

private:
    /** A session, and what is known of its stream. */
    struct live_session;

    /** A configuration that a viewer has chosen. */
    // NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
    struct configuration_change
    {
        uint64_t viewer = 0;
        nlohmann::json configuration;
    };

    [[nodiscard]] request_rules rules();
    void check(const viewer_request &request);
    void apply(const viewer_request &request);
    void record(const viewer_request &request);
    void stop_recording(const viewer_request &request);
    void keep(const viewer_request &request);
    void calibrate(const viewer_request &request);

    void show_frames();
    void serve();
    void begin_next_session();
    void begin_session(const nlohmann::json &configuration);
    void lose(const std::string &reason);
    void wait_before_retry();
    void start_recording(const std::filesystem::path &directory);
    void end_recording(std::function<void(const recording_outcome &)> done);
    void note_outcome(const recording_outcome &outcome);
    void ask_for_statistics();
    void forward_log();
    void require_session() const;
    [[nodiscard]] session_description description() const;
    [[nodiscard]] nlohmann::ordered_json state() const;

    client &server_;
    live_view_settings settings_;
    viewers &viewers_;
    event_loop &loop_;
    std::function<bool()> stop_;
    request_rules rules_;
    background_tasks tasks_;
    view_recorder recorder_;
    frame_ring ring_;
    std::unique_ptr<live_session> session_; /**< null while there is none */
    uint64_t session_number_ = 0;
    nlohmann::json configuration_;               /**< of the last session, without calibrations */
    std::vector<calibration> calibrations_;      /**< of the last session */
    std::optional<configuration_change> change_; /**< of the next session */
    bool link_lost_ = false;                     /**< the client has to connect again */
    std::string reason_;                         /**< why there is no session */
    bool keeping_ = false;                       /**< the last frames are being written */
    nlohmann::json statistics_;                  /**< of the server; null if unknown */
    event_loop::time_point next_statistics_;
    std::vector<recording_outcome> failed_recordings_;
    std::vector<collection_stream> first_recording_;
};

} // namespace vantor

#endif
