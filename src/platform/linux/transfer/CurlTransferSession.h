#pragma once

#include "platform/Lifetime.h"
#include "platform/NetworkEpoch.h"
#include "platform/TransferSession.h"
#include "platform/linux/transfer/ConnectionPool.h"
#include "platform/linux/transfer/CurlHandles.h"

#include <QString>

#include <map>
#include <memory>
#include <vector>

namespace skylet {

/// HTTPS over libcurl on the Qt event loop, HTTP/2 where the server speaks it. Each host has a pool of its own, which
/// is thrown away, connections and all, once a request failed there or the network has become another one.
class CurlTransferSession final : public TransferSession {
  public:
    /// While names do not resolve, each attempt leaves a resolver thread behind for some tens of seconds. Requests that
    /// would need one more than this many fail at once.
    static constexpr std::size_t lookupLimit = 8;
    /// The same with the threads that earlier networks left behind.
    static constexpr std::size_t totalLookupLimit = 24;

    CurlTransferSession(const SessionConfiguration& configuration, std::shared_ptr<const NetworkEpoch> epoch);

    std::shared_ptr<TransferTask> head(const QUrl& url, Completion completion) override;
    void distrust(const QUrl& url) override;
    void invalidateAndCancel() override;

  private:
    struct RetiredPool {
        std::unique_ptr<ConnectionPool> pool;
        /// Of the network epoch it was used in.
        std::uint64_t epoch;
    };
    using Pools = std::map<QString, std::unique_ptr<ConnectionPool>>;

    ConnectionPool& poolFor(const QUrl& url);
    void retire(Pools::iterator pool);
    void sweep();
    bool mayLookUp() const;

    const std::chrono::milliseconds limit_;
    const std::shared_ptr<const NetworkEpoch> epoch_;
    std::uint64_t epochOfPools_;
    /// TLS sessions, so that a new connection to a known host need not carry the certificates again. Outlives the
    /// pools.
    const CurlShare share_;
    Pools pools_;
    /// Out of use; each goes as soon as nothing runs there any more.
    std::vector<RetiredPool> retired_;
    Lifetime lifetime_;
};

} // namespace skylet
