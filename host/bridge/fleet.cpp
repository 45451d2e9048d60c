/** @file
 * The boards that a NATS server knows.
 */
#include "bridge/fleet.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "bridge/batch.h"
#include "bridge/nats_connection.h"
#include "bridge/nats_names.h"

namespace vantor
{
namespace
{

/** How long to wait for the next state, in milliseconds. */
constexpr int64_t state_time = 2000;

/** The sites that have states on a server. */
std::vector<std::string> read_sites(jsCtx &streams)
{
    jsStreamNamesList *found = nullptr;
    jsErrCode code{};
    const auto status = js_StreamNames(&found, &streams, nullptr, &code);
    const std::unique_ptr<jsStreamNamesList, nats_deleter<jsStreamNamesList_Destroy>> names(found);
    if (status == NATS_NOT_FOUND)
    {
        return {};
    }
    require(status, "list the streams of JetStream");
    std::vector<std::string> sites;
    for (const std::string_view name : std::span(names->List, static_cast<size_t>(names->Count)))
    {
        if (auto site = site_of_states(name))
        {
            sites.push_back(std::move(*site));
        }
    }
    return sites;
}

/** Number of messages in a stream. */
uint64_t count_messages(jsCtx &streams, const std::string &name)
{
    jsStreamInfo *found = nullptr;
    jsErrCode code{};
    const auto status = js_GetStreamInfo(&found, &streams, name.c_str(), nullptr, &code);
    const std::unique_ptr<jsStreamInfo, nats_deleter<jsStreamInfo_Destroy>> info(found);
    if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr)
    {
        throw broker_error("The broker knows no site with this name.");
    }
    require(status, "read the stream " + name);
    return info->State.Msgs;
}

/** Adds the state in a message, unless it is that of another board than its subject names. */
void add_state(natsMsg &received, const std::string &site, fleet &boards)
try
{
    auto found =
        decode_state({natsMsg_GetData(&received), static_cast<size_t>(natsMsg_GetDataLength(&received))});
    const bool is_own =
        found.site == site && nats_names(site).state_of(found.state.board) == natsMsg_GetSubject(&received);
    if (!is_own)
    {
        ++boards.unreadable;
        return;
    }
    boards.boards.push_back(std::move(found));
}
catch (const bad_batch &)
{
    ++boards.unreadable;
}

/** Adds the last states of the boards of a site. @return  the subscription, to be kept until all is read */
nats_subscription add_site(jsCtx &streams, const std::string &site, fleet &boards)
{
    const nats_names names(site);
    auto left = count_messages(streams, names.states_stream);
    jsSubOptions wanted{};
    require(jsSubOptions_Init(&wanted), "use JetStream");
    wanted.Stream = names.states_stream.c_str();
    wanted.Ordered = true;
    wanted.Config.DeliverPolicy = js_DeliverLastPerSubject;
    natsSubscription *created = nullptr;
    jsErrCode code{};
    require(js_SubscribeSync(&created, &streams, names.state_of("*").c_str(), nullptr, &wanted, &code),
            "read the states of site " + site);
    nats_subscription subscription(created);
    while (left > 0)
    {
        natsMsg *received = nullptr;
        require(natsSubscription_NextMsg(&received, created, state_time), "read the states of site " + site);
        const nats_message owned(received);
        add_state(*received, site, boards);
        jsMsgMetaData *about = nullptr;
        require(natsMsg_GetMetaData(&about, received), "read the states of site " + site);
        // Others may be reported meanwhile.
        left = about->NumPending;
        jsMsgMetaData_Destroy(about);
    }
    return subscription;
}

} // namespace

fleet read_fleet(const broker_address &where, const std::string &site, const broker_security &security)
{
    nats_dialer dialer(where, security);
    std::vector<nats_subscription> subscriptions;
    nats_streams streams;
    const auto link = dialer.connect();
    streams = open_streams(*link);
    fleet found;
    for (const auto &name : site.empty() ? read_sites(*streams) : std::vector<std::string>{site})
    {
        try
        {
            subscriptions.push_back(add_site(*streams, name, found));
        }
        catch (const broker_error &)
        {
            if (!site.empty())
            {
                throw;
            }
            // Another program's stream with such a name.
            ++found.unreadable;
        }
    }
    std::ranges::sort(found.boards, [](const decoded_state &one, const decoded_state &other) {
        return one.site == other.site ? comes_before(one.state.board, other.state.board)
                                      : comes_before(one.site, other.site);
    });
    return found;
}

} // namespace vantor
