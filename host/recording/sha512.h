/** @file
 * The SHA-512 digest, which readers of a SigMF recording use to check its data.
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

/** Computes a SHA-512 digest with libcrypto. */
class sha512
{
public:
    /**
     * Starts a digest, of zero bytes so far.
     *
     * @throws recording_error if libcrypto does not support SHA-512
     */
    sha512();

    /**
     * Adds bytes.
     *
     * @throws recording_error if libcrypto fails; from then on digest() throws, too
     */
    void update(std::span<const std::byte> bytes);

    /**
     * Returns the digest of all bytes so far, as 128 hexadecimal digits; more bytes can be added afterwards.
     *
     * @throws recording_error if libcrypto fails
     */
    [[nodiscard]] std::string digest() const;

private:
    /** Frees a libcrypto context. */
    struct context_deleter
    {
        void operator()(EVP_MD_CTX *context) const noexcept;
    };

    std::unique_ptr<EVP_MD_CTX, context_deleter> context_; /**< null after a failure */
};

/** Returns the digest of a text, as 128 hexadecimal digits; throws like the functions above. */
std::string sha512_of(std::string_view text);

} // namespace vantor

#endif
