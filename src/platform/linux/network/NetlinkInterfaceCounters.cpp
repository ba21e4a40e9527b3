#include "platform/linux/network/NetlinkInterfaceCounters.h"

#include <fcntl.h>
#include <linux/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

namespace skylet {

namespace {

// Columns of /proc/net/dev behind the name.
constexpr int receivedBytesColumn = 0;
constexpr int sentBytesColumn = 8;
// The kernel hands the table out page by page, so one that changes meanwhile may lack a line.
constexpr int maximumReads = 8;

/// Takes the next run of characters other than spaces off the front of `line`.
std::string_view takeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    return word;
}

std::optional<std::uint64_t> counted(std::string_view word) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    return error == std::errc() && end == word.data() + word.size() ? std::optional(value) : std::nullopt;
}

std::optional<InterfaceCounter> parseLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view head = line.substr(0, colon);
    const std::string_view name = takeWord(head);
    std::string_view columns = line.substr(colon + 1);
    std::array<std::optional<std::uint64_t>, sentBytesColumn + 1> values;
    for (auto& value : values) {
        value = counted(takeWord(columns));
    }
    if (name.empty() || !values[receivedBytesColumn] || !values[sentBytesColumn]) {
        return std::nullopt;
    }
    InterfaceCounter counter;
    counter.name = QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
    counter.receivedBytes = *values[receivedBytesColumn];
    counter.sentBytes = *values[sentBytesColumn];
    return counter;
}

/// Opened anew each time: an open one would stay with the namespace it was opened in.
std::optional<QByteArray> readDeviceTable() {
    const FileDescriptor file(open("/proc/self/net/dev", O_RDONLY | O_CLOEXEC));
    QByteArray table;
    std::array<char, 8192> buffer; // NOLINT: filled by the kernel
    while (file.isValid()) {
        const ssize_t size = read(file.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            return std::nullopt;
        }
        if (size == 0) {
            return table;
        }
        table.append(buffer.data(), size);
    }
    return std::nullopt;
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
    if (!control_.isValid()) {
        control_ = FileDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    }
    std::vector<InterfaceCounter> counters;
    bool isWhole = false;
    for (int attempt = 0; attempt < maximumReads && !isWhole; ++attempt) {
        const auto table = readDeviceTable();
        if (!table || !control_.isValid()) {
            return std::nullopt;
        }
        const LinkTable& links = links_.links();
        std::size_t known = 0;
        counters.clear();
        for (InterfaceCounter& counter : parseInterfaceCounters(*table)) {
            const auto flags = ask(control_.get(), SIOCGIFFLAGS, counter.name);
            const auto index = ask(control_.get(), SIOCGIFINDEX, counter.name);
            if (!flags || !index) {
                // It has gone since.
                continue;
            }
            const auto interface = static_cast<std::uint32_t>(index->ifr_ifindex);
            known += links.count(interface);
            counter.up = (flags->ifr_flags & IFF_UP) != 0;
            counter.stacked = isStacked(interface, links);
            counter.leadsToAProgram = isTun(interface, links);
            counters.push_back(std::move(counter));
        }
        isWhole = known == links.size();
    }
    return counters;
}

std::vector<InterfaceCounter> parseInterfaceCounters(QByteArrayView table) {
    std::vector<InterfaceCounter> counters;
    std::string_view left(table.data(), static_cast<std::size_t>(table.size()));
    while (!left.empty()) {
        const std::string_view line = left.substr(0, left.find('\n'));
        if (auto counter = parseLine(line)) {
            counters.push_back(std::move(*counter));
        }
        left.remove_prefix(std::min(line.size() + 1, left.size()));
    }
    return counters;
}

} // namespace skylet
