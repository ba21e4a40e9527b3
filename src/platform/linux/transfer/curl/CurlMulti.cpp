#include "platform/linux/transfer/curl/CurlMulti.h"

#include "platform/linux/system/FileDescriptor.h"
#include "platform/linux/transfer/TransferLog.h"
#include "platform/linux/transfer/curl/CurlOptions.h"
#include "platform/linux/transfer/curl/CurlTransfer.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace skylet {

namespace {

/// Absent: there is no open file of that number.
std::optional<ino_t> inodeOf(curl_socket_t socket) {
    struct stat status {};
    return ::fstat(socket, &status) == 0 ? std::optional(status.st_ino) : std::nullopt;
}

/// An exchange takes a few dozen records, most of them for its handshake. So many of the dearest kind, full of GOAWAY
/// frames, take 71 ms of the processor.
constexpr int uselessRecordLimit = 300;

/// Two ends of a connection that leads nowhere.
struct SilentSocketPair {
    SilentSocketPair() {
        std::array<int, 2> ends{-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0) {
            near = FileDescriptor(ends[0]);
            far = FileDescriptor(ends[1]);
        }
    }

    FileDescriptor near;
    FileDescriptor far;
};

/// Whatever the kernel still has to send for it is thrown away when it is closed (socket(7)); what is under way to us
/// is refused.
void resetOnClose(curl_socket_t socket) {
    const linger atOnce{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

/// A corked socket sends full packets only; what is left goes out when it is uncorked (tcp(7)).
void setCorked(curl_socket_t socket, int isCorked) {
    ::setsockopt(socket, IPPROTO_TCP, TCP_CORK, &isCorked, sizeof isCorked);
}

} // namespace

bool CurlSocket::isOpen() const {
    return inodeOf(number) == inode;
}

CurlMulti::CurlMulti(NameResolver& names, std::optional<int> receiveBufferBytes)
    : names_(names), receiveBufferBytes_(receiveBufferBytes) {
    initializeCurl();
    multi_.reset(curl_multi_init());
    Q_CHECK_PTR(multi_.get());
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.callOnTimeout([this] { handleEvents(CURL_SOCKET_TIMEOUT, 0); });
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &CurlMulti::watchSocket);
    curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &CurlMulti::setTimer);
    curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
}

CurlMulti::~CurlMulti() {
    // libcurl reads from a connection once more before it closes it, and TLS goes on reading for as long as records
    // without data arrive. What it finds here is a connection that is silent.
    const SilentSocketPair ends;
    if (ends.near.isValid()) {
        for (const auto socket : openSockets()) {
            resetOnClose(socket);
            ::dup2(ends.near.get(), socket);
        }
    }
    // Closing the connections still calls back for their sockets.
    multi_.reset();
}

std::vector<curl_socket_t> CurlMulti::openSockets() const {
    std::vector<curl_socket_t> open;
    for (const auto& socket : sockets_) {
        if (socket.isOpen()) {
            open.push_back(socket.number);
        }
    }
    return open;
}

void CurlMulti::add(CurlTransfer& transfer) {
    transfers_.push_back(&transfer);
    curl_multi_add_handle(multi_.get(), transfer.handle());
}

void CurlMulti::remove(CurlTransfer& transfer) {
    curl_multi_remove_handle(multi_.get(), transfer.handle());
    std::erase(transfers_, &transfer);
}

CurlSocket CurlMulti::openSocket(const curl_sockaddr& address) {
    const auto socket = ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
    if (socket < 0) {
        return {};
    }
    // What the peer sends is acknowledged together with our next step of the handshake, which follows at once (tcp(7)).
    constexpr int off = 0;
    ::setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &off, sizeof off);
    if (receiveBufferBytes_) {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &*receiveBufferBytes_, sizeof *receiveBufferBytes_);
    }
    std::erase_if(sockets_, [](const CurlSocket& other) { return !other.isOpen(); });
    return sockets_.emplace_back(CurlSocket{socket, inodeOf(socket).value_or(0)});
}

