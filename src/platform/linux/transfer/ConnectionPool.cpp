#include "platform/linux/transfer/ConnectionPool.h"

#include "platform/linux/transfer/curl/TcpInfo.h"

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

/// How libcurl's error text names the reason with which HTTP/2 ends a stream that broke its rules (RFC 9113, 7).
/// Servers end streams for other reasons too, and those pass.
const auto http2ProtocolError = QLatin1StringView("PROTOCOL_ERROR");

/// An answer here takes a few kilobytes; a peer that sends more at once shall wait.
constexpr int socketBufferBytes = 64 * 1024;

} // namespace

ConnectionPool::ConnectionPool(NameResolver& names, CURLSH* share, bool isHttp1Only, std::function<void()> onSettled)
    : share_(share), isHttp1Only_(isHttp1Only), onSettled_(std::move(onSettled)), multi_(names, socketBufferBytes) {}

ConnectionPool::~ConnectionPool() {
    for (const auto& request : requests_) {
        request->stop();
    }
}

std::shared_ptr<Cancellation> ConnectionPool::head(HeadRequest::Settings settings,
                                                   TransferSession::Completion completion) {
    const auto request =
        std::make_shared<HeadRequest>(*this, multi_, share_, std::move(settings), std::move(completion));
    requests_.push_back(request);
    request->start();
    return std::make_shared<CancellationAction>([weak = std::weak_ptr(request)] {
        if (const auto cancelled = weak.lock()) {
            cancelled->cancel();
        }
    });
}

bool ConnectionPool::isClosedByPeer() const {
    const auto sockets = multi_.openSockets();
    return hasAnswered_ && std::any_of(sockets.begin(), sockets.end(), [](curl_socket_t socket) {
               return !TcpInfo::of(socket).value_or(TcpInfo{}).isEstablished;
           });
}

void ConnectionPool::markUnusable() {
    if (std::exchange(isUsable_, false)) {
        settle();
    }
}

void ConnectionPool::retire() {
    isRetired_ = true;
    for (const auto& request : std::list(requests_)) {
        if (!request->isAwaited()) {
            remove(*request);
        }
    }
}

void ConnectionPool::cancelAll() {
    for (const auto& request : requests_) {
        request->cancel();
    }
}

void ConnectionPool::connectionOpens() {
    // It starts from the beginning, whatever the connections before it had reached.
    hasAnswered_ = false;
    newestConnection_ = CurlTransfer::SteadyClock::now();
}

void ConnectionPool::ended(HeadRequest& request, CURLcode result) {
    remove(request);
    if (result == CURLE_OK && request.status()) {
        hasAnswered_ = true;
        isBehindSlowProxy_ = false;
        auto response = request.response();
        isRejected_ = !request.settings().accepts(response);
        request.reportNames(!isRejected_);
        request.finish(std::move(response), {});
    } else {
        const auto error = request.errorText(result);
        isHttp1Only_ = isHttp1Only_ || (result == CURLE_HTTP2_STREAM && error.contains(http2ProtocolError));
        failed(request);
        request.finish({}, TransferError{error});
    }
}

void ConnectionPool::limitReached(HeadRequest& request) {
    const auto kept = request.shared_from_this();
    const auto error = request.timeout();
    const bool mayGoOn = !isRetired_ && !request.settings().isRenewal;
    if (mayGoOn && isConnecting()) {
        request.setLimit(request.settings().limit);
    } else if (mayGoOn && !isBehindSlowProxy_ && request.isWaitingForProxy()) {
        isBehindSlowProxy_ = true;
        request.setLimit(proxyLimit);
    } else {
        failed(request);
        remove(request);
    }
    request.finish({}, error);
}

void ConnectionPool::remove(const HeadRequest& request) {
    const auto place =
        std::find_if(requests_.begin(), requests_.end(), [&](const auto& other) { return other.get() == &request; });
    (*place)->stop();
    requests_.erase(place);
    settle();
}

void ConnectionPool::failed(HeadRequest& request) {
    request.reportNames(false);
    markUnusable();
}

bool ConnectionPool::isConnecting() const {
    return !hasAnswered_ &&
           std::any_of(requests_.begin(), requests_.end(), [](const auto& request) { return request->isConnecting(); });
}

} // namespace skylet
