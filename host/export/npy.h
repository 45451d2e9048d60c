/** @file
 * The NPY format of NumPy, version 1.0.
 */
#ifndef VANTOR_NPY_H
#define VANTOR_NPY_H

#include <cstdint>
#include <string>
#include <vector>

namespace vantor
{

/**
 * The header of an NPY file: a description of the array, padded so that the data are aligned.
 *
 * @param type   type of the elements, such as "<c8"
 * @param shape  number of elements along each axis, the slowest first
 */
std::string npy_head(const std::string &type, const std::vector<uint64_t> &shape);

} // namespace vantor

#endif
