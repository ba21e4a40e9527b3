#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

namespace skylet {

/// A proxy that requests to some host go through.
struct Proxy {
    /// The value for CURLOPT_PROXY.
    QByteArray url;
    /// Its host; empty where the environment's text names no host, and nothing can be reached.
    QString host;
    int port = 0;
    /// SOCKS4 and SOCKS5 get the address of the target, which is looked up here; all others get its name.
    bool wantsAddress = false;
    /// TLS is spoken with the proxy itself too.
    bool isOverTls = false;
};

/// The proxy that the environment names for an https `target`, by the rules of libcurl (curl(1), "Environment"):
/// https_proxy before all_proxy, small letters before capitals, and no_proxy with its list of hosts and domains, "*"
/// for all. Networks in no_proxy ("10.0.0.0/8") are not understood: they are about targets without a name. Empty: the
/// target is asked directly.
std::optional<Proxy> proxyFor(const QUrl& target);

} // namespace skylet
