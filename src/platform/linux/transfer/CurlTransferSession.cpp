#include "platform/linux/transfer/CurlTransferSession.h"

#include "platform/linux/transfer/TransferLog.h"
#include "platform/linux/transfer/curl/CurlOptions.h"

#include <QTimer>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

CurlShare makeShare() {
    initializeCurl();
    CurlShare share(curl_share_init());
    Q_CHECK_PTR(share.get());
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

std::shared_ptr<Cancellation> CurlTransferSession::head(const QUrl& url, Accepts accepts, Completion completion) {
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
        qCInfo(transferLog, "another network: no connection is used again");
        retireAll();
        epochOfHosts_ = epoch_->current();
        lastRenewal_ = SteadyClock::now();
    }
    auto& host = hosts_[key];
    if (host.current && host.current->isUsable() && host.current->isBehindSlowProxy() && !host.replacement) {
        host.replacement = std::exchange(host.current, nullptr);
    }
    if (host.current && !isFitForUse(*host.current)) {
        host.isHttp1Only = host.current->needsHttp1();
        retire(std::exchange(host.current, nullptr));
    }
    if (!host.current) {
        host.current = makePool(host);
    }
    return host;
}

bool CurlTransferSession::isFitForUse(const ConnectionPool& pool) const {
    if (!pool.isUsable() || pool.isBehindSlowProxy() || pool.isClosedByPeer()) {
        return false;
    }
    // Where one host answers and the other does not as it should, a new connection to that each time would be most of
    // what is sent.
    if (pool.isRejected() && !isAnyAccepted()) {
        return false;
    }
    // Where nothing was asked for long, as in a pause, nothing has been renewed.
    return !pool.hasAnswered() || SteadyClock::now() - pool.newestConnection() <= 3 * renewalInterval_;
}

bool CurlTransferSession::isAnyAccepted() const {
    return std::any_of(hosts_.begin(), hosts_.end(), [](const auto& entry) {
        const Pool& pool = entry.second.current;
        return pool && pool->isUsable() && pool->hasAnswered() && !pool->isRejected();
    });
}

CurlTransferSession::Pool CurlTransferSession::makePool(const Host& host) {
    return std::make_unique<ConnectionPool>(*names_, share_.get(), host.isHttp1Only,
                                            lifetime_.guard([this] { finishIdlePools(); }));
}

void CurlTransferSession::renewIfDue(const QString& key, const QUrl& url, const Accepts& accepts) {
    auto& host = hosts_[key];
    const auto hasAnswered = [](const Host& other) { return other.current && other.current->hasAnswered(); };
    const auto isOlder = [&](const auto& entry) {
        return hasAnswered(entry.second) && entry.second.current->newestConnection() < host.current->newestConnection();
    };
    if (host.replacement || !hasAnswered(host)) {
        return;
    }
    const auto now = SteadyClock::now();
    const bool isItsTurn =
        now - lastRenewal_ >= renewalInterval_ && std::none_of(hosts_.begin(), hosts_.end(), isOlder);
    // Where answers are slow a turn may come a whole cycle late; twice that would be too late for the last one.
    const bool isOld = now - host.current->newestConnection() >= 2 * renewalInterval_;
    const bool isSuspect = host.current->newestConnection() < lastFailure_;
    if (!isItsTurn && !isOld && !isSuspect) {
        return;
    }
    qCInfo(transferLog, "%s: making a fresh connection beside the kept one", qPrintable(key));
    lastRenewal_ = now;
    host.wasRenewedAfterOtherHostFailed = isSuspect;
    host.replacement = makePool(host);
    host.replacement->head({url, accepts, std::max<std::chrono::milliseconds>(renewalLimit, limit_), true},
                           // What it means is seen by what the pool is like after it.
                           [key](const auto& /*response*/, const auto& error) {
                               qCInfo(transferLog, "%s: the fresh connection: %s", qPrintable(key),
                                      error ? qPrintable(error->description) : "answered");
                           });
}

void CurlTransferSession::finishRenewal(const QString& key, Host& host) {
    auto replacement = std::exchange(host.replacement, nullptr);
    const bool isInUse = host.current && host.current->isUsable() && host.current->hasAnswered();
    const bool isOutdone = isInUse && host.current->newestConnection() > replacement->newestConnection();
    if (replacement->isUsable() && !replacement->isRejected() && !isOutdone) {
        qCInfo(transferLog, "%s: the fresh connection is used from now on", qPrintable(key));
        std::swap(host.current, replacement);
    } else if (isInUse && !isOutdone) {
        qCInfo(transferLog, "%s: no fresh connection could be made, the kept one is not used again", qPrintable(key));
        host.isHttp1Only = replacement->needsHttp1();
        host.current->markUnusable();
        // If no new connection can be made here, then perhaps nowhere. This goes round once: a server that takes one
        // connection at a time refuses each fresh one beside the kept one.
        if (!host.wasRenewedAfterOtherHostFailed) {
            lastFailure_ = SteadyClock::now();
        }
    }
    retire(std::move(replacement));
}

void CurlTransferSession::retireAll() {
    for (auto& [key, host] : std::exchange(hosts_, {})) {
        retire(std::move(host.current));
        retire(std::move(host.replacement));
    }
}

void CurlTransferSession::retire(Pool pool) {
    if (!pool) {
        return;
    }
    pool->retire();
    retired_.push_back(std::move(pool));
    QTimer::singleShot(0, lifetime_.guard([this] { finishIdlePools(); }));
}

void CurlTransferSession::finishIdlePools() {
    for (auto& [key, host] : hosts_) {
        if (host.replacement && host.replacement->isIdle()) {
            finishRenewal(key, host);
        }
        if (host.current && !host.current->isUsable() && host.current->isIdle()) {
            host.isHttp1Only = host.current->needsHttp1();
            host.current.reset();
        }
    }
    const bool isAnyNew = std::any_of(hosts_.begin(), hosts_.end(), [](const auto& entry) {
        return entry.second.current && !entry.second.current->hasAnswered();
    });
    // A new connection resumes the TLS session of an older one only while that is open (libcurl before 8.4, HTTP/2).
    std::erase_if(retired_, [isAnyNew](const Pool& pool) {
        return pool->isIdle() && !(isAnyNew && pool->isUsable() && pool->hasAnswered());
    });
}

} // namespace skylet
