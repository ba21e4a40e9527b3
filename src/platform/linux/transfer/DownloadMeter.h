#pragma once

#include <cstdint>
#include <optional>

namespace skylet {

/// How much a connection has received since it began, in bytes of TCP's payload.
struct ReceiveProgress {
    /// In order, as far as the other end knows.
    std::int64_t received = 0;
    /// Of these, still with the kernel.
    std::int64_t unread = 0;

    /// Asks the kernel (tcp(7)). Empty for anything but a TCP socket, and where the kernel does not count.
    static std::optional<ReceiveProgress> of(int socket);
};

/// Tells how many bytes of an answer's body have arrived, those of a TLS record that is not whole yet included: it can
/// be read only when its end is there, for which a slow link takes seconds. What TLS and HTTP wrap around the body is
/// taken to have the same share throughout.
class DownloadMeter {
  public:
    /// What TLS and HTTP may add at the end, with room to spare: a record's frame, the last chunk, TLS's own farewell.
    static constexpr std::int64_t wrapping = 128;
    /// RFC 5246, 6.2.3, and the record's head; TLS 1.3 allows less.
    static constexpr std::int64_t largestRecord = 16'384 + 2048 + 5;

    /// To be called when `delivered` bytes of the body have been read and the last of them has just come out of its
    /// record, so that nothing else has been read yet. First when the head is in, and then as often as convenient.
    void note(const std::optional<ReceiveProgress>& progress, std::int64_t delivered);
    /// `delivered`: bytes of the body that have been read so far; the answer is never less. Nothing known of the
    /// connection: the answer is just that.
    std::int64_t arrived(const std::optional<ReceiveProgress>& progress, std::int64_t delivered) const;

  private:
    /// How many bytes of the stream had been read, and how many of the body had come of them.
    struct Mark {
        std::int64_t read = 0;
        std::int64_t delivered = 0;
    };

    double share() const;

    std::optional<Mark> first_;
    Mark last_;
};

} // namespace skylet
