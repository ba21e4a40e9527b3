#include "LoopWatch.h"

#include "support/Timing.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>

namespace skylet::test {

namespace {

using namespace std::chrono_literals;

/// A line "NAME: 123 kB" of /proc/self/status.
std::int64_t bytesOfStatus(const QByteArray& name) {
    QFile file(QStringLiteral("/proc/self/status"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    for (const auto& line : file.readAll().split('\n')) {
        if (line.startsWith(name + ':')) {
            return line.simplified().split(' ').at(1).toLongLong() * 1024;
        }
    }
    ADD_FAILURE() << "no " << name.toStdString();
    return 0;
}

} // namespace

LoopWatch::LoopWatch() : lastTurn_(processorTime()) {
    beat_.setTimerType(Qt::PreciseTimer);
    beat_.callOnTimeout([this] { turn(); });
    beat_.start(5ms);
}

std::chrono::nanoseconds LoopWatch::longestTurn() const {
    return std::max(longestTurn_, processorTime() - lastTurn_);
}

std::chrono::nanoseconds LoopWatch::total() const {
    return total_ + processorTime() - lastTurn_;
}

void LoopWatch::skip() {
    lastTurn_ = processorTime();
}

void LoopWatch::turn() {
    const auto now = processorTime();
    longestTurn_ = std::max(longestTurn_, now - lastTurn_);
    total_ += now - lastTurn_;
    lastTurn_ = now;
}

Holdings Holdings::now() {
    const auto entries = [](const QString& folder, QDir::Filters filters) {
        return QDir(folder).entryList(filters | QDir::NoDotAndDotDot).size();
    };
    return {entries(QStringLiteral("/proc/self/fd"), QDir::Files | QDir::System),
            entries(QStringLiteral("/proc/self/task"), QDir::Dirs)};
}

std::int64_t privateMemory() {
    return bytesOfStatus("RssAnon");
}

std::int64_t takePeakMemory() {
    const auto peak = bytesOfStatus("VmHWM");
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("5");
    return peak;
}

} // namespace skylet::test