int CurlMulti::closeSocket(void* self, curl_socket_t socket) {
    auto& multi = *static_cast<CurlMulti*>(self);
    std::erase_if(multi.sockets_, [socket](const CurlSocket& other) { return other.number == socket; });
    for (auto* transfer : multi.transfers_) {
        transfer->socketCloses(socket);
    }
    qCInfo(transferLog, "socket %d: closed", socket);
    resetOnClose(socket);
    ::close(socket);
    return 0;
}

void CurlMulti::recordRead() {
    const auto soFar = progress();
    uselessRecords_ = std::exchange(lastProgress_, soFar) == soFar ? uselessRecords_ + 1 : 0;
    if (uselessRecords_ > uselessRecordLimit) {
        qCInfo(transferLog, "a peer that sends only useless records is cut off");
        cutConnections();
    }
}

/// In the place of each connection there is one that has ended, so that nothing is read any more of what the peer has
/// sent already. The kernel resets the real one.
void CurlMulti::cutConnections() {
    SilentSocketPair ends;
    ends.far = FileDescriptor();
    for (const auto socket : openSockets()) {
        resetOnClose(socket);
        if (!ends.near.isValid() || ::dup2(ends.near.get(), socket) < 0) {
            ::shutdown(socket, SHUT_RDWR);
        }
    }
    uselessRecords_ = 0;
}

int CurlMulti::watchSocket(CURL* /*handle*/, curl_socket_t socket, int what, void* self, void* /*socketData*/) {
    auto& multi = *static_cast<CurlMulti*>(self);
    const auto [first, last] = multi.notifiers_.equal_range(socket);
    std::for_each(first, last, [](const auto& entry) { entry.second->setEnabled(false); });
    multi.notifiers_.erase(first, last);
    if (what == CURL_POLL_IN || what == CURL_POLL_INOUT) {
        multi.watch(socket, QSocketNotifier::Read, CURL_CSELECT_IN);
    }
    if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT) {
        multi.watch(socket, QSocketNotifier::Write, CURL_CSELECT_OUT);
    }
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

void CurlMulti::watch(curl_socket_t socket, QSocketNotifier::Type type, int event) {
    Notifier notifier(new QSocketNotifier(socket, type));
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                     [this, socket, event] { handleEvents(socket, event); });
    notifiers_.emplace(socket, std::move(notifier));
}

void CurlMulti::handleEvents(curl_socket_t socket, int events) {
    lastEvent_ = std::chrono::steady_clock::now();
    int running = 0;
    // The end of the handshake, the first frames and the request are written one by one.
    const bool isConnecting = socket != CURL_SOCKET_TIMEOUT && !carriesRequest(socket);
    if (isConnecting) {
        setCorked(socket, 1);
    }
    curl_multi_socket_action(multi_.get(), socket, events, &running);
    if (isConnecting) {
        setCorked(socket, 0);
    }
    // One at a time: libcurl drops the messages of handles that are taken out meanwhile.
    int queued = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &queued)) {
        if (message->msg == CURLMSG_DONE) {
            const CURLcode result = message->data.result;
            CURL* const handle = message->easy_handle;
            CurlTransfer* transfer = nullptr;
            curl_easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
            remove(*transfer);
            ++ended_;
            transfer->libcurlIsDone(result);
        }
    }
}

bool CurlMulti::carriesRequest(curl_socket_t socket) const {
    return std::any_of(transfers_.begin(), transfers_.end(),
                       [socket](const CurlTransfer* transfer) { return transfer->socket() == socket; });
}

std::int64_t CurlMulti::progress() const {
    return std::accumulate(transfers_.begin(), transfers_.end(), ended_,
                           [](std::int64_t sum, const CurlTransfer* transfer) { return sum + transfer->progress(); });
}

} // namespace skylet
