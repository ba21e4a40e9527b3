#include "platform/linux/transfer/BulkTransfer.h"

#include "platform/linux/transfer/TransferLog.h"
#include "platform/linux/transfer/curl/CurlOptions.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace skylet {

namespace {

using namespace std::chrono_literals;

/// One read takes what the kernel has; more than a few TLS records (16 KB) make no difference.
constexpr long receiveBufferBytes = 128L * 1024;
/// The meter takes a reading after each piece of the answer, but no more often than this between two reports: that is
/// all of them up to some 400 Mbit/s, and costs less than 1 % of a processor.
constexpr int readingsPerReport = 64;
/// No program on this machine takes so long to acknowledge. From anybody farther away the bytes have left the machine,
/// and nothing needs to be compared: some network cards count what they have sent only once a second.
constexpr std::chrono::milliseconds longestLocalRoundTrip{2};

} // namespace

BulkTransfer::BulkTransfer(CurlMulti& multi, TaskIdentifier identifier, Request request, SentByMachine sentByMachine,
                           std::function<void()> onReportDue)
    : CurlTransfer(multi, request.url), identifier_(identifier), request_(std::move(request)),
      sentByMachine_(std::move(sentByMachine)), onReportDue_(std::move(onReportDue)) {
    // A connection that moves one body gains nothing from HTTP/2, whose windows hold uploads up: 64 KB a round trip
    // is what many servers grant.
    setCurlOption(easy(), CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    setCurlOption(easy(), CURLOPT_BUFFERSIZE, receiveBufferBytes);
    // An answer that comes compressed all the same is counted as it comes.
    append(headers_, "Accept-Encoding: identity");
    setCurlOption(easy(), CURLOPT_HTTP_CONTENT_DECODING, 0L);
    if (request_.bodySize) {
        configureBody();
    } else {
        // Caches on the way would answer for the link (RFC 9111, 5.2.1.4 and 5.4).
        append(headers_, "Cache-Control: no-cache");
        append(headers_, "Pragma: no-cache");
    }
    setCurlOption(easy(), CURLOPT_HTTPHEADER, headers_.get());
}

void BulkTransfer::configureBody() {
    append(headers_, "Content-Type: " + request_.contentType);
    // The body follows at once: to wait for the server's leave costs a round trip, or a second where none is given.
    append(headers_, "Expect:");
    setCurlOption(easy(), CURLOPT_POST, 1L);
    setCurlOption(easy(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(*request_.bodySize));
    setCurlOption(easy(), CURLOPT_READFUNCTION, &BulkTransfer::bodyWanted);
    setCurlOption(easy(), CURLOPT_READDATA, this);
    setCurlOption(easy(), CURLOPT_SEEKFUNCTION, &BulkTransfer::bodyRewound);
    setCurlOption(easy(), CURLOPT_SEEKDATA, this);
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

void BulkTransfer::endNow(End end) {
    measure();
    end_ = end;
    setCurlOption(easy(), CURLOPT_FORBID_REUSE, 1L);
    stop();
    reportEnd(end == End::cancelled ? QStringLiteral("cut off") : QStringLiteral("timed out"));
}

void BulkTransfer::reportEnd(const QString& outcome) {
    reportNames(progress() > 0);
    qCInfo(transferLog, "%s: %s after %lld ms, %lld bytes received, %lld sent", qPrintable(url().toString()),
           qPrintable(outcome), static_cast<long long>(elapsed().count()), static_cast<long long>(arrived_),
           static_cast<long long>(acknowledged_));
    onReportDue_();
}

void BulkTransfer::checkLimits() {
    measure();
    const auto now = SteadyClock::now();
    if (const auto soFar = progress() + arrived_; std::exchange(lastProgress_, soFar) != soFar) {
        lastProgressTime_ = now;
    }
    if (!isOver() && (now - started() >= request_.wholeLimit || now - lastProgressTime_ >= request_.inactivityLimit)) {
        endNow(End::failed);
    }
}

void BulkTransfer::report(BulkTransferDelegate& delegate) {
    if (!isDetached_ && status() && !std::exchange(isHeadReported_, true) &&
        delegate.responseReceived(identifier_, status()) == ResponseDisposition::cancel) {
        cancel();
        end_ = End::cancelled;
        arrived_ = arrivedReported_;
    }
    if (const auto count = arrived_ - arrivedReported_; !isDetached_ && count > 0) {
        arrivedReported_ = arrived_;
        delegate.dataReceived(identifier_, count);
    }
    if (const auto count = acknowledged_ - acknowledgedReported_; !isDetached_ && count > 0) {
        acknowledgedReported_ = acknowledged_;
        delegate.bodySent(identifier_, count);
    }
}

void BulkTransfer::ended(CURLcode result) {
    measure();
    arrived_ = std::max(arrived_, read_);
    const bool isSuccess = status() && *status() / 100 == 2;
    if (result == CURLE_OK && isSuccess && request_.bodySize && !isAnsweredEarly_) {
        countAcknowledged(given_);
    }
    // An answer that came in whole counts, even if the connection is then lost over the rest of the request.
    const bool isAnswerWhole = result == CURLE_OK || announcedLength() == read_;
    end_ = status() && isAnswerWhole ? End::finished : End::failed;
    reportEnd(end_ == End::finished ? QStringLiteral("answered with %1").arg(*status()) : errorText(result));
}

std::int64_t BulkTransfer::progress() const {
    return static_cast<std::int64_t>(headBytes()) + read_ + given_ + acknowledged_;
}

void BulkTransfer::measure() {
    if (isOver() || isDetached_) {
        return;
    }
    const auto connection = TcpInfo::of(socket());
    if (isBodyBegun_ && socket() != CURL_SOCKET_BAD) {
        if (connection) {
            ackerMayBeLocal_ = connection->smallestRoundTrip.value_or(0us) < longestLocalRoundTrip;
        }
        countAcknowledged(uploadMeter_.acknowledged(connection, given_));
    }
    // Before its head is in, of a download alone: a slow link takes seconds for the record that they share.
    if (status() || !request_.bodySize) {
        const auto arrived = downloadMeter_.arrived(connection, read_);
        const auto length = announcedLength();
        arrived_ = std::max(arrived_, length < 0 ? arrived : std::min(arrived, std::max(length, read_)));
        readingsLeft_ = readingsPerReport;
    }
}

/// A proxy or a tunnel's program on this machine takes more than it has passed on.
void BulkTransfer::countAcknowledged(std::int64_t count) {
    if (ackerMayBeLocal_ && sentBefore_) {
        const auto sentNow = sentByMachine_();
        count = sentNow ? std::min(count, *sentNow - *sentBefore_) : count;
    }
    acknowledged_ = std::max(acknowledged_, count);
}

std::int64_t BulkTransfer::announcedLength() const {
    curl_off_t length = -1;
    curl_easy_getinfo(handle(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    return length;
}

void BulkTransfer::requestStarts() {
    downloadMeter_.requestStarts(TcpInfo::of(socket()));
}

void BulkTransfer::headArrived() {
    isAnsweredEarly_ = request_.bodySize && given_ < *request_.bodySize;
    downloadMeter_.bodyStarts(TcpInfo::of(socket()));
    onReportDue_();
}

bool BulkTransfer::bodyArrived(std::size_t count) {
    read_ += static_cast<std::int64_t>(count);
    if (readingsLeft_ > 0) {
        --readingsLeft_;
        downloadMeter_.recordRead(TcpInfo::of(socket()), read_);
    }
    return true;
}

std::size_t BulkTransfer::bodyWanted(char* buffer, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<BulkTransfer*>(self);
    if (!std::exchange(transfer.isBodyBegun_, true)) {
        transfer.uploadMeter_.bodyStarts(TcpInfo::of(transfer.socket()));
        transfer.sentBefore_ = transfer.sentByMachine_ ? transfer.sentByMachine_() : std::nullopt;
    }
    const auto left = *transfer.request_.bodySize - transfer.given_;
    const auto length = std::min(static_cast<std::int64_t>(size * count), left);
    std::fill_n(buffer, length, '\0');
    transfer.given_ += length;
    return static_cast<std::size_t>(length);
}

/// A kept connection turned out to be dead: the body goes over another one, from its start.
int BulkTransfer::bodyRewound(void* self, curl_off_t offset, int /*origin*/) {
    auto& transfer = *static_cast<BulkTransfer*>(self);
    transfer.given_ = offset;
    transfer.isBodyBegun_ = false;
    return CURL_SEEKFUNC_OK;
}

} // namespace skylet
