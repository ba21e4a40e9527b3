#pragma once

#include <libmnl/libmnl.h>

#include <cstdint>
#include <span>

namespace skylet::netlink {

/// Calls `consume` with each message of a datagram, which is aligned as one, up to the first that does not fit.
template <typename Consumer>
void forEachMessage(std::span<const char> datagram, Consumer consume) {
    int left = static_cast<int>(datagram.size());
    // libmnl takes a length above 2^31 for a negative one, which fits.
    for (const auto* message = reinterpret_cast<const nlmsghdr*>(datagram.data());
         mnl_nlmsg_ok(message, left) && message->nlmsg_len <= static_cast<std::uint32_t>(left);
         message = mnl_nlmsg_next(message, &left)) {
        consume(*message);
    }
}

/// The fixed part of a message's payload, or null when the message is shorter.
template <typename Fixed>
const Fixed* fixedPart(const nlmsghdr& message) {
    return mnl_nlmsg_get_payload_len(&message) < sizeof(Fixed)
               ? nullptr
               : static_cast<const Fixed*>(mnl_nlmsg_get_payload(&message));
}

/// Calls `consume` with each attribute behind the fixed part.
template <typename Fixed, typename Consumer>
void forEachAttribute(const nlmsghdr& message, Consumer consume) {
    const auto forward = [](const nlattr* attribute, void* consumer) {
        (*static_cast<Consumer*>(consumer))(*attribute);
        return static_cast<int>(MNL_CB_OK);
    };
    mnl_attr_parse(&message, sizeof(Fixed), forward, &consume);
}

/// A number in host order; 0 when the attribute has another size.
inline std::uint32_t number(const nlattr& attribute) {
    return mnl_attr_validate(&attribute, MNL_TYPE_U32) < 0 ? 0 : mnl_attr_get_u32(&attribute);
}

} // namespace skylet::netlink
