#include "platform/linux/transfer/CurlBulkTransferSession.h"

#include "platform/linux/transfer/DownloadMeter.h"
#include "platform/linux/transfer/UploadMeter.h"
#include "platform/linux/transfer/curl/CurlOptions.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>

namespace skylet {

namespace {

using SteadyClock = std::chrono::steady_clock;

/// One read takes what the kernel has; more than a few TLS records (16 KB) make no difference.
constexpr long receiveBufferBytes = 128L * 1024;
/// As libcurl's own. A smaller one costs a wake-up for every 16 KB; the count of what was sent knows nothing of it.
constexpr long sendBufferBytes = 64L * 1024;
/// The meter is told how far reading has got after each piece of the answer, but no more often than this between two
/// reports: that is all of them up to some 400 Mbit/s, and costs less than 1 % of a processor.
constexpr int notesPerReport = 64;
/// No program on this machine takes so long to acknowledge. From anybody farther away the bytes have left the machine,
/// and nothing needs to be compared: some network cards tell what they have sent only once a second.
constexpr std::chrono::milliseconds withinTheMachine{2};

bool isWithinTheMachine(const SendProgress& connection) {
    return !connection.roundTrip || *connection.roundTrip < withinTheMachine;
}

bool isSuccess(std::optional<int> status) {
    return status && *status >= 200 && *status <= 299;
}

} // namespace

/// What to ask for.
struct CurlBulkTransferSession::Request {
    QUrl url;
    Seconds limit;
    std::optional<UploadBody> body;
    QByteArray contentType;
};

/// One transfer: the request on libcurl's side, what is still to be told about it on the delegate's.
class CurlBulkTransferSession::Transfer : public std::enable_shared_from_this<Transfer> {
  public:
    using End = BulkTransferResult::End;

    Transfer(CurlBulkTransferSession& session, TaskIdentifier identifier, Request request)
        : session_(&session), delegate_(session.delegate_), identifier_(identifier), limit_(request.limit),
          body_(std::move(request.body)), easy_(makeRequest(request.url)) {
        configure(request.contentType);
    }

    TaskIdentifier identifier() const { return identifier_; }
    BulkTransferDelegate& delegate() const { return delegate_; }
    CURL* handle() const { return easy_.get(); }
    std::optional<int> status() const { return status_; }
    bool isOver() const { return end_.has_value(); }
    bool isOn(curl_socket_t socket) const { return socket_ == socket; }

    /// The session goes; nothing more is told.
    void forgetSession() { session_ = nullptr; }
    /// Its connection is not to be used again.
    void forbidReuse() const { setCurlOption(easy_, CURLOPT_FORBID_REUSE, 1L); }

    void cancel() {
        if (session_ != nullptr && !isOver()) {
            endOnWire(End::cancelled);
        }
    }

    /// The delegate does not want the answer.
    void refuse() {
        if (session_ == nullptr) {
            return;
        }
        if (isOver()) {
            end_ = End::cancelled;
        } else {
            endOnWire(End::cancelled);
        }
        arrived_ = arrivedTold_;
    }

    /// Grows with everything that goes either way, records without content apart.
    std::int64_t moved() const { return static_cast<std::int64_t>(headBytes_) + received_ + handedOver_ + sent_; }

    void checkLimits(SteadyClock::time_point now, Seconds resourceLimit) {
        measure();
        if (const auto soFar = moved() + arrived_; std::exchange(moved_, soFar) != soFar) {
            lastMove_ = now;
        }
        if (isOver()) {
            return;
        }
        if (now - start_ >= resourceLimit || now - lastMove_ >= limit_) {
            endOnWire(End::failed);
        }
    }

    /// libcurl has ended it.
    void ended(CURLcode result) {
        measure();
        arrived_ = std::max(arrived_, received_);
        if (result == CURLE_OK && isSuccess(status_) && body_ && !answeredEarly_) {
            countSent(handedOver_);
        }
        // An answer that came in whole counts, even if the connection is then lost over the rest of the request.
        // For libcurl a head is also over when the connection is, with whatever has come of it.
        end_ = status_ && (result == CURLE_OK || isAnswerWhole()) ? End::finished : End::failed;
    }

