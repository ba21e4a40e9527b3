#include "platform/linux/transfer/ConnectionPool.h"

#include "platform/linux/transfer/CurlOptions.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <utility>

namespace skylet {

namespace {

/// How libcurl's error text names the reason with which HTTP/2 ends a stream that broke its rules (RFC 9113, 7).
/// Servers end streams for other reasons too, and those pass.
const auto http2ProtocolError = QLatin1StringView("PROTOCOL_ERROR");

/// Since the start of the transfer; zero: not reached.
std::chrono::microseconds timeOf(const CurlEasy& handle, CURLINFO info) {
    curl_off_t microseconds = 0;
    curl_easy_getinfo(handle.get(), info, &microseconds);
    return std::chrono::microseconds(microseconds);
}

} // namespace

/// One request: the caller's side (until `finish`) and the wire's side (until it is taken out of the pool).
class ConnectionPool::Exchange {
  public:
    Exchange(ConnectionPool& pool, const QUrl& url, TransferSession::Completion completion)
        : pool_(pool), completion_(std::move(completion)), easy_(makeRequest(url)) {
        configure();
        limit_->setSingleShot(true);
        limit_->setTimerType(Qt::PreciseTimer);
    }

    CURL* handle() const { return easy_.get(); }
    QTimer& limit() const { return *limit_; }
    bool isSeen() const { return static_cast<bool>(completion_); }
    bool isLookingUp() const { return lookingUp_; }
    /// The connection that a pending look-up is for shall not be opened any more.
    void abandon() {
        abandoned_ = true;
        limit_->stop();
    }

    /// Whether its connection is new, and the next step of the handshake or the answer may still be on its way: since
    /// the last step no more has passed than two round trips and the time to send a lost packet again.
    bool isProgressing(std::chrono::microseconds retransmission) const {
        const auto connected = timeOf(easy_, CURLINFO_CONNECT_TIME_T);
        if (connected == std::chrono::microseconds::zero()) {
            return false;
        }
        const auto roundTrip = connected - timeOf(easy_, CURLINFO_NAMELOOKUP_TIME_T);
        const auto lastStep = std::max(connected, timeOf(easy_, CURLINFO_APPCONNECT_TIME_T));
        return std::chrono::steady_clock::now() - start_ < lastStep + 2 * roundTrip + retransmission;
    }

    QString errorText(CURLcode result) const {
        return QString::fromUtf8(errorText_.front() != '\0' ? errorText_.data() : curl_easy_strerror(result));
    }

    TransferResponse response() const {
        long status = 0;
        const char* url = nullptr;
        curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        curl_easy_getinfo(easy_.get(), CURLINFO_EFFECTIVE_URL, &url);
        return {static_cast<int>(status), url ? std::optional(QString::fromUtf8(url)) : std::nullopt};
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
        setCurlOption(easy_, CURLOPT_SHARE, pool_.share_);
        setCurlOption(easy_, CURLOPT_RESOLVER_START_FUNCTION, &Exchange::lookupStarts);
        setCurlOption(easy_, CURLOPT_RESOLVER_START_DATA, this);
        setCurlOption(easy_, CURLOPT_OPENSOCKETFUNCTION, &Exchange::openSocket);
        setCurlOption(easy_, CURLOPT_OPENSOCKETDATA, this);
        setCurlOption(easy_, CURLOPT_HEADERFUNCTION, &Exchange::headReceived);
        setCurlOption(easy_, CURLOPT_HEADERDATA, this);
        setCurlOption(easy_, CURLOPT_WRITEFUNCTION, &Exchange::bodyReceived);
        setCurlOption(easy_, CURLOPT_ERRORBUFFER, errorText_.data());
    }

    static int lookupStarts(void* /*state*/, void* /*reserved*/, void* self) {
        auto& exchange = *static_cast<Exchange*>(self);
        exchange.lookingUp_ = exchange.pool_.mayLookUp_();
        return exchange.lookingUp_ ? 0 : 1;
    }

