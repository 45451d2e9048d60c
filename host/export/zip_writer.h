/** @file
 * Writes ZIP archives without compression.
 */
#ifndef VANTOR_ZIP_WRITER_H
#define VANTOR_ZIP_WRITER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "recording/output_file.h"

namespace vantor
{

/**
 * Writes an archive, member after member. Members of any size are possible: all sizes have 64 bits, as in the
 * archives of NumPy.
 */
class zip_writer
{
public:
    /** @param file  an empty file, which must outlive this object */
    explicit zip_writer(output_file &file) : file_(file)
    {
    }

    /**
     * Begins a member.
     *
     * @param name  its name, in ASCII
     * @param size  how many bytes will be appended to it
     * @throws recording_error if the file cannot be written, like all functions of this class
     */
    void begin(const std::string &name, uint64_t size);

    /** Appends bytes to the member. */
    void append(std::span<const std::byte> bytes);

    /** Ends the member. */
    void end();

    /** Writes the list of members, which ends the archive. */
    void finish();

private:
    /** What the list contains about a member. */
    struct member
    {
        std::string name;
        uint64_t size = 0;
        uint64_t position = 0; /**< of its header */
        uint32_t checksum = 0;
    };

    void write(const std::string &bytes);

    output_file &file_;
    std::vector<member> members_;
    std::string buffer_; /**< bytes of the member that are not written yet */
    uint64_t position_ = 0;
};

} // namespace vantor

#endif
