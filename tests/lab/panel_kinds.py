"""How each sort of panel is set up and started, and in which way it is expected to show the title."""

import shutil
from dataclasses import dataclass, field, replace
from pathlib import Path

XFCE = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="length" type="uint" value="100"/>
      <property name="size" type="uint" value="28"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/><value type="int" value="2"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="clock"/>
    <property name="plugin-2" type="string" value="{plugin}"/>
  </property>
</channel>
"""

MATE = """[org/mate/panel/general]
toplevel-id-list=['bar']
object-id-list=['area']

[org/mate/panel/toplevels/bar]
orientation='top'
expand=true
size=28

[org/mate/panel/objects/area]
toplevel-id='bar'
object-type='applet'
applet-iid='NotificationAreaAppletFactory::NotificationArea'
position=20
locked=true
"""

LXQT = """panels=bar

[bar]
position=Top
width=100
width-percent=true
panelSize=28
iconSize=22
lineCount=1
plugins=area

[area]
type=statusnotifier
alignment=Left
"""

GNOME = """[org/gnome/shell]
enabled-extensions=['ubuntu-appindicators@ubuntu.com']
welcome-dialog-last-shown-version='100'
[org/gnome/desktop/interface]
enable-animations=false
[org/gnome/desktop/lockdown]
disable-lock-screen=true
[org/gnome/desktop/notifications]
show-banners=false
[org/gnome/mutter]
dynamic-workspaces=false
[org/gnome/desktop/wm/preferences]
num-workspaces=1
"""

# the status area is a panel within the panel
PLASMA = """[Containments][1]
plugin=org.kde.panel
formfactor=2
location=3
lastScreen=0

[Containments][1][Applets][2]
plugin=org.kde.plasma.systemtray

[Containments][1][Applets][2][Configuration]
SystrayContainmentId=3

[Containments][3]
plugin=org.kde.plasma.private.systemtray
formfactor=2
location=3
lastScreen=0

[Containments][3][General]
showAllItems=true
"""

CINNAMON = """[org/cinnamon]
enabled-applets=['panel1:left:0:xapp-status@cinnamon.org:1']
next-applet-id=2
panels-enabled=['1:0:top']
panels-height=['1:32']
desktop-effects=false
"""

BUDGIE = """[com/solus-project/budgie-panel]
migration-level=1
panels=['11111111-1111-1111-1111-111111111111']
[com/solus-project/budgie-panel/panels/{11111111-1111-1111-1111-111111111111}]
location='top'
size=40
applets=['22222222-2222-2222-2222-222222222222']
[com/solus-project/budgie-panel/applets/{22222222-2222-2222-2222-222222222222}]
name='System Tray'
alignment='start'
position=0
"""

SWAY = """output X11-1 resolution 1024x480 position 0,0
output X11-1 background #305030 solid_color
seat seat0 fallback true
"""
# sway is not to start the bar by itself
SWAY_WITH_BAR = SWAY + """bar bar-0 {
  swaybar_command true
  position top
  height 28
}
"""
WAYBAR = '{"layer": "top", "position": "top", "height": 28, "modules-left": ["tray"], "tray": {"icon-size": 22}}'
WAYBAR_STYLE = "window#waybar { background: %s; }"

# its screen is a window on the virtual screen
SWAY_ENVIRONMENT = {"WLR_BACKENDS": "x11", "WLR_X11_OUTPUTS": "1", "WLR_RENDERER": "pixman", "WLR_LIBINPUT_NO_DEVICES": "1",
                    "GDK_BACKEND": "wayland"}

TINT2 = """panel_items = S
panel_position = top left horizontal
panel_size = 100% 28
"""

# its bar has a tray
I3 = """# i3 config file (v4)
font pango:monospace 12
bar {
  position top
}
"""

POLYBAR = """[bar/main]
width = 100%
height = 28
tray-position = left
tray-maxsize = 22
modules-left = date

