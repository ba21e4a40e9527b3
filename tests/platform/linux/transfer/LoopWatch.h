#pragma once

#include <QTimer>

#include <chrono>
#include <cstdint>

namespace skylet::test {

/// Measures what this thread's event loop does while the object lives: in processor time, to which a busy machine adds
/// nothing. What is not the loop's, and the test's own waiting, has to be kept apart with `skip`.
class LoopWatch {
  public:
    LoopWatch();

    /// Between two turns of a timer, at most.
    std::chrono::nanoseconds longestTurn() const;
    std::chrono::nanoseconds total() const;
    /// What this thread has done since the last turn does not count.
    void skip();

  private:
    void turn();

    QTimer beat_;
    std::chrono::nanoseconds total_{0};
    std::chrono::nanoseconds lastTurn_;
    std::chrono::nanoseconds longestTurn_{0};
};

/// What a process holds that it should give back.
struct Holdings {
    qsizetype descriptors = 0;
    qsizetype threads = 0;

    static Holdings now();
};

/// Private memory of this process, in bytes.
std::int64_t privateMemory();
/// The most that this process has had in memory since the last call, files that it maps included, in bytes.
std::int64_t takePeakMemory();

} // namespace skylet::test
