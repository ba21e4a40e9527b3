#include "platform/linux/transfer/CurlTransferSession.h"

#include "platform/linux/transfer/CurlOptions.h"

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

/// Connections are shared by requests to the same host and port, and by no others.
QString poolKey(const QUrl& url) {
    return url.authority();
}

} // namespace

CurlTransferSession::CurlTransferSession(const SessionConfiguration& configuration,
                                         std::shared_ptr<const NetworkEpoch> epoch)
    : limit_(std::chrono::ceil<std::chrono::milliseconds>(
          std::min(configuration.timeoutIntervalForRequest, configuration.timeoutIntervalForResource))),
      epoch_(std::move(epoch)), epochOfPools_(epoch_->current()), share_(makeShare()) {}

std::shared_ptr<TransferTask> CurlTransferSession::head(const QUrl& url, Completion completion) {
    return poolFor(url).head(url, std::move(completion));
}

void CurlTransferSession::distrust(const QUrl& url) {
    if (const auto pool = pools_.find(poolKey(url)); pool != pools_.end()) {
        pool->second->distrust();
    }
}

void CurlTransferSession::invalidateAndCancel() {
    while (!pools_.empty()) {
        pools_.begin()->second->cancelAll();
        retire(pools_.begin());
    }
}

ConnectionPool& CurlTransferSession::poolFor(const QUrl& url) {
    if (epochOfPools_ != epoch_->current()) {
        while (!pools_.empty()) {
            retire(pools_.begin());
        }
        epochOfPools_ = epoch_->current();
    }
    const auto key = poolKey(url);
    auto version = ConnectionPool::HttpVersion::negotiated;
    if (const auto old = pools_.find(key); old != pools_.end()) {
        if (old->second->isTrusted()) {
            return *old->second;
        }
        version = old->second->successorVersion();
        retire(old);
    }
    auto pool = std::make_unique<ConnectionPool>(
        share_.get(), version, limit_, [this] { return mayLookUp(); }, lifetime_.guard([this] { sweep(); }));
    return *pools_.emplace(key, std::move(pool)).first->second;
}

void CurlTransferSession::retire(Pools::iterator pool) {
    pool->second->retire();
    retired_.push_back({std::move(pool->second), epochOfPools_});
    pools_.erase(pool);
    QTimer::singleShot(0, lifetime_.guard([this] { sweep(); }));
}

void CurlTransferSession::sweep() {
    std::erase_if(pools_, [](const auto& entry) {
        const auto& pool = *entry.second;
        return !pool.isTrusted() && pool.isIdle() && pool.successorVersion() == ConnectionPool::HttpVersion::negotiated;
    });
    std::erase_if(retired_, [](const auto& retired) { return retired.pool->isIdle(); });
}

bool CurlTransferSession::mayLookUp() const {
    std::size_t ofThisEpoch = 0;
    std::size_t total = 0;
    const auto count = [&](const ConnectionPool& pool, std::uint64_t epoch) {
        total += pool.pendingLookups();
        ofThisEpoch += epoch == epochOfPools_ ? pool.pendingLookups() : 0;
    };
    for (const auto& [key, pool] : pools_) {
        count(*pool, epochOfPools_);
    }
    for (const auto& retired : retired_) {
        count(*retired.pool, retired.epoch);
    }
    return ofThisEpoch < lookupLimit && total < totalLookupLimit;
}

} // namespace skylet
