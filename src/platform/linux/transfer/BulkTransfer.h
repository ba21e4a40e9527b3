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
class BulkTransfer final : public CurlTransfer, public BulkTransferTask {
  public:
    using End = BulkTransferResult::End;
    /// Bytes that have left this machine so far, of whichever program; it never falls. Empty optional: unknown.
    using SentByMachine = std::function<std::optional<std::int64_t>()>;

    struct Request {
        QUrl url;
        /// How long nothing may move.
        Seconds inactivityLimit;
        Seconds wholeLimit;
        /// Zero bytes to send in a POST; absent: a GET.
        std::optional<std::int64_t> bodySize;
        QByteArray contentType;
    };

    /// `onNews` is called, also from inside libcurl, when something should be reported soon.
    BulkTransfer(CurlMulti& multi, TaskIdentifier identifier, Request request, SentByMachine sentByMachine,
                 std::function<void()> onNews);

    TaskIdentifier taskIdentifier() const override { return identifier_; }
    void cancel() override;
    bool isOver() const { return end_.has_value(); }
    BulkTransferResult result() const { return {*end_, status()}; }
    /// Its end is reported, or its session goes: it is off the wire, and nothing more is reported.
    void detach();
    bool isDetached() const { return isDetached_; }

    /// The answer is not wanted.
    void refuse();
    /// Asks how far the bodies have got, and ends the transfer where a limit is over.
    void checkLimits();

    // What is to be reported, once each:

    bool takeHead();
    std::int64_t takeReceived();
    std::int64_t takeSent();

    std::int64_t moved() const override;

  private:
    void ended(CURLcode result) override;
    void requestStarts() override;
    void headArrived() override;
    bool bodyArrived(std::size_t count) override;
    void connectionCloses() override { measure(); }

    void configureBody();
    void addHeader(const QByteArray& line);
    /// Ends it before its time; its connection is not used again.
    void endNow(End end);
    void log(const QString& outcome) const;
    void measure();
    /// So much of the body has been taken by the other end of the connection.
    void countSent(std::int64_t taken);
    /// Of the answer's body, by its head; negative: not said.
    std::int64_t announcedLength() const;
    /// Bytes of the answer's body that the kernel has, those that cannot be read yet included.
    std::int64_t arrivedBody() const;

    static std::size_t bodyWanted(char* buffer, std::size_t size, std::size_t count, void* self);
    static int bodyRewound(void* self, curl_off_t offset, int origin);

    const TaskIdentifier identifier_;
    const Request request_;
    const SentByMachine sentByMachine_;
    const std::function<void()> onNews_;
    CurlList headers_;
    bool isDetached_ = false;
    /// Bytes moved either way, and when they last grew.
    std::int64_t lastMoved_ = 0;
    SteadyClock::time_point lastMove_ = SteadyClock::now();
    bool isHeadReported_ = false;
    /// Of the answer's body: come out of libcurl, and arrived.
    std::int64_t received_ = 0;
    std::int64_t arrived_ = 0;
    std::int64_t arrivedReported_ = 0;
    DownloadMeter downloadMeter_;
    /// Readings of the meter that are left until the next report.
    int readingsLeft_ = 0;
    /// Of the request's body: given to libcurl, and taken by the network.
    std::int64_t handedOver_ = 0;
    std::int64_t sent_ = 0;
    std::int64_t sentReported_ = 0;
    bool isBodyBegun_ = false;
    /// The answer's head came before the body had been given away.
    bool isAnsweredEarly_ = false;
    UploadMeter uploadMeter_;
    /// Bytes that had left the machine when the body began; absent when unknown.
    std::optional<std::int64_t> sentBefore_;
    /// The other end may be on this machine.
    bool isNear_ = true;
    std::optional<End> end_;
};

} // namespace skylet
