#include "platform/linux/transfer/BulkTransfer.h"

#include "platform/linux/transfer/TransferLog.h"
#include "platform/linux/transfer/curl/CurlOptions.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace skylet {

namespace {

/// One read takes what the kernel has; more than a few TLS records (16 KB) make no difference.
constexpr long receiveBufferBytes = 128L * 1024;
/// As libcurl's own. A smaller one costs a wake-up for every 16 KB; the count of what was sent knows nothing of it.
constexpr long sendBufferBytes = 64L * 1024;
/// The meter takes a reading after each piece of the answer, but no more often than this between two reports: that is
/// all of them up to some 400 Mbit/s, and costs less than 1 % of a processor.
constexpr int readingsPerReport = 64;
/// No program on this machine takes so long to acknowledge. From anybody farther away the bytes have left the machine,
/// and nothing needs to be compared: some network cards count what they have sent only once a second.
constexpr std::chrono::milliseconds withinTheMachine{2};

bool isWithinTheMachine(const SendProgress& connection) {
    return !connection.roundTrip || *connection.roundTrip < withinTheMachine;
}

} // namespace

BulkTransfer::BulkTransfer(CurlMulti& multi, TaskIdentifier identifier, Request request, SentByMachine sentByMachine,
                           std::function<void()> onNews)
    : CurlTransfer(multi, request.url), identifier_(identifier), request_(std::move(request)),
      sentByMachine_(std::move(sentByMachine)), onNews_(std::move(onNews)) {
    // A connection that moves one body gains nothing from HTTP/2, whose windows hold uploads up: 64 KB a round trip
    // is what many servers grant.
    setCurlOption(easy(), CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    setCurlOption(easy(), CURLOPT_BUFFERSIZE, receiveBufferBytes);
    // An answer that comes compressed all the same is counted as it comes.
    addHeader("Accept-Encoding: identity");
    setCurlOption(easy(), CURLOPT_HTTP_CONTENT_DECODING, 0L);
    if (request_.bodySize) {
        configureBody();
    } else {
        // Caches on the way would answer for the link (RFC 9111, 5.2.1.4 and 5.4).
        addHeader("Cache-Control: no-cache");
        addHeader("Pragma: no-cache");
    }
    setCurlOption(easy(), CURLOPT_HTTPHEADER, headers_.get());
}

void BulkTransfer::configureBody() {
    addHeader("Content-Type: " + request_.contentType);
    // The body follows at once: to wait for the server's leave costs a round trip, or a second where none is given.
    addHeader("Expect:");
    setCurlOption(easy(), CURLOPT_POST, 1L);
    setCurlOption(easy(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(*request_.bodySize));
    setCurlOption(easy(), CURLOPT_UPLOAD_BUFFERSIZE, sendBufferBytes);
    setCurlOption(easy(), CURLOPT_READFUNCTION, &BulkTransfer::bodyWanted);
    setCurlOption(easy(), CURLOPT_READDATA, this);
    setCurlOption(easy(), CURLOPT_SEEKFUNCTION, &BulkTransfer::bodyRewound);
    setCurlOption(easy(), CURLOPT_SEEKDATA, this);
}

void BulkTransfer::addHeader(const QByteArray& line) {
    headers_.reset(curl_slist_append(headers_.release(), line.constData()));
    Q_CHECK_PTR(headers_.get());
}

void BulkTransfer::detach() {
    isDetached_ = true;
    stop();
}

void BulkTransfer::cancel() {
    if (!isDetached_ && !isOver()) {
        endNow(End::cancelled);
    }
}

void BulkTransfer::refuse() {
    cancel();
    end_ = End::cancelled;
    arrived_ = arrivedReported_;
}

void BulkTransfer::endNow(End end) {
    measure();
    end_ = end;
    setCurlOption(easy(), CURLOPT_FORBID_REUSE, 1L);
    stop();
    log(end == End::cancelled ? QStringLiteral("cut off") : QStringLiteral("timed out"));
    onNews_();
}

void BulkTransfer::log(const QString& outcome) const {
    qCInfo(transferLog, "%s: %s after %lld ms, %lld bytes received, %lld sent", qPrintable(url().toString()),
           qPrintable(outcome), static_cast<long long>(elapsed().count()), static_cast<long long>(arrived_),
           static_cast<long long>(sent_));
}

void BulkTransfer::checkLimits() {
    measure();
    const auto now = SteadyClock::now();
    if (const auto soFar = moved() + arrived_; std::exchange(lastMoved_, soFar) != soFar) {
        lastMove_ = now;
    }
    if (!isOver() && (now - started() >= request_.wholeLimit || now - lastMove_ >= request_.inactivityLimit)) {
        endNow(End::failed);
    }
}

void BulkTransfer::ended(CURLcode result) {
    measure();
    arrived_ = std::max(arrived_, received_);
    const bool isSuccess = status() && *status() / 100 == 2;
    if (result == CURLE_OK && isSuccess && request_.bodySize && !isAnsweredEarly_) {
        countSent(handedOver_);
    }
    // An answer that came in whole counts, even if the connection is then lost over the rest of the request.
    const bool isAnswerWhole = result == CURLE_OK || announcedLength() == received_;
    end_ = status() && isAnswerWhole ? End::finished : End::failed;
    log(end_ == End::finished ? QStringLiteral("answered with %1").arg(*status()) : errorText(result));
    onNews_();
}

std::int64_t BulkTransfer::moved() const {
    return static_cast<std::int64_t>(headBytes()) + received_ + handedOver_ + sent_;
}

bool BulkTransfer::takeHead() {
    return !isDetached_ && status() && !std::exchange(isHeadReported_, true);
}

std::int64_t BulkTransfer::takeReceived() {
    return isDetached_ ? 0 : arrived_ - std::exchange(arrivedReported_, arrived_);
}

std::int64_t BulkTransfer::takeSent() {
    return isDetached_ ? 0 : sent_ - std::exchange(sentReported_, sent_);
}

void BulkTransfer::measure() {
    if (isOver() || isDetached_) {
        return;
    }
    if (isBodyBegun_ && socket() != CURL_SOCKET_BAD) {
        const auto progress = SendProgress::of(socket());
        isNear_ = progress ? isWithinTheMachine(*progress) : isNear_;
        countSent(uploadMeter_.acknowledged(progress, handedOver_));
    }
    // Before its head is in, of a download alone: a slow link takes seconds for the record that they share.
    if (status() || !request_.bodySize) {
        arrived_ = std::max(arrived_, arrivedBody());
        readingsLeft_ = readingsPerReport;
    }
}

/// A proxy or a tunnel's program on this machine takes more than it has passed on.
void BulkTransfer::countSent(std::int64_t taken) {
    if (isNear_ && sentBefore_) {
        const auto sentNow = sentByMachine_();
        taken = sentNow ? std::min(taken, *sentNow - *sentBefore_) : taken;
    }
    sent_ = std::max(sent_, taken);
}

std::int64_t BulkTransfer::announcedLength() const {
    curl_off_t length = -1;
    curl_easy_getinfo(handle(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    return length;
}

std::int64_t BulkTransfer::arrivedBody() const {
    const auto arrived = downloadMeter_.arrived(ReceiveProgress::of(socket()), received_);
    const auto length = announcedLength();
    return length < 0 ? arrived : std::min(arrived, std::max(length, received_));
}

void BulkTransfer::requestStarts() {
    downloadMeter_.requested(ReceiveProgress::of(socket()));
}

void BulkTransfer::headArrived() {
    isAnsweredEarly_ = request_.bodySize && handedOver_ < *request_.bodySize;
    downloadMeter_.begin(ReceiveProgress::of(socket()));
    onNews_();
}

bool BulkTransfer::bodyArrived(std::size_t count) {
    received_ += static_cast<std::int64_t>(count);
    if (readingsLeft_ > 0) {
        --readingsLeft_;
        downloadMeter_.note(ReceiveProgress::of(socket()), received_);
    }
    return true;
}

std::size_t BulkTransfer::bodyWanted(char* buffer, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<BulkTransfer*>(self);
    if (!std::exchange(transfer.isBodyBegun_, true)) {
        transfer.uploadMeter_.begin(SendProgress::of(transfer.socket()));
        transfer.sentBefore_ = transfer.sentByMachine_ ? transfer.sentByMachine_() : std::nullopt;
    }
    const auto left = *transfer.request_.bodySize - transfer.handedOver_;
    const auto length = std::min(static_cast<std::int64_t>(size * count), left);
    std::fill_n(buffer, length, '\0');
    transfer.handedOver_ += length;
    return static_cast<std::size_t>(length);
}

/// A kept connection turned out to be dead: the body goes over another one, from its start.
int BulkTransfer::bodyRewound(void* self, curl_off_t offset, int /*origin*/) {
    auto& transfer = *static_cast<BulkTransfer*>(self);
    transfer.handedOver_ = offset;
    transfer.isBodyBegun_ = false;
    return CURL_SEEKFUNC_OK;
}

} // namespace skylet
