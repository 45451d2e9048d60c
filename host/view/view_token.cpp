/** @file
 * The token of the live view.
 */
#include <array>

#include <openssl/rand.h>

#include "vantor/errors.h"
#include "view/view_server.h"

namespace vantor
{

std::string make_view_token()
{
    std::array<unsigned char, 16> random{};
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1)
    {
        throw error("This machine gives no random numbers for the token of the live view.");
    }
    std::string token;
    for (const unsigned char byte : random)
    {
        constexpr std::string_view digits = "0123456789abcdef";
        token += digits[byte / 16U];
        token += digits[byte % 16U];
    }
    return token;
}

} // namespace vantor
