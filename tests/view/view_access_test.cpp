/** @file
 * Tests of who may use the web server of the live view.
 */
#include "view/view_access.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

using ::testing::HasSubstr;

constexpr const char *example_token = "0123456789abcdef0123456789abcdef";

view_access access_of(const std::string &host = "127.0.0.1", uint16_t port = 8080)
{
    return {host, port, example_token};
}

/** The status of the refusal; 200 if there is none. */
unsigned status_of(const view_access &access, const view_request &request)
{
    const auto refusal = access.refusal(request);
    return refusal ? refusal->status : 200;
}

unsigned status_for_host(const view_access &access, std::string_view host)
{
    return status_of(access, {.method = "GET", .target = "/style.css", .host = host});
}

unsigned status_for_target(std::string_view target)
{
    return status_of(access_of(), {.method = "GET", .target = target, .host = "127.0.0.1:8080"});
}

view_request stream_request(std::optional<std::string_view> origin)
{
    static const std::string target = std::string("/stream?token=") + example_token;
    return {
        .method = "GET", .target = target, .host = "localhost:8080", .origin = origin, .is_upgrade = true};
}

} // namespace

TEST(view_access, allows_the_names_of_the_own_machine)
{
    for (const char *host : {"127.0.0.1:8080", "localhost:8080", "LOCALHOST:8080", "[::1]:8080"})
    {
        EXPECT_EQ(status_for_host(access_of(), host), 200U) << host;
        EXPECT_EQ(status_for_host(access_of("192.168.1.5"), host), 200U) << host;
    }
    EXPECT_EQ(status_for_host(access_of("192.168.1.5"), "192.168.1.5:8080"), 200U);
    EXPECT_EQ(status_for_host(access_of("fd00:0::5"), "[fd00::5]:8080"), 200U);
}

TEST(view_access, refuses_other_names)
{
    for (const char *host : {"",
                             ":",
                             ":8080",
                             "evil.example:8080",
                             "127.0.0.1.evil.example:8080",
                             "localhost.:8080",
                             "localhost",
                             "127.0.0.1",
                             "127.0.0.1:80",
                             "127.0.0.1:08080",
                             "127.0.0.1:8080 ",
                             "127.0.0.1:",
                             "192.168.1.5:8080",
                             "[127.0.0.1]:8080",
                             "::1:8080",
                             "[::1]",
                             "[::1%lo]:8080",
                             "[::2]:8080",
                             "x@127.0.0.1:8080",
                             "127.0.0.1:8080:8080",
                             "0x7f000001:8080"})
    {
        EXPECT_EQ(status_for_host(access_of(), host), 421U) << host;
    }
    EXPECT_THAT(access_of().refusal({.method = "GET", .target = "/", .host = "a:8080"})->text,
                HasSubstr("Use the address that vantor view printed"));
}

TEST(view_access, allows_every_numeric_address_if_it_listens_on_all)
{
    for (const char *wildcard : {"0.0.0.0", "::"})
    {
        const auto access = access_of(wildcard);
        EXPECT_EQ(status_for_host(access, "192.168.1.5:8080"), 200U);
        EXPECT_EQ(status_for_host(access, "[fd00::5]:8080"), 200U);
        EXPECT_EQ(status_for_host(access, "localhost:8080"), 200U);
        EXPECT_EQ(status_for_host(access, "evil.example:8080"), 421U);
        EXPECT_EQ(status_for_host(access, "192.168.1.5:8081"), 421U);
    }
}

TEST(view_access, allows_a_host_without_the_usual_port)
{
    EXPECT_EQ(status_for_host(access_of("127.0.0.1", 80), "127.0.0.1"), 200U);
    EXPECT_EQ(status_for_host(access_of("::1", 80), "[::1]"), 200U);
    EXPECT_EQ(status_for_host(access_of("127.0.0.1", 80), "evil.example"), 421U);
}

TEST(view_access, needs_the_token_for_the_page)
{
    EXPECT_EQ(status_for_target(std::string("/?token=") + example_token), 200U);
    EXPECT_EQ(status_for_target(std::string("/?a=b&token=") + example_token + "&c"), 200U);
    for (const std::string query :
         {"", "?", "?token", "?token=", "?token=0123456789abcdef0123456789abcdee",
          "?token=0123456789ABCDEF0123456789ABCDEF", "?token=0123456789abcdef0123456789abcde",
          "?token=0123456789abcdef0123456789abcdef0", "?Token=0123456789abcdef0123456789abcdef",
          "?xtoken=0123456789abcdef0123456789abcdef", "?token=&token=0123456789abcdef0123456789abcdef"})
    {
        EXPECT_EQ(status_for_target("/" + query), 403U) << query;
        EXPECT_EQ(status_for_target("/stream" + query), 403U) << query;
    }
    EXPECT_THAT(access_of().refusal({.method = "GET", .target = "/", .host = "localhost:8080"})->text,
                HasSubstr("Use the address that vantor view printed"));
}

