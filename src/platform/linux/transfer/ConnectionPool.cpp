#include "platform/linux/transfer/ConnectionPool.h"

#include "platform/linux/transfer/curl/CurlOptions.h"
#include "platform/linux/transfer/curl/TcpInfo.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <optional>
#include <string_view>
#include <utility>

namespace skylet {

namespace {

using SteadyClock = CurlMulti::SteadyClock;

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
    const std::chrono::nanoseconds told = info ? info->sinceLastData() : std::chrono::milliseconds(0);
    return std::max(told - kernelTick(), std::chrono::nanoseconds(0));
}

} // namespace

/// One request: the caller's side (until `finish`) and the wire's side (until it is taken out of the pool).
class ConnectionPool::Exchange {
  public:
    Exchange(ConnectionPool& pool, Request request, TransferSession::Completion completion)
        : pool_(pool), request_(std::move(request)), completion_(std::move(completion)),
          isOnKeptConnection_(pool.answered_), easy_(makeRequest(request_.url)) {
        configure();
        limit_->setSingleShot(true);
        limit_->setTimerType(Qt::PreciseTimer);
    }

    CURL* handle() const { return easy_.get(); }
    const Request& request() const { return request_; }
    QTimer& limit() const { return *limit_; }
    /// For libcurl a head is also over when the connection is, with whatever has come of it.
    bool isHeadWhole() const { return isHeadWhole_; }
    bool isSeen() const { return static_cast<bool>(completion_); }

    /// Whether its connection is new, and the next step of the handshake or the answer may still be on its way: since
    /// the last step no more has passed than two round trips and the time to send a lost packet again. Behind a proxy
    /// the proxy's own round trip says nothing of the target's; how long it took to reach the target does.
    bool isProgressing() const {
        const auto begun = pool_.multi_.beginning(easy_.get());
        const auto accepted = pool_.multi_.roundTrip(easy_.get());
        if (!begun || !accepted) {
            return false;
        }
        SteadyClock::duration lastStep = std::max(*accepted, timeOf(easy_, CURLINFO_APPCONNECT_TIME_T));
        SteadyClock::duration roundTrip = *accepted;
        if (const auto passed = pool_.multi_.proxyPassed(easy_.get())) {
            roundTrip = std::max(roundTrip, *passed - *begun - *accepted);
            lastStep = std::max(lastStep, *passed - *begun);
        }
        const auto retransmission = request_.limit / 3;
        return SteadyClock::now() - *begun < lastStep + 2 * roundTrip + retransmission;
    }

    bool isWaitingForProxy() const { return pool_.multi_.isWaitingForProxy(easy_.get()); }

    QString errorText(CURLcode result) const {
        if (result == CURLE_OK) {
            return QStringLiteral("the head of the answer breaks off");
        }
        return QString::fromUtf8(errorText_.front() != '\0' ? errorText_.data() : curl_easy_strerror(result));
    }

    TransferResponse response() const {
        long status = 0;
        const char* url = nullptr;
        curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        curl_easy_getinfo(easy_.get(), CURLINFO_EFFECTIVE_URL, &url);
        return {static_cast<int>(status), url ? std::optional(QString::fromUtf8(url)) : std::nullopt, heldUp()};
    }

    /// The caller's side ends here; whoever takes the completion owes the call.
    TransferSession::Completion takeCompletion() { return std::exchange(completion_, nullptr); }

    void finish(std::optional<TransferResponse> response, std::optional<TransferError> error) {
        if (const auto completion = takeCompletion()) {
            completion(std::move(response), std::move(error));
        }
    }

