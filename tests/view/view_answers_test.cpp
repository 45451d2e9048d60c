/** @file
 * Tests of the headers of the live view's answers, and of its token.
 */
#include "view/view_answers.h"

#include <map>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "view/view_server.h"

namespace vantor
{

TEST(view_headers, keep_other_pages_out)
{
    std::map<std::string, std::string> headers;
    for (const view_header &header : view_headers())
    {
        headers.emplace(header.name, header.value);
    }
    const std::map<std::string, std::string> expected{
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; connect-src "
         "'self'; frame-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'self'"},
        {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"},
        {"Cache-Control", "no-store"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
    };
    EXPECT_EQ(headers, expected);
}

TEST(view_token, is_128_bits_that_nobody_can_guess)
{
    std::set<std::string> tokens;
    std::set<std::string> bytes;
    for (int i = 0; i < 1000; ++i)
    {
        const std::string token = make_view_token();
        EXPECT_TRUE(std::regex_match(token, std::regex("[0-9a-f]{32}"))) << token;
        tokens.insert(token);
        for (size_t at = 0; at < token.size(); at += 2)
        {
            bytes.insert(token.substr(at, 2));
        }
    }
    EXPECT_EQ(tokens.size(), 1000U);
    EXPECT_EQ(bytes.size(), 256U) << "some bytes never occur";
}

} // namespace vantor
