/** @file
 * The SHA-512 digest.
 */
#include "recording/sha512.h"

#include <array>
#include <utility>

#include <openssl/err.h>
#include <openssl/evp.h>

#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

constexpr size_t digest_bytes = 64;

/** Throws with the first reason that libcrypto reports for a failed call. */
void require_digest(bool success)
{
    if (success)
    {
        return;
    }
    const char *const reason = ERR_reason_error_string(ERR_peek_error());
    ERR_clear_error();
    throw recording_error(
        "libcrypto cannot compute SHA-512: " + std::string(reason != nullptr ? reason : "unknown reason") +
        ". Check the configuration of OpenSSL (openssl.cnf).");
}

} // namespace

void sha512::context_deleter::operator()(EVP_MD_CTX *context) const noexcept
{
    EVP_MD_CTX_free(context);
}

sha512::sha512() : context_(EVP_MD_CTX_new())
{
    require_digest(context_ && EVP_DigestInit_ex(context_.get(), EVP_sha512(), nullptr) == 1);
}

void sha512::update(std::span<const std::byte> bytes)
{
    auto context = std::move(context_);
    require_digest(context && EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) == 1);
    context_ = std::move(context);
}

std::string sha512::digest() const
{
    const decltype(context_) finished(EVP_MD_CTX_new());
    require_digest(context_ && finished && EVP_MD_CTX_copy_ex(finished.get(), context_.get()) == 1);
    std::array<unsigned char, digest_bytes> bytes{};
    require_digest(EVP_DigestFinal_ex(finished.get(), bytes.data(), nullptr) == 1);

    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes)
    {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

std::string sha512_of(std::string_view text)
{
    sha512 digest;
    digest.update(std::as_bytes(std::span(text)));
    return digest.digest();
}

} // namespace vantor
