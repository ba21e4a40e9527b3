#pragma once

#include <QtGlobal>

#include <cstdint>

namespace skylet {

/// What is known of the connection at the moment. A plain value: equal when the kind is the same and, while online, the
/// latency too.
class ConnectionState {
  public:
    enum class Kind {
        /// An endpoint answered correctly.
        online,
        /// A check is running, the first of two failed checks was seen, or the system is going to sleep.
        checking,
        /// No usable network path, or every endpoint failed twice in a row.
        offline,
        /// Automatic checks are paused by the user.
        paused,
    };

    /// `latency`: response time of the endpoint that answered first, in whole milliseconds, at least 1.
    static constexpr ConnectionState online(std::int64_t latency) { return {Kind::online, latency}; }
    static constexpr ConnectionState checking() { return {Kind::checking, 0}; }
    static constexpr ConnectionState offline() { return {Kind::offline, 0}; }
    static constexpr ConnectionState paused() { return {Kind::paused, 0}; }

    constexpr Kind kind() const { return kind_; }
    /// Only while online.
    constexpr std::int64_t latency() const {
        Q_ASSERT(kind_ == Kind::online);
        return latency_;
    }

    constexpr bool operator==(const ConnectionState&) const = default;

  private:
    constexpr ConnectionState(Kind kind, std::int64_t latency) : kind_(kind), latency_(latency) {}

    Kind kind_;
    std::int64_t latency_;
};

} // namespace skylet
