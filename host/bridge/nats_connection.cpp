/** @file
 * A connection to a NATS server, and how the batches of a site are stored there.
 */
#include "bridge/nats_connection.h"

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

} // namespace

nats_names::nats_names(const std::string &site)
    : frames_stream("vantor-" + site + "-frames"), states_stream("vantor-" + site + "-states"),
      prefix("vantor." + site + ".")
{
}

void require(natsStatus status, const std::string &action)
{
    if (status != NATS_OK)
    {
        throw broker_error("Cannot " + action + ": " + reason_of(status) + ".");
    }
}

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

nats_link connect_nats(const natsOptions &options, const broker_address &where)
{
    natsConnection *link = nullptr;
    // The library does not change the options, but its interface does not say so.
    require(natsConnection_Connect(&link, const_cast<natsOptions *>(&options)), // NOLINT
            "connect to " + to_string(where));
    return nats_link(link);
}

nats_streams open_streams(natsConnection &link)
{
    jsCtx *streams = nullptr;
    require(natsConnection_JetStream(&streams, &link, nullptr), "use JetStream");
    return nats_streams(streams);
}

} // namespace vantor
