#pragma once

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>

namespace skylet {

/// A socket to the kernel's links and routes (rtnetlink(7)) in the network namespace of the calling thread. It asks,
/// and hears of changes; it never changes anything. To hear, and to ask for one route, never takes long. To ask for the
/// links may: the kernel lets whoever does wait, without a limit, while anybody on the system sets up or removes
/// interfaces.
class NetlinkSocket {
  public:
    enum class Mode { blocking, nonBlocking };

    /// What a received datagram means for the table that was asked for.
    enum class Progress {
        /// More of the table follows.
        partial,
        complete,
        /// The table changed while the kernel was writing it out; what was read does not fit together.
        interrupted,
        failed,
    };

    /// As large as the kernel makes the datagrams of a table (libmnl's MNL_SOCKET_DUMP_SIZE).
    static constexpr std::size_t datagramSize = 32768;
    /// How often to read tables that change each time they are read.
    static constexpr int maximumAttempts = 8;

    /// Empty optional: the system gives no such socket. A blocking socket waits for an answer for at most `patience`.
    static std::optional<NetlinkSocket> open(Mode mode);

    /// Hears from now on of the changes in `group`. False: the kernel does not know the group.
    bool join(rtnetlink_groups group);
    int descriptor() const { return mnl_socket_get_fd(socket_.get()); }
    /// Asks for all links. May wait. One thing at a time: the next may be asked for once this is complete.
    bool requestLinks();
    /// Asks which way a packet to `destination`, an address of the family AF_INET or AF_INET6, would leave. `flags`:
    /// RTM_F_*. The answer has come in when this returns.
    bool requestRoute(std::uint8_t family, std::span<const std::uint8_t> destination, std::uint32_t flags);
    /// The size of the next datagram; negative, with `errno` set, when there is none.
    ssize_t receive(std::span<char> buffer);
    /// The datagram's message when it answers what was asked for last, else null.
    const nlmsghdr* answer(std::span<const char> datagram) const;
    /// Reads the requested table to its end, of a blocking socket; may wait. Gives up as `failed` once `stop` is
    /// requested.
    template <typename Consumer>
    Progress readTable(const std::stop_token& stop, Consumer consume) {
        alignas(nlmsghdr) std::array<char, datagramSize> buffer; // NOLINT: filled by the kernel
        auto progress = Progress::partial;
        while (progress == Progress::partial) {
            const ssize_t size = receive(buffer);
            if (size < 0 && errno == EINTR) {
                continue;
            }
            if (size < 0 || stop.stop_requested()) {
                return Progress::failed;
            }
            progress = read(std::span(buffer).first(static_cast<std::size_t>(size)), consume);
        }
        return progress;
    }
    /// Hands every message of a datagram that belongs to the requested table to `consume`.
    template <typename Consumer>
    Progress read(std::span<const char> datagram, Consumer consume) const {
        const auto forward = [](const nlmsghdr* message, void* consumer) {
            (*static_cast<Consumer*>(consumer))(*message);
            return static_cast<int>(MNL_CB_OK);
        };
        return read(datagram, forward, &consume);
    }

  private:
    struct Closer {
        void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
    };

    explicit NetlinkSocket(mnl_socket* socket) : socket_(socket) {}
    bool request(std::span<char> message);
    Progress read(std::span<const char> datagram, mnl_cb_t callback, void* data) const;

    std::unique_ptr<mnl_socket, Closer> socket_;
    std::uint32_t sequence_ = 0;
};

} // namespace skylet