    static curl_socket_t openSocket(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
        auto& exchange = *static_cast<Exchange*>(self);
        exchange.lookingUp_ = false;
        if (exchange.abandoned_) {
            return CURL_SOCKET_BAD;
        }
        // A new connection starts from the beginning, whatever the ones before it had reached.
        exchange.pool_.answered_ = false;
        return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    }

    static std::size_t headReceived(const char* /*data*/, std::size_t size, std::size_t count, void* self) {
        auto& exchange = *static_cast<Exchange*>(self);
        exchange.headBytes_ += size * count;
        return exchange.headBytes_ > headLimitBytes ? 0 : size * count;
    }

    static std::size_t bodyReceived(const char* /*data*/, std::size_t /*size*/, std::size_t /*count*/, void* /*self*/) {
        return 0;
    }

    ConnectionPool& pool_;
    TransferSession::Completion completion_;
    CurlEasy easy_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    /// May end inside its own signal.
    std::unique_ptr<QTimer, void (*)(QTimer*)> limit_{new QTimer, [](QTimer* timer) { timer->deleteLater(); }};
    std::size_t headBytes_ = 0;
    bool lookingUp_ = false;
    bool abandoned_ = false;
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

ConnectionPool::ConnectionPool(CURLSH* share, HttpVersion version, std::chrono::milliseconds limit,
                               std::function<bool()> mayLookUp, std::function<void()> onSettled)
    : share_(share), version_(version), limit_(limit), mayLookUp_(std::move(mayLookUp)),
      onSettled_(std::move(onSettled)), multi_([this](CURL* handle, CURLcode result) { done(handle, result); }) {}

ConnectionPool::~ConnectionPool() {
    for (const auto& exchange : exchanges_) {
        multi_.remove(exchange->handle());
    }
}

std::shared_ptr<TransferTask> ConnectionPool::head(const QUrl& url, TransferSession::Completion completion) {
    const auto exchange = std::make_shared<Exchange>(*this, url, std::move(completion));
    exchanges_.push_back(exchange);
    exchange->limit().callOnTimeout(lifetime_.guard([this, weak = std::weak_ptr<Exchange>(exchange)] {
        if (const auto reached = weak.lock()) {
            limitReached(reached);
        }
    }));
    exchange->limit().start(limit_);
    multi_.add(exchange->handle());
    return std::make_shared<Task>(exchange);
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

std::size_t ConnectionPool::pendingLookups() const {
    return static_cast<std::size_t>(std::count_if(exchanges_.begin(), exchanges_.end(),
                                                  [](const auto& exchange) { return exchange->isLookingUp(); }));
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
    if (result == CURLE_OK) {
        answered_ = true;
        exchange->finish(exchange->response(), {});
    } else {
        const auto error = exchange->errorText(result);
        malformedHttp2_ = malformedHttp2_ || (result == CURLE_HTTP2_STREAM && error.contains(http2ProtocolError));
        distrust();
        exchange->finish({}, TransferError{error});
    }
}

void ConnectionPool::limitReached(const std::shared_ptr<Exchange>& exchange) {
    if (!retired_ && isProgressing()) {
        exchange->limit().start(limit_);
    } else {
        distrust();
        discard(exchange);
    }
    exchange->finish({}, TransferError{QStringLiteral("timed out")});
}

void ConnectionPool::discard(const std::shared_ptr<Exchange>& exchange) {
    if (exchange->isLookingUp()) {
        // The resolver's thread cannot be ended. Kept until it ends by itself, it stays counted.
        exchange->abandon();
        return;
    }
    multi_.remove(exchange->handle());
    exchanges_.remove(exchange);
    settle();
}

bool ConnectionPool::isProgressing() const {
    return !answered_ && std::any_of(exchanges_.begin(), exchanges_.end(),
                                     [this](const auto& exchange) { return exchange->isProgressing(limit_ / 3); });
}

void ConnectionPool::settle() {
    // Not guarded by this pool's own lifetime: it may go in the call.
    QTimer::singleShot(0, onSettled_);
}

} // namespace skylet