    /// The last chance to ask.
    void connectionCloses() {
        measure();
        socket_ = CURL_SOCKET_BAD;
        lostConnection_ = true;
    }

    /// Asks how far the body has got.
    void measure() {
        if (isOver() || session_ == nullptr) {
            return;
        }
        if (bodyBegun_ && !lostConnection_) {
            const auto progress = SendProgress::of(socket_);
            isNear_ = progress ? isWithinTheMachine(*progress) : isNear_;
            countSent(uploadMeter_.acknowledged(progress, handedOver_));
        }
        // Before its head is in, of a download alone: a slow link takes seconds for the record that they share.
        if (status_ || !body_) {
            arrived_ = std::max(arrived_, arrivedBody());
            notesLeft_ = notesPerReport;
        }
    }

    bool takeHead() { return session_ != nullptr && std::exchange(headToTell_, false); }
    std::int64_t takeReceived() { return session_ ? arrived_ - std::exchange(arrivedTold_, arrived_) : 0; }
    std::int64_t takeSent() { return session_ ? sent_ - std::exchange(sentTold_, sent_) : 0; }
    std::optional<BulkTransferResult> takeResult() {
        if (session_ == nullptr || !isOver()) {
            return std::nullopt;
        }
        session_->remove(*this);
        session_ = nullptr;
        return BulkTransferResult{*end_, status_};
    }

