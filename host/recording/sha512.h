/** @file
 * The SHA-512 digest, with which readers of a SigMF recording check its data.
 */
#ifndef VANTOR_SHA512_H
#define VANTOR_SHA512_H

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <openssl/types.h>

namespace vantor
{

/** A SHA-512 digest in the making, by libcrypto. */
class sha512
{
public:
    /**
     * Starts the digest of no bytes.
     *
     * @throws recording_error when libcrypto has no SHA-512
     */
    sha512();

    /**
     * Adds bytes to what is digested.
     *
     * @throws recording_error when libcrypto fails; from then on digest() throws, too
     */
    void update(std::span<const std::byte> bytes);

    /**
     * The digest of all bytes so far, as 128 hexadecimal digits; more bytes may follow.
     *
     * @throws recording_error when libcrypto fails
     */
    [[nodiscard]] std::string digest() const;

private:
    /** Frees a context of libcrypto. */
    struct context_deleter
    {
        void operator()(EVP_MD_CTX *context) const noexcept;
    };

    std::unique_ptr<EVP_MD_CTX, context_deleter> context_; /**< none after a failure */
};

/** The digest of a text, as 128 hexadecimal digits; fails as above. */
std::string sha512_of(std::string_view text);

} // namespace vantor

#endif
