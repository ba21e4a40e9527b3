#include "platform/linux/system/DefaultRoutes.h"

#include <linux/if.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

constexpr std::uint32_t relevantFlags = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;
constexpr std::uint32_t workingFlags = IFF_UP | IFF_RUNNING;

bool leadsOut(const NextHop& hop) {
    return !hop.dead && (hop.interface == 0 || (hop.linkFlags & workingFlags) == workingFlags);
}

bool leadsOut(const DefaultRoute& route) {
    if (route.type != RTN_UNICAST) {
        return false;
    }
    return std::any_of(route.nextHops.begin(), route.nextHops.end(), [](const NextHop& hop) { return leadsOut(hop); });
}

} // namespace

PathState pathState(std::vector<DefaultRoute> routes, const LinkFlags& links) {
    PathState state;
    for (DefaultRoute& route : routes) {
        for (NextHop& hop : route.nextHops) {
            const auto link = links.find(hop.interface);
            hop.linkFlags = link == links.end() ? 0 : link->second & relevantFlags;
        }
        // The kernel names the hops of one route in no order it promises.
        std::sort(route.nextHops.begin(), route.nextHops.end());
        route.usable = leadsOut(route);
        state.satisfied = state.satisfied || route.usable;
    }
    std::sort(routes.begin(), routes.end());
    state.routes = std::move(routes);
    return state;
}

} // namespace skylet