  private:
    void configure(const QByteArray& contentType) {
        // A connection that moves one body gains nothing from HTTP/2, whose windows hold uploads up: 64 KB a round trip
        // is what many servers grant.
        setCurlOption(easy_, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
        setCurlOption(easy_, CURLOPT_BUFFERSIZE, receiveBufferBytes);
        // An answer that comes compressed all the same is counted as it comes.
        addHeader("Accept-Encoding: identity");
        setCurlOption(easy_, CURLOPT_HTTP_CONTENT_DECODING, 0L);
        setCurlOption(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        if (body_) {
            configureBody(contentType);
        } else {
            // Caches on the way would answer for the link (RFC 9111, 5.2.1.4 and 5.4).
            addHeader("Cache-Control: no-cache");
            addHeader("Pragma: no-cache");
        }
        setCurlOption(easy_, CURLOPT_HTTPHEADER, headers_.get());
        setCurlOption(easy_, CURLOPT_PREREQFUNCTION, &Transfer::requestStarts);
        setCurlOption(easy_, CURLOPT_PREREQDATA, this);
        setCurlOption(easy_, CURLOPT_HEADERFUNCTION, &Transfer::headReceived);
        setCurlOption(easy_, CURLOPT_HEADERDATA, this);
        setCurlOption(easy_, CURLOPT_WRITEFUNCTION, &Transfer::bodyReceived);
        setCurlOption(easy_, CURLOPT_WRITEDATA, this);
    }

    void configureBody(const QByteArray& contentType) {
        addHeader("Content-Type: " + contentType);
        // The body follows at once: to wait for the server's leave costs a round trip, or a second where none is given.
        addHeader("Expect:");
        setCurlOption(easy_, CURLOPT_POST, 1L);
        setCurlOption(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_->size));
        setCurlOption(easy_, CURLOPT_UPLOAD_BUFFERSIZE, sendBufferBytes);
        setCurlOption(easy_, CURLOPT_READFUNCTION, &Transfer::bodyWanted);
        setCurlOption(easy_, CURLOPT_READDATA, this);
        setCurlOption(easy_, CURLOPT_SEEKFUNCTION, &Transfer::bodyRewound);
        setCurlOption(easy_, CURLOPT_SEEKDATA, this);
    }

    void addHeader(const QByteArray& line) {
        headers_.reset(curl_slist_append(headers_.release(), line.constData()));
        Q_CHECK_PTR(headers_.get());
    }

    bool isBodyHandedOver() const { return handedOver_ == static_cast<std::int64_t>(body_->size); }

    /// So much of the body has been taken by the other end of the connection. A proxy or a tunnel's program on this
    /// machine takes more than it has passed on.
    void countSent(std::int64_t taken) {
        if (isNear_ && sentBefore_) {
            const auto sentNow = session_->sentByMachine_();
            taken = sentNow ? std::min(taken, *sentNow - *sentBefore_) : taken;
        }
        sent_ = std::max(sent_, taken);
    }

    /// Of the answer's body, by its head; negative: not told.
    std::int64_t announcedLength() const {
        curl_off_t length = -1;
        curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        return length;
    }

    bool isAnswerWhole() const { return status_ && announcedLength() == received_; }

    /// Bytes of the answer's body that the kernel has, those that cannot be read yet included.
    std::int64_t arrivedBody() const {
        const auto arrived = downloadMeter_.arrived(ReceiveProgress::of(socket_), received_);
        const auto length = announcedLength();
        return length < 0 ? arrived : std::min(arrived, std::max(length, received_));
    }

    void endOnWire(End end) {
        measure();
        end_ = end;
        session_->takeOffWire(shared_from_this());
    }

    static std::size_t headReceived(const char* data, std::size_t size, std::size_t count, void* self) {
        auto& transfer = *static_cast<Transfer*>(self);
        const std::size_t length = size * count;
        transfer.headBytes_ += length;
        if (transfer.headBytes_ > headLimitBytes) {
            return 0;
        }
        if (std::string_view(data, length) == endOfHead && !transfer.status_) {
            transfer.headComplete();
        }
        return length;
    }

    void headComplete() {
        long status = 0;
        curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        if (status >= 200) {
            status_ = static_cast<int>(status);
            answeredEarly_ = body_ && !isBodyHandedOver();
            downloadMeter_.begin(ReceiveProgress::of(socket_));
            headToTell_ = true;
            session_->reportSoon();
        }
    }

    static std::size_t bodyReceived(const char* /*data*/, std::size_t size, std::size_t count, void* self) {
        auto& transfer = *static_cast<Transfer*>(self);
        transfer.received_ += static_cast<std::int64_t>(size * count);
        if (transfer.notesLeft_ > 0) {
            --transfer.notesLeft_;
            transfer.downloadMeter_.note(ReceiveProgress::of(transfer.socket_), transfer.received_);
        }
        return size * count;
    }

    static std::size_t bodyWanted(char* buffer, std::size_t size, std::size_t count, void* self) {
        auto& transfer = *static_cast<Transfer*>(self);
        if (!transfer.bodyBegun_) {
            transfer.beginBody();
        }
        const auto place = static_cast<std::size_t>(transfer.handedOver_);
        const std::size_t length = std::min(size * count, transfer.body_->size - place);
        std::copy_n(reinterpret_cast<const char*>(transfer.body_->bytes.get()) + place, length, buffer);
        transfer.handedOver_ += static_cast<std::int64_t>(length);
        return length;
    }

    static int requestStarts(void* self, char* /*address*/, char* /*localAddress*/, int /*port*/, int /*localPort*/) {
        auto& transfer = *static_cast<Transfer*>(self);
        transfer.socket_ = transfer.session_->multi_->socketOf(transfer.handle());
        transfer.lostConnection_ = false;
        transfer.downloadMeter_.requested(ReceiveProgress::of(transfer.socket_));
        return CURL_PREREQFUNC_OK;
    }

    void beginBody() {
        uploadMeter_.begin(SendProgress::of(socket_));
        sentBefore_ = session_->sentByMachine_ ? session_->sentByMachine_() : std::nullopt;
        bodyBegun_ = true;
    }

    /// A kept connection turned out to be dead: the body goes over another one, from its start.
    static int bodyRewound(void* self, curl_off_t offset, int /*origin*/) {
        auto& transfer = *static_cast<Transfer*>(self);
        transfer.handedOver_ = offset;
        transfer.bodyBegun_ = false;
        return CURL_SEEKFUNC_OK;
    }

    static constexpr std::string_view endOfHead = "\r\n";

    /// Null once there is nobody to tell any more.
    CurlBulkTransferSession* session_;
    BulkTransferDelegate& delegate_;
    const TaskIdentifier identifier_;
    const Seconds limit_;
    const std::optional<UploadBody> body_;
    CurlList headers_;
    CurlEasy easy_;
    const SteadyClock::time_point start_ = SteadyClock::now();
    /// Bytes moved either way, and when they last grew.
    std::int64_t moved_ = 0;
    SteadyClock::time_point lastMove_ = start_;
    std::size_t headBytes_ = 0;
    std::optional<int> status_;
    bool headToTell_ = false;
    /// Of the answer's body: come out of libcurl, and arrived.
    std::int64_t received_ = 0;
    std::int64_t arrived_ = 0;
    std::int64_t arrivedTold_ = 0;
    DownloadMeter downloadMeter_;
    int notesLeft_ = notesPerReport;
    /// Of the request's body: given to libcurl, and taken by the network.
    std::int64_t handedOver_ = 0;
    std::int64_t sent_ = 0;
    std::int64_t sentTold_ = 0;
    bool bodyBegun_ = false;
    /// The answer's head came before the body had been given away.
    bool answeredEarly_ = false;
    /// Known once the request goes out.
    curl_socket_t socket_ = CURL_SOCKET_BAD;
    UploadMeter uploadMeter_;
    /// Bytes that had left the machine when the body began; absent when unknown.
    std::optional<std::int64_t> sentBefore_;
    /// The other end may be on this machine.
    bool isNear_ = true;
    bool lostConnection_ = false;
    std::optional<End> end_;
};

/// The caller's handle.
class CurlBulkTransferSession::Task final : public BulkTransferTask {
  public:
    explicit Task(const std::shared_ptr<Transfer>& transfer)
        : identifier_(transfer->identifier()), transfer_(transfer) {}
    TaskIdentifier taskIdentifier() const override { return identifier_; }
    void cancel() override {
        if (const auto transfer = transfer_.lock()) {
            transfer->cancel();
        }
    }

