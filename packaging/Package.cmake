# The Debian package, built by tools/package.
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The Nulo developers <maintainers@nulo.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${CMAKE_CURRENT_LIST_DIR}/debian/postinst;${CMAKE_CURRENT_LIST_DIR}/debian/prerm;\
${CMAKE_CURRENT_LIST_DIR}/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_SOURCE_DIR}/build/whisper/installed/lib)
# What is not linked: Qt's ways to the X server and to compositors, and the speech model.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, qt6-wayland, pocketsphinx-en-us")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "ca-certificates, default-dbus-session-bus | dbus-session-bus, pipewire-pulse | pulseaudio, \
pkexec, systemd, xdg-utils")
# The first line is the synopsis.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "push-to-talk dictation for the desktop")
set(CPACK_PACKAGE_DESCRIPTION
"Hold Alt, press and hold Space, speak, and let go: what was said appears,
cleaned up, in the program that was typed in. A small overlay shows that
Nulo is listening, then the text as it arrives. The microphone is open only
while the keys are held.
.
Nulo runs in X11 sessions and in Wayland sessions of sway, KDE Plasma and
GNOME. The speech is recognised by a service of the user's choice, or by the
companion in this package, nulo-service, which works offline, on this
machine, in English; with a model that it fetches, in French and many other
languages.
.
For Wayland sessions this package switches a system service on, nulo-keytap,
which sees every key while Nulo runs there, and tells it of the shortcut
alone. /usr/share/doc/nulo/keys.md says how to switch it off.")
include(CPack)
