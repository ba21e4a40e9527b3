#pragma once

#include "platform/linux/transfer/curl/TcpInfo.h"

#include <cstdint>
#include <optional>

namespace skylet {

/// Estimates how many bytes of an answer's body have arrived, those of an incomplete TLS record included: a record can
/// be read only when its end is there, for which a slow link takes seconds. What TLS and HTTP add to the body is taken
/// to have the same share throughout. `connection`: empty where the kernel says nothing. `bodyRead`: bytes of the body
/// that have been read so far.
class DownloadMeter {
  public:
    /// TLS and HTTP add at most this to the last bytes: a record's frame, the last chunk, TLS's close message.
    static constexpr std::int64_t trailingOverhead = 128;
    /// At most this comes before the body: TLS's tickets and the head.
    static constexpr std::int64_t headOverhead = 2048;
    /// RFC 5246, 6.2.3, and the record's head; TLS 1.3 allows less.
    static constexpr std::int64_t largestRecord = 16'384 + 2048 + 5;

    /// The request goes out now: what comes from here on is the answer, and one record may hold the head and body.
    void requestStarts(const std::optional<TcpInfo>& connection) { begin(connection, headOverhead); }
    /// The head is in, and nothing of the body has been read yet.
    void bodyStarts(const std::optional<TcpInfo>& connection) { begin(connection, trailingOverhead); }
    /// To be called now and then, when the last bytes have just come out of their record, so that nothing else has been
    /// read yet.
    void recordRead(const std::optional<TcpInfo>& connection, std::int64_t bodyRead);
    /// Never less than `bodyRead`, and just that where nothing is known of the connection.
    std::int64_t arrived(const std::optional<TcpInfo>& connection, std::int64_t bodyRead) const;

  private:
    /// How many bytes of the stream had been read, and how many of the body they held.
    struct Mark {
        std::int64_t stream = 0;
        std::int64_t body = 0;
    };

    static Mark mark(const TcpInfo& connection, std::int64_t bodyRead);
    void begin(const std::optional<TcpInfo>& connection, std::int64_t overhead);
    double bodyShare() const;

    std::optional<Mark> first_;
    Mark last_;
    /// Bytes since the last mark that are taken to be none of the body.
    std::int64_t overhead_ = 0;
};

} // namespace skylet
