#include "platform/linux/system/NetlinkInterfaceCounters.h"

#include "platform/linux/system/NetlinkAttributes.h"
#include "platform/linux/system/NetlinkSocket.h"

#include <linux/if.h>
#include <linux/if_link.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace skylet {

namespace {

using namespace netlink;

// Only a table that changes while it is read needs a second attempt.
constexpr int maximumAttempts = 8;

// Kinds (IFLA_INFO_KIND) that bundle ports or wrap what they carry into packets of their own. Their bytes are counted
// by another interface too although the kernel names none.
constexpr std::array stackedKinds = {
    std::string_view("bareudp"),     std::string_view("batadv"),    std::string_view("bond"),
    std::string_view("bridge"),      std::string_view("erspan"),    std::string_view("geneve"),
    std::string_view("gre"),         std::string_view("gretap"),    std::string_view("gtp"),
    std::string_view("hsr"),         std::string_view("ip6erspan"), std::string_view("ip6gre"),
    std::string_view("ip6gretap"),   std::string_view("ip6tnl"),    std::string_view("ipip"),
    std::string_view("openvswitch"), std::string_view("ovpn"),      std::string_view("sit"),
    std::string_view("team"),        std::string_view("vrf"),       std::string_view("vti"),
    std::string_view("vti6"),        std::string_view("vxlan"),     std::string_view("wireguard")};

std::string_view text(const nlattr& attribute) {
    const Bytes bytes = payload(attribute);
    const std::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return all.substr(0, all.find('\0'));
}

std::string_view kindOf(const nlattr& linkInfo) {
    std::string_view kind;
    forEachAttribute(payload(linkInfo), [&kind](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == IFLA_INFO_KIND) {
            kind = text(attribute);
        }
    });
    return kind;
}

bool isStackedKind(std::string_view kind) {
    return std::find(stackedKinds.begin(), stackedKinds.end(), kind) != stackedKinds.end();
}

/// Older kernels tell fewer counters than the header knows; the bytes have always been among the first.
std::optional<rtnl_link_stats64> statistics(const nlattr& attribute) {
    const Bytes bytes = payload(attribute);
    if (bytes.size() < offsetof(rtnl_link_stats64, tx_bytes) + sizeof(rtnl_link_stats64::tx_bytes)) {
        return std::nullopt;
    }
    rtnl_link_stats64 result{};
    std::memcpy(&result, bytes.data(), std::min(bytes.size(), sizeof result));
    return result;
}

/// Reads one table to its end. Empty optional: no answer; `interrupted` tells whether asking again may help.
std::optional<std::vector<InterfaceCounter>> readOnce(bool& interrupted) {
    interrupted = false;
    auto socket = NetlinkSocket::open(NetlinkSocket::Mode::blocking);
    if (!socket || !socket->requestLinks()) {
        return std::nullopt;
    }
    std::vector<InterfaceCounter> counters;
    alignas(nlmsghdr) std::array<char, NetlinkSocket::datagramSize> buffer; // NOLINT: filled by the kernel
    auto progress = NetlinkSocket::Progress::partial;
    while (progress == NetlinkSocket::Progress::partial) {
        const ssize_t size = socket->receive(buffer);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            return std::nullopt;
        }
        progress =
            socket->read(std::span(buffer).first(static_cast<std::size_t>(size)), [&counters](const nlmsghdr& message) {
                if (auto counter = parseInterfaceCounter(message)) {
                    counters.push_back(std::move(*counter));
                }
            });
    }
    interrupted = progress == NetlinkSocket::Progress::interrupted;
    return progress == NetlinkSocket::Progress::complete ? std::optional(std::move(counters)) : std::nullopt;
}

} // namespace

std::optional<std::vector<InterfaceCounter>> NetlinkInterfaceCounters::read() {
    std::optional<std::vector<InterfaceCounter>> counters;
    bool interrupted = true;
    for (int attempt = 0; attempt < maximumAttempts && interrupted; ++attempt) {
        counters = readOnce(interrupted);
    }
    return counters;
}

std::optional<InterfaceCounter> parseInterfaceCounter(const nlmsghdr& message) {
    const auto* link = message.nlmsg_type == RTM_NEWLINK ? fixedPart<ifinfomsg>(message) : nullptr;
    if (link == nullptr) {
        return std::nullopt;
    }
    InterfaceCounter counter;
    counter.up = (link->ifi_flags & IFF_UP) != 0;
    std::optional<rtnl_link_stats64> bytes;
    std::string_view kind;
    bool hasLowerLink = false;
    bool lowerLinkIsElsewhere = false;
    forEachAttribute(attributes<ifinfomsg>(message), [&](const nlattr& attribute) {
        switch (mnl_attr_get_type(&attribute)) {
        case IFLA_IFNAME:
            counter.name = QString::fromUtf8(text(attribute).data(), static_cast<qsizetype>(text(attribute).size()));
            break;
        case IFLA_STATS64:
            bytes = statistics(attribute);
            break;
        case IFLA_LINK:
            hasLowerLink = number<std::uint32_t>(attribute) != 0;
            break;
        case IFLA_LINK_NETNSID:
            lowerLinkIsElsewhere = true;
            break;
        case IFLA_LINKINFO:
            kind = kindOf(attribute);
            break;
        default:
            break;
        }
    });
    if (counter.name.isEmpty() || !bytes) {
        return std::nullopt;
    }
    // An interface that rides on one of another namespace (a container's end of a veth) is this namespace's way out.
    counter.stacked = !lowerLinkIsElsewhere && (hasLowerLink || isStackedKind(kind));
    counter.receivedBytes = bytes->rx_bytes;
    counter.sentBytes = bytes->tx_bytes;
    return counter;
}

} // namespace skylet
