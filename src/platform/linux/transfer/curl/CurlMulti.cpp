#include "platform/linux/transfer/curl/CurlMulti.h"

#include "platform/linux/system/FileDescriptor.h"
#include "platform/linux/transfer/curl/CurlOptions.h"
#include "platform/linux/transfer/curl/TcpInfo.h"
#include "platform/linux/transfer/names/ProxySettings.h"
#include "platform/linux/transfer/names/TransferNames.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace skylet {

namespace {

std::optional<Proxy> proxyOfEnvironment(const QUrl& target) {
    return proxyFor(target, [](const char* variable) { return qgetenv(variable); });
}

/// A notifier may be dropped from inside its own signal.
void dropNotifier(QSocketNotifier* notifier) {
    notifier->setEnabled(false);
    notifier->deleteLater();
}

/// Two ends of a connection that leads nowhere.
struct DeadEnds {
    DeadEnds() {
        std::array<int, 2> ends{-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0) {
            near = FileDescriptor(ends[0]);
            far = FileDescriptor(ends[1]);
        }
    }

    FileDescriptor near;
    FileDescriptor far;
};

/// Tells a socket from others that had, or will have, its number. Absent: there is no open file of that number.
std::optional<ino_t> identityOf(curl_socket_t socket) {
    struct stat status {};
    return ::fstat(socket, &status) == 0 ? std::optional(status.st_ino) : std::nullopt;
}

/// Whatever the kernel still has to send for it is thrown away when it is closed (socket(7)); what is under way to us
/// is refused.
void resetOnClose(curl_socket_t socket) {
    const linger atOnce{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

/// With which an HTTP proxy answered to CONNECT; 0: not yet.
long statusOfProxy(CURL* handle) {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_HTTP_CONNECTCODE, &status);
    return status;
}

/// libcurl would read, and throw away, the whole body of such an answer in one go, even one without end. No other
/// answer can follow it: what there is of credentials was in the question.
bool isRefusedByProxy(CURL* handle) {
    constexpr long credentialsWanted = 407;
    return statusOfProxy(handle) == credentialsWanted;
}

/// What comes before, in TLS, is said to the proxy itself.
bool hasProxyConnected(CURL* handle) {
    return statusOfProxy(handle) / 100 == 2;
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

struct CurlMulti::Transfer {
    Transfer(CurlMulti& multi, const QUrl& target, NameResolver::Freshness nameFreshness)
        : owner(multi), freshness(nameFreshness), proxy(proxyOfEnvironment(target)), names(namesFor(target, proxy)) {}

    void tell(const QByteArray& entry) {
        entries.reset(curl_slist_append(entries.release(), entry.constData()));
        Q_CHECK_PTR(entries.get());
    }

    /// A line of `size` bytes has come in a head. True: the proxy's is longer than any that is meant well. libcurl 7.88
    /// reads on for as long as lines arrive, byte by byte, and tells nobody where its heads are not asked for.
    bool proxyTalksOn(std::size_t size) {
        if (isReachingThroughProxy && !proxyPassed) {
            proxyHeadBytes += size;
        }
        return proxyHeadBytes > headLimitBytes;
    }

    CurlMulti& owner;
    const NameResolver::Freshness freshness;
    const std::optional<Proxy> proxy;
    const std::vector<HostAndPort> names;
    /// What libcurl is told of the names; lives as long as libcurl may read it.
    CurlList entries;
    bool areNamesKnown = false;
    /// libcurl asked for a name that is not known yet.
    bool isNameWanted = false;
    bool isReachingThroughProxy = false;
    /// The sockets of the connections that were begun for it, as in `sockets_`.
    std::map<curl_socket_t, ino_t> opened;
    std::optional<SteadyClock::time_point> begun;
    std::optional<SteadyClock::time_point> proxyPassed;
    /// Of the head with which the proxy answers.
    std::size_t proxyHeadBytes = 0;
};

CurlMulti::CurlMulti(NameResolver& names, Settings settings, DoneHandler done)
    : names_(names), settings_(std::move(settings)), done_(std::move(done)),
      guard_([this] { return settings_.progress ? settings_.progress() : ended_; }), multi_(curl_multi_init()) {
    if (!multi_) {
        qFatal("libcurl is out of memory");
    }
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.callOnTimeout([this] { act(CURL_SOCKET_TIMEOUT, 0); });
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &CurlMulti::watchSocket);
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &CurlMulti::setTimer);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
}

CurlMulti::~CurlMulti() {
    // libcurl reads from a connection once more before it closes it, and TLS goes on reading for as long as records
    // without data arrive. What it finds here is a connection that is silent.
    const DeadEnds ends;
    if (ends.near.isValid()) {
        for (const auto socket : openSockets()) {
            resetOnClose(socket);
            ::dup2(ends.near.get(), socket);
        }
    }
    // Closing the connections still calls back for their sockets.
    multi_.reset();
}

void CurlMulti::add(CURL* handle, const QUrl& target, NameResolver::Freshness names) {
    const auto transfer = std::make_shared<Transfer>(*this, target, names);
    transfers_[handle] = transfer;
    configure(handle, *transfer);
    // With a connection there, libcurl needs no name as a rule; where it does, it says so.
    if (openSockets().empty()) {
        lookUp(handle, 0);
    } else {
        begin(handle);
    }
}

void CurlMulti::configure(CURL* handle, Transfer& transfer) {
    curl_easy_setopt(handle, CURLOPT_PROXY, transfer.proxy ? transfer.proxy->url.constData() : "");
    // The exceptions have been considered.
    curl_easy_setopt(handle, CURLOPT_NOPROXY, "");
    curl_easy_setopt(handle, CURLOPT_RESOLVER_START_FUNCTION, &CurlMulti::resolverStarts);
    curl_easy_setopt(handle, CURLOPT_RESOLVER_START_DATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETFUNCTION, &CurlMulti::openSocket);
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETDATA, &transfer);
    // A connection may outlive the transfer that opened it.
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, &CurlMulti::closeSocket);
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETDATA, this);
    curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
    curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, &CurlMulti::debug);
    curl_easy_setopt(handle, CURLOPT_DEBUGDATA, &transfer);
}

