/** @file
 * Tests of SHA-512 with the published examples of FIPS 180-4, and of failures of libcrypto.
 */
#include "recording/sha512.h"

#include <utility>

#include <gmock/gmock.h>
#include <openssl/err.h>

#include "libcrypto_without_algorithms.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

TEST(sha512, digests_the_published_examples)
{
    EXPECT_EQ(sha512_of(""), "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
                             "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
    EXPECT_EQ(sha512_of("abc"), "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                                "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
    EXPECT_EQ(sha512_of("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmno"
                        "ijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"),
              "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
              "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
    EXPECT_EQ(sha512_of(std::string(1000000, 'a')),
              "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
              "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b");
}

TEST(sha512, accepts_pieces_of_any_size)
{
    const std::string text(300, 'q');
    for (size_t cut = 0; cut <= text.size(); ++cut)
    {
        sha512 digest;
        digest.update(std::as_bytes(std::span(text).first(cut)));
        digest.update(std::as_bytes(std::span(text).subspan(cut)));
        EXPECT_EQ(digest.digest(), sha512_of(text)) << cut;
    }
}

TEST(sha512, can_be_continued_after_a_digest)
{
    sha512 digest;
    digest.update(std::as_bytes(std::span(std::string_view("ab"))));
    EXPECT_EQ(digest.digest(), sha512_of("ab"));
    digest.update(std::as_bytes(std::span(std::string_view("c"))));
    EXPECT_EQ(digest.digest(), sha512_of("abc"));
}

TEST(sha512, reports_that_libcrypto_does_not_support_the_digest)
{
    {
        const test::libcrypto_without_algorithms none;
        EXPECT_THAT([] { sha512_of("abc"); },
                    testing::ThrowsMessage<recording_error>(
                        "libcrypto cannot compute SHA-512: unsupported. Check the configuration of OpenSSL "
                        "(openssl.cnf)."));
        EXPECT_EQ(ERR_peek_error(), 0U);
    }
    EXPECT_EQ(sha512_of("abc").substr(0, 8), "ddaf35a1");
}

TEST(sha512, has_no_digest_after_a_failure)
{
    sha512 digest;
    // Leaves it as a failure does.
    const sha512 successor(std::move(digest));
    EXPECT_THROW(digest.update({}), recording_error);
    EXPECT_THROW(static_cast<void>(digest.digest()), recording_error);
    EXPECT_EQ(successor.digest(), sha512_of(""));
}

} // namespace
} // namespace vantor