  private:
    void configure() {
        setCurlOption(easy_, CURLOPT_NOBODY, 1L);
        setCurlOption(easy_, CURLOPT_HTTP_VERSION, static_cast<long>(pool_.version_));
        // Rather share a connection that is still being made than make a second one.
        setCurlOption(easy_, CURLOPT_PIPEWAIT, 1L);
        if (!request_.mayRunOn) {
            // Nobody waits for this one: what it says may go out in fewer and larger packets.
            setCurlOption(easy_, CURLOPT_TCP_NODELAY, 0L);
        }
        setCurlOption(easy_, CURLOPT_SHARE, pool_.share_);
        setCurlOption(easy_, CURLOPT_PREREQFUNCTION, &Exchange::requestGoes);
        setCurlOption(easy_, CURLOPT_PREREQDATA, this);
        setCurlOption(easy_, CURLOPT_HEADERFUNCTION, &Exchange::headReceived);
        setCurlOption(easy_, CURLOPT_HEADERDATA, this);
        setCurlOption(easy_, CURLOPT_WRITEFUNCTION, &Exchange::bodyReceived);
        setCurlOption(easy_, CURLOPT_ERRORBUFFER, errorText_.data());
    }

    /// The time this thread was busy with something else while the request was to go out, or the answer was there.
    Seconds heldUp() const {
        SteadyClock::duration time = sinceLastData(pool_.multi_.socketOf(easy_.get()));
        long newConnections = 0;
        curl_easy_getinfo(easy_.get(), CURLINFO_NUM_CONNECTS, &newConnections);
        if (isOnKeptConnection_ && newConnections == 0 && sent_) {
            time += *sent_ - start_;
        }
        return std::min<SteadyClock::duration>(time, SteadyClock::now() - start_);
    }

    static int requestGoes(void* self, char* /*remoteAddress*/, char* /*localAddress*/, int /*remotePort*/,
                           int /*localPort*/) {
        static_cast<Exchange*>(self)->sent_ = SteadyClock::now();
        return CURL_PREREQFUNC_OK;
    }

    /// Called with a line at a time.
    static std::size_t headReceived(const char* data, std::size_t size, std::size_t count, void* self) {
        auto& exchange = *static_cast<Exchange*>(self);
        const std::string_view line(data, size * count);
        exchange.headBytes_ += line.size();
        exchange.isHeadWhole_ = line == "\r\n" || line == "\n";
        return exchange.headBytes_ > headLimitBytes ? 0 : line.size();
    }

    static std::size_t bodyReceived(const char* /*data*/, std::size_t /*size*/, std::size_t /*count*/, void* /*self*/) {
        return 0;
    }

    ConnectionPool& pool_;
    const Request request_;
    TransferSession::Completion completion_;
    const bool isOnKeptConnection_;
    CurlEasy easy_;
    const SteadyClock::time_point start_ = SteadyClock::now();
    std::optional<SteadyClock::time_point> sent_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    /// May end inside its own signal.
    std::unique_ptr<QTimer, void (*)(QTimer*)> limit_{new QTimer, [](QTimer* timer) { timer->deleteLater(); }};
    std::size_t headBytes_ = 0;
    bool isHeadWhole_ = false;
};

/// The caller's handle. The caller is told of the end from the event loop, never from inside `cancel`.
class ConnectionPool::Task final : public TransferTask {
  public:
    explicit Task(std::weak_ptr<Exchange> exchange) : exchange_(std::move(exchange)) {}
    void cancel() override {
        if (const auto exchange = exchange_.lock()) {
            cancelExchange(*exchange);
        }
    }

    static void cancelExchange(Exchange& exchange) {
        if (auto completion = exchange.takeCompletion()) {
            QTimer::singleShot(0, [completion = std::move(completion)] {
                completion({}, TransferError{QStringLiteral("cancelled")});
            });
        }
    }

  private:
    std::weak_ptr<Exchange> exchange_;
};

ConnectionPool::ConnectionPool(NameResolver& names, CURLSH* share, HttpVersion version, std::function<void()> onSettled)
    : share_(share), version_(version), onSettled_(std::move(onSettled)),
      multi_(names,
             {.receiveBufferBytes = socketBufferBytes,
              .progress = {},
              .opening = [this] { connectionBegins(); },
              .closing = {}},
             [this](CURL* handle, CURLcode result) { done(handle, result); }) {}

