#include "speedtest/SpeedTestMeasurement.h"

#include "BuildConstants.h"
#include "platform/ConstantUrl.h"
#include "ui/Strings.h"

#include <QByteArray>
#include <QString>

#include <utility>

namespace skylet {

namespace {

double megabits(std::int64_t bytes, Seconds elapsed) {
    return static_cast<double>(bytes) * 8 / elapsed.count() / 1'000'000;
}

QString resultText(std::optional<double> result) {
    return result ? fixed(*result, 1) : L(QStringLiteral("failed"));
}

bool isGood(int statusCode) {
    return statusCode >= 200 && statusCode <= 299;
}

SessionConfiguration limited(SessionConfiguration configuration) {
    configuration.timeoutIntervalForRequest = SpeedTestMeasurement::sessionTimeout;
    configuration.timeoutIntervalForResource = SpeedTestMeasurement::sessionTimeout;
    return configuration;
}

QUrl endpoint(const QString& pathAndQuery) {
    return constantUrl(QStringLiteral("https://") + QString::fromUtf8(build::speedTestHost) + pathAndQuery);
}

} // namespace

SpeedTestMeasurement::SpeedTestMeasurement(SpeedTestDisplay& display, const SpeedTestEvents& events,
                                           const BulkTransferSessionFactory& makeSession, const Clock& clock,
                                           Schedule schedule, const SessionConfiguration& configuration,
                                           Seconds phaseSeconds)
    : display_(display), events_(events), clock_(clock), schedule_(std::move(schedule)), phaseSeconds_(phaseSeconds),
      downURL_(endpoint(QStringLiteral("/__down?bytes=%1").arg(downloadBytes))),
      upURL_(endpoint(QStringLiteral("/__up"))), session_(makeSession(limited(configuration), *this)) {}

void SpeedTestMeasurement::start() {
    if (isRunning_) {
        return;
    }
    isRunning_ = true;
    if (events_.onStarted) {
        events_.onStarted();
        if (!isRunning_) {
            return;
        }
    }
    downResult_.reset();
    upResult_.reset();
    display_.setResult(ResultColumn::https,
                       latencyMs_ >= 1 ? QString::number(latencyMs_) + QStringLiteral(" ms") : unknownResult());
    display_.setResult(ResultColumn::download, unknownResult());
    display_.setResult(ResultColumn::upload, unknownResult());
    display_.setRunEnabled(false);
    display_.setGaugeAccent(downloadColor);
    beginPhase(false);
}

void SpeedTestMeasurement::beginPhase(bool upload) {
    if (!isRunning_) {
        return;
    }
    isUpload_ = upload;
    deadlineTaskID_.reset();
    bytes_ = 0;
    samples_.clear();
    // Before the request is made: connecting, the TLS handshake and the slow start are part of what a user waits for.
    phaseStart_ = clock_.systemUptime();
    display_.setGaugePhase(L(upload ? QStringLiteral("UPLOAD") : QStringLiteral("DOWNLOAD")));
    display_.setGaugeTarget(0);
    display_.setGaugeValue(0);
    display_.setGaugeAccent(upload ? uploadColor : downloadColor);
    task_ = startTransfer();
    cancelAndClear(deadline_);
    deadline_ = schedule_(
        phaseSeconds_, lifetime_.guard([this, identifier = task_->taskIdentifier()] { deadlineReached(identifier); }));
}

std::shared_ptr<BulkTransferTask> SpeedTestMeasurement::startTransfer() const {
    if (!isUpload_) {
        return session_->download(downURL_);
    }
    return session_->upload(upURL_, QByteArrayLiteral("application/octet-stream"), uploadBytes, uploadTimeout);
}

void SpeedTestMeasurement::deadlineReached(TaskIdentifier task) {
    if (!isCurrent(task)) {
        return;
    }
    deadlineTaskID_ = task;
    task_->cancel();
}

bool SpeedTestMeasurement::isCurrent(TaskIdentifier task) const {
    return task_ && task_->taskIdentifier() == task;
}

ResponseDisposition SpeedTestMeasurement::responseReceived(TaskIdentifier /*task*/, std::optional<int> statusCode) {
    return statusCode && isGood(*statusCode) ? ResponseDisposition::allow : ResponseDisposition::cancel;
}

void SpeedTestMeasurement::dataReceived(TaskIdentifier task, std::int64_t count) {
    if (isCurrent(task) && !isUpload_) {
        progress(count);
    }
}

void SpeedTestMeasurement::bodySent(TaskIdentifier task, std::int64_t count) {
    if (isCurrent(task) && isUpload_) {
        progress(count);
    }
}

void SpeedTestMeasurement::progress(std::int64_t count) {
    if (__builtin_add_overflow(bytes_, count, &bytes_)) {
        qFatal("SpeedTestMeasurement: the count of bytes overflowed");
    }
    const auto now = clock_.systemUptime();
    samples_.push_back({now, bytes_});
    while (now - samples_.front().time > sampleWindow) {
        samples_.pop_front();
    }
    const auto& first = samples_.front();
    const auto span = now - first.time;
    if (span <= leastSpan) {
        return;
    }
    // The oldest sample's own piece arrived before its time stamp, so it is no part of the span.
    display_.setGaugeTarget(megabits(bytes_ - first.bytes, span));
}

void SpeedTestMeasurement::completed(TaskIdentifier task, const BulkTransferResult& result) {
    if (!isCurrent(task)) {
        return;
    }
    const auto elapsed = clock_.systemUptime() - phaseStart_;
    const bool finished =
        result.end == BulkTransferResult::End::finished && result.statusCode && isGood(*result.statusCode);
    // An upload that is cut off has no answer yet, and counts all the same.
    const bool cutOff = deadlineTaskID_ == task && result.end == BulkTransferResult::End::cancelled &&
                        (!result.statusCode || isGood(*result.statusCode));
    std::optional<double> speed;
    if ((finished || cutOff) && bytes_ >= leastBytes && elapsed > Seconds::zero()) {
        speed = megabits(bytes_, elapsed);
    }
    cancelAndClear(deadline_);
    task_.reset();
    if (isUpload_) {
        uploadEnded(speed);
    } else {
        downloadEnded(speed);
    }
}

void SpeedTestMeasurement::downloadEnded(std::optional<double> result) {
    downResult_ = result;
    display_.setResult(ResultColumn::download, resultText(result));
    display_.setGaugeTarget(result.value_or(0));
    transition_ = schedule_(transitionSeconds, lifetime_.guard([this] { beginPhase(true); }));
}

void SpeedTestMeasurement::uploadEnded(std::optional<double> result) {
    upResult_ = result;
    display_.setResult(ResultColumn::upload, resultText(result));
    display_.setGaugePhase(L(QStringLiteral("DONE")));
    display_.setGaugeTarget(result.value_or(0));
    display_.setRunEnabled(true);
    isRunning_ = false;
    if (events_.onFinished) {
        events_.onFinished(downResult_, upResult_);
    }
}

void SpeedTestMeasurement::cancel() {
    const bool wasRunning = std::exchange(isRunning_, false);
    cancelAndClear(deadline_);
    cancelAndClear(transition_);
    if (task_) {
        std::exchange(task_, nullptr)->cancel();
    }
    display_.stopGaugeAnimation();
    display_.setRunEnabled(true);
    if (wasRunning && events_.onCancelled) {
        events_.onCancelled();
    }
}

} // namespace skylet