void CurlMulti::lookUp(CURL* handle, std::size_t next) {
    const auto transfer = transfers_.at(handle);
    if (next == transfer->names.size()) {
        transfer->areNamesKnown = true;
        begin(handle);
        return;
    }
    names_.lookUp(transfer->names[next].host, transfer->freshness,
                  lifetime_.guard([this, handle, next,
                                   weak = std::weak_ptr<Transfer>(transfer)](const NameResolver::Addresses& addresses) {
                      const auto waiting = weak.lock();
                      if (!waiting) {
                          return;
                      }
                      if (addresses.empty()) {
                          ended(handle, waiting->proxy ? CURLE_COULDNT_RESOLVE_PROXY : CURLE_COULDNT_RESOLVE_HOST);
                          return;
                      }
                      waiting->tell(resolveEntry(waiting->names[next], addresses));
                      lookUp(handle, next + 1);
                  }));
}

void CurlMulti::begin(CURL* handle) {
    auto& transfer = *transfers_.at(handle);
    transfer.begun = SteadyClock::now();
    if (!transfer.areNamesKnown) {
        // What libcurl was told for an earlier transfer may be about to expire; the resolver sees to that in time.
        for (const auto& name : transfer.names) {
            transfer.tell(removalEntry(name));
        }
    }
    curl_easy_setopt(handle, CURLOPT_RESOLVE, transfer.entries.get());
    curl_multi_add_handle(multi_.get(), handle);
}

void CurlMulti::remove(CURL* handle) {
    takeOut(handle);
    transfers_.erase(handle);
}

/// May close its connection, from which libcurl reads once more then.
void CurlMulti::takeOut(CURL* handle) {
    guard_.actionBegins();
    curl_multi_remove_handle(multi_.get(), handle);
    guard_.actionEnds();
}

std::optional<CurlMulti::SteadyClock::time_point> CurlMulti::beginning(CURL* handle) const {
    const auto place = transfers_.find(handle);
    return place == transfers_.end() ? std::nullopt : place->second->begun;
}

