#include "platform/linux/transfer/curl/CurlTransfer.h"

#include "platform/linux/transfer/TransferLog.h"
#include "platform/linux/transfer/curl/CurlOptions.h"
#include "platform/linux/transfer/curl/TcpInfo.h"

#include <QRegularExpression>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace skylet {

Q_LOGGING_CATEGORY(transferLog, "skylet.transfer", QtWarningMsg)

namespace {

/// A transfer fails when the head of its answer, all interim responses included, or what a proxy says before gets
/// longer.
constexpr std::size_t headLimitBytes = std::size_t{64} * 1024;

/// The status with which an HTTP proxy answered to CONNECT; 0: not yet.
long statusOfProxy(CURL* handle) {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_HTTP_CONNECTCODE, &status);
    return status;
}

/// libcurl would read, and throw away, the whole body of such an answer in one go, even one without end. Another answer
/// cannot be had: the request carried all the credentials there are.
bool isRefusedByProxy(CURL* handle) {
    constexpr long credentialsWanted = 407;
    return statusOfProxy(handle) == credentialsWanted;
}

/// TLS records before that are for the proxy itself.
bool hasProxyConnected(CURL* handle) {
    return statusOfProxy(handle) / 100 == 2;
}

std::array<char, NI_MAXHOST> addressText(const curl_sockaddr& address) {
    std::array<char, NI_MAXHOST> text{};
    ::getnameinfo(&address.addr, address.addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
    return text;
}

std::uint16_t localPort(curl_socket_t socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0 || address.ss_family == AF_UNIX) {
        return 0;
    }
    // Both families keep it in the same place (RFC 3493, 3.3).
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

} // namespace

CurlTransfer::CurlTransfer(CurlMulti& multi, const QUrl& url, NameResolver::Freshness freshness)
    : multi_(multi), url_(url), freshness_(freshness), proxy_(proxyFor(url)), names_(namesFor(url, proxy_)),
      easy_(curl_easy_init()) {
    Q_CHECK_PTR(easy_.get());
    setCurlOption(easy_, CURLOPT_URL, url.toEncoded().constData());
    setCurlOption(easy_, CURLOPT_PROTOCOLS_STR, "https");
    setCurlOption(easy_, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    setCurlOption(easy_, CURLOPT_NOSIGNAL, 1L);
    setCurlOption(easy_, CURLOPT_ERRORBUFFER, errorBuffer_.data());
    useHashedCertificates(easy_);
    tuneTls(easy_);
    setCurlOption(easy_, CURLOPT_PROXY, proxy_ ? proxy_->url.constData() : "");
    // ProxySettings has considered no_proxy.
    setCurlOption(easy_, CURLOPT_NOPROXY, "");
    setCurlOption(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    setCurlOption(easy_, CURLOPT_RESOLVER_START_FUNCTION, &CurlTransfer::nameWanted);
    setCurlOption(easy_, CURLOPT_OPENSOCKETFUNCTION, &CurlTransfer::openSocket);
    // A connection may outlive the transfer that opened it.
    setCurlOption(easy_, CURLOPT_CLOSESOCKETFUNCTION, &CurlMulti::closeSocket);
    setCurlOption(easy_, CURLOPT_CLOSESOCKETDATA, &multi);
    setCurlOption(easy_, CURLOPT_PREREQFUNCTION, &CurlTransfer::onPreRequest);
    setCurlOption(easy_, CURLOPT_HEADERFUNCTION, &CurlTransfer::headReceived);
    setCurlOption(easy_, CURLOPT_WRITEFUNCTION, &CurlTransfer::bodyReceived);
    setCurlOption(easy_, CURLOPT_VERBOSE, 1L);
    setCurlOption(easy_, CURLOPT_DEBUGFUNCTION, &CurlTransfer::debug);
    for (const auto option : {CURLOPT_PRIVATE, CURLOPT_RESOLVER_START_DATA, CURLOPT_OPENSOCKETDATA, CURLOPT_PREREQDATA,
                              CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_DEBUGDATA}) {
        setCurlOption(easy_, option, this);
    }
}

void CurlTransfer::start() {
    isRunning_ = true;
    // With a connection there, libcurl needs no name as a rule; where it does, it says so.
    if (multi_.openSockets().empty()) {
        lookUp(0);
    } else {
        begin();
    }
}

void CurlTransfer::stop() {
    if (std::exchange(isRunning_, false)) {
        multi_.remove(*this);
    }
}

void CurlTransfer::lookUp(std::size_t next) {
    if (next == names_.size()) {
        areNamesKnown_ = true;
        begin();
        return;
    }
    multi_.names().lookUp(
        names_[next].host, freshness_, [weak = weak_from_this(), next](const NameResolver::Addresses& addresses) {
            const auto transfer = weak.lock();
            if (!transfer || !transfer->isRunning_) {
                return;
            }
            if (addresses.empty()) {
                transfer->finish(transfer->proxy_ ? CURLE_COULDNT_RESOLVE_PROXY : CURLE_COULDNT_RESOLVE_HOST);
                return;
            }
            append(transfer->resolveEntries_, resolveEntry(transfer->names_[next], addresses));
            transfer->firstAddresses_.push_back(addresses.front());
            transfer->lookUp(next + 1);
        });
}

void CurlTransfer::begin() {
    begun_ = SteadyClock::now();
    if (!areNamesKnown_) {
        // What libcurl knows from an earlier transfer may be about to expire; the resolver sees to that in time.
        for (const auto& name : names_) {
            append(resolveEntries_, removalEntry(name));
        }
    }
    setCurlOption(easy_, CURLOPT_RESOLVE, resolveEntries_.get());
    multi_.add(*this);
}

void CurlTransfer::libcurlIsDone(CURLcode result) {
    if (std::exchange(isNameWanted_, false) && result != CURLE_OK) {
        begun_.reset();
        resolveEntries_.reset();
        firstAddresses_.clear();
        lookUp(0);
    } else {
        finish(result);
    }
}

void CurlTransfer::finish(CURLcode result) {
    const auto self = shared_from_this();
    isRunning_ = false;
    ended(result);
}

QString CurlTransfer::errorText(CURLcode result) const {
    if (result == CURLE_OK) {
        return QStringLiteral("the head of the answer breaks off");
    }
    // libcurl repeats a proxy's address, the password in it included.
    static const QRegularExpression userInfo(QStringLiteral("//[^/@\\s]*@"));
    return QString::fromUtf8(errorBuffer_.front() != '\0' ? errorBuffer_.data() : curl_easy_strerror(result))
        .replace(userInfo, QStringLiteral("//"));
}

std::chrono::milliseconds CurlTransfer::elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - started_);
}

