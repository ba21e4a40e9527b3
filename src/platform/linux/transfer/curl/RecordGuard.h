#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace skylet {

/// Notices a peer that sends and sends while nothing comes of it: frames without meaning, pings, TLS session tickets.
/// It counts the processor's time that such TLS records cost the calling thread, which a busy machine adds nothing to.
class RecordGuard {
  public:
    /// In one action of the event loop, which ends only when the peer pauses or is cut off.
    static constexpr std::chrono::milliseconds actionLimit{40};
    /// In all since the transfers last got anywhere; ten times what an exchange takes.
    static constexpr std::chrono::milliseconds totalLimit{150};
    /// What a TLS handshake costs is not the peer's choice, and much on a slow machine: so many calls of
    /// `recordArrived` after a connection has been opened count as its handshake (up to three for each message).
    static constexpr int handshakeCalls = 32;

    /// `progress` grows whenever the transfers get anywhere.
    explicit RecordGuard(std::function<std::int64_t()> progress);

    void connectionOpened() { handshakeCallsLeft_ = handshakeCalls; }
    void actionBegins();
    /// True: it is too much.
    bool recordArrived();
    void actionEnds();
    /// Counts from zero again.
    void reset();

  private:
    void count();

    const std::function<std::int64_t()> progress_;
    std::int64_t lastProgress_ = 0;
    int handshakeCallsLeft_ = 0;
    /// Processor time of this thread when the last record of this action arrived.
    std::optional<std::chrono::nanoseconds> lastRecord_;
    std::chrono::nanoseconds inAction_{0};
    std::chrono::nanoseconds inAll_{0};
};

} // namespace skylet
