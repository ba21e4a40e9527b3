#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QtGlobal>

#include <algorithm>
#include <chrono>
#include <ctime>

namespace skylet::test {

/// Whether this test has the machine to itself and no sanitizer in it: only then are times held to their limits
/// (UnitTests.cmake).
inline bool runsAlone() {
    return qEnvironmentVariableIsSet("SKYLET_RUNS_ALONE");
}

/// The processor time that this thread has taken so far.
inline std::chrono::nanoseconds processorTime() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

/// How many times slower this machine is just now than the one for which the limits were set, at least 1: by the time
/// that it takes for what is always the same work.
inline double slowness() {
    constexpr std::chrono::duration<double> usual = std::chrono::milliseconds(20);
    const QByteArray work(qsizetype{4} * 1024 * 1024, 'x');
    const auto begun = std::chrono::steady_clock::now();
    const auto hash = QCryptographicHash::hash(work, QCryptographicHash::Sha256);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
    return hash.isEmpty() ? 1 : std::max(1.0, taken / usual);
}

/// A limit for a machine as slow as this one is.
inline std::chrono::nanoseconds allowing(std::chrono::nanoseconds limit) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(limit * slowness());
}

} // namespace skylet::test
