#pragma once

#include "Behaviour.h"

#include <QJsonObject>

#include <cstdint>
#include <string>

namespace skylet::test {

/// Where in its life a connection turns hostile.
enum class Stage : std::uint8_t {
    never,
    /// It has been accepted; nothing of TLS has been said.
    accept,
    /// The first half of the server's part of the handshake has been sent.
    handshake,
    /// TLS is up; nothing of HTTP has been said.
    open,
    /// HTTP/2: the server's SETTINGS have been sent; HTTP/1.1: as `open`.
    settings,
    /// A request's head has come, and `bytes` of its body; in place of an answer.
    request,
    /// Half of the answer's head has been sent.
    head,
    /// `bytes` of the body have been sent (GET) or read (POST). HEAD: the head has been sent, and (HTTP/2) that more
    /// comes.
    body,
    /// A request has been answered and none is under way.
    answer,
};

/// What a connection does to its client beyond a bad answer. Named in commands as here; by default nothing.
struct Hostility {
    Stage stage = Stage::never;
    /// With an empty `flood`: this happens.
    Deed deed = Deed::none;
    /// What comes as fast as the client takes it: see Flood.cpp.
    std::string flood;
    /// How many of them; negative: without end.
    std::int64_t count = -1;
    /// The connection goes on as if nothing had been, once there have been `count`; otherwise nothing more comes.
    bool thenServe = false;
    std::int64_t bytes = 0;
    /// Of RST_STREAM and GOAWAY (RFC 9113, 7).
    std::uint32_t code = 0;
    /// Bytes in one of the flood's pieces where those may have any.
    std::size_t size = 8;
    /// Bytes in a record of TLS at most.
    std::size_t record = 16384;
    /// HTTP/2: whether the client's SETTINGS are acknowledged, and how much of a body it may send unasked. Whatever the
    /// stage.
    bool acknowledge = true;
    std::int32_t window = defaultWindow;

    /// More than any link of the lab holds: the client's rate is the link's, not the window's.
    static constexpr std::int32_t defaultWindow = 32 * 1024 * 1024;

    /// Not 0: a seed with which all that a new connection sends from `mutateFrom` on (`handshake`, `open` or `request`)
    /// is changed at random; the next connection has the next seed. Whatever the stage.
    std::uint32_t mutate = 0;
    Stage mutateFrom = Stage::request;

    /// Fields that are absent are as by default; an unknown one throws std::invalid_argument.
    static Hostility from(const QJsonObject& fields);
};

} // namespace skylet::test
