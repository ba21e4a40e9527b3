#include "platform/linux/transfer/curl/CurlOptions.h"

#include <QDirIterator>
#include <QRegularExpression>

namespace skylet {

namespace {

/// Whether OpenSSL finds certificates by name in `folder`: libcurl names one where it was built with one, but the
/// system may keep only a bundle.
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

} // namespace

void initializeCurl() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    Q_UNUSED(result)
}

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

} // namespace skylet
