#pragma once

#include "Behaviour.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace skylet::test {

using Clock = std::chrono::steady_clock; // CLOCK_MONOTONIC
using Time = Clock::time_point;

/// What came of one request.
struct Record {
    struct Point {
        Time time;
        std::int64_t bytes;
    };

    int connection = 0;
    std::string protocol;
    std::string method;
    std::string path;
    std::vector<std::pair<std::string, std::string>> headers;
    Time began;
    bool isOver = false;
    /// The whole body has come (POST) or has been handed to the kernel (GET).
    bool isWhole = false;
    /// Nothing but zeros has come (POST).
    bool isAllZero = true;
    /// Of the connection: it continued an earlier TLS session.
    bool isResumed = false;
    /// Of the body, over time: bytes that the client has acknowledged (GET), or that have been read (POST).
    std::vector<Point> series;
};

/// One request, whichever protocol it came by: how far it has got, and what its behaviour has in store for it.
class Exchange {
  public:
    Exchange(Behaviour behaviour, Record& record);

    const Behaviour& behaviour() const { return behaviour_; }
    int status() const;
    bool isHead() const { return isHead_; }
    bool isUpload() const { return isUpload_; }
    /// Bytes of the answer's body.
    std::int64_t length() const { return length_; }
    std::int64_t moved() const { return moved_; }
    /// What happens now.
    Deed deed() const { return behaviour_.at >= 0 && moved_ >= behaviour_.at ? behaviour_.deed : Deed::none; }
    /// Bytes of the body that may move now, at the rate and up to the point that the behaviour sets.
    std::int64_t allowance(Time now) const;
    void move(std::int64_t count);
    /// Looks at what has come of a POST's body.
    void inspect(std::span<const std::uint8_t> data);
    /// The answer to a POST is due before its body is whole.
    bool isAnswerDue() const { return behaviour_.answerAt >= 0 && moved_ >= behaviour_.answerAt; }
    /// Nothing of the body is read any more.
    bool stopsReading() const { return isAnswerDue() && behaviour_.afterwards != "read"; }
    /// The body stops for good once this many bytes of it have moved.
    void holdAt(std::int64_t bytes);
    bool isHeld() const { return hold_ >= 0 && moved_ >= hold_ && (isUpload_ || isHeadSent_); }
    void headSent() { isHeadSent_ = true; }
    bool isHeadSent() const { return isHeadSent_; }
    /// HTTP/2: its stream.
    void setStream(std::int32_t stream) { stream_ = stream; }
    std::int32_t stream() const { return stream_; }
    void bodyWhole() { record_.isWhole = true; }
    bool isBodyWhole() const { return record_.isWhole; }
    void over() { record_.isOver = true; }
    /// Over, and all that was sent of it acknowledged.
    bool isSettled() const { return record_.isOver && marks_.empty(); }

    /// The kernel has taken the stream up to the position `wire`, and with it what has been moved.
    void written(std::int64_t wire);
    /// Notes how far it has got; `acknowledged`: position in the stream that the client has acknowledged; `incomplete`:
    /// bytes that have been read of a TLS record whose end has not come.
    void note(std::int64_t acknowledged, std::int64_t incomplete);

  private:
    struct Mark {
        std::int64_t wire;
        std::int64_t body;
    };

    /// Of the answer's body, in proportion within a piece.
    std::int64_t acknowledgedBody(std::int64_t acknowledged);

    const Behaviour behaviour_;
    Record& record_;
    const bool isUpload_;
    const bool isHead_;
    std::int64_t length_ = 0;
    std::int64_t moved_ = 0;
    /// Negative: nowhere.
    std::int64_t hold_ = -1;
    bool isHeadSent_ = false;
    std::int32_t stream_ = 0;
    /// Where the last piece ended that the client has acknowledged whole.
    std::optional<Mark> acknowledged_;
    /// Where in the stream which part of the body ends, of what is not acknowledged.
    std::deque<Mark> marks_;
};

} // namespace skylet::test