std::optional<std::chrono::microseconds> CurlTransfer::roundTrip() const {
    for (const auto& socket : opened_) {
        const auto info = socket.isOpen() ? TcpInfo::of(socket.number) : std::nullopt;
        if (info && info->isEstablished) {
            return info->roundTrip;
        }
    }
    return std::nullopt;
}

void CurlTransfer::reportNames(bool areRight) {
    for (const auto& name : names_) {
        multi_.names().setStale(name.host, !areRight);
    }
    for (std::size_t index = 0; index < firstAddresses_.size() && !areRight; ++index) {
        multi_.names().putLast(names_[index].host, firstAddresses_[index]);
    }
}

int CurlTransfer::nameWanted(void* /*state*/, void* /*reserved*/, void* self) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const bool isUnreachable = transfer.proxy_ && transfer.proxy_->host.isEmpty();
    if (transfer.areNamesKnown_ && !isUnreachable) {
        // What is left to resolve are numeric addresses, for which libcurl needs no look-up.
        return 0;
    }
    transfer.isNameWanted_ = !transfer.areNamesKnown_;
    return 1;
}

curl_socket_t CurlTransfer::openSocket(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const auto socket = transfer.multi_.openSocket(*address);
    if (socket.number != CURL_SOCKET_BAD) {
        qCInfo(transferLog, "%s: connecting socket %d to %s%s", qPrintable(transfer.url_.authority()), socket.number,
               addressText(*address).data(), transfer.proxy_ ? ", a proxy" : "");
        transfer.opened_.push_back(socket);
        transfer.isThroughProxy_ = transfer.proxy_.has_value();
        transfer.connectionOpens();
    }
    return socket.number;
}

/// Called on kept connections too.
int CurlTransfer::onPreRequest(void* self, char* /*address*/, char* /*localAddress*/, int /*port*/, int /*localPort*/) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    long port = 0;
    curl_easy_getinfo(transfer.handle(), CURLINFO_LOCAL_PORT, &port);
    const auto sockets = transfer.multi_.openSockets();
    const auto place = std::find_if(sockets.begin(), sockets.end(),
                                    [port](curl_socket_t socket) { return port != 0 && localPort(socket) == port; });
    transfer.socket_ = place == sockets.end() ? CURL_SOCKET_BAD : *place;
    if (!transfer.opened_.empty()) {
        qCInfo(transferLog, "%s: connected socket %d after %lld ms", qPrintable(transfer.url_.authority()),
               transfer.socket_, static_cast<long long>(transfer.elapsed().count()));
    }
    transfer.requestStarts();
    return CURL_PREREQFUNC_OK;
}

void CurlTransfer::socketCloses(curl_socket_t socket) {
    if (socket_ == socket) {
        connectionCloses();
        socket_ = CURL_SOCKET_BAD;
    }
}

/// Called with a line at a time.
std::size_t CurlTransfer::headReceived(const char* data, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const std::string_view line(data, size * count);
    transfer.headBytes_ += line.size();
    if (transfer.headBytes_ > headLimitBytes) {
        return 0;
    }
    if ((line == "\r\n" || line == "\n") && !transfer.status_) {
        long status = 0;
        curl_easy_getinfo(transfer.handle(), CURLINFO_RESPONSE_CODE, &status);
        if (status >= 200) {
            transfer.status_ = static_cast<int>(status);
            transfer.headArrived();
        }
    }
    return line.size();
}

std::size_t CurlTransfer::bodyReceived(const char* /*data*/, std::size_t size, std::size_t count, void* self) {
    return static_cast<CurlTransfer*>(self)->bodyArrived(size * count) ? size * count : 0;
}

/// libcurl reports each TLS record and each line of a head, also in the midst of what it does at one go.
int CurlTransfer::debug(CURL* handle, curl_infotype type, char* /*data*/, std::size_t size, void* self) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    if (type == CURLINFO_SSL_DATA_OUT && transfer.isConnectingThroughProxy() &&
        (!transfer.proxy_->isOverTls || hasProxyConnected(handle))) {
        transfer.proxyConnected_ = SteadyClock::now();
    }
    if (type == CURLINFO_SSL_DATA_IN) {
        transfer.multi_.recordRead();
    } else if (type == CURLINFO_HEADER_IN) {
        // libcurl 7.88 reads a proxy's head for as long as lines arrive, byte by byte.
        transfer.proxyHeadBytes_ += transfer.isConnectingThroughProxy() ? size : 0;
        if (isRefusedByProxy(handle) || transfer.proxyHeadBytes_ > headLimitBytes) {
            transfer.multi_.cutConnections();
        }
    }
    return 0;
}

} // namespace skylet
