#pragma once

#include "platform/Clock.h"
#include "platform/Lifetime.h"
#include "platform/Timers.h"
#include "platform/transfer/BulkTransferSession.h"
#include "speedtest/SpeedTestDisplay.h"
#include "speedtest/SpeedTesting.h"

#include <QUrl>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

namespace skylet {

/// Measures a link: a download, a pause, an upload, each cut off after a few seconds, each worth the average of its
/// whole time in Mbit/s (1,000,000 bit/s), connecting included. Decides the order of the phases, counts bytes, shows
/// the rate of the last moment while a phase runs, and gives the verdict. Draws nothing and knows no transport; time,
/// bytes and endings come in as calls. Belongs to the main thread.
class SpeedTestMeasurement final : public BulkTransferDelegate {
  public:
    static constexpr std::int64_t downloadBytes = 40'000'000;
    static constexpr std::int64_t uploadBytes = 20'000'000;
    static constexpr Seconds defaultPhaseSeconds{4.0};
    /// Between the two phases.
    static constexpr Seconds transitionSeconds{0.6};
    /// How far back the live rate looks, and the least it must see to show one.
    static constexpr Seconds sampleWindow{0.8};
    static constexpr Seconds leastSpan{0.15};
    /// A phase that moved less has no result.
    static constexpr std::int64_t leastBytes = 4096;
    /// For each request, and for each transfer as a whole.
    static constexpr Seconds sessionTimeout{15.0};
    static constexpr Seconds uploadTimeout{60.0};

    /// What stands in the place of a result that is not known: a dash.
    static QString unknownResult() { return QStringLiteral("—"); }

    /// Makes the one session from `configuration` with the limits above. Starts nothing. A host of the build that makes
    /// no URL stops the program. `display`, `events` and `clock` outlive this.
    SpeedTestMeasurement(SpeedTestDisplay& display, const SpeedTestEvents& events,
                         const BulkTransferSessionFactory& makeSession, const Clock& clock, Schedule schedule,
                         const SessionConfiguration& configuration, Seconds phaseSeconds);

    /// Starts a test, unless one is running.
    void start();
    /// Ends a running test; what it has shown stays until the next one.
    void cancel();

    bool isRunning() const { return isRunning_; }
    /// The response time to show in the next test, ms; below 1: none known.
    void setLatencyMs(std::int64_t milliseconds) { latencyMs_ = milliseconds; }

    ResponseDisposition responseReceived(TaskIdentifier task, std::optional<int> statusCode) override;
    void dataReceived(TaskIdentifier task, std::int64_t count) override;
    void bodySent(TaskIdentifier task, std::int64_t count) override;
    void completed(TaskIdentifier task, const BulkTransferResult& result) override;

  private:
    struct Sample {
        Seconds time;
        /// Of the whole phase so far.
        std::int64_t bytes = 0;
    };

    std::shared_ptr<BulkTransferTask> startTransfer() const;
    void beginPhase(bool upload);
    void deadlineReached(TaskIdentifier task);
    void progress(std::int64_t count);
    void downloadEnded(std::optional<double> result);
    void uploadEnded(std::optional<double> result);
    /// Whether a test runs and this is its phase's transfer.
    bool isCurrent(TaskIdentifier task) const;

    SpeedTestDisplay& display_;
    const SpeedTestEvents& events_;
    const Clock& clock_;
    const Schedule schedule_;
    const Seconds phaseSeconds_;
    const QUrl downURL_;
    const QUrl upURL_;
    /// Of the phase that runs; absent between phases and while no test runs.
    std::shared_ptr<BulkTransferTask> task_;
    Seconds phaseStart_{0};
    /// Moved in this phase.
    std::int64_t bytes_ = 0;
    /// The last `sampleWindow`, oldest first.
    std::deque<Sample> samples_;
    bool isUpload_ = false;
    std::optional<double> downResult_;
    std::optional<double> upResult_;
    std::shared_ptr<Cancellation> deadline_;
    std::shared_ptr<Cancellation> transition_;
    /// The task that the deadline cut off.
    std::optional<TaskIdentifier> deadlineTaskID_;
    bool isRunning_ = false;
    std::int64_t latencyMs_ = 0;
    Lifetime lifetime_;
    /// Last, so that it is gone before what it reports to.
    const std::unique_ptr<BulkTransferSession> session_;
};

} // namespace skylet