  private:
    const TaskIdentifier identifier_;
    const std::weak_ptr<Transfer> transfer_;
};

CurlBulkTransferSession::CurlBulkTransferSession(const SessionConfiguration& configuration,
                                                 std::shared_ptr<const NetworkEpoch> epoch,
                                                 std::shared_ptr<NameResolver> names, BulkTransferDelegate& delegate,
                                                 SentByMachine sentByMachine)
    : requestLimit_(configuration.timeoutIntervalForRequest), resourceLimit_(configuration.timeoutIntervalForResource),
      epoch_(std::move(epoch)), names_(std::move(names)), sentByMachine_(std::move(sentByMachine)),
      epochOfConnections_(epoch_->current()), delegate_(delegate), ticking_(makeTimer(false)),
      reporting_(makeTimer(true)), idle_(makeTimer(true)) {
    initializeCurl();
    ticking_->setInterval(reportInterval);
    ticking_->callOnTimeout([this] { tick(); });
    reporting_->setInterval(0);
    reporting_->callOnTimeout([this] { reportAll(); });
    idle_->setInterval(keepConnectionsFor);
    idle_->callOnTimeout([this] { dropConnections(); });
}

CurlBulkTransferSession::~CurlBulkTransferSession() {
    for (const auto& transfer : transfers_) {
        transfer->forgetSession();
        if (!transfer->isOver()) {
            multi_->remove(transfer->handle());
        }
    }
    // Closes the connections, which are still registered here.
    multi_.reset();
}

std::shared_ptr<BulkTransferTask> CurlBulkTransferSession::download(const QUrl& url) {
    return start({url, requestLimit_, std::nullopt, {}});
}

std::shared_ptr<BulkTransferTask> CurlBulkTransferSession::upload(const QUrl& url, const QByteArray& contentType,
                                                                  UploadBody body, Seconds timeoutInterval) {
    return start({url, timeoutInterval, std::move(body), contentType});
}

std::shared_ptr<BulkTransferTask> CurlBulkTransferSession::start(Request request) {
    idle_->stop();
    if (epochOfConnections_ != epoch_->current()) {
        dropConnections();
    }
    if (!multi_) {
        multi_ = makeMulti();
    }
    const auto url = request.url;
    const auto transfer = std::make_shared<Transfer>(*this, ++lastIdentifier_, std::move(request));
    transfers_.push_back(transfer);
    multi_->add(transfer->handle(), url);
    if (!ticking_->isActive()) {
        ticking_->start();
    }
    return std::make_shared<Task>(transfer);
}

void CurlBulkTransferSession::done(CURL* handle, CURLcode result) {
    for (const auto& transfer : transfers_) {
        if (transfer->handle() == handle && !transfer->isOver()) {
            transfer->ended(result);
            reportSoon();
        }
    }
}

void CurlBulkTransferSession::tick() {
    const auto now = SteadyClock::now();
    for (const auto& transfer : Transfers(transfers_)) {
        transfer->checkLimits(now, resourceLimit_);
    }
    reportAll();
}

std::unique_ptr<CurlMulti> CurlBulkTransferSession::makeMulti() {
    return std::make_unique<CurlMulti>(
        *names_,
        CurlMulti::Settings{.receiveBufferBytes = {},
                            .progress = [this] { return moved(); },
                            .opening = {},
                            .closing = [this](curl_socket_t socket) { closing(socket); }},
        [this](CURL* handle, CURLcode result) { done(handle, result); });
}

std::int64_t CurlBulkTransferSession::moved() const {
    return std::accumulate(transfers_.begin(), transfers_.end(), std::int64_t{0},
                           [](std::int64_t sum, const auto& transfer) { return sum + transfer->moved(); });
}

void CurlBulkTransferSession::reportSoon() {
    if (!reporting_->isActive()) {
        reporting_->start();
    }
}

void CurlBulkTransferSession::reportAll() const {
    // The session may go in any of the calls: from here on nothing of it is used.
    for (const auto& transfer : Transfers(transfers_)) {
        report(transfer);
    }
}

void CurlBulkTransferSession::report(const std::shared_ptr<Transfer>& transfer) {
    // Any call may end the transfer or the session, which the transfer knows of.
    auto& delegate = transfer->delegate();
    const auto identifier = transfer->identifier();
    if (transfer->takeHead() &&
        delegate.responseReceived(identifier, transfer->status()) == ResponseDisposition::cancel) {
        transfer->refuse();
    }
    if (const auto count = transfer->takeReceived(); count > 0) {
        delegate.dataReceived(identifier, count);
    }
    if (const auto count = transfer->takeSent(); count > 0) {
        delegate.bodySent(identifier, count);
    }
    if (const auto result = transfer->takeResult()) {
        delegate.completed(identifier, *result);
    }
}

void CurlBulkTransferSession::takeOffWire(const std::shared_ptr<Transfer>& transfer) {
    transfer->forbidReuse();
    multi_->remove(transfer->handle());
    reportSoon();
}

void CurlBulkTransferSession::remove(const Transfer& transfer) {
    std::erase_if(transfers_, [&](const auto& other) { return other.get() == &transfer; });
    if (transfers_.empty()) {
        ticking_->stop();
        idle_->start();
    }
}

void CurlBulkTransferSession::dropConnections() {
    if (transfers_.empty()) {
        multi_.reset();
        epochOfConnections_ = epoch_->current();
    }
}

CurlBulkTransferSession::Timer CurlBulkTransferSession::makeTimer(bool singleShot) {
    Timer timer(new QTimer, [](QTimer* old) {
        old->stop();
        old->deleteLater();
    });
    timer->setSingleShot(singleShot);
    timer->setTimerType(Qt::PreciseTimer);
    return timer;
}

void CurlBulkTransferSession::closing(curl_socket_t socket) {
    for (const auto& transfer : transfers_) {
        if (transfer->isOn(socket)) {
            transfer->connectionCloses();
        }
    }
}

} // namespace skylet
