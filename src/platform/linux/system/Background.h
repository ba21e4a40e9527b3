#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QMetaObject>
#include <QObject>

#include <functional>
#include <stop_token>
#include <system_error>
#include <thread>
#include <utility>

namespace skylet {

/// Work that the kernel may keep waiting, on a thread of its own: one piece at a time, which shares nothing with the
/// rest of the program and hands over a finished value. Everything here is called on one thread, that of the event
/// loop. The destructor asks work that is under way to give up, and waits until it does.
template <typename Value>
class Background {
  public:
    /// Gives up early, with any value, once `stop` is requested.
    using Work = std::function<Value(const std::stop_token& stop)>;
    using Completion = std::function<void(Value)>;

    /// `completion` is called from the event loop or `collect`, once for each piece of work that was begun.
    explicit Background(Completion completion) : completion_(std::move(completion)) {}

    /// Only while nothing is under way. False: the system gives no thread.
    bool begin(Work work) {
        try {
            thread_ = std::jthread([this, work = std::move(work)](const std::stop_token& stop) {
                QMetaObject::invokeMethod(
                    &here_, [this, value = work(stop)]() mutable { deliver(std::move(value)); }, Qt::QueuedConnection);
            });
        } catch (const std::system_error&) {
            return false;
        }
        underWay_ = true;
        return true;
    }

    bool isUnderWay() const { return underWay_; }
    /// Completes now, without the event loop, what has ended already.
    void collect() { QCoreApplication::sendPostedEvents(&here_, QEvent::MetaCall); }

  private:
    void deliver(Value value) {
        underWay_ = false;
        completion_(std::move(value));
    }

    Completion completion_;
    bool underWay_ = false;
    /// Drops, when it goes, what was handed over and has not been delivered. Behind it the thread, which ends first.
    QObject here_;
    std::jthread thread_;
};

} // namespace skylet
