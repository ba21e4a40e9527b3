#include "platform/linux/transfer/ConnectionPool.h"

#include "platform/linux/transfer/PreciseTimer.h"
#include "platform/linux/transfer/TransferLog.h"
#include "platform/linux/transfer/curl/CurlOptions.h"
#include "platform/linux/transfer/curl/TcpInfo.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <utility>

namespace skylet {

namespace {

using SteadyClock = CurlTransfer::SteadyClock;

/// How libcurl's error text names the reason with which HTTP/2 ends a stream that broke its rules (RFC 9113, 7).
/// Servers end streams for other reasons too, and those pass.
const auto http2ProtocolError = QLatin1StringView("PROTOCOL_ERROR");

/// An answer here takes a few kilobytes; a peer that sends more at once shall wait.
constexpr int socketBufferBytes = 64 * 1024;

/// Since the start of the transfer; zero: not reached.
std::chrono::microseconds timeOf(const CurlEasy& handle, CURLINFO info) {
    curl_off_t microseconds = 0;
    curl_easy_getinfo(handle.get(), info, &microseconds);
    return std::chrono::microseconds(microseconds);
}

/// The kernel's clock for sockets, which counts whole steps of this length.
std::chrono::nanoseconds kernelTick() {
    timespec resolution{};
    clock_getres(CLOCK_MONOTONIC_COARSE, &resolution);
    return std::chrono::seconds(resolution.tv_sec) + std::chrono::nanoseconds(resolution.tv_nsec);
}

/// How long ago the connection last received anything, at the least. Zero when nothing is known.
std::chrono::nanoseconds sinceLastData(curl_socket_t socket) {
    const auto info = TcpInfo::of(socket);
    const std::chrono::nanoseconds counted = info ? info->sinceLastData() : std::chrono::milliseconds(0);
    return std::max(counted - kernelTick(), std::chrono::nanoseconds(0));
}

} // namespace

/// One request: the caller's side (until `finish`) and the wire's side (until it is taken out of the pool).
class ConnectionPool::Exchange final : public CurlTransfer {
  public:
    Exchange(ConnectionPool& pool, Request request, TransferSession::Completion completion)
        : CurlTransfer(pool.multi_, request.url,
                       request.isRenewal ? NameResolver::Freshness::fresh : NameResolver::Freshness::kept),
          pool_(pool), request_(std::move(request)), completion_(std::move(completion)),
          isOnKeptConnection_(pool.hasAnswered_) {
        setCurlOption(easy(), CURLOPT_NOBODY, 1L);
        setCurlOption(easy(), CURLOPT_HTTP_VERSION,
                      pool.isHttp1Only_ ? long{CURL_HTTP_VERSION_1_1} : long{CURL_HTTP_VERSION_2TLS});
        // Rather share a connection that is still being made than make a second one.
        setCurlOption(easy(), CURLOPT_PIPEWAIT, 1L);
        if (request_.isRenewal) {
            // Nobody waits for this one: what it says may go out in fewer and larger packets.
            setCurlOption(easy(), CURLOPT_TCP_NODELAY, 0L);
        }
        setCurlOption(easy(), CURLOPT_SHARE, pool.share_);
        limit_->callOnTimeout(pool.lifetime_.guard([this] {
            const auto self = shared_from_this();
            pool_.limitReached(*this);
        }));
        setLimit(request_.limit);
    }

    using CurlTransfer::errorText;
    using CurlTransfer::isWaitingForProxy;
    using CurlTransfer::reportNames;

    const Request& request() const { return request_; }
    void setLimit(std::chrono::milliseconds limit) { limit_->start(limit); }
    void stopLimit() { limit_->stop(); }
    /// Its caller waits for it still.
    bool isAwaited() const { return static_cast<bool>(completion_); }

    /// Whether its connection is new, and the next step of the handshake or the answer may still be on its way: since
    /// the last step no more has passed than two round trips and the time to send a lost packet again. Behind a proxy
    /// the proxy's own round trip says nothing of the target's; how long it took to reach the target does.
    bool isConnecting() const {
        const auto accepted = roundTrip();
        if (!begun() || !accepted) {
            return false;
        }
        SteadyClock::duration lastStep = std::max(*accepted, timeOf(easy(), CURLINFO_APPCONNECT_TIME_T));
        SteadyClock::duration wholeTrip = *accepted;
        if (const auto connected = proxyConnected()) {
            wholeTrip = std::max(wholeTrip, *connected - *begun() - *accepted);
            lastStep = std::max(lastStep, *connected - *begun());
        }
        const auto retransmission = request_.limit / 3;
        return SteadyClock::now() - *begun() < lastStep + 2 * wholeTrip + retransmission;
    }

    TransferError timeout() const {
        QString stage = QStringLiteral("connecting");
        if (!begun()) {
            stage = QStringLiteral("looking up its name");
        } else if (socket() != CURL_SOCKET_BAD) {
            stage = QStringLiteral("waiting for the answer");
        } else if (isWaitingForProxy()) {
            stage = QStringLiteral("waiting for the proxy");
        } else if (roundTrip()) {
            stage = QStringLiteral("in the TLS handshake");
        }
        return {QStringLiteral("timed out ") + stage};
    }

    TransferResponse response() const {
        const char* address = nullptr;
        curl_easy_getinfo(handle(), CURLINFO_EFFECTIVE_URL, &address);
        return {*status(), address ? std::optional(QString::fromUtf8(address)) : std::nullopt, localDelay()};
    }

