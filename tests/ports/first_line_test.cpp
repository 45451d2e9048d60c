/** @file
 * Tests of the check of a TCP connection's first line.
 */
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "first_line.h"

namespace
{

/** Passes a text in pieces of a size; returns whether all of them are accepted. */
bool accepts(std::string_view text, size_t piece)
{
    first_line_t line;
    for (; !text.empty(); text.remove_prefix(std::min(piece, text.size())))
    {
        if (!line.accepts(text.data(), std::min(piece, text.size())))
        {
            return false;
        }
    }
    return true;
}

TEST(first_line, refuses_http_and_tls)
{
    using namespace std::string_view_literals;
    for (const auto text :
         {"POST / HTTP/1.1\r\nHost: 127.0.0.1:6110\r\n\r\n{\"command\":\"ping\"}\n"sv, "GET /\r\n"sv,
          "GET / HTTP/1.0\n"sv, "post /x http/1.1\r\n"sv, "\r\n\n \tGET / HTTP/1.1\r\n"sv,
          "OPTIONS * HTTP/1.1\r\n"sv, "PUT  \t /a"sv, "GET http://127.0.0.1:6110/ HTTP/1.1\r\n"sv,
          "CONNECT 127.0.0.1:6110 HTTP/1.1\r\n"sv, "get HTTPS://localhost/"sv, "GET hhttp/"sv,
          "M-SEARCH * HTTP/1.1\r\n"sv, "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"sv, "X%5f!x /"sv,
          "\x16\x03\x01\x02\x00\x01\x00\x01"sv})
    {
        for (const size_t piece : {size_t{1}, size_t{3}, text.size()})
        {
            EXPECT_FALSE(accepts(text, piece)) << text;
        }
    }
}

TEST(first_line, refuses_before_the_first_line_ends)
{
    EXPECT_FALSE(accepts("POST /", 6));
    EXPECT_FALSE(accepts("GET http:", 1));
}

TEST(first_line, accepts_commands_and_damaged_ones)
{
    using namespace std::string_view_literals;
    for (const auto text :
         {"{\"command\":\"ping\"}\n"sv, "\n{\"command\":\"end\"}\n"sv, " { \"command\" : \"ping\" }\r\n"sv,
          "mand\":\"ping\"}\n"sv, "ping\n"sv, "end}\n"sv, "\"ping\" x\n"sv, "[\"ping\", 1]\n"sv,
          "GET\n/ HTTP/1.1\n"sv, "configure please\n"sv, "use http\n{} http://a/\n"sv,
          "use htt/p: httpx/ http\n"sv, "\x16{}\n"sv, "\0\0\0"sv, "\xFF\xFE GET /\n"sv, ""sv})
    {
        for (const size_t piece : {size_t{1}, size_t{64}})
        {
            EXPECT_TRUE(accepts(text, piece)) << text;
        }
    }
}

TEST(first_line, checks_only_the_first_line)
{
    EXPECT_TRUE(accepts("{}\nPOST / HTTP/1.1\n", 1));
    EXPECT_TRUE(accepts("ping\nGET /\n", 64));
}

} // namespace
