#include "platform/linux/statusitem/host/KnownHosts.h"

#include <algorithm>
#include <array>

namespace skylet {

namespace {

// The longest process name that the kernel keeps: TASK_COMM_LEN less the terminating zero.
constexpr qsizetype longestProcessName = 15;

struct KnownHost {
    QLatin1String name;
    StatusHostTraits traits;
};

// Refusing `Activate` keeps GNOME's AppIndicator extension from waiting for a second click before it opens the menu.
// It paints each icon that is given in pixels anew and leaves them to its garbage collector (GNOME Shell 43 grew by 10
// MB with 500 changes of the dot's colour); the icons that it has read from files it keeps.
// Its version 59 makes the whole menu anew when that opens after a change, each entry enabled at first: the first line
// gets the keyboard, is replaced by a disabled one, and then no key reaches the menu.
constexpr StatusHostTraits gnome{
    .presentation = Presentation::label, .opensMenu = true, .prefersIconName = true, .losesKeysByMenuChanges = true};
// These read the icon's name alone, never at its pixels.
constexpr StatusHostTraits indicators{.presentation = Presentation::label, .prefersIconName = true};
// MATE's panel sets a label too, but hides the icon beside it where the desktop shows no images on buttons.
constexpr StatusHostTraits wide{.presentation = Presentation::wide};
// Cinnamon 6.4 made a title 2 pixels high.
constexpr StatusHostTraits cinnamon{.presentation = Presentation::wide, .squeezesWideIcons = true};
// Seen in version 10.9.
constexpr StatusHostTraits budgie{.showsToolTipTextAlone = true};
// Plasma 5 sends `Activate` on a left click, and opens the menu where that is refused.
constexpr StatusHostTraits plasma{.opensMenu = true};
// Plasma's watcher lives in its service daemon and outlives the shell, its host; it was seen (5.27) to speak of a host
// when there was none. The shell has a host's name on the bus.
constexpr StatusHostTraits plasmaWatcher{.opensMenu = true, .watchesOnly = true};

// The rest, among them xfce4-panel (whose plugin runs as "panel-N-systray") and lxqt-panel, show a square icon alone.
constexpr std::array knownPrograms = {
    KnownHost{QLatin1String("gnome-shell"), gnome},
    // MATE's panel, as a process of its own (notification-area-applet) and inside the panel.
    KnownHost{QLatin1String("notification-area-applet"), wide},
    KnownHost{QLatin1String("mate-panel"), wide},
    KnownHost{QLatin1String("waybar"), wide},
    // The application indicator services of the Ayatana project and of Unity.
    KnownHost{QLatin1String("ayatana-indicator-application-service"), indicators},
    KnownHost{QLatin1String("indicator-application-service"), indicators},
    KnownHost{QLatin1String("budgie-daemon"), budgie},
    KnownHost{QLatin1String("budgie-panel"), budgie},
    KnownHost{QLatin1String("plasmashell"), plasma},
    KnownHost{QLatin1String("kded5"), plasmaWatcher},
    KnownHost{QLatin1String("kded6"), plasmaWatcher},
};

// Passes the items on to the applets of several desktops, so it is the desktop that decides there.
constexpr QLatin1String sharedWatcher("xapp-sn-watcher");

constexpr std::array knownDesktops = {
    // Budgie says that it is GNOME as well.
    KnownHost{QLatin1String("Budgie"), budgie},    KnownHost{QLatin1String("GNOME"), gnome},
    KnownHost{QLatin1String("MATE"), wide},        KnownHost{QLatin1String("X-Cinnamon"), cinnamon},
    KnownHost{QLatin1String("Unity"), indicators}, KnownHost{QLatin1String("KDE"), plasma},
};

} // namespace

StatusHostTraits traitsOfHost(const QString& processName, const QString& currentDesktop) {
    if (processName.isEmpty() || processName == sharedWatcher) {
        for (const QString& name : currentDesktop.split(QLatin1Char(':'))) {
            const auto desktop = std::find_if(knownDesktops.cbegin(), knownDesktops.cend(),
                                              [&](const KnownHost& known) { return name == known.name; });
            if (desktop != knownDesktops.cend()) {
                return desktop->traits;
            }
        }
        return {};
    }
    const auto program = std::find_if(knownPrograms.cbegin(), knownPrograms.cend(), [&](const KnownHost& known) {
        return processName == known.name.left(longestProcessName);
    });
    return program == knownPrograms.cend() ? StatusHostTraits() : program->traits;
}

} // namespace skylet