[module/date]
type = internal/date
date = %H:%M
"""


@dataclass(frozen=True)
class Kind:
    """One sort of panel. `commands` are started in this order, the panel itself last; one whose first word is
    "@wayland" waits for the compositor before it."""

    shows: str  # how the title is shown: label, wide, badge, tray or strip
    desktop: str = ""
    commands: tuple = (("openbox",),)
    settings: dict = field(default_factory=dict)  # {path below the configuration folder: text}
    environment: dict = field(default_factory=dict)
    as_nobody: bool = False  # for programs that refuse to run as root
    scale: int = 1  # pixels of the screen for each of the panel's
    pace_ms: int = 10  # how far apart changes have to be for the panel to look at each
    warm_up: int = 500  # changes after which its caches are full
    round: int = 500  # changes from one look at its memory to the next
    rounds: int = 1
    pause_s: int = 0  # how long it is left alone before each look
    collects: tuple = ()  # words for its command with which it collects garbage when told to
    narrow: bool = False  # it ends beside its icons, and begins in the screen's upper left corner
    window: str = ""  # what its window is called, if not as the last command
    keyboard: bool = True  # it gives the keyboard to its menu
    wayland: bool = False  # its windows are a compositor's, which draws them on the screen
    is_compositor: bool = False  # so that no program outlives it
    outlived_by_watcher: bool = False  # who watches for items lives on when it dies


WINDOW_MANAGER = ("openbox",)
XFCE_SETTINGS = "xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml"
KEYFILE = "glib-2.0/settings/keyfile"

# the same by the names that each release gives it
KDED = "kded6" if shutil.which("kded6") else "kded5"
XAPP_WATCHER = next((str(path) for folder in ("/usr/lib", "/usr/libexec") for path in Path(folder).rglob("xapp-sn-watcher")),
                    "xapp-sn-watcher")

KINDS = {
    "xfce": Kind("badge", "XFCE", (WINDOW_MANAGER, ("xfce4-panel", "--disable-wm-check")),
                 {XFCE_SETTINGS: XFCE.format(plugin="systray")}),
    "ayatana": Kind("label", "XFCE", (
        WINDOW_MANAGER, ("/usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service",),
        ("xfce4-panel", "--disable-wm-check")), {XFCE_SETTINGS: XFCE.format(plugin="indicator")}),
    "mate": Kind("wide", "MATE", (WINDOW_MANAGER, ("mate-panel",)), {KEYFILE: MATE}),
    "lxqt": Kind("badge", "LXQt", (WINDOW_MANAGER, ("lxqt-panel",)), {"lxqt/panel.conf": LXQT},
                 {"QT_QPA_PLATFORM": "xcb"},
                 # Qt keeps the last 10,500 pictures of 16 x 16 pixels that it has drawn (10 MB)
                 pace_ms=5, warm_up=12000),
    "waybar": Kind("wide", "sway", (("sway", "-c", "{config}/sway/config"), ("@wayland", "waybar")),
                   {"sway/config": SWAY, "waybar/config": WAYBAR, "waybar/style.css": WAYBAR_STYLE % "#2a2a2e"},
                   SWAY_ENVIRONMENT, as_nobody=True, pace_ms=40, keyboard=False),
    "sway": Kind("strip", "sway", (("sway", "-c", "{config}/sway/config"),), {"sway/config": SWAY_WITH_BAR},
                 SWAY_ENVIRONMENT, as_nobody=True),
    "swaybar": Kind("badge", "sway", (("sway", "-c", "{config}/sway/config"), ("@wayland", "swaybar", "-b", "bar-0")),
                    {"sway/config": SWAY_WITH_BAR}, SWAY_ENVIRONMENT, as_nobody=True),
    # a light bar on a screen of scale 2
    "waybar-light": Kind("wide", "sway", (("sway", "-c", "{config}/sway/config"), ("@wayland", "waybar")),
                         {"sway/config": SWAY.replace("position", "scale 2 position"), "waybar/config": WAYBAR,
                          "waybar/style.css": WAYBAR_STYLE % "#f4f4f6"}, SWAY_ENVIRONMENT, as_nobody=True, scale=2),
    "trayer": Kind("tray", "", (WINDOW_MANAGER, ("trayer", "--edge", "top", "--align", "left", "--widthtype", "request",
                                                 "--heighttype", "pixel", "--height", "28")), narrow=True),
    "trayer-bottom": Kind("tray", "", (WINDOW_MANAGER, ("trayer", "--edge", "bottom", "--align", "left", "--widthtype",
                                                        "request", "--heighttype", "pixel", "--height", "28"))),
    "tint2": Kind("tray", "", (WINDOW_MANAGER, ("tint2", "-c", "{config}/tint2rc")), {"tint2rc": TINT2}),
    "i3bar": Kind("tray", "i3", (("i3", "-c", "{config}/i3/config"),), {"i3/config": I3}, window="i3bar"),
    "polybar": Kind("tray", "", (WINDOW_MANAGER, ("polybar", "-c", "{config}/polybar.ini", "main")), {"polybar.ini": POLYBAR}),
    "none": Kind("strip"),
    # its extension looks at most every 100 ms; unsafe: it lets a test run scripts, and shows a shield in its panel
    "gnome": Kind("label", "GNOME", (("gnome-shell", "--x11", "--sm-disable"),), {KEYFILE: GNOME}, pace_ms=125, rounds=2,
                  pause_s=5, collects=("--unsafe-mode",)),
    "plasma": Kind("badge", "KDE", ((KDED,), ("kwin_x11", "--no-kactivities"), ("plasmashell", "--no-respawn")),
                   {"plasma-org.kde.plasma.desktop-appletsrc": PLASMA},
                   {"QT_QPA_PLATFORM": "xcb", "QT_QUICK_BACKEND": "software", "KDE_FULL_SESSION": "true",
                    "KDE_SESSION_VERSION": KDED[-1]},
                   # keeps pictures in Qt's cache until nothing new comes for a while; besides, scripts leave pictures to a
                   # collector that cannot be told to work
                   pace_ms=20, warm_up=1500, round=1500, rounds=2, pause_s=60, outlived_by_watcher=True),
    "cinnamon": Kind("wide", "X-Cinnamon", ((XAPP_WATCHER,), ("cinnamon", "--sm-disable")), {KEYFILE: CINNAMON},
                     {"CINNAMON_2D": "true"}, pace_ms=40, outlived_by_watcher=True),
    "budgie": Kind("badge", "Budgie:GNOME", (("budgie-wm", "--x11"), ("budgie-daemon",), ("budgie-panel",)), {KEYFILE: BUDGIE}),
}

# in a window on the virtual screen
KINDS["gnome-wayland"] = replace(KINDS["gnome"], commands=(("gnome-shell", "--nested", "--wayland"),), wayland=True,
                                 is_compositor=True, environment={"MUTTER_DEBUG_DUMMY_MODE_SPECS": "1024x480"})
KINDS["plasma-wayland"] = replace(
    KINDS["plasma"], commands=(("kwin_wayland", "--width", "1024", "--height", "480", "--xwayland"), ("@wayland", KDED),
                               ("plasmashell", "--no-respawn")),
    environment={key: value for key, value in KINDS["plasma"].environment.items() if key != "QT_QPA_PLATFORM"}, wayland=True)

# the same on screens of scale 2; what is drawn by our own program gets its scale from the screen
KINDS["xfce-2"] = replace(KINDS["xfce"], environment={"GDK_SCALE": "2"}, scale=2)
KINDS["trayer-2"] = replace(KINDS["trayer"], commands=(WINDOW_MANAGER, (*KINDS["trayer"].commands[-1][:-1], "50")), scale=2)
KINDS["none-2"] = replace(KINDS["none"], scale=2)
KINDS["gnome-2"] = replace(KINDS["gnome"], settings={KEYFILE: GNOME.replace(
    "enable-animations", "scaling-factor=uint32 2\nenable-animations")}, scale=2)
# upright there is no room for the whole title
KINDS["mate-left"] = replace(KINDS["mate"], shows="badge", narrow=True,
                             settings={KEYFILE: MATE.replace("orientation='top'", "orientation='left'")})
