// lab_speedtest [PHASE_SECONDS]
//
// Runs one speed test as the program does, without its window, and lives on for a second. Prints how the gauge would
// move to standard error and, at the end of the test, one JSON object to standard output: for "down" and "up" the
// result in Mbit/s (null: failed), when the phase began and ended (seconds, monotonic) and the bytes over time; and the
// processor seconds it took.

#include "app/UplinkTraffic.h"
#include "connectivity/ConnectivityEngine.h"
#include "platform/linux/network/NetlinkInterfaceCounters.h"
#include "platform/linux/system/SystemClock.h"
#include "platform/linux/transfer/CurlBulkTransferSession.h"
#include "speedtest/SpeedTestMeasurement.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <sys/resource.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <utility>

namespace skylet {
namespace {

/// The gauge and the labels as text.
class TextDisplay final : public SpeedTestDisplay {
  public:
    void setResult(ResultColumn column, const QString& text) override {
        std::cerr << "result " << static_cast<int>(column) << ": " << text.toStdString() << '\n';
    }
    void setRunEnabled(bool /*enabled*/) override {}
    void setGaugePhase(const QString& phase) override { std::cerr << phase.toStdString() << '\n'; }
    void setGaugeAccent(const GaugeColor& /*accent*/) override {}
    void setGaugeTarget(double speed) override { std::cerr << "  " << speed << '\n'; }
    void setGaugeValue(double /*speed*/) override {}
    void stopGaugeAnimation() override {}
};

struct Phase {
    double began = 0;
    double ended = 0;
    std::int64_t bytes = 0;
    QJsonArray series;
};

/// Stands between the measurement and its session, and notes what passes.
class Witness final : public BulkTransferSession, public BulkTransferDelegate {
  public:
    Witness(const Clock& clock, std::vector<Phase>& phases, const SessionConfiguration& configuration,
            BulkTransferDelegate& delegate)
        : clock_(clock), phases_(phases), delegate_(delegate),
          session_(configuration, epoch_, std::make_shared<NameResolver>(std::make_shared<SystemClock>(), epoch_),
                   *this, [this] { return uplinks_.sentBytes(); }) {}

    std::shared_ptr<BulkTransferTask> download(const QUrl& url) override {
        begin();
        return session_.download(url);
    }
    std::shared_ptr<BulkTransferTask> upload(const QUrl& url, const QByteArray& contentType, std::int64_t size,
                                             Seconds timeoutInterval) override {
        begin();
        return session_.upload(url, contentType, size, timeoutInterval);
    }

    ResponseDisposition responseReceived(TaskIdentifier task, std::optional<int> statusCode) override {
        return delegate_.responseReceived(task, statusCode);
    }
    void dataReceived(TaskIdentifier task, std::int64_t count) override {
        moved(count);
        delegate_.dataReceived(task, count);
    }
    void bodySent(TaskIdentifier task, std::int64_t count) override {
        moved(count);
        delegate_.bodySent(task, count);
    }
    void completed(TaskIdentifier task, const BulkTransferResult& result) override {
        phases_.back().ended = now();
        delegate_.completed(task, result);
    }

  private:
    double now() const { return clock_.systemUptime().count(); }
    void begin() { phases_.emplace_back().began = now(); }
    void moved(std::int64_t count) {
        auto& phase = phases_.back();
        phase.bytes += count;
        phase.series.append(QJsonArray{now(), static_cast<qint64>(phase.bytes)});
    }

    const Clock& clock_;
    std::vector<Phase>& phases_;
    BulkTransferDelegate& delegate_;
    const std::shared_ptr<NetworkEpoch> epoch_ = std::make_shared<NetworkEpoch>();
    NetlinkInterfaceCounters counters_;
    UplinkTraffic uplinks_{counters_};
    CurlBulkTransferSession session_;
};

QJsonObject json(const Phase& phase, std::optional<double> result) {
    return {{QStringLiteral("result"), result ? QJsonValue(*result) : QJsonValue()},
            {QStringLiteral("began"), phase.began},
            {QStringLiteral("ended"), phase.ended},
            {QStringLiteral("bytes"), static_cast<qint64>(phase.bytes)},
            {QStringLiteral("series"), phase.series}};
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

void print(const std::vector<Phase>& phases, std::optional<double> down, std::optional<double> up) {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const QJsonObject all{{QStringLiteral("down"), json(phases.at(0), down)},
                          {QStringLiteral("up"), json(phases.at(1), up)},
                          {QStringLiteral("cpu"), seconds(usage.ru_utime) + seconds(usage.ru_stime)}};
    std::cout << QJsonDocument(all).toJson(QJsonDocument::Compact).toStdString() << std::endl;
}

} // namespace
} // namespace skylet

int main(int argc, char** argv) {
    using namespace skylet;
    const QCoreApplication application(argc, argv);
    const Seconds phaseSeconds = argc > 1 ? Seconds(std::stod(argv[1])) : SpeedTestMeasurement::defaultPhaseSeconds;
    const SystemClock clock;
    std::vector<Phase> phases;
    const auto makeSession = [&](const SessionConfiguration& configuration, BulkTransferDelegate& delegate) {
        return std::make_unique<Witness>(clock, phases, configuration, delegate);
    };
    TextDisplay display;
    SpeedTestEvents events;
    events.onFinished = [&](std::optional<double> down, std::optional<double> up) {
        print(phases, down, up);
        QTimer::singleShot(std::chrono::seconds(1), &QCoreApplication::quit);
    };
    SpeedTestMeasurement measurement(display, events, makeSession, clock, commonTimer, {}, phaseSeconds);
    measurement.start();
    return QCoreApplication::exec();
}
