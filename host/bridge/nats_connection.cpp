/** @file
 * A connection to a NATS server.
 */
#include "bridge/nats_connection.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <span>
#include <utility>

namespace vantor
{
namespace
{

/** How long connecting may take, in milliseconds. */
constexpr int64_t connect_time = 5000;

/** How long a server that hangs may hold up writing, in milliseconds. */
constexpr int64_t write_time = 5000;

/** Pings of the library, so that a connection that was cut is noticed. */
constexpr int64_t ping_interval = 2000;
constexpr int most_pings = 2;

/** Most servers of a cluster that are tried. */
constexpr size_t most_servers = 32;

/** Why a call has failed: what the library says, without the place in its source. */
std::string reason_of(natsStatus status)
{
    if (status == NATS_NO_RESPONDERS)
    {
        return "the broker has no JetStream; start nats-server with -js";
    }
    const char *detail = nats_GetLastError(nullptr);
    if (detail == nullptr || *detail == '\0')
    {
        return natsStatus_GetText(status);
    }
    const std::string text(detail);
    const auto place = text.starts_with('(') ? text.find("): ") : std::string::npos;
    return place == std::string::npos ? text : text.substr(place + 3);
}

/** The options for a connection; throws broker_error if a file cannot be read. */
nats_options make_nats_options(const broker_address &where, const broker_security &security)
{
    natsOptions *created = nullptr;
    require(natsOptions_Create(&created), "use the NATS library");
    nats_options options(created);
    const bool is_ipv6 = where.host.find(':') != std::string::npos;
    const auto url =
        "nats://" + (is_ipv6 ? "[" + where.host + "]" : where.host) + ":" + std::to_string(where.port);
    require(natsOptions_SetURL(created, url.c_str()), "use the address " + url);
    require(natsOptions_SetTimeout(created, connect_time), "set the time-out");
    require(natsOptions_SetPingInterval(created, ping_interval), "set the interval of pings");
    require(natsOptions_SetMaxPingsOut(created, most_pings), "set the number of pings");
    require(natsOptions_SetWriteDeadline(created, write_time), "set the time for writing");
    require(natsOptions_SetName(created, "vantor"), "set the name of the program");
    // A new connection also checks what the server has.
    require(natsOptions_SetAllowReconnect(created, false), "set an option");
    require(natsOptions_SetNoRandomize(created, true), "set an option");
    if (!security.authorities.empty())
    {
        require(natsOptions_SetSecure(created, true), "use TLS");
        require(natsOptions_LoadCATrustedCertificates(created, security.authorities.c_str()),
                "read the certificates in " + security.authorities.string());
        require(natsOptions_SetExpectedHostname(created, where.host.c_str()), "use TLS");
    }
    if (!security.certificate.empty())
    {
        require(
            natsOptions_LoadCertificatesChain(created, security.certificate.c_str(), security.key.c_str()),
            "read the certificate " + security.certificate.string() + " and its key " +
                security.key.string());
    }
    if (!security.credentials.empty())
    {
        require(natsOptions_SetUserCredentialsFromFiles(created, security.credentials.c_str(), nullptr),
                "read the credentials " + security.credentials.string());
    }
    return options;
}

/** The servers of a cluster, as far as a connection knows them, without repetitions. */
std::vector<std::string> known_servers(natsConnection &link)
{
    char **names = nullptr;
    int count = 0;
    if (natsConnection_GetServers(&link, &names, &count) != NATS_OK)
    {
        return {};
    }
    std::vector<std::string> servers;
    for (char *name : std::span(names, static_cast<size_t>(count)))
    {
        if (std::ranges::find(servers, name) == servers.end())
        {
            servers.emplace_back(name);
        }
        std::free(name); // NOLINT: as the library requires
    }
    std::free(names); // NOLINT: as the library requires
    return servers;
}

} // namespace

void require(natsStatus status, const std::string &action)
{
    if (status != NATS_OK)
    {
        throw broker_error("Cannot " + action + ": " + reason_of(status) + ".");
    }
}

nats_dialer::nats_dialer(broker_address where, const broker_security &security)
    : where_(std::move(where)), options_(make_nats_options(where_, security))
{
}

nats_link nats_dialer::connect()
{
    natsConnection *link = nullptr;
    require(natsConnection_Connect(&link, options_.get()), "connect to " + to_string(where_));
    return {link, nats_link_closer{.dialer = this}};
}

void nats_dialer::learn_servers(natsConnection &link)
{
    const auto servers = known_servers(link);
    // The first one is where_. Of too many, those that were named last.
    std::vector<const char *> others;
    for (size_t i = std::max<size_t>(1, servers.size() - std::min(servers.size(), most_servers));
         i < servers.size(); ++i)
    {
        others.push_back(servers[i].c_str());
    }
    // If this fails, the former ones are tried.
    (void)natsOptions_SetServers(options_.get(), others.data(), static_cast<int>(others.size()));
}

void nats_link_closer::operator()(natsConnection *link) const noexcept
{
    try
    {
        dialer->learn_servers(*link);
    }
    catch (const std::bad_alloc &) // NOLINT(bugprone-empty-catch): those of before are tried
    {
    }
    natsConnection_Destroy(link);
}

nats_streams open_streams(natsConnection &link)
{
    jsCtx *streams = nullptr;
    require(natsConnection_JetStream(&streams, &link, nullptr), "use JetStream");
    return nats_streams(streams);
}

} // namespace vantor
