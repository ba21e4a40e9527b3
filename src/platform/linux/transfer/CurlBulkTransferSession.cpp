#include "platform/linux/transfer/CurlBulkTransferSession.h"

#include <utility>

namespace skylet {

CurlBulkTransferSession::CurlBulkTransferSession(const SessionConfiguration& configuration,
                                                 std::shared_ptr<const NetworkEpoch> epoch,
                                                 std::shared_ptr<NameResolver> names, BulkTransferDelegate& delegate,
                                                 SentByMachine sentByMachine)
    : configuration_(configuration), epoch_(std::move(epoch)), names_(std::move(names)),
      sentByMachine_(std::move(sentByMachine)), epochOfConnections_(epoch_->current()), delegate_(delegate) {
    ticking_->setInterval(reportInterval);
    ticking_->callOnTimeout([this] { tick(); });
    reporting_->callOnTimeout([this] { reportAll(); });
    idle_->setInterval(keepConnectionsFor);
    idle_->callOnTimeout([this] { dropConnections(); });
}

CurlBulkTransferSession::~CurlBulkTransferSession() {
    for (const auto& transfer : transfers_) {
        transfer->detach();
    }
}

std::shared_ptr<BulkTransferTask> CurlBulkTransferSession::download(const QUrl& url) {
    return start({.url = url,
                  .inactivityLimit = configuration_.timeoutIntervalForRequest,
                  .wholeLimit = configuration_.timeoutIntervalForResource,
                  .bodySize = {},
                  .contentType = {}});
}

std::shared_ptr<BulkTransferTask> CurlBulkTransferSession::upload(const QUrl& url, const QByteArray& contentType,
                                                                  std::int64_t size, Seconds timeoutInterval) {
    return start({.url = url,
                  .inactivityLimit = timeoutInterval,
                  .wholeLimit = configuration_.timeoutIntervalForResource,
                  .bodySize = size,
                  .contentType = contentType});
}

std::shared_ptr<BulkTransferTask> CurlBulkTransferSession::start(BulkTransfer::Request request) {
    idle_->stop();
    if (epochOfConnections_ != epoch_->current()) {
        dropConnections();
    }
    if (!multi_) {
        multi_ = std::make_unique<CurlMulti>(*names_);
    }
    const auto transfer = std::make_shared<BulkTransfer>(*multi_, ++lastIdentifier_, std::move(request), sentByMachine_,
                                                         [this] { reporting_->start(); });
    transfers_.push_back(transfer);
    transfer->start();
    if (!ticking_->isActive()) {
        ticking_->start();
    }
    return transfer;
}

void CurlBulkTransferSession::tick() {
    for (const auto& transfer : Transfers(transfers_)) {
        transfer->checkLimits();
    }
    reportAll();
}

void CurlBulkTransferSession::reportAll() {
    // Any call may end transfers, or the session itself, which detaches them all.
    auto& delegate = delegate_;
    for (const auto& transfer : Transfers(transfers_)) {
        transfer->report(delegate);
        if (transfer->isOver() && !transfer->isDetached()) {
            reportEnd(transfer);
        }
    }
}

void CurlBulkTransferSession::reportEnd(const std::shared_ptr<BulkTransfer>& transfer) {
    transfer->detach();
    std::erase(transfers_, transfer);
    if (transfers_.empty()) {
        ticking_->stop();
        idle_->start();
    }
    delegate_.completed(transfer->taskIdentifier(), transfer->result());
}

void CurlBulkTransferSession::dropConnections() {
    if (transfers_.empty()) {
        multi_.reset();
        epochOfConnections_ = epoch_->current();
    }
}

} // namespace skylet
