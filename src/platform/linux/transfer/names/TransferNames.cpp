#include "platform/linux/transfer/names/TransferNames.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <utility>

namespace skylet {

namespace {

constexpr int httpsPort = 443;

/// IPv6 addresses of one link are addresses too ("fe80::1%25eth0" in a URL, RFC 6874).
bool isAddress(const QString& host) {
    in6_addr buffer{};
    const auto text = host.section(u'%', 0, 0).toUtf8();
    return ::inet_pton(AF_INET, text.constData(), &buffer) == 1 ||
           ::inet_pton(AF_INET6, text.constData(), &buffer) == 1;
}

} // namespace

std::vector<HostAndPort> namesFor(const QUrl& target, const std::optional<Proxy>& proxy) {
    std::vector<HostAndPort> names;
    const auto add = [&](const QString& host, int port) {
        if (!host.isEmpty() && !isAddress(host)) {
            names.push_back({host, port});
        }
    };
    if (proxy) {
        add(proxy->host, proxy->port);
    }
    if (!proxy || proxy->wantsAddress) {
        add(target.host(QUrl::FullyEncoded), target.port(httpsPort));
    }
    return names;
}

QByteArray resolveEntry(const HostAndPort& name, const NameResolver::Addresses& addresses) {
    QByteArray entry = '+' + name.host.toUtf8() + ':' + QByteArray::number(name.port);
    char separator = ':';
    for (const auto& address : addresses) {
        entry += std::exchange(separator, ',') + (address.contains(':') ? '[' + address + ']' : address);
    }
    return entry;
}

QByteArray removalEntry(const HostAndPort& name) {
    return '-' + name.host.toUtf8() + ':' + QByteArray::number(name.port);
}

} // namespace skylet
