/** @file
 * A libcrypto whose configuration does not provide any algorithm.
 */
#ifndef VANTOR_LIBCRYPTO_WITHOUT_ALGORITHMS_H
#define VANTOR_LIBCRYPTO_WITHOUT_ALGORITHMS_H

#include <gmock/gmock.h>
#include <openssl/evp.h>

namespace vantor::test
{

/** While an object exists, libcrypto does not find any algorithm. */
class libcrypto_without_algorithms
{
public:
    libcrypto_without_algorithms()
    {
        EXPECT_EQ(EVP_set_default_properties(nullptr, "provider=missing"), 1);
    }
    libcrypto_without_algorithms(const libcrypto_without_algorithms &) = delete;
    libcrypto_without_algorithms &operator=(const libcrypto_without_algorithms &) = delete;
    libcrypto_without_algorithms(libcrypto_without_algorithms &&) = delete;
    libcrypto_without_algorithms &operator=(libcrypto_without_algorithms &&) = delete;

    ~libcrypto_without_algorithms()
    {
        EXPECT_EQ(EVP_set_default_properties(nullptr, ""), 1);
    }
};

} // namespace vantor::test

#endif
