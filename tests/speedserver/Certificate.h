#pragma once

#include <openssl/ssl.h>

#include <string>

namespace skylet::test {

/// Lets the context's new connections show a certificate that is not as it should be: "expired", "notYetValid",
/// "otherName", "selfSigned", "unknownAuthority" or "forClients". `authority`: a PEM file with the certificate and key
/// that sign it; `name`: whom it is for, as in subjectAltName. Throws std::invalid_argument at another kind.
void useBadCertificate(SSL_CTX* context, const std::string& kind, const std::string& authority,
                       const std::string& name);

} // namespace skylet::test
