/** @file
 * Figures of a bridge for Prometheus.
 */
#include "bridge/metrics.h"

#include <mutex>
#include <utility>
#include <vector>

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

namespace vantor
{
namespace
{

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

/** A metric without labels but the site. */
ClientMetric metric_of(const std::string &site, double value, MetricType type)
{
    ClientMetric metric;
    metric.label = {{"site", site}};
    (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
    return metric;
}

/** A figure of the whole bridge. */
MetricFamily figure(const char *name, const char *help, MetricType type, const std::string &site,
                    double value)
{
    return {.name = name, .help = help, .type = type, .metric = {metric_of(site, value, type)}};
}

/** A figure of each board; boards for which it is unknown are left out. */
template <typename value_t>
MetricFamily board_figure(const char *name, const char *help, MetricType type, const std::string &site,
                          const std::vector<board_state> &boards, value_t value)
{
    MetricFamily family{.name = name, .help = help, .type = type, .metric = {}};
    for (const auto &board : boards)
    {
        const std::optional<double> found = value(board);
        if (!board.board.empty() && found)
        {
            family.metric.push_back(metric_of(site, *found, type));
            family.metric.back().label.push_back({"board", board.board});
        }
    }
    return family;
}

/** The figures of all boards. */
void add_boards(std::vector<MetricFamily> &all, const std::string &site,
                const std::vector<board_state> &boards)
{
    const auto add = [&](const char *name, const char *help, MetricType type, auto value) {
        all.push_back(board_figure(name, help, type, site, boards, value));
    };
    const auto as_double = [](auto value) { return std::optional(static_cast<double>(value)); };
    add("vantor_board_online", "1 if the board measures.", MetricType::Gauge,
        [&](const board_state &board) { return as_double(board.online); });
    add("vantor_board_frames_total", "Frames that reached the bridge.", MetricType::Counter,
        [&](const board_state &board) { return as_double(board.frames); });
    add("vantor_board_frames_lost_total", "Frames that were lost before they reached the bridge.",
        MetricType::Counter, [&](const board_state &board) { return as_double(board.lost); });
    add("vantor_board_frames_dropped_total", "Frames that were dropped because the spool was full.",
        MetricType::Counter, [&](const board_state &board) { return as_double(board.dropped); });
    add("vantor_board_sessions_total", "Sessions that the board began.", MetricType::Counter,
        [&](const board_state &board) { return as_double(board.sessions); });
    add("vantor_board_calibration_needed", "1 if a sensor asks for a calibration.", MetricType::Gauge,
        [&](const board_state &board) { return as_double(board.calibration_needed); });
    add("vantor_board_temperature_celsius", "Relative temperature of the first sensor.", MetricType::Gauge,
        [&](const board_state &board) {
            return board.temperature ? as_double(*board.temperature) : std::optional<double>();
        });
}

} // namespace

/** The figures, as they are asked for on threads of the server. */
class metrics_server::figures : public prometheus::Collectable
{
public:
    explicit figures(std::string site) : site_(std::move(site))
    {
    }

    /** Replaces the figures. */
    void update(const bridge_report &report)
    {
        const std::scoped_lock lock(mutex_);
        report_ = report;
    }

    [[nodiscard]] std::vector<MetricFamily> Collect() const override
    {
        const std::scoped_lock lock(mutex_);
        std::vector<MetricFamily> all;
        const auto add = [&](const char *name, const char *help, MetricType type, auto value) {
            all.push_back(figure(name, help, type, site_, static_cast<double>(value)));
        };
        add("vantor_bridge_broker_ready", "1 if the broker takes batches.", MetricType::Gauge,
            report_.broker_ready);
        add("vantor_bridge_batches_stored_total", "Batches that the broker has stored.", MetricType::Counter,
            report_.published.stored);
        add("vantor_bridge_bytes_stored_total", "Bytes of these batches.", MetricType::Counter,
            report_.published.stored_bytes);
        add("vantor_bridge_batches_repeated_total", "How often a batch had to be published again.",
            MetricType::Counter, report_.published.repeated);
        add("vantor_bridge_batches_damaged_total", "Batches that could not be read from the spool.",
            MetricType::Counter, report_.published.damaged);
        add("vantor_bridge_batches_too_large_total",
            "Batches that are lost because the broker does not take them.", MetricType::Counter,
            report_.published.too_large);
        add("vantor_bridge_batches_waiting", "Batches that the broker does not have yet.", MetricType::Gauge,
            report_.waiting);
        add("vantor_bridge_spool_used_bytes", "Bytes of the spool that are in use.", MetricType::Gauge,
            report_.spool_used);
        add("vantor_bridge_spool_size_bytes", "Bytes of the spool.", MetricType::Gauge, report_.spool_size);
        add_boards(all, site_, report_.boards);
        return all;
    }

private:
    std::string site_;
    mutable std::mutex mutex_;
    bridge_report report_;
};

/** The HTTP server. */
struct metrics_server::exposer
{
    prometheus::Exposer server;
};

metrics_server::metrics_server(const std::string &where, std::string site)
    : figures_(std::make_shared<figures>(std::move(site)))
{
    const bool has_host = where.find(':') != std::string::npos;
    const auto place = has_host ? where : "127.0.0.1:" + where;
    try
    {
        // Clients that send nothing must not keep others away for long.
        exposer_.reset(new exposer{
            .server = prometheus::Exposer({"listening_ports", place, "num_threads", "4", "request_timeout_ms",
                                           "2000"})}); // NOLINT: it cannot be moved
    }
    catch (const std::exception &)
    {
        throw broker_error("Cannot serve metrics on " + place +
                           ": the port may be in use, or not be one. Choose another one with --metrics.");
    }
    exposer_->server.RegisterCollectable(figures_);
}

metrics_server::~metrics_server() = default;

void metrics_server::update(const bridge_report &report)
{
    figures_->update(report);
}

int metrics_server::port() const
{
    const auto ports = exposer_->server.GetListeningPorts();
    return ports.empty() ? 0 : ports.front();
}

} // namespace vantor
