#include "platform/linux/transfer/curl/CurlOptions.h"

#include <QDirIterator>

#include <openssl/ssl.h>

#include <string_view>

namespace skylet {

namespace {

/// Whether OpenSSL finds certificates by name in `folder`: libcurl names one where it was built with one, but the
/// system may keep only a bundle.
bool holdsHashedCertificates(const char* folder) {
    const QStringList hashedNames{QStringLiteral("????????.[0-9]")};
    return folder != nullptr && QDirIterator(QString::fromUtf8(folder), hashedNames, QDir::Files).hasNext();
}

CURLcode prepareTls(CURL* /*handle*/, void* context, void* /*data*/) {
    auto* tls = static_cast<SSL_CTX*>(context);
    SSL_CTX_clear_mode(tls, SSL_MODE_AUTO_RETRY);
    // Before 3.5 OpenSSL has no such exchange and does not know how to leave one out.
    SSL_CTX_set1_groups_list(tls, "DEFAULT:-X25519MLKEM768");
    return CURLE_OK;
}

} // namespace

void append(CurlList& list, const QByteArray& line) {
    list.reset(curl_slist_append(list.release(), line.constData()));
    Q_CHECK_PTR(list.get());
}

void initializeCurl() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    Q_UNUSED(result)
}

void useHashedCertificates(const CurlEasy& handle) {
    const char* folder = curl_version_info(CURLVERSION_NOW)->capath;
    static const bool areHashed = holdsHashedCertificates(folder);
    if (areHashed) {
        setCurlOption(handle, CURLOPT_CAPATH, folder);
        setCurlOption<const char*>(handle, CURLOPT_CAINFO, nullptr);
        setCurlOption(handle, CURLOPT_PROXY_CAPATH, folder);
        setCurlOption<const char*>(handle, CURLOPT_PROXY_CAINFO, nullptr);
    }
}

void tuneTls(const CurlEasy& handle) {
    // With another library libcurl would pass another context.
    if (const char* library = curl_version_info(CURLVERSION_NOW)->ssl_version;
        library != nullptr && std::string_view(library).starts_with("OpenSSL/")) {
        setCurlOption(handle, CURLOPT_SSL_CTX_FUNCTION, &prepareTls);
    }
}

} // namespace skylet