    void finish(std::optional<TransferResponse> response, std::optional<TransferError> error) {
        if (const auto completion = std::exchange(completion_, nullptr)) {
            completion(std::move(response), std::move(error));
        }
    }

    /// The caller hears of it from the event loop.
    void cancel() {
        if (auto completion = std::exchange(completion_, nullptr)) {
            QTimer::singleShot(0, [completion = std::move(completion)] {
                completion({}, TransferError{QStringLiteral("cancelled")});
            });
        }
    }

  private:
    void ended(CURLcode result) override { pool_.done(*this, result); }
    void requestStarts() override { sent_ = SteadyClock::now(); }
    bool bodyArrived(std::size_t /*count*/) override { return false; }

    /// It starts from the beginning, whatever the connections before it had reached.
    void connectionOpens() override {
        pool_.hasAnswered_ = false;
        pool_.newestConnection_ = SteadyClock::now();
    }

    /// The time this thread was busy with something else while the request was to go out, or the answer was there.
    Seconds localDelay() const {
        SteadyClock::duration time = sinceLastData(socket());
        long newConnections = 0;
        curl_easy_getinfo(handle(), CURLINFO_NUM_CONNECTS, &newConnections);
        if (isOnKeptConnection_ && newConnections == 0 && sent_) {
            time += *sent_ - started();
        }
        return std::min<SteadyClock::duration>(time, SteadyClock::now() - started());
    }

    ConnectionPool& pool_;
    const Request request_;
    TransferSession::Completion completion_;
    const bool isOnKeptConnection_;
    std::optional<SteadyClock::time_point> sent_;
    const PreciseTimer limit_ = makePreciseTimer(true);
};

ConnectionPool::ConnectionPool(NameResolver& names, CURLSH* share, bool isHttp1Only, std::function<void()> onSettled)
    : share_(share), isHttp1Only_(isHttp1Only), onSettled_(std::move(onSettled)), multi_(names, socketBufferBytes) {}

ConnectionPool::~ConnectionPool() {
    for (const auto& exchange : exchanges_) {
        exchange->stop();
    }
}

std::shared_ptr<Cancellation> ConnectionPool::head(Request request, TransferSession::Completion completion) {
    const auto exchange = std::make_shared<Exchange>(*this, std::move(request), std::move(completion));
    exchanges_.push_back(exchange);
    exchange->start();
    return std::make_shared<CancellationAction>([weak = std::weak_ptr(exchange)] {
        if (const auto cancelled = weak.lock()) {
            cancelled->cancel();
        }
    });
}

bool ConnectionPool::isClosedByPeer() const {
    const auto sockets = multi_.openSockets();
    return hasAnswered_ && std::any_of(sockets.begin(), sockets.end(), [](curl_socket_t socket) {
               const auto info = TcpInfo::of(socket);
               return !info || !info->isEstablished();
           });
}

void ConnectionPool::markUnusable() {
    if (std::exchange(isUsable_, false)) {
        settle();
    }
}

void ConnectionPool::retire() {
    isRetired_ = true;
    for (const auto& exchange : std::list(exchanges_)) {
        if (!exchange->isAwaited()) {
            drop(*exchange);
        }
    }
}

void ConnectionPool::cancelAll() {
    for (const auto& exchange : exchanges_) {
        exchange->cancel();
    }
}

void ConnectionPool::done(Exchange& exchange, CURLcode result) {
    exchange.stopLimit();
    exchanges_.remove_if([&](const auto& other) { return other.get() == &exchange; });
    settle();
    if (result == CURLE_OK && exchange.status()) {
        hasAnswered_ = true;
        isBehindSlowProxy_ = false;
        auto response = exchange.response();
        if (exchange.request().accepts(response)) {
            exchange.reportNames(true);
        } else {
            failed(exchange);
        }
        exchange.finish(std::move(response), {});
    } else {
        const auto error = exchange.errorText(result);
        isHttp1Only_ = isHttp1Only_ || (result == CURLE_HTTP2_STREAM && error.contains(http2ProtocolError));
        failed(exchange);
        exchange.finish({}, TransferError{error});
    }
}

void ConnectionPool::limitReached(Exchange& exchange) {
    const auto error = exchange.timeout();
    const bool mayGoOn = !isRetired_ && !exchange.request().isRenewal;
    if (mayGoOn && isConnecting()) {
        exchange.setLimit(exchange.request().limit);
    } else if (mayGoOn && !isBehindSlowProxy_ && exchange.isWaitingForProxy()) {
        isBehindSlowProxy_ = true;
        exchange.setLimit(proxyLimit);
    } else {
        failed(exchange);
        drop(exchange);
    }
    exchange.finish({}, error);
}

void ConnectionPool::drop(Exchange& exchange) {
    exchange.stop();
    exchanges_.remove_if([&](const auto& other) { return other.get() == &exchange; });
    settle();
}

void ConnectionPool::failed(Exchange& exchange) {
    exchange.reportNames(false);
    markUnusable();
}

bool ConnectionPool::isConnecting() const {
    return !hasAnswered_ && std::any_of(exchanges_.begin(), exchanges_.end(),
                                        [](const auto& exchange) { return exchange->isConnecting(); });
}

void ConnectionPool::settle() {
    // Not guarded by this pool's own lifetime: it may go in the call.
    QTimer::singleShot(0, onSettled_);
}

} // namespace skylet
