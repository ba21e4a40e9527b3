# The Debian package: `cpack` in the build folder, or script/package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME skylet)
set(CPACK_PACKAGE_VENDOR Brimlake)
set(CPACK_PACKAGE_CONTACT "${SKYLET_PACKAGER}")
set(CPACK_PACKAGE_HOMEPAGE_URL "${SKYLET_WEBSITE}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "status-area dot that knows whether the internet is reachable")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Skylet asks two independent HTTPS endpoints every five seconds and shows the
answer in the status area: a green, yellow, red or grey dot with the response
time. It is made for people who work over a phone hotspot, where the network
interface is up and nothing gets through.
.
Its menu shows the state in words and the live traffic of the network
interfaces, and runs a speed test when asked to. The checks use 0.5 MB an
hour, a speed test up to 63 MB.
.
GNOME shows it with gnome-shell-extension-appindicator. Where nothing shows
icons, it puts a small strip on the screen.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# What the program links is found by dpkg-shlibdeps. What it needs besides: certificates to trust and a session bus; without
# the one every check fails, without the other the program ends at once.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "ca-certificates, default-dbus-session-bus | dbus-session-bus")
# It works without these, but less well: windows on Wayland, the browser for the maker's site, the icon's theme.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "hicolor-icon-theme, qt6-wayland, xdg-utils")
# GNOME is the one large desktop that shows the dot only with an extension. No more than suggested: it would bring GNOME along.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS gnome-shell-extension-appindicator)

# One package of both components
set(CPACK_DEB_COMPONENT_INSTALL TRUE)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL Unspecified debian)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/RemoveComment.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/Repack.cmake)

# The times in the package are those of the release, unless the caller has others.
file(CONFIGURE OUTPUT CPackEpoch.cmake @ONLY CONTENT [[
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} @SKYLET_RELEASE_EPOCH@)
endif()
]])
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/CPackEpoch.cmake)
include(CPack)
