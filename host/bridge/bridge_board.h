/** @file
 * A board of a bridge.
 */
#ifndef VANTOR_BRIDGE_BOARD_H
#define VANTOR_BRIDGE_BOARD_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "bridge/batcher.h"
#include "bridge/board_state.h"
#include "bridge/publisher.h"
#include "vantor/client.h"
#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"

namespace vantor
{

/** A board, and how to reach it. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct bridged_board
{
    std::string name;                /**< empty for what the server reports: its id, or else its kind */
    std::string address;             /**< as given */
    client::link_factory open_links; /**< opens a link to its server */
    nlohmann::json configuration;
};

/** What the boards of a bridge have in common. */
struct bridge_context
{
    std::string site;
    batch_limits limits;
    bool recalibrate = false; /**< when a sensor asks for it */
    publisher &batches;
    std::shared_ptr<event_loop> loop;
    std::function<void(const std::string &line)> report;     /**< tells the user about a board */
    std::function<bool(const std::string &name)> claim_name; /**< false if another board has the name */
    std::function<bool()> stop;                              /**< whether to end */
};

/** Measures with one board, again and again, and passes its frames on as batches. */
class bridge_board : private frame_sink
{
public:
    /** @param context  must outlive this object */
    bridge_board(bridged_board about, bridge_context &context);

    /** Measures until the bridge ends. A task of the loop. */
    void run();

    /** Completes a batch whose time is over. To be called often. */
    void complete_batch();

    /** The state now. @param elapsed  since the last call, in seconds */
    board_state report(double elapsed);

private:
    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;
    void measure();
    void set_name(const server_info &server);
    void stream(client &server);
    void publish(const std::string &bytes, uint64_t frames);
    void note_failure(const std::string &reason);
    void wait();

    bridged_board about_;
    bridge_context &context_;
    board_state state_;
    batcher *batcher_ = nullptr;        /**< of the session that runs */
    uint64_t lost_before_ = 0;          /**< in earlier sessions */
    uint64_t reported_frames_ = 0;      /**< at the last report */
    std::chrono::milliseconds pause_{}; /**< before the next session */
};

} // namespace vantor

#endif