void CurlMulti::doubtNames(const QUrl& target) {
    for (const auto& name : namesFor(target, proxyOfEnvironment(target))) {
        names_.doubt(name.host);
    }
}

std::optional<std::chrono::microseconds> CurlMulti::roundTrip(CURL* handle) const {
    const auto place = transfers_.find(handle);
    if (place == transfers_.end()) {
        return std::nullopt;
    }
    for (const auto& [socket, identity] : place->second->opened) {
        const auto info = identityOf(socket) == identity ? TcpInfo::of(socket) : std::nullopt;
        if (info && info->isEstablished()) {
            return info->roundTrip();
        }
    }
    return std::nullopt;
}

void CurlMulti::confirmNames(const QUrl& target) {
    for (const auto& name : namesFor(target, proxyOfEnvironment(target))) {
        names_.confirm(name.host);
    }
}

bool CurlMulti::isWaitingForProxy(CURL* handle) const {
    const auto place = transfers_.find(handle);
    return place != transfers_.end() && place->second->isReachingThroughProxy && !place->second->proxyPassed &&
           roundTrip(handle);
}

std::optional<CurlMulti::SteadyClock::time_point> CurlMulti::proxyPassed(CURL* handle) const {
    const auto place = transfers_.find(handle);
    return place == transfers_.end() ? std::nullopt : place->second->proxyPassed;
}

curl_socket_t CurlMulti::socketOf(CURL* handle) const {
    long port = 0;
    curl_easy_getinfo(handle, CURLINFO_LOCAL_PORT, &port);
    const auto sockets = openSockets();
    const auto place = std::find_if(sockets.begin(), sockets.end(),
                                    [port](curl_socket_t socket) { return port != 0 && localPort(socket) == port; });
    return place == sockets.end() ? CURL_SOCKET_BAD : *place;
}

/// libcurl says nothing when it closes a socket that has not got a connection.
std::vector<curl_socket_t> CurlMulti::openSockets() const {
    std::vector<curl_socket_t> open;
    for (const auto& [socket, identity] : sockets_) {
        if (identityOf(socket) == identity) {
            open.push_back(socket);
        }
    }
    return open;
}

int CurlMulti::resolverStarts(void* /*state*/, void* /*reserved*/, void* transfer) {
    auto& asking = *static_cast<Transfer*>(transfer);
    const bool isUnreachable = asking.proxy && asking.proxy->host.isEmpty();
    if (asking.areNamesKnown && !isUnreachable) {
        // What is left to resolve are addresses, which takes libcurl no look-up.
        return 0;
    }
    asking.isNameWanted = !asking.areNamesKnown;
    return 1;
}

curl_socket_t CurlMulti::openSocket(void* transfer, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto& opening = *static_cast<Transfer*>(transfer);
    auto& multi = opening.owner;
    const auto socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket < 0) {
        return CURL_SOCKET_BAD;
    }
    // What the peer sends is acknowledged together with our next step of the handshake, which follows at once (tcp(7)).
    constexpr int off = 0;
    ::setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &off, sizeof off);
    if (const auto bytes = multi.settings_.receiveBufferBytes) {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &*bytes, sizeof *bytes);
    }
    opening.isReachingThroughProxy = opening.proxy.has_value();
    const auto identity = identityOf(socket).value_or(0);
    multi.sockets_[socket] = identity;
    opening.opened[socket] = identity;
    multi.guard_.connectionOpened();
    if (multi.settings_.opening) {
        multi.settings_.opening();
    }
    return socket;
}

int CurlMulti::closeSocket(void* self, curl_socket_t socket) {
    auto& multi = *static_cast<CurlMulti*>(self);
    multi.sockets_.erase(socket);
    if (multi.settings_.closing) {
        multi.settings_.closing(socket);
    }
    resetOnClose(socket);
    ::close(socket);
    return 0;
}

