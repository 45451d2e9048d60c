/** @file
 * Passes the frames of many boards to a message broker.
 */
#ifndef VANTOR_BRIDGE_H
#define VANTOR_BRIDGE_H

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bridge/bridge_board.h"
#include "bridge/broker.h"
#include "bridge/publisher.h"
#include "bridge/spool.h"
#include "vantor/event_loop.h"

namespace vantor
{

/** How a bridge works. */
struct bridge_settings
{
    std::string site;
    std::string name; /**< of the bridge; no other of the site has it */
    batch_limits limits;
    bool recalibrate = false;         /**< when a sensor asks for it */
    std::chrono::seconds interval{5}; /**< between two reports of the states */
    std::chrono::seconds patience{5}; /**< for the broker, when the bridge ends */
};

/** What a bridge reports about itself. */
struct bridge_report
{
    std::vector<board_state> boards;
    publisher::counts published;
    uint64_t waiting = 0;    /**< batches */
    uint64_t spool_used = 0; /**< bytes */
    uint64_t spool_size = 0; /**< bytes */
    bool broker_ready = false;
};

/** Passes the frames of many boards to a message broker: each board is a task of the event loop. */
class bridge
{
public:
    /**
     * @param settings  how it works
     * @param boards    at least one
     * @param store     the spool; must outlive this object, as must the broker
     * @param target    where batches and states go
     * @param loop      of the links
     */
    bridge(bridge_settings settings, std::vector<bridged_board> boards, spool &store, broker &target,
           std::shared_ptr<event_loop> loop);

    /** What a bridge calls. */
    struct handlers
    {
        std::function<bool()> stop;                        /**< whether to end */
        std::function<void(const std::string &line)> line; /**< tells the user what has happened */
        std::function<void(const bridge_report &)> report; /**< now and then */
    };

    /** Passes frames on until it is asked to stop, and then waits for the broker for some time. */
    void run(const handlers &calls);

    /** What it reports at the moment; rates are those of the last report. */
    [[nodiscard]] bridge_report report() const;

private:
    void work();
    void drain();
    void watch_broker();
    void watch_losses();
    void publish_states();

    bridge_settings settings_;
    spool &spool_;
    broker &broker_;
    std::shared_ptr<event_loop> loop_;
    publisher publisher_;
    handlers calls_;
    std::set<std::string> names_;
    bridge_context context_;
    std::deque<bridge_board> boards_;
    size_t running_ = 0; /**< boards whose task has not ended */
    bridge_report report_;
    std::string fault_ = broker::not_tried; /**< of the broker, as reported last */
    publisher::counts told_;                /**< what the user was told about */
    event_loop::time_point reported_;
};

} // namespace vantor

#endif
