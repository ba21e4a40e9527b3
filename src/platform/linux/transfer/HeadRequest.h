#pragma once

#include "platform/linux/transfer/PreciseTimer.h"
#include "platform/linux/transfer/curl/CurlTransfer.h"
#include "platform/transfer/TransferSession.h"

#include <chrono>
#include <optional>

namespace skylet {

class ConnectionPool;

/// One HEAD request of a ConnectionPool. Its caller gets the answer or an error once; on the wire it may go on in the
/// background after that.
class HeadRequest final : public CurlTransfer {
  public:
    struct Settings {
        QUrl url;
        TransferSession::Accepts accepts;
        /// The time for the whole exchange, name look-ups included.
        std::chrono::milliseconds limit;
        /// The request makes a connection that is to replace one in use: its names are looked up anew, and at the limit
        /// it is over.
        bool isRenewal = false;
    };

    /// `share`: TLS sessions to resume. `pool` outlives the request's time on the wire.
    HeadRequest(ConnectionPool& pool, CurlMulti& multi, CURLSH* share, Settings settings,
                TransferSession::Completion completion);

    using CurlTransfer::errorText;
    using CurlTransfer::isWaitingForProxy;
    using CurlTransfer::reportNames;

    const Settings& settings() const { return settings_; }
    void setLimit(std::chrono::milliseconds limit) { limit_->start(limit); }
    /// Its caller waits for it still.
    bool isAwaited() const { return static_cast<bool>(completion_); }
    /// Its connection is new, and the next step of the handshake or the answer may still be on its way.
    bool isConnecting() const;
    /// What it was doing when its limit was reached.
    TransferError timeout() const;
    TransferResponse response() const;

    void finish(std::optional<TransferResponse> response, std::optional<TransferError> error);
    /// Its caller hears of it from the event loop.
    void cancel();

  private:
    void ended(CURLcode result) override;
    void connectionOpens() override;
    void requestStarts() override { sent_ = SteadyClock::now(); }
    bool bodyArrived(std::size_t /*count*/) override { return false; }
    Seconds localDelay() const;

    ConnectionPool& pool_;
    const Settings settings_;
    TransferSession::Completion completion_;
    const bool isOnKeptConnection_;
    std::optional<SteadyClock::time_point> sent_;
    const PreciseTimer limit_ = makePreciseTimer(true);
};

} // namespace skylet
