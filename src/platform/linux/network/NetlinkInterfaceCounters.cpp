#include "platform/linux/network/NetlinkInterfaceCounters.h"

#include "platform/linux/system/FileDescriptor.h"

#include <QByteArray>
#include <QFile>

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace skylet {

namespace {

// The kernel hands the table out page by page, so one that changes meanwhile may lack a line.
constexpr int maximumReads = 8;

/// Opened anew each time: an open one would stay with the namespace it was opened in.
std::optional<QByteArray> readDeviceTable() {
    QFile file(QStringLiteral("/proc/self/net/dev"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return std::nullopt;
    }
    const QByteArray table = file.readAll();
    return file.error() == QFileDevice::NoError ? std::optional(table) : std::nullopt;
}

/// Asks the kernel one thing about the link `name` (netdevice(7)). SIOCGIFFLAGS and SIOCGIFINDEX do not wait for those
/// who change links; SIOCGIFCONF would.
std::optional<ifreq> ask(int socket, unsigned long question, const QString& name) {
    ifreq request{};
    const QByteArray bytes = name.toUtf8();
    std::copy_n(bytes.begin(), std::min<std::size_t>(static_cast<std::size_t>(bytes.size()), IFNAMSIZ - 1),
                std::begin(request.ifr_name));
    return ioctl(socket, question, &request) == 0 ? std::optional(request) : std::nullopt;
}

} // namespace

std::optional<std::vector<InterfaceCounter>> NetlinkInterfaceCounters::read() {
    const FileDescriptor control(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    std::vector<InterfaceCounter> counters;
    bool isWhole = false;
    for (int attempt = 0; attempt < maximumReads && !isWhole; ++attempt) {
        const auto table = readDeviceTable();
        if (!table || !control.isValid()) {
            return std::nullopt;
        }
        const LinkTable& links = links_.links();
        std::size_t known = 0;
        counters.clear();
        for (InterfaceCounter& counter : parseInterfaceCounters(*table)) {
            const auto flags = ask(control.get(), SIOCGIFFLAGS, counter.name);
            const auto index = ask(control.get(), SIOCGIFINDEX, counter.name);
            if (!flags || !index) {
                // It has gone since.
                continue;
            }
            const auto interface = static_cast<std::uint32_t>(index->ifr_ifindex);
            known += links.count(interface);
            counter.up = (flags->ifr_flags & IFF_UP) != 0;
            counter.stacked = isStacked(interface, links);
            counter.tun = isTun(interface, links);
            counters.push_back(std::move(counter));
        }
        isWhole = known == links.size();
    }
    return counters;
}

std::vector<InterfaceCounter> parseInterfaceCounters(const QByteArray& table) {
    std::vector<InterfaceCounter> counters;
    for (const QByteArray& line : table.split('\n')) {
        std::array<char, IFNAMSIZ> name{};
        unsigned long long received = 0;
        unsigned long long sent = 0;
        // Sixteen columns: bytes come first, and ninth.
        if (std::sscanf(line.constData(), " %15[^:]:%llu%*u%*u%*u%*u%*u%*u%*u%llu", name.data(), &received, &sent) ==
            3) {
            counters.push_back({.name = QString::fromUtf8(name.data()), .receivedBytes = received, .sentBytes = sent});
        }
    }
    return counters;
}

} // namespace skylet
