#pragma once

#include "platform/Clock.h"
#include "platform/Lifetime.h"
#include "platform/linux/DeleteLater.h"
#include "platform/network/NetworkEpoch.h"

#include <QByteArray>
#include <QFutureWatcher>
#include <QString>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <vector>

namespace skylet {

/// Looks up the addresses of names with the system's own resolver, getaddrinfo(3), on a thread for each look-up, since
/// it waits for as long as the system's configuration says. On one network no name is looked up twice at the
/// same time, and an answer that came late still serves whoever asks next. Answers do not survive a change of network.
/// All calls and completions are on the main thread.
class NameResolver {
  public:
    /// Numeric IPv4 or IPv6 addresses, the one to try first in front. Empty: there are none, or nobody answered.
    using Addresses = std::vector<QByteArray>;
    using Completion = std::function<void(const Addresses&)>;

    struct Answer {
        Addresses addresses;
        /// Why there are none, for the log.
        QByteArray error;
    };
    /// Blocks until the system answers; called on any thread.
    using SystemLookUp = std::function<Answer(const QByteArray& host)>;

    enum class Freshness {
        /// An answer that was kept will do.
        kept,
        /// The answer of a look-up that ends after the call.
        fresh,
    };

    /// How long an answer is used.
    static constexpr Seconds keepFor{60.0};
    /// A kept answer that is used when it is older than this is looked up again meanwhile, so that a name in constant
    /// use is never waited for again.
    static constexpr Seconds refreshAfter{30.0};
    /// How long a new answer is waited for by whoever would have to use a stale one.
    static constexpr std::chrono::milliseconds staleTimeout{500};
    /// Threads that may wait for the system at once: look-ups of earlier networks cannot be ended and count on. One
    /// more look-up than this has no answer.
    static constexpr std::size_t threadLimit = 24;

    /// Changes when the system's list of name servers does.
    using Configuration = std::function<QByteArray()>;

    NameResolver(std::shared_ptr<const Clock> clock, std::shared_ptr<const NetworkEpoch> epoch,
                 SystemLookUp systemLookUp = &NameResolver::askSystem,
                 Configuration configuration = &NameResolver::systemConfiguration);

    /// Calls `completion` once: at once from inside the call with an answer that is kept, else from the event loop. A
    /// change of network ends all that wait with an empty answer; where only the name servers are others now, they are
    /// asked in the place of the earlier ones. It is not called any more once the resolver is gone.
    void lookUp(const QString& host, Freshness freshness, Completion completion);

    /// Stale: a request to `host` failed, so that the kept answer may be wrong. It is looked up again for whoever wants
    /// it next, and used only if no other comes soon. It is stale until another answer comes, or a request succeeds.
    void setStale(const QString& host, bool isStale);
    /// No connection could be made: of several addresses another one is to be tried first until the answer changes.
    /// libcurl waits for minutes before it leaves one that is silent, and forever where TLS is.
    void putFirstAddressLast(const QString& host);

    /// getaddrinfo(3) for TCP over any family that this machine has. Blocks.
    static Answer askSystem(const QByteArray& host);
    /// Tells one /etc/resolv.conf from the next: network managers write it a moment after the route, and the C library
    /// reads it anew then.
    static QByteArray systemConfiguration();

  private:
    using PendingLookUp = std::unique_ptr<QFutureWatcher<Answer>, DeleteLater>;
    struct Name {
        Addresses addresses;
        /// When `addresses` came; meaningless while they are empty.
        Seconds answered{0};
        bool isPending = false;
        bool isStale = false;
        std::vector<Completion> waiting;
    };

    void forgetOtherNetwork();
    void askChangedNameServers();
    /// `completion` is called with an answer that comes within `staleTimeout`, else with `kept`.
    void waitOrUse(Name& name, const Addresses& kept, Completion completion);
    void ask(const QString& host);
    /// `generation`: when it was asked for.
    void answered(const QString& host, std::uint64_t generation, const Answer& answer);
    static void complete(const std::vector<Completion>& waiting, const Addresses& addresses);

    const std::shared_ptr<const Clock> clock_;
    const std::shared_ptr<const NetworkEpoch> epoch_;
    const SystemLookUp systemLookUp_;
    const Configuration configuration_;
    QByteArray lastConfiguration_;
    /// Grows with each change of network or configuration: tells which pending look-ups are still of use.
    std::uint64_t generation_ = 0;
    /// The network that `names_` are from.
    std::uint64_t epochOfNames_;
    std::map<QString, Name> names_;
    /// Look-ups of this network and earlier ones.
    std::list<PendingLookUp> pending_;
    Lifetime lifetime_;
};

} // namespace skylet
