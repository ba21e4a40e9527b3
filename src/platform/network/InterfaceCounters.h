#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace skylet {

/// One network interface and the bytes it has moved since it came to be.
struct InterfaceCounter {
    QString name;
    /// Administratively up.
    bool up = false;
    /// Stacked on other interfaces of this system, so that its bytes are counted there too: a VLAN, a MAC or IP VLAN, a
    /// bridge, a bond, a tunnel bound to a port, a container's veth.
    bool stacked = false;
    std::uint64_t receivedBytes = 0;
    std::uint64_t sentBytes = 0;
    /// A TUN or TAP device: what it is given to send goes to a program of this system, not onto a wire.
    bool tun = false;
};

/// Reads the byte counters of all interfaces. Decides nothing about which of them count.
class InterfaceCounters {
  public:
    virtual ~InterfaceCounters() = default;
    /// Empty optional: the system did not answer.
    virtual std::optional<std::vector<InterfaceCounter>> read() = 0;
};

} // namespace skylet
