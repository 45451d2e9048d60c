/** @file
 * Writes ZIP archives without compression.
 */
#include "export/zip_writer.h"

#include <array>

namespace vantor
{
namespace
{

/** Signatures of the parts of an archive. */
constexpr uint32_t member_signature = 0x04034b50;
constexpr uint32_t entry_signature = 0x02014b50;
constexpr uint32_t list_signature = 0x06064b50;
constexpr uint32_t locator_signature = 0x07064b50;
constexpr uint32_t end_signature = 0x06054b50;

/** Version of the format that a reader needs: 4.5, for sizes of 64 bits. */
constexpr uint16_t needed_version = 45;

/** In place of a size or position that is in the extra field. */
constexpr uint32_t in_extra_field = 0xFFFFFFFF;

/** Identifies the extra field with sizes of 64 bits. */
constexpr uint16_t sizes_field = 1;

/** 1 January 1980, the earliest date: an archive depends on the recording only. */
constexpr uint16_t earliest_date = 0x21;

/** Position of the checksum in the header of a member. */
constexpr uint64_t checksum_offset = 14;

/** How many bytes are collected before they are written. */
constexpr size_t buffer_size = 65536;

/** Appends numbers, least significant byte first. */
template <typename... numbers_t> void put(std::string &bytes, numbers_t... numbers)
{
    const auto put_one = [&bytes](auto number) {
        for (size_t i = 0; i < sizeof(number); ++i)
        {
            bytes += static_cast<char>(static_cast<uint64_t>(number) >> (8 * i) & 0xFFU);
        }
    };
    (put_one(numbers), ...);
}

/** The table of the CRC-32 of each byte. */
constexpr std::array<uint32_t, 256> make_checksums()
{
    constexpr uint32_t polynomial = 0xEDB88320;
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i)
    {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit)
        {
            table[i] = table[i] >> 1U ^ ((table[i] & 1U) != 0 ? polynomial : 0U);
        }
    }
    return table;
}

/** Continues a CRC-32, which starts at 0. */
uint32_t checksum(uint32_t before, std::span<const std::byte> bytes)
{
    static constexpr auto table = make_checksums();
    uint32_t value = ~before;
    for (const auto byte : bytes)
    {
        value = table[(value ^ static_cast<uint32_t>(byte)) & 0xFFU] ^ value >> 8U;
    }
    return ~value;
}

} // namespace

void zip_writer::begin(const std::string &name, uint64_t size)
{
    members_.push_back({.name = name, .size = size, .position = position_, .checksum = 0});
    std::string head;
    put(head, member_signature, needed_version, uint16_t{0}, uint16_t{0}, uint16_t{0}, earliest_date,
        uint32_t{0}, in_extra_field, in_extra_field, static_cast<uint16_t>(name.size()), uint16_t{20});
    head += name;
    put(head, sizes_field, uint16_t{16}, size, size);
    write(head);
}

void zip_writer::append(std::span<const std::byte> bytes)
{
    members_.back().checksum = checksum(members_.back().checksum, bytes);
    // A text contains char; the member contains bytes.
    buffer_.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    if (buffer_.size() >= buffer_size)
    {
        write(buffer_);
        buffer_.clear();
    }
}

void zip_writer::end()
{
    write(buffer_);
    buffer_.clear();
    std::string bytes;
    put(bytes, members_.back().checksum);
    file_.overwrite(members_.back().position + checksum_offset, std::as_bytes(std::span(bytes)));
}

void zip_writer::finish()
{
    std::string list;
    for (const auto &entry : members_)
    {
        put(list, entry_signature, needed_version, needed_version, uint16_t{0}, uint16_t{0}, uint16_t{0},
            earliest_date, entry.checksum, in_extra_field, in_extra_field,
            static_cast<uint16_t>(entry.name.size()), uint16_t{28}, uint16_t{0}, uint16_t{0}, uint16_t{0},
            uint32_t{0}, in_extra_field);
        list += entry.name;
        put(list, sizes_field, uint16_t{24}, entry.size, entry.size, entry.position);
    }
    const uint64_t size = list.size();
    const uint64_t count = members_.size();
    put(list, list_signature, uint64_t{44}, needed_version, needed_version, uint32_t{0}, uint32_t{0}, count,
        count, size, position_);
    put(list, locator_signature, uint32_t{0}, position_ + size, uint32_t{1});
    put(list, end_signature, uint16_t{0}, uint16_t{0}, static_cast<uint16_t>(count),
        static_cast<uint16_t>(count), static_cast<uint32_t>(size), in_extra_field, uint16_t{0});
    write(list);
}

/** Writes bytes at the end of the file. */
void zip_writer::write(const std::string &bytes)
{
    file_.append(bytes);
    position_ += bytes.size();
}

} // namespace vantor