/// libcurl tells of each TLS record and each line of a head, also in the midst of what it does at one go.
int CurlMulti::debug(CURL* handle, curl_infotype type, char* /*data*/, std::size_t size, void* transfer) {
    auto& concerned = *static_cast<Transfer*>(transfer);
    const bool isReaching = concerned.isReachingThroughProxy && !concerned.proxyPassed;
    if (type == CURLINFO_SSL_DATA_OUT && isReaching && (!concerned.proxy->isOverTls || hasProxyConnected(handle))) {
        concerned.proxyPassed = SteadyClock::now();
    }
    const bool isTooMuch = type == CURLINFO_SSL_DATA_IN && concerned.owner.guard_.recordArrived();
    const bool isRefused = type == CURLINFO_HEADER_IN && isRefusedByProxy(handle);
    const bool isEndless = type == CURLINFO_HEADER_IN && concerned.proxyTalksOn(size);
    if (isTooMuch || isRefused || isEndless) {
        concerned.owner.cutConnections();
    }
    return 0;
}

/// In the place of each connection there is one that has ended, so that nothing is read any more of what the peer has
/// sent already. The kernel resets the real one.
void CurlMulti::cutConnections() {
    DeadEnds ends;
    ends.far = FileDescriptor();
    for (const auto socket : openSockets()) {
        resetOnClose(socket);
        if (!ends.near.isValid() || ::dup2(ends.near.get(), socket) < 0) {
            ::shutdown(socket, SHUT_RDWR);
        }
    }
    guard_.reset();
}

int CurlMulti::watchSocket(CURL* /*handle*/, curl_socket_t socket, int what, void* self, void* /*socketData*/) {
    static_cast<CurlMulti*>(self)->watch(socket, what == CURL_POLL_IN || what == CURL_POLL_INOUT,
                                         what == CURL_POLL_OUT || what == CURL_POLL_INOUT);
    return 0;
}

int CurlMulti::setTimer(CURLM* /*multi*/, long timeoutMs, void* self) {
    auto& timer = static_cast<CurlMulti*>(self)->timer_;
    if (timeoutMs < 0) {
        timer.stop();
    } else {
        timer.start(std::chrono::milliseconds(timeoutMs));
    }
    return 0;
}

void CurlMulti::watch(curl_socket_t socket, bool read, bool write) {
    if (!read && !write) {
        notifiers_.erase(socket);
        return;
    }
    auto& notifiers =
        notifiers_.try_emplace(socket, Notifiers{{nullptr, dropNotifier}, {nullptr, dropNotifier}}).first->second;
    const auto set = [&](auto& notifier, bool wanted, QSocketNotifier::Type type, int event) {
        if (!wanted) {
            notifier.reset();
        } else if (!notifier) {
            notifier.reset(new QSocketNotifier(socket, type));
            QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                             lifetime_.guard([this, event](QSocketDescriptor descriptor) {
                                 act(static_cast<curl_socket_t>(descriptor), event);
                             }));
        }
    };
    set(notifiers.read, read, QSocketNotifier::Read, CURL_CSELECT_IN);
    set(notifiers.write, write, QSocketNotifier::Write, CURL_CSELECT_OUT);
}

void CurlMulti::act(curl_socket_t socket, int events) {
    int running = 0;
    guard_.actionBegins();
    curl_multi_socket_action(multi_.get(), socket, events, &running);
    guard_.actionEnds();
    // One at a time: libcurl drops the messages of handles that a handler takes out.
    int queued = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &queued)) {
        if (message->msg == CURLMSG_DONE) {
            CURL* handle = message->easy_handle;
            const CURLcode result = message->data.result;
            takeOut(handle);
            ended(handle, result);
        }
    }
}

void CurlMulti::ended(CURL* handle, CURLcode result) {
    const auto transfer = transfers_.at(handle);
    if (std::exchange(transfer->isNameWanted, false) && result != CURLE_OK) {
        transfer->begun.reset();
        transfer->entries.reset();
        lookUp(handle, 0);
        return;
    }
    curl_easy_setopt(handle, CURLOPT_RESOLVE, nullptr);
    transfers_.erase(handle);
    ++ended_;
    done_(handle, result);
}

} // namespace skylet
