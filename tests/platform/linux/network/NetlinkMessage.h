#pragma once

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace skylet::test {

/// A message as the kernel would send it, put together piece by piece.
class NetlinkMessage {
  public:
    /// `fixed`: the fixed part, an ifinfomsg or an rtmsg.
    template <typename Fixed>
    NetlinkMessage(std::uint16_t type, const Fixed& fixed) : header_(mnl_nlmsg_put_header(buffer_.data())) {
        header_->nlmsg_type = type;
        std::memcpy(mnl_nlmsg_put_extra_header(header_, sizeof fixed), &fixed, sizeof fixed);
    }

    ~NetlinkMessage() = default;
    NetlinkMessage(const NetlinkMessage&) = delete;
    NetlinkMessage& operator=(const NetlinkMessage&) = delete;
    NetlinkMessage(NetlinkMessage&&) = delete;
    NetlinkMessage& operator=(NetlinkMessage&&) = delete;

    template <typename Value>
    NetlinkMessage& with(std::uint16_t type, const Value& value) {
        mnl_attr_put(header_, type, sizeof value, &value);
        return *this;
    }

    NetlinkMessage& withText(std::uint16_t type, const char* text) {
        mnl_attr_put_strz(header_, type, text);
        return *this;
    }

    /// An attribute that holds another one with a text.
    NetlinkMessage& withNestedText(std::uint16_t outer, std::uint16_t inner, const char* text) {
        nlattr* nest = mnl_attr_nest_start(header_, outer);
        mnl_attr_put_strz(header_, inner, text);
        mnl_attr_nest_end(header_, nest);
        return *this;
    }

    NetlinkMessage& withBytes(std::uint16_t type, std::span<const std::uint8_t> bytes) {
        mnl_attr_put(header_, type, bytes.size(), bytes.data());
        return *this;
    }

    /// Says that the message ends after `size` bytes.
    NetlinkMessage& cutTo(std::uint32_t size) {
        header_->nlmsg_len = size;
        return *this;
    }

    const nlmsghdr& header() const { return *header_; }

  private:
    alignas(nlmsghdr) std::array<char, 1024> buffer_{};
    nlmsghdr* header_;
};

} // namespace skylet::test
