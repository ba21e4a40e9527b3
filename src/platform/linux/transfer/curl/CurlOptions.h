#pragma once

#include "platform/linux/transfer/curl/CurlHandles.h"

#include <QUrl>
#include <QtGlobal>

#include <cstddef>

namespace skylet {

/// Bytes of response head, all interim responses included, after which a transfer is to fail. So it is with what a
/// proxy says before.
inline constexpr std::size_t headLimitBytes = std::size_t{64} * 1024;

/// Sets one option; stops the program where libcurl does not know it.
template <typename Value>
void setCurlOption(const CurlEasy& handle, CURLoption option, Value value) {
    if (const CURLcode result = curl_easy_setopt(handle.get(), option, value); result != CURLE_OK) {
        qFatal("libcurl refuses option %d: %s", static_cast<int>(option), curl_easy_strerror(result));
    }
}

/// libcurl wants this before anything else. Harmless when repeated.
void initializeCurl();

/// A handle that asks for `url` by what holds for every request of the program: https alone, the system's certificates,
/// no signals.
CurlEasy makeRequest(const QUrl& url);

} // namespace skylet
