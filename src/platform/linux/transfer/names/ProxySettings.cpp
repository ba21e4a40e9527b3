#include "platform/linux/transfer/names/ProxySettings.h"

#include <QList>
#include <QString>

#include <algorithm>

namespace skylet {

namespace {

// libcurl's own: of any proxy, and of one that is spoken to over TLS.
constexpr int defaultPort = 1080;
constexpr int defaultTlsPort = 443;

QByteArray either(const char* first, const char* second) {
    const auto value = qgetenv(first);
    return value.isEmpty() ? qgetenv(second) : value;
}

QString withoutTrailingDot(QString name) {
    if (name.endsWith(u'.')) {
        name.chop(1);
    }
    return name;
}

/// Whether `entry` of no_proxy is `host` or a domain it is in.
bool covers(QString entry, const QString& host) {
    entry = withoutTrailingDot(entry);
    if (entry.startsWith(u'.')) {
        entry.remove(0, 1);
    }
    return !entry.isEmpty() &&
           (host.compare(entry, Qt::CaseInsensitive) == 0 || host.endsWith(u'.' + entry, Qt::CaseInsensitive));
}

bool isExempt(const QUrl& target, const QByteArray& exemptions) {
    if (exemptions == "*") {
        return true;
    }
    const auto host = withoutTrailingDot(target.host());
    const auto entries = QString::fromUtf8(exemptions).replace(u',', u' ').simplified().split(u' ');
    return std::any_of(entries.begin(), entries.end(), [&](const QString& entry) { return covers(entry, host); });
}

} // namespace

std::optional<Proxy> proxyFor(const QUrl& target) {
    auto text = either("https_proxy", "HTTPS_PROXY");
    if (text.isEmpty()) {
        text = either("all_proxy", "ALL_PROXY");
    }
    if (text.isEmpty() || isExempt(target, either("no_proxy", "NO_PROXY"))) {
        return std::nullopt;
    }
    const auto full = QString::fromUtf8(text.contains("://") ? text : "http://" + text);
    const QUrl url(full);
    if (!url.isValid()) {
        return Proxy();
    }
    const auto scheme = url.scheme();
    Proxy proxy;
    // As it is understood here, lest libcurl understands it otherwise and looks up another name.
    proxy.url = url.adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment).toEncoded();
    proxy.host = url.host(QUrl::FullyEncoded);
    proxy.isOverTls = scheme == u"https";
    proxy.port = url.port(proxy.isOverTls ? defaultTlsPort : defaultPort);
    proxy.wantsAddress = scheme == u"socks" || scheme == u"socks4" || scheme == u"socks5";
    return proxy;
}

} // namespace skylet
