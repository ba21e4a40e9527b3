#pragma once

#include "platform/linux/transfer/curl/CurlHandles.h"

#include <QByteArray>

namespace skylet {

/// Sets one option; stops the program where libcurl does not know it.
template <typename Value>
void setCurlOption(const CurlEasy& handle, CURLoption option, Value value) {
    if (const CURLcode result = curl_easy_setopt(handle.get(), option, value); result != CURLE_OK) {
        qFatal("libcurl refuses option %d: %s", static_cast<int>(option), curl_easy_strerror(result));
    }
}

/// Adds `line` to the end of `list`.
void append(CurlList& list, const QByteArray& line);

/// libcurl wants this before anything else. Harmless when repeated.
void initializeCurl();

/// Where the system keeps its certificates both as one bundle and as hashed files (openssl-rehash(1)), libcurl would
/// read the whole bundle for every connection; the hashed files are opened as needed.
void useHashedCertificates(const CurlEasy& handle);

/// OpenSSL reads on where a record holds no data, for as long as there are more of them. Here it reads one at a time,
/// or a server that sends key updates without end could hold whoever uses or closes the connection. And it leaves out
/// the post-quantum key exchange, which takes 2.3 kB of each new connection: nothing that is sent is a secret.
void tuneTls(const CurlEasy& handle);

} // namespace skylet
