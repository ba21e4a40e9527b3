#pragma once

#include "platform/Lifetime.h"
#include "platform/linux/transfer/ConnectionPool.h"
#include "platform/linux/transfer/curl/CurlHandles.h"
#include "platform/network/NetworkEpoch.h"
#include "platform/transfer/TransferSession.h"

#include <QString>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace skylet {

/// HTTPS over libcurl on the Qt event loop, HTTP/2 where the server speaks it. Each host has a pool of connections of
/// its own, which is thrown away, connections and all, once a request failed there or the network has become another
/// one; once its answer was rejected, only if that of no other host was accepted. A connection that works says nothing
/// of whether a new one could be made; so each is replaced from time to time by a fresh one, made beside it with a new
/// name look-up and handshake, and is not used again if that fails.
class CurlTransferSession final : public TransferSession {
  public:
    /// Each time this has passed the oldest of the connections is replaced. With two hosts, asked every five seconds,
    /// none gets older than four minutes.
    static constexpr std::chrono::milliseconds defaultRenewalInterval{115'000};
    /// The time for a fresh connection and its first answer. Slow resolvers and links may take long: the kept one
    /// serves meanwhile.
    static constexpr std::chrono::seconds renewalLimit{25};

    /// `names` is shared with whoever else looks names up.
    CurlTransferSession(const SessionConfiguration& configuration, std::shared_ptr<const NetworkEpoch> epoch,
                        std::shared_ptr<NameResolver> names,
                        std::chrono::milliseconds renewalInterval = defaultRenewalInterval);

    std::shared_ptr<Cancellation> head(const QUrl& url, Accepts accepts, Completion completion) override;
    void invalidateAndCancel() override;

  private:
    using Pool = std::unique_ptr<ConnectionPool>;
    using SteadyClock = CurlTransfer::SteadyClock;
    struct Host {
        bool isHttp1Only = false;
        /// The pool for new requests; absent before the first one, and after a failed one.
        Pool current;
        /// Makes the connection that is to replace the current one, or waits for a slow proxy while the current one
        /// tries anew.
        Pool replacement;
        /// The replacement was begun before its turn.
        bool wasRenewedAfterOtherHostFailed = false;
    };

    /// The host, with a current pool that is fit for use.
    Host& hostFor(const QString& key);
    bool isFitForUse(const ConnectionPool& pool) const;
    bool isAnyAccepted() const;
    Pool makePool(const Host& host);
    void renewIfDue(const QString& key, const QUrl& url, const Accepts& accepts);
    /// Takes the replacement's connection into use if it brought an answer that is accepted, else neither.
    void finishRenewal(const QString& key, Host& host);
    void retireAll();
    void retire(Pool pool);
    /// Takes finished replacements into use, and lets go of pools where nothing runs any more.
    void finishIdlePools();

    const std::chrono::milliseconds limit_;
    const std::shared_ptr<const NetworkEpoch> epoch_;
    const std::shared_ptr<NameResolver> names_;
    const std::chrono::milliseconds renewalInterval_;
    std::uint64_t epochOfHosts_;
    /// When a renewal last began, or the network did.
    SteadyClock::time_point lastRenewal_ = SteadyClock::now();
    /// When a renewal that had its turn last failed: connections that are older may lead nowhere too.
    SteadyClock::time_point lastFailure_ = SteadyClock::time_point::min();
    /// TLS sessions, so that a new connection to a known host need not carry the certificates again. Outlives the
    /// pools.
    const CurlShare share_;
    /// The key is host and port: requests to the same ones share connections.
    std::map<QString, Host> hosts_;
    /// Pools out of use; each goes as soon as nothing runs there any more.
    std::vector<Pool> retired_;
    Lifetime lifetime_;
};

} // namespace skylet
