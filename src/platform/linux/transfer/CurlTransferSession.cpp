#include "platform/linux/transfer/CurlTransferSession.h"

#include "platform/linux/transfer/curl/CurlOptions.h"

#include <QTimer>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

CurlShare makeShare() {
    initializeCurl();
    CurlShare share(curl_share_init());
    if (!share) {
        qFatal("libcurl is out of memory");
    }
    curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    return share;
}

} // namespace

CurlTransferSession::CurlTransferSession(const SessionConfiguration& configuration,
                                         std::shared_ptr<const NetworkEpoch> epoch, std::shared_ptr<NameResolver> names,
                                         std::chrono::milliseconds renewalInterval)
    : limit_(std::chrono::ceil<std::chrono::milliseconds>(
          std::min(configuration.timeoutIntervalForRequest, configuration.timeoutIntervalForResource))),
      epoch_(std::move(epoch)), names_(std::move(names)), renewalInterval_(renewalInterval),
      epochOfHosts_(epoch_->current()), share_(makeShare()) {}

std::shared_ptr<TransferTask> CurlTransferSession::head(const QUrl& url, Accepts accepts, Completion completion) {
    const auto key = url.authority();
    auto task = hostFor(key).current->head({url, accepts, limit_}, std::move(completion));
    renewIfDue(key, url, accepts);
    return task;
}

void CurlTransferSession::invalidateAndCancel() {
    retireAll();
    for (const auto& pool : retired_) {
        pool->cancelAll();
        pool->retire();
    }
}

CurlTransferSession::Host& CurlTransferSession::hostFor(const QString& key) {
    if (epochOfHosts_ != epoch_->current()) {
        retireAll();
        epochOfHosts_ = epoch_->current();
        lastRenewal_ = SteadyClock::now();
    }
    auto& host = hosts_[key];
    if (host.current && host.current->isTrusted() && host.current->isBehindSlowProxy() && !host.successor) {
        host.successor = std::exchange(host.current, nullptr);
    }
    if (host.current && !isFitForUse(*host.current)) {
        host.version = host.current->successorVersion();
        retire(std::exchange(host.current, nullptr));
    }
    if (!host.current) {
        host.current = makePool(host);
    }
    return host;
}

bool CurlTransferSession::isFitForUse(const ConnectionPool& pool) const {
    if (!pool.isTrusted() || pool.isBehindSlowProxy() || pool.isClosedByPeer()) {
        return false;
    }
    // Where nothing was asked for long, as in a pause, nothing has been renewed.
    return !pool.isProven() || SteadyClock::now() - pool.newestConnection() <= 3 * renewalInterval_;
}

CurlTransferSession::Pool CurlTransferSession::makePool(const Host& host) {
    return std::make_unique<ConnectionPool>(*names_, share_.get(), host.version, lifetime_.guard([this] { sweep(); }));
}

void CurlTransferSession::renewIfDue(const QString& key, const QUrl& url, const Accepts& accepts) {
    auto& host = hosts_[key];
    const auto isProven = [](const Host& other) { return other.current && other.current->isProven(); };
    const auto isOlder = [&](const auto& entry) {
        return isProven(entry.second) && entry.second.current->newestConnection() < host.current->newestConnection();
    };
    if (host.successor || !isProven(host)) {
        return;
    }
    const auto now = SteadyClock::now();
    const bool isItsTurn =
        now - lastRenewal_ >= renewalInterval_ && std::none_of(hosts_.begin(), hosts_.end(), isOlder);
    // Where answers are slow a turn may come a whole cycle late; twice that would be too late for the last one.
    const bool isOld = now - host.current->newestConnection() >= 2 * renewalInterval_;
    const bool isInDoubt = host.current->newestConnection() < lastFailure_;
    if (!isItsTurn && !isOld && !isInDoubt) {
        return;
    }
    lastRenewal_ = now;
    host.isBeforeTurn = isInDoubt;
    host.successor = makePool(host);
    host.successor->head({url, accepts, std::max<std::chrono::milliseconds>(renewalLimit, limit_),
                          NameResolver::Freshness::fresh, false},
                         // Its end is seen by what the pool is like after it.
                         [](const auto& /*response*/, const auto& /*error*/) {});
}

void CurlTransferSession::succeed(Host& host) {
    auto successor = std::exchange(host.successor, nullptr);
    const bool isInUse = host.current && host.current->isTrusted() && host.current->isProven();
    const bool isOutdone = isInUse && host.current->newestConnection() > successor->newestConnection();
    if (successor->isTrusted() && !isOutdone) {
        std::swap(host.current, successor);
    } else if (isInUse && !isOutdone) {
        host.version = successor->successorVersion();
        host.current->distrust();
        // If no new connection can be made here, then perhaps nowhere. This goes round once: a server that takes one
        // connection at a time refuses each fresh one beside the kept one.
        if (!host.isBeforeTurn) {
            lastFailure_ = SteadyClock::now();
        }
    }
    retire(std::move(successor));
}

void CurlTransferSession::retireAll() {
    for (auto& [key, host] : std::exchange(hosts_, {})) {
        retire(std::move(host.current));
        retire(std::move(host.successor));
    }
}

void CurlTransferSession::retire(Pool pool) {
    if (!pool) {
        return;
    }
    pool->retire();
    retired_.push_back(std::move(pool));
    QTimer::singleShot(0, lifetime_.guard([this] { sweep(); }));
}

void CurlTransferSession::sweep() {
    for (auto& [key, host] : hosts_) {
        if (host.successor && host.successor->isIdle()) {
            succeed(host);
        }
        if (host.current && !host.current->isTrusted() && host.current->isIdle()) {
            host.version = host.current->successorVersion();
            host.current.reset();
        }
    }
    std::erase_if(retired_, [](const Pool& pool) { return pool->isIdle(); });
}

} // namespace skylet
