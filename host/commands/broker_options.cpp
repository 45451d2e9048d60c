/** @file
 * Options of commands that use a message broker.
 */
#include "commands/broker_options.h"

#include "commands/usage_error.h"

namespace vantor
{

std::vector<command_option> security_options(broker_security &target)
{
    return {
        {.name = "--tls-ca",
         .help = "Use TLS, and trust the certificates in this file",
         .value = &target.authorities,
         .value_name = "FILE"},
        {.name = "--tls-cert",
         .help = "Certificate of this program; needs --tls-key",
         .value = &target.certificate,
         .value_name = "FILE"},
        {.name = "--tls-key", .help = "Key of the certificate", .value = &target.key, .value_name = "FILE"},
        {.name = "--credentials",
         .help = "File with the credentials of the user, as docs/fleet.md describes",
         .value = &target.credentials,
         .value_name = "FILE"}};
}

void require_complete(const broker_security &given)
{
    if (given.certificate.empty() != given.key.empty())
    {
        throw usage_error("--tls-cert and --tls-key need each other: give both, or none");
    }
    if (!given.certificate.empty() && given.authorities.empty())
    {
        throw usage_error("--tls-cert needs --tls-ca, which switches TLS on");
    }
}

} // namespace vantor
