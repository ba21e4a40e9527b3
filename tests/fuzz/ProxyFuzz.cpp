#include "fuzz/Fuzz.h"
#include "platform/linux/transfer/names/ProxySettings.h"

namespace skylet::test {
namespace {

/// A line each: the variables, in the order of their precedence, and the exemptions.
void readProxyVariables(FuzzInput input) {
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        // A variable cannot hold a NUL.
        const QByteArray text = QByteArray(input.line().constData());
        text.isEmpty() ? qunsetenv(name) : qputenv(name, text);
    }
    const bool isSet = !qEnvironmentVariableIsEmpty("https_proxy") || !qEnvironmentVariableIsEmpty("HTTPS_PROXY") ||
                       !qEnvironmentVariableIsEmpty("all_proxy") || !qEnvironmentVariableIsEmpty("ALL_PROXY");
    const QUrl target(QStringLiteral("https://one.example/generate_204"));
    const auto proxy = proxyFor(target);
    require(isSet || !proxy, "there is no proxy that nobody named");
    const QByteArray exempt = qgetenv(qEnvironmentVariableIsEmpty("no_proxy") ? "NO_PROXY" : "no_proxy");
    require(!isSet || !exempt.isEmpty() || proxy, "the proxy is used");
    if (proxy) {
        require(!proxy->url.isEmpty() || (proxy->host.isEmpty() && !proxy->wantsAddress),
                "no request goes past the proxy");
        require(proxy->port >= 0 && proxy->port <= 65535, "a port is one");
        require(!proxy->url.contains('\n') && !proxy->url.contains('\0'), "the address is one line");
        const QByteArrayList entries = QByteArray(exempt).replace(',', ' ').split(' ');
        require(exempt != "*" && !entries.contains("example") && !entries.contains(".example"), "exempt is exempt");
    }
}

const FuzzTarget proxyTarget("proxy", readProxyVariables);

} // namespace
} // namespace skylet::test
