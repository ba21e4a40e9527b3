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

    /// Asks the kernel (tcp(7)). Empty where it does not know.
    static std::optional<ReceiveProgress> of(int socket);
};

/// Estimates how many bytes of an answer's body have arrived, those of a TLS record that is not whole yet included: it
/// can be read only when its end is there, for which a slow link takes seconds. What TLS and HTTP wrap around the body
/// is taken to have the same share throughout.
class DownloadMeter {
  public:
    /// What TLS and HTTP may add to the last bytes, with room to spare: a record's frame, the last chunk, TLS's
    /// farewell.
    static constexpr std::int64_t wrapping = 128;
    /// What comes before the body, with room to spare: TLS's tickets and the head.
    static constexpr std::int64_t preamble = 2048;
    /// RFC 5246, 6.2.3, and the record's head; TLS 1.3 allows less.
    static constexpr std::int64_t largestRecord = 16'384 + 2048 + 5;

    /// The request goes out now. What comes from here on is the answer, and the head may be in one record with the
    /// body.
    void requested(const std::optional<ReceiveProgress>& progress);
    /// The head is in, and nothing of the body has been read yet.
    void begin(const std::optional<ReceiveProgress>& progress);
    /// To be called now and then, when `delivered` bytes of the body have been read and the last of them has just come
    /// out of its record, so that nothing else has been read yet.
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

    static Mark mark(const ReceiveProgress& progress, std::int64_t delivered);
    double share() const;

    std::optional<Mark> first_;
    Mark last_;
    /// Of what has come since, this much is taken to be none of the body.
    std::int64_t allowance_ = 0;
};

} // namespace skylet