ConnectionPool::~ConnectionPool() {
    for (const auto& exchange : exchanges_) {
        multi_.remove(exchange->handle());
    }
}

std::shared_ptr<TransferTask> ConnectionPool::head(Request request, TransferSession::Completion completion) {
    const auto exchange = std::make_shared<Exchange>(*this, std::move(request), std::move(completion));
    exchanges_.push_back(exchange);
    exchange->limit().callOnTimeout(lifetime_.guard([this, weak = std::weak_ptr<Exchange>(exchange)] {
        if (const auto reached = weak.lock()) {
            limitReached(reached);
        }
    }));
    exchange->limit().start(exchange->request().limit);
    multi_.add(exchange->handle(), exchange->request().url, exchange->request().names);
    return std::make_shared<Task>(exchange);
}

bool ConnectionPool::isClosedByPeer() const {
    const auto sockets = multi_.openSockets();
    return answered_ && std::any_of(sockets.begin(), sockets.end(), [](curl_socket_t socket) {
               const auto info = TcpInfo::of(socket);
               return !info || !info->isEstablished();
           });
}

void ConnectionPool::distrust() {
    if (trusted_) {
        trusted_ = false;
        settle();
    }
}

void ConnectionPool::retire() {
    retired_ = true;
    for (const auto& exchange : std::list(exchanges_)) {
        if (!exchange->isSeen()) {
            discard(exchange);
        }
    }
}

void ConnectionPool::cancelAll() {
    for (const auto& exchange : exchanges_) {
        Task::cancelExchange(*exchange);
    }
}

void ConnectionPool::done(CURL* handle, CURLcode result) {
    const auto place = std::find_if(exchanges_.begin(), exchanges_.end(),
                                    [&](const auto& exchange) { return exchange->handle() == handle; });
    if (place == exchanges_.end()) {
        return;
    }
    const auto exchange = *place;
    exchanges_.erase(place);
    exchange->limit().stop();
    settle();
    if (result == CURLE_OK && exchange->isHeadWhole()) {
        answered_ = true;
        behindSlowProxy_ = false;
        auto response = exchange->response();
        if (exchange->request().accepts(response)) {
            multi_.confirmNames(exchange->request().url);
        } else {
            disappointed(*exchange);
        }
        exchange->finish(std::move(response), {});
    } else {
        const auto error = exchange->errorText(result);
        malformedHttp2_ = malformedHttp2_ || (result == CURLE_HTTP2_STREAM && error.contains(http2ProtocolError));
        disappointed(*exchange);
        exchange->finish({}, TransferError{error});
    }
}

void ConnectionPool::limitReached(const std::shared_ptr<Exchange>& exchange) {
    const bool mayRunOn = !retired_ && exchange->request().mayRunOn;
    if (mayRunOn && isProgressing()) {
        exchange->limit().start(exchange->request().limit);
    } else if (mayRunOn && !behindSlowProxy_ && exchange->isWaitingForProxy()) {
        behindSlowProxy_ = true;
        exchange->limit().start(proxyLimit);
    } else {
        disappointed(*exchange);
        discard(exchange);
    }
    exchange->finish({}, TransferError{QStringLiteral("timed out")});
}

void ConnectionPool::discard(const std::shared_ptr<Exchange>& exchange) {
    multi_.remove(exchange->handle());
    exchanges_.remove(exchange);
    settle();
}

void ConnectionPool::disappointed(const Exchange& exchange) {
    multi_.doubtNames(exchange.request().url);
    distrust();
}

bool ConnectionPool::isProgressing() const {
    return !answered_ && std::any_of(exchanges_.begin(), exchanges_.end(),
                                     [](const auto& exchange) { return exchange->isProgressing(); });
}

/// A new connection starts from the beginning, whatever the ones before it had reached.
void ConnectionPool::connectionBegins() {
    answered_ = false;
    newestConnection_ = SteadyClock::now();
}

void ConnectionPool::settle() {
    // Not guarded by this pool's own lifetime: it may go in the call.
    QTimer::singleShot(0, onSettled_);
}

} // namespace skylet
