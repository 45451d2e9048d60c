/** @file
 * Figures of a bridge for Prometheus.
 */
#ifndef VANTOR_METRICS_H
#define VANTOR_METRICS_H

#include <memory>
#include <string>

#include "bridge/bridge.h"

namespace vantor
{

/** Serves the figures of a bridge as "/metrics" over HTTP, on threads of its own. */
class metrics_server
{
public:
    /**
     * @param where  where to listen: "PORT" or "HOST:PORT" with a numeric host
     * @param site   name of the site
     * @throws broker_error if it cannot listen there
     */
    metrics_server(const std::string &where, std::string site);
    metrics_server(const metrics_server &) = delete;
    metrics_server &operator=(const metrics_server &) = delete;
    metrics_server(metrics_server &&) = delete;
    metrics_server &operator=(metrics_server &&) = delete;
    ~metrics_server();

    /** Serves other figures from now on. */
    void update(const bridge_report &report);

    /** The port on which it listens. */
    [[nodiscard]] int port() const;

private:
    class figures;
    struct exposer;

    std::shared_ptr<figures> figures_;
    std::unique_ptr<exposer> exposer_;
};

} // namespace vantor

#endif
