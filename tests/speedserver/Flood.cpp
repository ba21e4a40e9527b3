#include "Flood.h"

#include "Protocol.h"

#include <algorithm>
#include <functional>
#include <map>
#include <stdexcept>

namespace skylet::test {

namespace {

constexpr std::size_t batchBytes = 65536;
/// Of a frame's payload, where the client has not allowed more.
constexpr std::size_t largestPayload = 16384;

enum class FrameType : std::uint8_t {
    data = 0,
    headers = 1,
    priority = 2,
    resetStream = 3,
    settings = 4,
    pushPromise = 5,
    ping = 6,
    goAway = 7,
    windowUpdate = 8,
    continuation = 9,
    unknown = 0xfa,
};

constexpr std::uint8_t acknowledgement = 1;
constexpr std::uint8_t endStream = 1;
constexpr std::uint8_t endHeaders = 4;

std::string number(std::uint64_t value, int bytes) {
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        text += static_cast<char>(value >> static_cast<unsigned>(shift));
    }
    return text;
}

std::string frame(FrameType type, std::uint8_t flags, std::int32_t stream, const std::string& payload) {
    return http2Frame(static_cast<std::uint8_t>(type), flags, stream, payload);
}

/// Fields as HPACK has them (RFC 7541): the first two from its static table, none but the last remembered.
const std::string status200 = "\x88";
const std::string status204 = "\x89";
const std::string status103 = "\x08\x03"
                              "103";

std::string hpackLength(std::size_t length) {
    // as 127 + the rest, in at most two bytes of seven bits
    const auto rest = static_cast<unsigned>(length) - 127;
    return {0x7f, static_cast<char>(0x80U | (rest & 0x7fU)), static_cast<char>(rest >> 7U)};
}

std::string longField(char representation) {
    const std::string name = "x-flood";
    return representation + std::string(1, static_cast<char>(name.size())) + name + hpackLength(floodValue.size()) +
           floodValue;
}

/// As many references to the one remembered field as there is room for; each becomes a whole field.
std::string references(std::size_t count) {
    std::string text;
    text.append(count, '\xbe');
    return text;
}

struct Pieces {
    std::string before;
    std::string unit;
};

using Kinds = std::map<std::string, std::function<Pieces()>>;

Kinds http2Kinds(const Hostility& hostility, const FloodPlace& place) {
    using Type = FrameType;
    const auto open = place.open;
    const auto closed = place.closed;
    const auto same = [](const std::string& unit) { return Pieces{{}, unit}; };
    const auto block = [open](const std::string& unit) {
        return Pieces{frame(Type::headers, 0, open, status200), unit};
    };
    const std::string filler(hostility.size, 'x');
    const auto code = number(hostility.code, 4);
    return {
        {"ping", [=] { return same(frame(Type::ping, 0, 0, std::string(8, 'p'))); }},
        {"pingAnswer", [=] { return same(frame(Type::ping, acknowledgement, 0, std::string(8, 'p'))); }},
        // the number of streams that the client may open
        {"settings", [=] { return same(frame(Type::settings, 0, 0, number(3, 2) + number(100, 4))); }},
        {"settingsAnswer", [=] { return same(frame(Type::settings, acknowledgement, 0, {})); }},
        {"windowUpdate", [=] { return same(frame(Type::windowUpdate, 0, 0, number(1, 4))); }},
        {"streamWindowUpdate", [=] { return same(frame(Type::windowUpdate, 0, open, number(1, 4))); }},
        {"unknown", [=] { return same(frame(Type::unknown, 0, 0, filler)); }},
        // its last stream: the highest there can be, so that what is under way may go on
        {"goAway", [=] { return same(frame(Type::goAway, 0, 0, number(0x7fffffff, 4) + code)); }},
        // its last stream: none, so that what is under way has not been looked at
        {"goAwayFromAll", [=] { return same(frame(Type::goAway, 0, 0, number(0, 4) + code)); }},
        {"priority",
         [=] {
             return same(frame(Type::priority, 0, std::max({open, closed, 1}), number(0, 5)));
         }},
        {"reset", [=] { return same(frame(Type::resetStream, 0, open, code)); }},
        {"closedHeaders", [=] { return same(frame(Type::headers, endHeaders | endStream, closed, status200)); }},
        {"closedReset", [=] { return same(frame(Type::resetStream, 0, closed, code)); }},
        {"closedData", [=] { return same(frame(Type::data, 0, closed, {})); }},
        {"idleReset", [=] { return same(frame(Type::resetStream, 0, 0x7ffffff, code)); }},
        {"interim", [=] { return same(frame(Type::headers, endHeaders, open, status103)); }},
        {"continuation", [=] { return block(frame(Type::continuation, 0, open, {})); }},
        {"fields", [=] { return block(frame(Type::continuation, 0, open, longField('\0'))); }},
        {"emptyData",
         [=] {
             const auto head = place.isAnswering ? "" : frame(Type::headers, endHeaders, open, status200);
             return Pieces{head, frame(Type::data, 0, open, {})};
         }},
        {"push", [=] { return same(frame(Type::pushPromise, endHeaders, open, number(2, 4) + status200)); }},
        // 16 KB that become 16 MB, in one head that is whole
        {"bomb",
         [=] {
             const auto first = status204 + longField('\x40');
             return same(
                 frame(Type::headers, endHeaders | endStream, open, first + references(largestPayload - first.size())));
         }},
        // the same without end
        {"bombs",
         [=] {
             return Pieces{frame(Type::headers, 0, open, status200 + longField('\x40')),
                           frame(Type::continuation, 0, open, references(largestPayload))};
         }},
    };
}

Kinds http1Kinds(const Hostility& hostility, const FloodPlace& place) {
    const std::string head = "HTTP/1.1 200 Lab\r\n";
    const std::string chunked = head + "transfer-encoding: chunked\r\n\r\n";
    const std::string noContent = "HTTP/1.1 204 No Content\r\n\r\n";
    const auto field = "x-flood: " + floodValue + "\r\n";
    const std::string filler(std::max<std::size_t>(1, hostility.size), 'x');
    return {
        {"interim",
         [=] {
             return Pieces{{}, "HTTP/1.1 103 Early Hints\r\n\r\n"};
         }},
        {"fields",
         [=] {
             return Pieces{head, field};
         }},
        {"shortFields",
         [=] {
             return Pieces{head, "x:\r\n"};
         }},
        {"foldedField",
         [=] {
             return Pieces{head + "x-flood: a\r\n", " b\r\n"};
         }},
        // one field whose value never ends
        {"field",
         [=] {
             return Pieces{head + "x-flood: ", filler};
         }},
        {"emptyLines",
         [=] {
             return Pieces{{}, "\r\n"};
         }},
        {"chunks",
         [=] {
             return Pieces{chunked, "1;a=b\r\nx\r\n"};
         }},
        {"chunkExtension",
         [=] {
             return Pieces{chunked + "1;", filler};
         }},
        {"trailers",
         [=] {
             return Pieces{chunked + "0\r\n", field};
         }},
        {"bodyAfter204",
         [=] {
             return Pieces{place.open != 0 ? noContent : "", filler};
         }},
        // of no request
        {"answers",
         [=] {
             return Pieces{{}, noContent};
         }},
    };
}

} // namespace

