#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace skylet::test {

/// What may happen to a client in the midst of a request.
enum class Deed : std::uint8_t {
    none,
    /// Nothing is sent or read any more.
    stall,
    /// The connection ends in good order.
    close,
    /// The connection ends with an RST.
    reset,
    /// Something that is not HTTP comes.
    garbage,
    /// Response headers without end come.
    flood,
    /// HTTP/2: RST_STREAM; HTTP/1.1: as `close`.
    cancel,
    /// HTTP/2: PING frames without end come; HTTP/1.1: as `stall`.
    pings,
    /// The connection ends without TLS having said so.
    fin,
    /// TLS ends with an error.
    alert,
    /// Something that is not TLS comes.
    noise,
    /// All goes on, a byte each 200 ms. Of a connection (Hostility.h) alone.
    drip,
};
using FieldSetters = std::map<QString, std::function<void(const QJsonValue&)>>;
/// Sets each of `fields`; one that is unknown throws std::invalid_argument.
void setFields(const QJsonObject& fields, const FieldSetters& setters);

/// Throws std::out_of_range where there is none of this name.
Deed deedNamed(const std::string& name);

/// A frame of HTTP/2 (RFC 9113, 4.1).
struct RawFrame {
    std::uint8_t type = 0;
    std::uint8_t flags = 0;
    std::string payload;
    /// Of the request's stream, or of the connection as a whole.
    bool isOfStream = true;
};

/// How requests of one kind are met. Named in commands as here; by default all is as it should be.
struct Behaviour {
    /// 0: 204 to HEAD, 200 to all others.
    int status = 0;
    /// Further fields of the head.
    std::vector<std::pair<std::string, std::string>> headers;
    /// This many answers of the status 103 come before the real one.
    int interim = 0;
    /// Bytes of the answer to a GET; negative: as many as were asked for.
    std::int64_t length = -1;
    /// Bytes per second that are sent (GET) or read (POST) at most; 0: no limit.
    double rate = 0;
    /// After this many bytes of the body of the answer (GET) or of the request (POST), `deed` happens; at 0 in place
    /// of any answer. Negative: never.
    std::int64_t at = -1;
    Deed deed = Deed::none;
    /// POST: the answer comes after this many bytes, not at the end; negative: at the end. Then, by `afterwards`:
    /// "read" the rest, "stop" reading (HTTP/2: the stream is closed without an error), or "close" the connection.
    std::int64_t answerAt = -1;
    std::string afterwards = "read";
    /// What comes in place of an answer, where not empty. HTTP/1.1: these bytes (in commands a character each). HTTP/2:
    /// these frames, in commands [type, flags, payload in hexadecimal], and false where
    /// it is not the request's but the connection's.
    std::string raw;
    std::vector<RawFrame> frames;
    /// What follows `raw` or `frames`: as `deed`; `none` and `stall`: the connection stays as it is.
    Deed then = Deed::none;

    /// Fields that are absent are as by default; an unknown one throws std::invalid_argument.
    static Behaviour from(const QJsonObject& fields);
};

} // namespace skylet::test