TEST(view_access, needs_no_token_for_other_files)
{
    EXPECT_EQ(status_for_target("/main.js"), 200U);
    EXPECT_EQ(status_for_target("/streams"), 200U);
}

TEST(view_access, opens_the_stream_only_for_the_own_page_and_programs)
{
    const auto access = access_of();
    EXPECT_EQ(status_of(access, stream_request("http://localhost:8080")), 200U);
    EXPECT_EQ(status_of(access, stream_request(std::nullopt)), 200U);
    for (const char *origin : {"", "null", "http://evil.example", "https://localhost:8080", "localhost:8080",
                               "http://localhost:8081", "http://127.0.0.1:8080", "http://localhost:8080/"})
    {
        EXPECT_EQ(status_of(access, stream_request(origin)), 403U) << origin;
    }
}

TEST(view_access, answers_at_the_stream_only_websockets)
{
    auto request = stream_request(std::nullopt);
    request.is_upgrade = false;
    EXPECT_EQ(status_of(access_of(), request), 400U);
}

TEST(view_access, allows_websockets_only_at_the_stream)
{
    for (const char *target : {"/", "/style.css", "/streams", "/no-such-file"})
    {
        auto request = stream_request(std::nullopt);
        request.target = target;
        EXPECT_EQ(status_of(access_of(), request), 404U) << target;
    }
}

TEST(view_access, allows_only_reading)
{
    view_request request{.method = "HEAD", .target = "/main.js", .host = "localhost:8080"};
    EXPECT_EQ(status_of(access_of(), request), 200U);
    for (const char *method : {"POST", "PUT", "DELETE", "OPTIONS", "CONNECT", "TRACE", "get"})
    {
        request.method = method;
        const auto refusal = access_of().refusal(request);
        ASSERT_TRUE(refusal) << method;
        EXPECT_EQ(refusal->status, 405U);
        EXPECT_EQ(refusal->header->name, "Allow");
        EXPECT_EQ(refusal->header->value, "GET, HEAD");
    }
}

TEST(view_access, checks_the_host_first)
{
    EXPECT_EQ(status_of(access_of(), {.method = "POST", .target = "/", .host = "evil.example"}), 421U);
}

TEST(view_access, gives_the_address_for_the_browser)
{
    const std::string rest = std::string(":8080/?token=") + example_token;
    EXPECT_EQ(access_of().url(), "http://127.0.0.1" + rest);
    EXPECT_EQ(access_of("localhost").url(), "http://127.0.0.1" + rest);
    EXPECT_EQ(access_of("0.0.0.0").url(), "http://127.0.0.1" + rest);
    EXPECT_EQ(access_of("::").url(), "http://[::1]" + rest);
    EXPECT_EQ(access_of("fd00::5").url(), "http://[fd00::5]" + rest);
    EXPECT_EQ(access_of("192.168.1.5").url(), "http://192.168.1.5" + rest);
}

TEST(view_access, knows_whether_others_can_connect)
{
    EXPECT_FALSE(access_of().reachable_from_outside());
    EXPECT_FALSE(access_of("::1").reachable_from_outside());
    EXPECT_FALSE(access_of("localhost").reachable_from_outside());
    EXPECT_FALSE(access_of("LOCALHOST").reachable_from_outside());
    EXPECT_FALSE(access_of("::ffff:127.0.0.1").reachable_from_outside());
    EXPECT_TRUE(access_of("::ffff:192.168.1.5").reachable_from_outside());
    EXPECT_TRUE(access_of("0.0.0.0").reachable_from_outside());
    EXPECT_TRUE(access_of("::").reachable_from_outside());
    EXPECT_TRUE(access_of("192.168.1.5").reachable_from_outside());
}

TEST(view_access, refuses_names_to_listen_on)
{
    for (const char *host :
         {"", "example", "127.1", "[::1]", "fe80::1%lo", "127.0.0.1:80", "224.0.0.1", "ff02::1"})
    {
        EXPECT_THROW(access_of(host), error) << host;
    }
    try
    {
        access_of("example");
        FAIL() << "no exception";
    }
    catch (const error &failure)
    {
        EXPECT_STREQ(failure.what(), "\"example\" is not an address to listen on; use a numeric address of "
                                     "this machine, such as 127.0.0.1 or ::1.");
    }
}

} // namespace vantor
