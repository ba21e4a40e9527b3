#pragma once

#include "platform/linux/network/NetlinkAttributes.h"

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace skylet {

/// A socket to the kernel's links and routes (rtnetlink(7)) in the network namespace of the calling thread. It asks,
/// and receives notifications; it never changes anything. Receiving and asking for one route take microseconds. Asking
/// for the links may not: whoever does waits, without a limit, while anybody on the system sets up or removes
/// interfaces.
class NetlinkSocket {
  public:
    enum class Received {
        messages,
        nothing,
        /// The kernel had more to say than the socket or the buffer holds, or the socket is of no use.
        failed,
    };

    /// Empty optional: the system gives no such socket.
    static std::optional<NetlinkSocket> open();

    /// Subscribes to the notifications of `group`; false when the kernel refuses or does not know it.
    bool join(rtnetlink_groups group);
    int descriptor() const { return mnl_socket_get_fd(socket_.get()); }
    /// Asks for all links; the first part of the answer has come in when this returns.
    bool requestLinks();
    /// Asks how a packet to `destination`, an address of the family AF_INET or AF_INET6, would leave. `flags`: RTM_F_*.
    /// The answer has come in when this returns.
    bool requestRoute(std::uint8_t family, std::span<const std::uint8_t> destination, std::uint32_t flags);

    /// Hands the messages of the next datagram to `consume`.
    template <typename Consumer>
    Received receive(Consumer consume) {
        alignas(nlmsghdr) std::array<char, datagramSize> buffer; // NOLINT: filled by the kernel
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer.data(), buffer.size());
        if (size < 0) {
            return errno == EAGAIN || errno == EINTR ? Received::nothing : Received::failed;
        }
        netlink::forEachMessage(std::span(buffer).first(static_cast<std::size_t>(size)), consume);
        return Received::messages;
    }

  private:
    // As large as the kernel makes the datagrams of a table (libmnl's MNL_SOCKET_DUMP_SIZE).
    static constexpr int datagramSize = 32768;

    struct Closer {
        void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
    };

    explicit NetlinkSocket(mnl_socket* socket) : socket_(socket) {}
    bool send(const nlmsghdr& request);

    std::unique_ptr<mnl_socket, Closer> socket_;
};

} // namespace skylet
