#include "platform/linux/system/DefaultRoutes.h"

#include <linux/if.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <utility>

namespace skylet {

namespace {

bool works(const LinkFlags& links, std::uint32_t interface) {
    constexpr std::uint32_t needed = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;
    const auto link = links.find(interface);
    return link != links.end() && (link->second & needed) == needed;
}

bool leadsOut(const DefaultRoute& route) {
    return route.type == RTN_UNICAST &&
           std::any_of(route.nextHops.begin(), route.nextHops.end(), [](const NextHop& hop) { return !hop.dead; });
}

} // namespace

PathState pathState(std::vector<DefaultRoute> routes, const LinkFlags& links) {
    PathState state;
    for (DefaultRoute& route : routes) {
        for (NextHop& hop : route.nextHops) {
            hop.dead = hop.dead || (hop.interface != 0 && !works(links, hop.interface));
        }
        // The kernel names the hops of one route in no order it promises.
        std::sort(route.nextHops.begin(), route.nextHops.end());
        state.satisfied = state.satisfied || leadsOut(route);
    }
    std::sort(routes.begin(), routes.end());
    state.routes = std::move(routes);
    return state;
}

} // namespace skylet
