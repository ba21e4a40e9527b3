#pragma once

#include "Exchange.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace skylet::test {

/// What a protocol needs of the connection it is spoken on.
class Host {
  public:
    virtual ~Host() = default;
    /// A request's head has come.
    virtual std::shared_ptr<Exchange> begin(const std::string& method, const std::string& path,
                                            std::vector<std::pair<std::string, std::string>> headers) = 0;
    virtual void end(const std::shared_ptr<Exchange>& exchange) = 0;
    /// Carried out once all that was produced before has been written.
    virtual void closeLater(Deed how) = 0;
};

/// HTTP on one connection.
class Protocol {
  public:
    virtual ~Protocol() = default;
    virtual void received(std::span<const std::uint8_t> data) = 0;
    /// Appends what is to be sent next, if anything.
    virtual void produce(std::string& out) = 0;
    /// How many bytes of what was produced are the head of an answer, with which it begins; or 0.
    virtual std::size_t headSize(const std::string& produced) const = 0;
};

std::unique_ptr<Protocol> makeHttp1(Host& host);
/// `window`: how much of a body the client may send unasked.
std::unique_ptr<Protocol> makeHttp2(Host& host, std::int32_t window);

/// A frame of HTTP/2 as it is sent (RFC 9113, 4.1).
std::string http2Frame(std::uint8_t type, std::uint8_t flags, std::int32_t stream, const std::string& payload);

/// What `Deed::garbage` sends.
inline const std::string garbage = "\x7f\x01 this is not HTTP \xff\xfe\r\n\r\n";
/// One of the fields that `Deed::flood` sends.
inline const std::string floodValue = std::string(1000, 'f');
/// The largest piece of a body that is sent at once: a frame of HTTP/2, a record of TLS.
inline constexpr std::int64_t largestPiece = 16384;

} // namespace skylet::test
