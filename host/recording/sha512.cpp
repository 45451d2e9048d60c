/** @file
 * The SHA-512 digest (FIPS 180-4).
 */
#include "recording/sha512.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace vantor
{
namespace
{

/** The first 64 bits of the fractional parts of the cube roots of the first 80 primes. */
constexpr std::array<uint64_t, 80> round_constants{
    0x428a2f98d728ae22, 0x7137449123ef65cd, 0xb5c0fbcfec4d3b2f, 0xe9b5dba58189dbbc, 0x3956c25bf348b538,
    0x59f111f1b605d019, 0x923f82a4af194f9b, 0xab1c5ed5da6d8118, 0xd807aa98a3030242, 0x12835b0145706fbe,
    0x243185be4ee4b28c, 0x550c7dc3d5ffb4e2, 0x72be5d74f27b896f, 0x80deb1fe3b1696b1, 0x9bdc06a725c71235,
    0xc19bf174cf692694, 0xe49b69c19ef14ad2, 0xefbe4786384f25e3, 0x0fc19dc68b8cd5b5, 0x240ca1cc77ac9c65,
    0x2de92c6f592b0275, 0x4a7484aa6ea6e483, 0x5cb0a9dcbd41fbd4, 0x76f988da831153b5, 0x983e5152ee66dfab,
    0xa831c66d2db43210, 0xb00327c898fb213f, 0xbf597fc7beef0ee4, 0xc6e00bf33da88fc2, 0xd5a79147930aa725,
    0x06ca6351e003826f, 0x142929670a0e6e70, 0x27b70a8546d22ffc, 0x2e1b21385c26c926, 0x4d2c6dfc5ac42aed,
    0x53380d139d95b3df, 0x650a73548baf63de, 0x766a0abb3c77b2a8, 0x81c2c92e47edaee6, 0x92722c851482353b,
    0xa2bfe8a14cf10364, 0xa81a664bbc423001, 0xc24b8b70d0f89791, 0xc76c51a30654be30, 0xd192e819d6ef5218,
    0xd69906245565a910, 0xf40e35855771202a, 0x106aa07032bbd1b8, 0x19a4c116b8d2d0c8, 0x1e376c085141ab53,
    0x2748774cdf8eeb99, 0x34b0bcb5e19b48a8, 0x391c0cb3c5c95a63, 0x4ed8aa4ae3418acb, 0x5b9cca4f7763e373,
    0x682e6ff3d6b2b8a3, 0x748f82ee5defb2fc, 0x78a5636f43172f60, 0x84c87814a1f0ab72, 0x8cc702081a6439ec,
    0x90befffa23631e28, 0xa4506cebde82bde9, 0xbef9a3f7b2c67915, 0xc67178f2e372532b, 0xca273eceea26619c,
    0xd186b8c721c0c207, 0xeada7dd6cde0eb1e, 0xf57d4f7fee6ed178, 0x06f067aa72176fba, 0x0a637dc5a2c898a6,
    0x113f9804bef90dae, 0x1b710b35131c471b, 0x28db77f523047d84, 0x32caab7b40c72493, 0x3c9ebe0a15c9bebc,
    0x431d67c49c100d4c, 0x4cc5d4becb3e42b6, 0x597f299cfc657e2a, 0x5fcb6fab3ad6faec, 0x6c44198c4a475817,
};

/** Reads a 64-bit number, most significant byte first. */
uint64_t load(const std::byte *bytes)
{
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i)
    {
        value = value << 8U | std::to_integer<uint64_t>(bytes[i]);
    }
    return value;
}

/** Expands a block into the message schedule of the 80 rounds. */
std::array<uint64_t, 80> schedule(const std::byte *block)
{
    std::array<uint64_t, 80> w{};
    for (size_t t = 0; t < 16; ++t)
    {
        w[t] = load(block + 8 * t);
    }
    for (size_t t = 16; t < w.size(); ++t)
    {
        const auto a = w[t - 15];
        const auto b = w[t - 2];
        const auto sigma0 = std::rotr(a, 1) ^ std::rotr(a, 8) ^ (a >> 7U);
        const auto sigma1 = std::rotr(b, 19) ^ std::rotr(b, 61) ^ (b >> 6U);
        w[t] = sigma1 + w[t - 7] + sigma0 + w[t - 16];
    }
    return w;
}

} // namespace

void sha512::update(std::span<const std::byte> bytes)
{
    length_ += bytes.size();
    while (!bytes.empty())
    {
        if (filled_ == 0 && bytes.size() >= block_size)
        {
            process(bytes.data());
            bytes = bytes.subspan(block_size);
            continue;
        }
        const auto count = std::min(block_size - filled_, bytes.size());
        std::memcpy(block_.data() + filled_, bytes.data(), count);
        filled_ += count;
        bytes = bytes.subspan(count);
        if (filled_ == block_size)
        {
            process(block_.data());
            filled_ = 0;
        }
    }
}

std::string sha512::digest() const
{
    // The padding: a single 1 bit, zeros, and the length in bits as a 128-bit number at the end of a block.
    std::array<std::byte, 2 * block_size> padding{std::byte{0x80}};
    const size_t rest = filled_ < block_size - 16 ? block_size - filled_ : 2 * block_size - filled_;
    const auto bits = length_ * 8;
    for (size_t i = 0; i < 8; ++i)
    {
        padding[rest - 1 - i] = static_cast<std::byte>(bits >> (8 * i));
    }
    padding[rest - 9] = static_cast<std::byte>(length_ >> 61U);
    sha512 finished = *this;
    finished.update(std::span(padding).first(rest));

    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const auto word : finished.state_)
    {
        for (int shift = 60; shift >= 0; shift -= 4)
        {
            text += digits[word >> static_cast<unsigned>(shift) & 15U];
        }
    }
    return text;
}

/** Works a whole block into the state. */
void sha512::process(const std::byte *block)
{
    const auto w = schedule(block);
    auto [a, b, c, d, e, f, g, h] = state_;
    for (size_t t = 0; t < w.size(); ++t)
    {
        const auto sum1 = std::rotr(e, 14) ^ std::rotr(e, 18) ^ std::rotr(e, 41);
        const auto choice = (e & f) ^ (~e & g);
        const auto t1 = h + sum1 + choice + round_constants[t] + w[t];
        const auto sum0 = std::rotr(a, 28) ^ std::rotr(a, 34) ^ std::rotr(a, 39);
        const auto majority = (a & b) ^ (a & c) ^ (b & c);
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + sum0 + majority;
    }
    const std::array<uint64_t, 8> result{a, b, c, d, e, f, g, h};
    for (size_t i = 0; i < state_.size(); ++i)
    {
        state_[i] += result[i];
    }
}

std::string sha512_of(std::string_view text)
{
    sha512 digest;
    digest.update(std::as_bytes(std::span(text)));
    return digest.digest();
}

} // namespace vantor
