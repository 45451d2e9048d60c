/** @file
 * The SHA-512 digest (FIPS 180-4), by which SigMF recordings vouch for their data.
 */
#ifndef VANTOR_SHA512_H
#define VANTOR_SHA512_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace vantor
{

/** A digest in the making. */
class sha512
{
public:
    /** Adds bytes to what is digested. */
    void update(std::span<const std::byte> bytes);

    /** The digest of all bytes so far, as 128 hexadecimal digits; more bytes may follow. */
    [[nodiscard]] std::string digest() const;

private:
    static constexpr size_t block_size = 128;

    void process(const std::byte *block);

    std::array<uint64_t, 8> state_{0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b,
                                   0xa54ff53a5f1d36f1, 0x510e527fade682d1, 0x9b05688c2b3e6c1f,
                                   0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};
    std::array<std::byte, block_size> block_{}; // begun, not yet processed
    size_t filled_ = 0;                         // bytes in block_
    uint64_t length_ = 0;                       // bytes in all
};

/** The digest of a text, as 128 hexadecimal digits. */
std::string sha512_of(std::string_view text);

} // namespace vantor

#endif
