/** @file
 * The NPY format of NumPy, version 1.0.
 */
#include "export/npy.h"

namespace vantor
{
namespace
{

/** Alignment of the data in an NPY file. */
constexpr size_t npy_alignment = 64;

/** Number of bytes before the header of an NPY file: magic, version, length of the header. */
constexpr size_t npy_prefix = 10;

} // namespace

std::string npy_head(const std::string &type, const std::vector<uint64_t> &shape)
{
    std::string list;
    for (const auto length : shape)
    {
        list.append(list.empty() ? "" : ", ").append(std::to_string(length));
    }
    std::string description = "{'descr': '" + type + "', 'fortran_order': False, 'shape': (" + list +
                              (shape.size() == 1 ? ",), }" : "), }");
    const auto unpadded = npy_prefix + description.size() + 1;
    description.append((npy_alignment - unpadded % npy_alignment) % npy_alignment, ' ');
    description += '\n';
    std::string head("\x93NUMPY\x01\x00", 8);
    head += static_cast<char>(description.size() & 0xFFU);
    head += static_cast<char>(description.size() >> 8U);
    return head + description;
}

} // namespace vantor
