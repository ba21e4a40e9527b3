#pragma once

#include "platform/linux/transfer/DownloadMeter.h"
#include "platform/linux/transfer/UploadMeter.h"
#include "platform/linux/transfer/curl/CurlTransfer.h"
#include "platform/transfer/BulkTransferSession.h"

#include <QByteArray>
#include <QUrl>

#include <cstdint>
#include <functional>
#include <optional>

namespace skylet {

/// One large transfer: the request on libcurl's side, and what is still to be reported about it.
///
/// Bytes of the answer's body have arrived when the kernel has them, and are read when they come out of libcurl. Bytes
/// of the request's body are given to libcurl, and acknowledged by the other end.
class BulkTransfer final : public CurlTransfer, public BulkTransferTask {
  public:
    using End = BulkTransferResult::End;
    /// Bytes that have left this machine so far, of whichever program; it never falls. Empty optional: unknown.
    using SentByMachine = std::function<std::optional<std::int64_t>()>;

    struct Request {
        QUrl url;
        /// How long there may be no progress.
        Seconds inactivityLimit;
        Seconds wholeLimit;
        /// Zero bytes to send in a POST; absent: a GET.
        std::optional<std::int64_t> bodySize;
        QByteArray contentType;
    };

    /// `onReportDue` is called, also from inside libcurl, when something should be reported soon.
    BulkTransfer(CurlMulti& multi, TaskIdentifier identifier, Request request, SentByMachine sentByMachine,
                 std::function<void()> onReportDue);

    TaskIdentifier taskIdentifier() const override { return identifier_; }
    void cancel() override;
    bool isOver() const { return end_.has_value(); }
    BulkTransferResult result() const { return {*end_, status()}; }
    /// Its end is reported, or its session goes: it is off the wire, and nothing more is reported.
    void detach();
    bool isDetached() const { return isDetached_; }

    /// Asks how far the bodies have got, and ends the transfer where a limit is over.
    void checkLimits();
    /// Reports what is new, but for the end. The delegate may detach the transfer meanwhile.
    void report(BulkTransferDelegate& delegate);

    std::int64_t progress() const override;

  private:
    void ended(CURLcode result) override;
    void requestStarts() override;
    void headArrived() override;
    bool bodyArrived(std::size_t count) override;
    void connectionCloses() override { measure(); }

    void configureBody();
    /// Ends it before its time; its connection is not used again.
    void endNow(End end);
    void reportEnd(const QString& outcome);
    void measure();
    /// `count` bytes of the request's body have been acknowledged, if nobody on this machine did so for the other end.
    void countAcknowledged(std::int64_t count);
    /// The length of the answer's body by its head; negative: not said.
    std::int64_t announcedLength() const;

    static std::size_t bodyWanted(char* buffer, std::size_t size, std::size_t count, void* self);
    static int bodyRewound(void* self, curl_off_t offset, int origin);

    const TaskIdentifier identifier_;
    const Request request_;
    const SentByMachine sentByMachine_;
    const std::function<void()> onReportDue_;
    CurlList headers_;
    bool isDetached_ = false;
    std::int64_t lastProgress_ = 0;
    SteadyClock::time_point lastProgressTime_ = SteadyClock::now();
    bool isHeadReported_ = false;

    // Bytes of the answer's body.
    std::int64_t read_ = 0;
    std::int64_t arrived_ = 0;
    std::int64_t arrivedReported_ = 0;
    DownloadMeter downloadMeter_;
    /// Readings of the meter that are left until the next report.
    int readingsLeft_ = 0;

    // Bytes of the request's body.
    std::int64_t given_ = 0;
    std::int64_t acknowledged_ = 0;
    std::int64_t acknowledgedReported_ = 0;
    bool isBodyBegun_ = false;
    /// The answer's head came before the whole body had been given.
    bool isAnsweredEarly_ = false;
    UploadMeter uploadMeter_;
    /// Bytes that had left the machine when the body began; absent when unknown.
    std::optional<std::int64_t> sentBefore_;
    /// Whoever acknowledges may be on this machine.
    bool ackerMayBeLocal_ = true;
    std::optional<End> end_;
};

} // namespace skylet
