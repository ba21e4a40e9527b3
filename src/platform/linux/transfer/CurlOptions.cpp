#include "platform/linux/transfer/CurlOptions.h"

#include <mutex>

namespace skylet {

namespace {

/// Where the system keeps its certificates both as one bundle and as hashed files, libcurl would read the whole bundle
/// for every connection; the hashed files are opened as needed.
void useHashedCertificates(const CurlEasy& handle) {
    if (const char* folder = curl_version_info(CURLVERSION_NOW)->capath) {
        setCurlOption(handle, CURLOPT_CAPATH, folder);
        setCurlOption<const char*>(handle, CURLOPT_CAINFO, nullptr);
    }
}

} // namespace

void initializeCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

CurlEasy makeRequest(const QUrl& url) {
    CurlEasy handle(curl_easy_init());
    if (!handle) {
        qFatal("libcurl is out of memory");
    }
    setCurlOption(handle, CURLOPT_URL, url.toEncoded().constData());
    setCurlOption(handle, CURLOPT_PROTOCOLS_STR, "https");
    setCurlOption(handle, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    setCurlOption(handle, CURLOPT_NOSIGNAL, 1L);
    // A name look-up that never ends must not hold up the program's end.
    setCurlOption(handle, CURLOPT_QUICK_EXIT, 1L);
    useHashedCertificates(handle);
    return handle;
}

} // namespace skylet
