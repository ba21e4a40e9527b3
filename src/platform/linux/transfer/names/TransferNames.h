#pragma once

#include "platform/linux/transfer/names/NameResolver.h"
#include "platform/linux/transfer/names/ProxySettings.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace skylet {

/// A name that a connection needs the addresses of, and the port it is for.
struct HostAndPort {
    QString host;
    int port = 0;

    bool operator==(const HostAndPort&) const = default;
};

/// The names that a connection for the https `target` cannot be opened without, in the order in which libcurl wants
/// them: the proxy's, the target's unless the proxy looks that up. Numeric addresses are none.
std::vector<HostAndPort> namesFor(const QUrl& target, const std::optional<Proxy>& proxy);

/// Tells libcurl the addresses of a name (CURLOPT_RESOLVE), which age there like an answer of its own.
QByteArray resolveEntry(const HostAndPort& name, const NameResolver::Addresses& addresses);

/// Has libcurl forget the addresses of a name.
QByteArray removalEntry(const HostAndPort& name);

} // namespace skylet
