#include "platform/session/BackendChoice.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

const std::set<std::string> wlroots = {"zwlr_data_control_manager_v1",
                                       "zwp_virtual_keyboard_manager_v1", "zwlr_layer_shell_v1"};
const std::set<std::string> kwin = {"zwlr_data_control_manager_v1", "zwlr_layer_shell_v1",
                                    "org_kde_plasma_shell"};
const std::set<std::string> kwinWithKeys = {"zwlr_data_control_manager_v1", "zwlr_layer_shell_v1",
                                            "org_kde_plasma_shell", "org_kde_kwin_fake_input"};

// Keys grabbed or sent through XWayland, where both succeed without any effect; a text that is put
// where KWin does not look; an overlay that takes the keyboard; a toolkit that ends the process for
// want of an X server; a capability without a backend, or without a reason.
TEST(BackendChoice, followsWhatTheSessionOffers) {
    using B = Backend;
    const struct {
        SessionFacts facts;
        std::string toolkit;
        B keys, clipboard, paste, overlay;
        B otherKeys = B::none;  // where nulo-keytap turns this program away
    } rows[] = {
        {{.display = ":0"}, "xcb", B::x11, B::qt, B::x11, B::x11},
        {{.sessionType = "x11", .display = ":0"}, "xcb", B::x11, B::qt, B::x11, B::x11},
        {{}, "xcb", B::none, B::qt, B::none, B::none},
        {{.sessionType = "wayland", .display = ":0"}, "xcb", B::none, B::qt, B::none, B::x11},
        {{.waylandDisplay = "w", .swaySocket = "s", .waylandOffers = wlroots},
         "wayland",
         B::swayBindings,
         B::dataControl,
         B::virtualKeyboard,
         B::layerShell},
        {{.display = ":0", .waylandDisplay = "w", .hasPortal = true, .waylandOffers = wlroots},
         "xcb",
         B::shortcutsPortal,
         B::dataControl,
         B::virtualKeyboard,
         B::layerShell},
        {{.display = ":0", .waylandDisplay = "w", .hasPortal = true, .waylandOffers = kwinWithKeys},
         "xcb",
         B::shortcutsPortal,
         B::dataControl,
         B::fakeInput,
         B::x11},
        {{.waylandDisplay = "w", .desktop = "KDE", .waylandOffers = kwin},
         "wayland",
         B::none,
         B::dataControl,
         B::none,
         B::layerShell},
        {{.display = ":0", .waylandDisplay = "w", .desktop = "ubuntu:GNOME"},
         "xcb",
         B::none,
         B::qt,
         B::none,
         B::x11},
        {{.display = ":0", .waylandDisplay = "w", .desktop = "GNOME", .hasPortal = true},
         "xcb",
         B::shortcutsPortal,
         B::qt,
         B::remoteDesktopPortal,
         B::x11},
        {{.waylandDisplay = "w"}, "wayland", B::none, B::qt, B::none, B::qt},
        {{.display = ":0", .keytap = KeytapInstallation::on}, "xcb", B::x11, B::qt, B::x11, B::x11},
        {{.waylandDisplay = "w",
          .swaySocket = "s",
          .keytap = KeytapInstallation::on,
          .waylandOffers = wlroots},
         "wayland",
         B::keytap,
         B::dataControl,
         B::virtualKeyboard,
         B::layerShell,
         B::swayBindings},
        {{.display = ":0",
          .waylandDisplay = "w",
          .hasPortal = true,
          .keytap = KeytapInstallation::on,
          .waylandOffers = kwin},
         "xcb",
         B::keytap,
         B::dataControl,
         B::keytap,
         B::x11,
         B::shortcutsPortal},
        {{.waylandDisplay = "w", .keytap = KeytapInstallation::on},
         "wayland",
         B::keytap,
         B::qt,
         B::keytap,
         B::qt,
         B::keytap},
        {{.waylandDisplay = "w", .swaySocket = "s", .keytap = KeytapInstallation::off},
         "wayland",
         B::swayBindings,
         B::qt,
         B::none,
         B::qt},
        {{.waylandDisplay = "w", .keytap = KeytapInstallation::off},
         "wayland",
         B::keytap,
         B::qt,
         B::none,
         B::qt},
    };
    for (const auto& row : rows) {
        const BackendChoice choice = chooseBackends(row.facts);
        for (const auto* list :
             {&choice.keySource, &choice.clipboard, &choice.paste, &choice.overlay})
            for (std::size_t i = 0; i < list->size() || i == 0; ++i)
                EXPECT_FALSE(list->at(i).reason.empty());
        const auto number = &row - rows;
        EXPECT_EQ(choice.toolkitPlatform, row.toolkit) << number;
        EXPECT_EQ(choice.keySource.front().backend, row.keys) << number;
        EXPECT_EQ(choice.clipboard.front().backend, row.clipboard) << number;
        EXPECT_TRUE(row.otherKeys == B::none || choice.keySource.back().backend == row.otherKeys)
            << number;
        EXPECT_EQ(choice.paste.front().backend, row.paste) << number;
        EXPECT_EQ(choice.overlay.front().backend, row.overlay) << number;
    }
}

}  // namespace
}  // namespace nulo
