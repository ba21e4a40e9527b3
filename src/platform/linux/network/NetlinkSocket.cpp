#include "platform/linux/network/NetlinkSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace skylet {

namespace {

constexpr std::uint16_t httpsPort = 443;
// Room for a header, the largest fixed part and an address.
constexpr std::size_t requestSize = 96;

} // namespace

std::optional<NetlinkSocket> NetlinkSocket::open() {
    NetlinkSocket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK));
    const bool isOpen = socket.socket_ && mnl_socket_bind(socket.socket_.get(), 0, MNL_SOCKET_AUTOPID) == 0;
    return isOpen ? std::optional(std::move(socket)) : std::nullopt;
}

bool NetlinkSocket::join(rtnetlink_groups group) {
    int number = group;
    return mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &number, sizeof number) == 0;
}

bool NetlinkSocket::requestLinks() {
    alignas(nlmsghdr) std::array<char, requestSize> buffer{};
    nlmsghdr* header = mnl_nlmsg_put_header(buffer.data());
    header->nlmsg_type = RTM_GETLINK;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg));
    return send(*header);
}

bool NetlinkSocket::requestRoute(std::uint8_t family, std::span<const std::uint8_t> destination, std::uint32_t flags) {
    alignas(nlmsghdr) std::array<char, requestSize> buffer{};
    nlmsghdr* header = mnl_nlmsg_put_header(buffer.data());
    header->nlmsg_type = RTM_GETROUTE;
    header->nlmsg_flags = NLM_F_REQUEST;
    auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(rtmsg)));
    route->rtm_family = family;
    route->rtm_dst_len = static_cast<std::uint8_t>(destination.size() * 8);
    route->rtm_flags = flags;
    mnl_attr_put(header, RTA_DST, destination.size(), destination.data());
    // Rules may be about protocols and ports.
    mnl_attr_put_u8(header, RTA_IP_PROTO, IPPROTO_TCP);
    mnl_attr_put_u16(header, RTA_DPORT, htons(httpsPort));
    return send(*header);
}

bool NetlinkSocket::send(const nlmsghdr& request) {
    return mnl_socket_sendto(socket_.get(), &request, request.nlmsg_len) >= 0;
}

} // namespace skylet
