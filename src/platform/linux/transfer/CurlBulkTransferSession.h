#pragma once

#include "platform/linux/transfer/BulkTransfer.h"
#include "platform/linux/transfer/PreciseTimer.h"
#include "platform/linux/transfer/curl/CurlMulti.h"
#include "platform/network/NetworkEpoch.h"
#include "platform/transfer/BulkTransferSession.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace skylet {

/// Large transfers over libcurl on the Qt event loop, by HTTP/1.1: a connection carries one transfer at a time. One
/// whose transfer ended by itself is kept a moment for the next transfer; any other is closed hard, so that the kernel
/// sends nothing more of it.
class CurlBulkTransferSession final : public BulkTransferSession {
  public:
    /// Bytes are reported this often: smooth on a gauge, and cheap at any speed.
    static constexpr std::chrono::milliseconds reportInterval{20};
    /// Long enough for an upload after a download; an idle connection of a high speed holds megabytes of buffers.
    static constexpr std::chrono::seconds keepConnectionsFor{5};

    using SentByMachine = BulkTransfer::SentByMachine;

    /// The configuration's limit for requests is how long there may be no progress. `delegate` outlives the session. An
    /// upload that a program of this machine acknowledges, a proxy or a tunnel, counts for no more than `sentByMachine`
    /// grows by.
    CurlBulkTransferSession(const SessionConfiguration& configuration, std::shared_ptr<const NetworkEpoch> epoch,
                            std::shared_ptr<NameResolver> names, BulkTransferDelegate& delegate,
                            SentByMachine sentByMachine);
    ~CurlBulkTransferSession() override;

    std::shared_ptr<BulkTransferTask> download(const QUrl& url) override;
    std::shared_ptr<BulkTransferTask> upload(const QUrl& url, const QByteArray& contentType, std::int64_t size,
                                             Seconds timeoutInterval) override;

  private:
    using Transfers = std::vector<std::shared_ptr<BulkTransfer>>;

    Q_DISABLE_COPY_MOVE(CurlBulkTransferSession)

    std::shared_ptr<BulkTransferTask> start(BulkTransfer::Request request);
    void tick();
    void reportAll();
    void reportEnd(const std::shared_ptr<BulkTransfer>& transfer);
    void dropConnections();

    const SessionConfiguration configuration_;
    const std::shared_ptr<const NetworkEpoch> epoch_;
    const std::shared_ptr<NameResolver> names_;
    const SentByMachine sentByMachine_;
    std::uint64_t epochOfConnections_;
    BulkTransferDelegate& delegate_;
    TaskIdentifier lastIdentifier_ = 0;
    const PreciseTimer ticking_ = makePreciseTimer(false);
    const PreciseTimer reporting_ = makePreciseTimer(true);
    const PreciseTimer idle_ = makePreciseTimer(true);
    /// The transfers whose end has not been reported.
    Transfers transfers_;
    std::unique_ptr<CurlMulti> multi_;
};

} // namespace skylet