std::string http2Frame(std::uint8_t type, std::uint8_t flags, std::int32_t stream, const std::string& payload) {
    return number(static_cast<std::uint32_t>(payload.size()), 3) + static_cast<char>(type) + static_cast<char>(flags) +
           number(static_cast<std::uint32_t>(stream), 4) + payload;
}

Flood::Flood(const Hostility& hostility, const FloodPlace& place) : left_(hostility.count) {
    const auto kinds = place.isHttp2 ? http2Kinds(hostility, place) : http1Kinds(hostility, place);
    const auto kind = kinds.find(hostility.flood);
    if (kind == kinds.end()) {
        throw std::invalid_argument("no such flood: " + hostility.flood);
    }
    auto [before, unit] = kind->second();
    before_ = std::move(before);
    unit_ = std::move(unit);
    while (batch_.size() < batchBytes) {
        batch_ += unit_;
        ++unitsInBatch_;
    }
}

void Flood::produce(std::string& out) {
    out += before_;
    before_.clear();
    if (left_ < 0 || left_ >= unitsInBatch_) {
        out += batch_;
        left_ -= left_ < 0 ? 0 : unitsInBatch_;
    }
    for (; left_ > 0 && left_ < unitsInBatch_; --left_) {
        out += unit_;
    }
}

} // namespace skylet::test
