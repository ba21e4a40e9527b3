#pragma once

#include <libmnl/libmnl.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace skylet::netlink {

using Bytes = std::span<const std::uint8_t>;

/// The fixed part of a message's payload, or null when the message is shorter.
template <typename Fixed>
const Fixed* fixedPart(const nlmsghdr& message) {
    return mnl_nlmsg_get_payload_len(&message) < sizeof(Fixed)
               ? nullptr
               : static_cast<const Fixed*>(mnl_nlmsg_get_payload(&message));
}

/// What follows the fixed part.
template <typename Fixed>
Bytes attributes(const nlmsghdr& message) {
    const Bytes all(static_cast<const std::uint8_t*>(mnl_nlmsg_get_payload(&message)),
                    mnl_nlmsg_get_payload_len(&message));
    constexpr auto offset = static_cast<std::size_t>(NLMSG_ALIGN(sizeof(Fixed)));
    return offset < all.size() ? all.subspan(offset) : Bytes();
}

inline Bytes payload(const nlattr& attribute) {
    return {static_cast<const std::uint8_t*>(mnl_attr_get_payload(&attribute)), mnl_attr_get_payload_len(&attribute)};
}

/// Calls `consume` with each attribute in `bytes`.
template <typename Consumer>
void forEachAttribute(Bytes bytes, Consumer consume) {
    const auto forward = [](const nlattr* attribute, void* consumer) {
        (*static_cast<Consumer*>(consumer))(*attribute);
        return static_cast<int>(MNL_CB_OK);
    };
    mnl_attr_parse_payload(bytes.data(), bytes.size(), forward, &consume);
}

/// A number in host order; 0 when the attribute has another size.
template <typename Number>
Number number(const nlattr& attribute) {
    Number value{};
    if (payload(attribute).size() == sizeof value) {
        std::memcpy(&value, payload(attribute).data(), sizeof value);
    }
    return value;
}

} // namespace skylet::netlink
