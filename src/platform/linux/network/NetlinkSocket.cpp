#include "platform/linux/network/NetlinkSocket.h"

#include <arpa/inet.h>
#include <linux/if_link.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>

namespace skylet {

namespace {

// The kernel answers while it takes the request in; whoever has to wait this long will not get an answer at all.
constexpr timeval patience{.tv_sec = 0, .tv_usec = 200'000};
constexpr std::uint16_t httpsPort = 443;
// Room for a header, the largest fixed part and an address.
constexpr std::size_t requestSize = 96;

nlmsghdr* beginRequest(std::span<char> buffer, std::uint16_t type, std::uint16_t flags) {
    nlmsghdr* header = mnl_nlmsg_put_header(buffer.data());
    header->nlmsg_type = type;
    header->nlmsg_flags = flags;
    return header;
}

} // namespace

std::optional<NetlinkSocket> NetlinkSocket::open(Mode mode) {
    mnl_socket* handle =
        mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | (mode == Mode::nonBlocking ? SOCK_NONBLOCK : 0));
    if (handle == nullptr) {
        return std::nullopt;
    }
    NetlinkSocket socket(handle);
    if (mnl_socket_bind(handle, 0, MNL_SOCKET_AUTOPID) < 0 ||
        setsockopt(socket.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) < 0) {
        return std::nullopt;
    }
    return socket;
}

bool NetlinkSocket::join(rtnetlink_groups group) {
    int number = group;
    return mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &number, sizeof number) == 0;
}

bool NetlinkSocket::requestLinks() {
    alignas(nlmsghdr) std::array<char, requestSize> buffer{};
    mnl_nlmsg_put_extra_header(beginRequest(buffer, RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP), sizeof(ifinfomsg));
    return request(buffer);
}

bool NetlinkSocket::requestRoute(std::uint8_t family, std::span<const std::uint8_t> destination, std::uint32_t flags) {
    alignas(nlmsghdr) std::array<char, requestSize> buffer{};
    nlmsghdr* header = beginRequest(buffer, RTM_GETROUTE, NLM_F_REQUEST);
    auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(rtmsg)));
    route->rtm_family = family;
    route->rtm_dst_len = static_cast<std::uint8_t>(destination.size() * 8);
    route->rtm_flags = flags;
    // Rules may be about protocols and ports.
    return mnl_attr_put_check(header, buffer.size(), RTA_DST, destination.size(), destination.data()) &&
           mnl_attr_put_u8_check(header, buffer.size(), RTA_IP_PROTO, IPPROTO_TCP) &&
           mnl_attr_put_u16_check(header, buffer.size(), RTA_DPORT, htons(httpsPort)) && request(buffer);
}

bool NetlinkSocket::request(std::span<char> message) {
    auto* header = reinterpret_cast<nlmsghdr*>(message.data());
    header->nlmsg_seq = ++sequence_;
    return mnl_socket_sendto(socket_.get(), header, header->nlmsg_len) >= 0;
}

ssize_t NetlinkSocket::receive(std::span<char> buffer) {
    return mnl_socket_recvfrom(socket_.get(), buffer.data(), buffer.size());
}

const nlmsghdr* NetlinkSocket::answer(std::span<const char> datagram) const {
    const auto* message = reinterpret_cast<const nlmsghdr*>(datagram.data());
    return mnl_nlmsg_ok(message, static_cast<int>(datagram.size())) && mnl_nlmsg_seq_ok(message, sequence_) &&
                   mnl_nlmsg_portid_ok(message, mnl_socket_get_portid(socket_.get()))
               ? message
               : nullptr;
}

NetlinkSocket::Progress NetlinkSocket::read(std::span<const char> datagram, mnl_cb_t callback, void* data) const {
    const int result =
        mnl_cb_run(datagram.data(), datagram.size(), sequence_, mnl_socket_get_portid(socket_.get()), callback, data);
    if (result < 0) {
        return errno == EINTR ? Progress::interrupted : Progress::failed;
    }
    return result == MNL_CB_STOP ? Progress::complete : Progress::partial;
}

} // namespace skylet
