/** @file
 * Tests of the HTTP side of the live view's web server.
 */
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "raw_client.h"
#include "running_server.h"
#include "vantor/errors.h"
#include "view/view_answers.h"

namespace vantor
{
namespace
{

using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string page_target = std::string("/?token=") + running_server::token;

void expect_view_headers(const raw_answer &answer)
{
    for (const auto &[name, value] : view_headers())
    {
        EXPECT_EQ(answer.header(std::string(name)), value);
    }
}

/** Limits with a short time for requests. */
view_limits impatient()
{
    view_limits limits;
    limits.request = std::chrono::milliseconds(300);
    return limits;
}

/** The limit of open files, so low that no file can be opened; restored at the end. */
class no_more_files
{
public:
    no_more_files()
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit none = before_;
        none.rlim_cur = 0;
        setrlimit(RLIMIT_NOFILE, &none);
    }
    no_more_files(const no_more_files &) = delete;
    no_more_files &operator=(const no_more_files &) = delete;
    no_more_files(no_more_files &&) = delete;
    no_more_files &operator=(no_more_files &&) = delete;

    ~no_more_files()
    {
        setrlimit(RLIMIT_NOFILE, &before_);
    }

private:
    rlimit before_{};
};

} // namespace

TEST(view_server_http, serves_the_page_with_all_headers)
{
    const running_server server;
    raw_client client(server.port());
    const auto answer = client.request(page_target);
    EXPECT_EQ(answer.status, 200U);
    EXPECT_EQ(answer.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(answer.body, page_answer("/").text);
    expect_view_headers(answer);
}

TEST(view_server_http, serves_several_files_on_a_connection)
{
    const running_server server;
    raw_client client(server.port());
    for (const char *target : {"/uplot.js", "/style.css", "/icon.svg"})
    {
        EXPECT_EQ(client.request(target).body, page_answer(target).text) << target;
    }
}

TEST(view_server_http, answers_pipelined_requests_in_order)
{
    const running_server server;
    raw_client client(server.port());
    const std::string host = " HTTP/1.1\r\nHost: localhost:" + std::to_string(server.port()) + "\r\n\r\n";
    client.send("GET /icon.svg" + host + "GET /none" + host + "GET /style.css" + host);
    EXPECT_EQ(client.receive_answer().body, page_answer("/icon.svg").text);
    EXPECT_EQ(client.receive_answer().status, 404U);
    EXPECT_EQ(client.receive_answer().body, page_answer("/style.css").text);
}

TEST(view_server_http, answers_head_without_the_file)
{
    const running_server server;
    raw_client client(server.port());
    const auto head = client.request("/style.css", "", "HEAD");
    EXPECT_EQ(head.status, 200U);
    EXPECT_EQ(head.header("Content-Length"), std::to_string(page_answer("/style.css").text.size()));
    EXPECT_EQ(client.request("/icon.svg").body, page_answer("/icon.svg").text);
}

TEST(view_server_http, refuses_what_the_rules_forbid)
{
    const running_server server;
    raw_client client(server.port());
    const auto expect_refusal = [](const raw_answer &answer, unsigned status) {
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(answer.header("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_THAT(answer.body, ::testing::EndsWith(".\n"));
        expect_view_headers(answer);
    };
    expect_refusal(client.request("/"), 403);
    expect_refusal(client.request("/stream?token=" + std::string(running_server::token)), 400);
    expect_refusal(client.request("/none"), 404);
    expect_refusal(client.request("/main.js", "Host: 127.0.0.1:" + std::to_string(server.port()) + "\r\n"),
                   421);
    const auto refusal = client.request("/main.js", "", "DELETE");
    expect_refusal(refusal, 405);
    EXPECT_EQ(refusal.header("Allow"), "GET, HEAD");
    client.send("GET /main.js HTTP/1.1\r\nHost: evil.example\r\n\r\n");
    expect_refusal(client.receive_answer(), 421);
    client.send("GET /main.js HTTP/1.1\r\n\r\n");
    expect_refusal(client.receive_answer(), 421);
}

TEST(view_server_http, opens_the_stream_only_with_token_and_own_origin)
{
    const running_server server;
    const std::string address = "127.0.0.1:" + std::to_string(server.port());
    EXPECT_EQ(raw_client(server.port()).open_stream("").status, 403U);
    EXPECT_EQ(raw_client(server.port()).open_stream(running_server::token, "Origin: null\r\n").status, 403U);
    const std::string own = "Origin: http://" + address + "\r\n";
    EXPECT_EQ(raw_client(server.port()).open_stream(running_server::token, own + own).status, 403U);
    EXPECT_EQ(raw_client(server.port()).open_stream(running_server::token, own).status, 101U);
}

TEST(view_server_http, refuses_long_headers_and_sends_the_whole_answer)
{
    const running_server server;
    for (const size_t length : {8000U, 9000U, 300000U})
    {
        raw_client client(server.port());
        const auto answer = client.request("/icon.svg", "X: " + std::string(length, 'x') + "\r\n");
        EXPECT_EQ(answer.status, length < 8100U ? 200U : 431U) << length;
        expect_view_headers(answer);
    }
}

TEST(view_server_http, refuses_what_is_not_http)
{
    const running_server server;
    for (const char *bytes : {"{\"command\":\"identify\"}\n\r\n\r\n", "GET\r\n\r\n",
                              "\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n"})
    {
        raw_client client(server.port());
        client.send(bytes);
        const auto answer = client.receive_answer();
        EXPECT_EQ(answer.status, 400U) << bytes;
        expect_view_headers(answer);
        EXPECT_EQ(client.receive_all(), "") << "the connection must end";
    }
}

TEST(view_server_http, does_not_take_a_body_for_a_request)
{
    const running_server server;
    raw_client client(server.port());
    const auto answer = client.request("/icon.svg", "Content-Length: 5000000\r\n", "POST");
    EXPECT_EQ(answer.status, 405U);
    EXPECT_EQ(answer.header("Connection"), "close");
    client.send(std::string(5000000, 'x'));
    EXPECT_EQ(client.receive_all(), "");
    raw_client other(server.port());
    EXPECT_EQ(other.request("/icon.svg", "Transfer-Encoding: chunked\r\n").status, 400U);
    other.send("5\r\nbytes\r\n0\r\n\r\n");
    EXPECT_EQ(other.receive_all(), "");
}

TEST(view_server_http, ends_slow_requests_and_idle_connections)
{
    const running_server server(impatient());
    raw_client idle(server.port());
    raw_client slow(server.port());
    slow.send("GET / HTTP/1.1\r\nHost: ");
    raw_client finished(server.port());
    EXPECT_EQ(finished.request("/icon.svg").status, 200U);
    EXPECT_EQ(idle.receive_all() + slow.receive_all() + finished.receive_all(), "");
}

TEST(view_server_http, does_not_wait_longer_for_a_client_that_sends_single_bytes)
{
    const running_server server(impatient());
    raw_client slow(server.port());
    slow.send("GET / HTTP/1.1\r\nX: ");
    while (!slow.has_input(20))
    {
        slow.send("x");
    }
    EXPECT_EQ(slow.receive_all(), "");
}

TEST(view_server_http, lets_connections_beyond_the_limit_wait)
{
    view_limits limits;
    limits.connections = 2;
    const running_server server(limits);
    raw_client first(server.port());
    std::optional<raw_client> second(std::in_place, server.port());
    EXPECT_EQ(first.request("/icon.svg").status, 200U);
    EXPECT_EQ(second->request("/icon.svg").status, 200U);
    raw_client third(server.port());
    third.send("GET /icon.svg HTTP/1.1\r\nHost: localhost:" + std::to_string(server.port()) + "\r\n\r\n");
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(first.request("/icon.svg").status, 200U);
    }
    EXPECT_FALSE(third.has_input());
    second.reset();
    EXPECT_EQ(third.receive_answer().status, 200U);
}

TEST(view_server_http, survives_a_lack_of_files)
{
    running_server server;
    raw_client waiting(server.port());
    raw_client other(server.port());
    EXPECT_EQ(waiting.request("/icon.svg").status, 200U);
    EXPECT_EQ(other.request("/icon.svg").status, 200U);
    // A connected client, whose connection the server cannot accept.
    std::optional<raw_client> refused;
    {
        std::optional<no_more_files> lack;
        server.on_loop([&](view_server &) {
            refused.emplace(server.port());
            lack.emplace();
        });
        refused->send("GET /icon.svg HTTP/1.1\r\nHost: localhost:" + std::to_string(server.port()) +
                      "\r\n\r\n");
        server.handler.wait_for_ticks(2);
        EXPECT_EQ(waiting.request("/icon.svg").status, 200U);
        EXPECT_FALSE(refused->has_input());
    }
    EXPECT_EQ(refused->receive_answer().status, 200U);
}

TEST(view_server_http, reports_an_address_that_it_cannot_use)
{
    running_server server;
    event_loop loop;
    const auto message_for = [&](const std::string &host, uint16_t port) -> std::string {
        try
        {
            const view_server second({.host = host, .port = port}, "token", loop);
            return "no exception";
        }
        catch (const error &failure)
        {
            return failure.what();
        }
    };
    const std::string port = std::to_string(server.port());
    EXPECT_EQ(message_for("127.0.0.1", server.port()),
              "Cannot listen on TCP port " + port +
                  " of 127.0.0.1: Address already in use. Choose another port or address.");
    EXPECT_THAT(message_for("192.0.2.1", 1), StartsWith("Cannot listen on TCP port 1 of 192.0.2.1: "));
    EXPECT_THAT(message_for("example", 1), HasSubstr("use a numeric address"));
    server.on_loop([&](view_server &first) {
        EXPECT_EQ(first.url(), "http://127.0.0.1:" + port + "/?token=" + running_server::token);
        EXPECT_FALSE(first.reachable_from_outside());
    });
}

TEST(view_server_http, listens_on_every_interface_if_asked)
{
    event_loop loop;
    const view_server server({.host = "0.0.0.0", .port = 0}, "token", loop);
    EXPECT_TRUE(server.reachable_from_outside());
    EXPECT_THAT(server.url(), StartsWith("http://127.0.0.1:" + std::to_string(server.port()) + "/"));
}

} // namespace vantor
