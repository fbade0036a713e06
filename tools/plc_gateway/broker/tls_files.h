// Certificates and keys in PEM form, from memory: OpenSSL's own functions that take a file's name wait for the writer
// of a pipe.
#pragma once

#include <openssl/ssl.h>

#include <string>

namespace plc_gateway {

// Each is false where the text does not hold what it is for; OpenSSL's last error is the reason.

// All certificates and lists of revoked ones, which may sign the other side's.
bool use_authorities(SSL_CTX* context, const std::string& pem);
// The own certificate, then those that lead to its authority.
bool use_certificates(SSL_CTX* context, const std::string& pem);
// The key of the certificate that is in use. One with a passphrase is refused.
bool use_key(SSL_CTX* context, const std::string& pem);

}  // namespace plc_gateway
