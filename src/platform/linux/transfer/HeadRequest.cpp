#include "platform/linux/transfer/HeadRequest.h"

#include "platform/linux/transfer/ConnectionPool.h"
#include "platform/linux/transfer/curl/CurlOptions.h"
#include "platform/linux/transfer/curl/TcpInfo.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace skylet {

namespace {

using SteadyClock = CurlTransfer::SteadyClock;

/// Since the start of the transfer; zero: not reached.
std::chrono::microseconds timeOf(const CurlEasy& handle, CURLINFO info) {
    curl_off_t microseconds = 0;
    curl_easy_getinfo(handle.get(), info, &microseconds);
    return std::chrono::microseconds(microseconds);
}

/// How long ago the connection last received anything, at the least. Zero when nothing is known.
std::chrono::nanoseconds sinceLastData(curl_socket_t socket) {
    // The kernel's clock for sockets counts whole steps of this length.
    timespec tick{};
    clock_getres(CLOCK_MONOTONIC_COARSE, &tick);
    const std::chrono::nanoseconds counted = TcpInfo::of(socket).value_or(TcpInfo{}).sinceLastData;
    return std::max(counted - std::chrono::nanoseconds(tick.tv_nsec), std::chrono::nanoseconds(0));
}

} // namespace

HeadRequest::HeadRequest(ConnectionPool& pool, CurlMulti& multi, CURLSH* share, Settings settings,
                         TransferSession::Completion completion)
    : CurlTransfer(multi, settings.url,
                   settings.isRenewal ? NameResolver::Freshness::fresh : NameResolver::Freshness::kept),
      pool_(pool), settings_(std::move(settings)), completion_(std::move(completion)),
      isOnKeptConnection_(pool.hasAnswered()) {
    setCurlOption(easy(), CURLOPT_NOBODY, 1L);
    setCurlOption(easy(), CURLOPT_HTTP_VERSION,
                  pool.needsHttp1() ? long{CURL_HTTP_VERSION_1_1} : long{CURL_HTTP_VERSION_2TLS});
    // Rather share a connection that is still being made than make a second one.
    setCurlOption(easy(), CURLOPT_PIPEWAIT, 1L);
    setCurlOption(easy(), CURLOPT_SHARE, share);
    limit_->callOnTimeout([this] { pool_.limitReached(*this); });
    setLimit(settings_.limit);
}

/// Since the last step no more has passed than two round trips and the time to send a lost packet again. Behind a proxy
/// the proxy's own round trip says nothing of the target's; how long it took to reach the target does, and so does the
/// TLS handshake, also behind a box that accepts connections in the target's place.
bool HeadRequest::isConnecting() const {
    const auto accepted = roundTrip();
    if (!begun() || !accepted) {
        return false;
    }
    SteadyClock::duration lastStep = *accepted;
    SteadyClock::duration nextStep = 2 * lastStep;
    if (const auto connected = proxyConnected()) {
        nextStep = std::max(nextStep, 2 * (*connected - *begun() - lastStep));
        lastStep = std::max(lastStep, *connected - *begun());
    }
    if (const auto handshake = timeOf(easy(), CURLINFO_APPCONNECT_TIME_T); handshake > lastStep) {
        nextStep = std::max(nextStep, handshake - lastStep);
        lastStep = handshake;
    }
    const auto retransmission = settings_.limit / 3;
    return SteadyClock::now() - *begun() < lastStep + nextStep + retransmission;
}

TransferError HeadRequest::timeout() const {
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

TransferResponse HeadRequest::response() const {
    const char* address = nullptr;
    curl_easy_getinfo(handle(), CURLINFO_EFFECTIVE_URL, &address);
    return {*status(), address ? std::optional(QString::fromUtf8(address)) : std::nullopt, localDelay()};
}

void HeadRequest::finish(std::optional<TransferResponse> response, std::optional<TransferError> error) {
    if (const auto completion = std::exchange(completion_, nullptr)) {
        completion(std::move(response), std::move(error));
    }
}

void HeadRequest::cancel() {
    if (auto completion = std::exchange(completion_, nullptr)) {
        QTimer::singleShot(
            0, [completion = std::move(completion)] { completion({}, TransferError{QStringLiteral("cancelled")}); });
    }
}

void HeadRequest::ended(CURLcode result) {
    limit_->stop();
    pool_.ended(*this, result);
}

void HeadRequest::connectionOpens() {
    pool_.connectionOpens();
}

/// The time this thread was busy with something else while the request was to go out, or the answer was there, and the
/// time it took to read the answer.
Seconds HeadRequest::localDelay() const {
    SteadyClock::duration time = std::max<SteadyClock::duration>(sinceLastData(socket()), SteadyClock::now() - found());
    long newConnections = 0;
    curl_easy_getinfo(handle(), CURLINFO_NUM_CONNECTS, &newConnections);
    if (isOnKeptConnection_ && newConnections == 0 && sent_) {
        time += *sent_ - started();
    }
    return std::min<SteadyClock::duration>(time, SteadyClock::now() - started());
}

} // namespace skylet
