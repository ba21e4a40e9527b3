#include "fuzz/Fuzz.h"
#include "platform/linux/network/LinkTable.h"
#include "platform/linux/network/NetlinkAttributes.h"
#include "platform/linux/network/NetlinkInterfaceCounters.h"
#include "platform/linux/network/RouteAnswer.h"

#include <algorithm>
#include <span>
#include <vector>

namespace skylet::test {
namespace {

/// What remains of the input, as a datagram comes in.
std::vector<std::uint32_t> datagram(FuzzInput& input) {
    const QByteArray bytes = input.rest();
    std::vector<std::uint32_t> words(static_cast<std::size_t>(bytes.size()) / 4);
    std::copy_n(bytes.constData(), words.size() * 4, reinterpret_cast<char*>(words.data()));
    return words;
}

template <typename Consumer>
void forEachMessage(FuzzInput& input, Consumer consume) {
    const auto words = datagram(input);
    netlink::forEachMessage(std::span(reinterpret_cast<const char*>(words.data()), words.size() * 4), consume);
}

void readLinkMessages(FuzzInput input) {
    LinkTable links;
    forEachMessage(input, [&links](const nlmsghdr& message) {
        const std::size_t before = links.size();
        applyMessage(message, links);
        require(links.size() <= before + 1 && links.size() + 1 >= before, "a message is about one link");
    });
    for (const auto& [interface, link] : links) {
        require(!isTun(interface, links) || !link.isAggregateOrTunnel, "the end of a program is no tunnel");
        require(isStacked(interface, links) == (link.isAggregateOrTunnel || links.count(link.lower) > 0),
                "stacked is what stands on a link that is there");
    }
    require(!isStacked(0, {}) && !isTun(0, {}), "of a link that is not known nothing is known");
}

void readRoutes(FuzzInput input) {
    forEachMessage(input, [](const nlmsghdr& message) {
        const auto route = parseRoute(message);
        require(!route || route->interface != 1, "no route leads to the machine itself");
        const auto hops = parseHops(message);
        require(hops.size() <= message.nlmsg_len / 8, "each hop has its own place in the message");
    });
}

void readInterfaceTable(FuzzInput input) {
    const QByteArray table = input.rest();
    const auto counters = parseInterfaceCounters(table);
    require(static_cast<qsizetype>(counters.size()) <= table.count('\n') + 1, "an interface has a line");
    for (const auto& counter : counters) {
        require(!counter.name.isEmpty() && counter.name.size() < 16, "an interface has a name that the kernel allows");
        require(!counter.name.contains(u':') && !counter.up, "the table tells names and bytes alone");
    }
}

const FuzzTarget links("links", readLinkMessages);
const FuzzTarget routes("routes", readRoutes);
const FuzzTarget interfaces("interfaces", readInterfaceTable);

} // namespace
} // namespace skylet::test
