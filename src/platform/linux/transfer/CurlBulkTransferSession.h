#pragma once

#include "platform/linux/transfer/curl/CurlMulti.h"
#include "platform/network/NetworkEpoch.h"
#include "platform/transfer/BulkTransferSession.h"

#include <QTimer>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
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

    /// Bytes that have left this machine so far, of whichever program; it never falls. Empty optional: unknown.
    using SentByMachine = std::function<std::optional<std::int64_t>()>;

    /// Of the two limits, the one for requests is how long nothing may move. `delegate` outlives the session. An upload
    /// whose other end is this machine itself, a proxy or a tunnel's program, counts for no more than `sentByMachine`
    /// has grown by meanwhile.
    CurlBulkTransferSession(const SessionConfiguration& configuration, std::shared_ptr<const NetworkEpoch> epoch,
                            std::shared_ptr<NameResolver> names, BulkTransferDelegate& delegate,
                            SentByMachine sentByMachine);
    ~CurlBulkTransferSession() override;
    CurlBulkTransferSession(const CurlBulkTransferSession&) = delete;
    CurlBulkTransferSession& operator=(const CurlBulkTransferSession&) = delete;
    CurlBulkTransferSession(CurlBulkTransferSession&&) = delete;
    CurlBulkTransferSession& operator=(CurlBulkTransferSession&&) = delete;

    std::shared_ptr<BulkTransferTask> download(const QUrl& url) override;
    std::shared_ptr<BulkTransferTask> upload(const QUrl& url, const QByteArray& contentType, UploadBody body,
                                             Seconds timeoutInterval) override;

  private:
    class Transfer;
    class Task;
    struct Request;
    /// May be let go from inside its own signal.
    using Timer = std::unique_ptr<QTimer, void (*)(QTimer*)>;
    using Transfers = std::vector<std::shared_ptr<Transfer>>;

    static Timer makeTimer(bool singleShot);
    static void report(const std::shared_ptr<Transfer>& transfer);

    std::shared_ptr<BulkTransferTask> start(Request request);
    void done(CURL* handle, CURLcode result);
    void tick();
    std::unique_ptr<CurlMulti> makeMulti();
    /// Grows with everything that goes either way.
    std::int64_t moved() const;
    void closing(curl_socket_t socket);
    void reportSoon();
    void reportAll() const;
    void takeOffWire(const std::shared_ptr<Transfer>& transfer);
    void remove(const Transfer& transfer);
    void dropConnections();

    const Seconds requestLimit_;
    const Seconds resourceLimit_;
    const std::shared_ptr<const NetworkEpoch> epoch_;
    const std::shared_ptr<NameResolver> names_;
    const SentByMachine sentByMachine_;
    std::uint64_t epochOfConnections_;
    BulkTransferDelegate& delegate_;
    TaskIdentifier lastIdentifier_ = 0;
    const Timer ticking_;
    const Timer reporting_;
    const Timer idle_;
    /// Whose end has not been told.
    Transfers transfers_;
    std::unique_ptr<CurlMulti> multi_;
};

} // namespace skylet
