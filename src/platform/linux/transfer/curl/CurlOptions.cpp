#include "platform/linux/transfer/curl/CurlOptions.h"

#include <QDirIterator>
#include <QRegularExpression>

#include <mutex>

namespace skylet {

namespace {

/// Whether OpenSSL finds certificates by name in `folder` (openssl-rehash(1)): libcurl names one where it was built
/// with one, but the system may keep only a bundle.
bool holdsHashedCertificates(const QString& folder) {
    static const QRegularExpression hashedName(QStringLiteral("^[0-9a-f]{8}\\.[0-9]+$"));
    QDirIterator files(folder, QDir::Files);
    while (files.hasNext()) {
        files.next();
        if (hashedName.match(files.fileName()).hasMatch()) {
            return true;
        }
    }
    return false;
}

/// Where the system keeps its certificates both as one bundle and as hashed files, libcurl would read the whole bundle
/// for every connection, also for one to a proxy over TLS; the hashed files are opened as needed.
void useHashedCertificates(const CurlEasy& handle) {
    const char* folder = curl_version_info(CURLVERSION_NOW)->capath;
    static const bool areHashed = folder != nullptr && holdsHashedCertificates(QString::fromUtf8(folder));
    if (areHashed) {
        setCurlOption(handle, CURLOPT_CAPATH, folder);
        setCurlOption<const char*>(handle, CURLOPT_CAINFO, nullptr);
        setCurlOption(handle, CURLOPT_PROXY_CAPATH, folder);
        setCurlOption<const char*>(handle, CURLOPT_PROXY_CAINFO, nullptr);
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
    useHashedCertificates(handle);
    return handle;
}

} // namespace skylet
