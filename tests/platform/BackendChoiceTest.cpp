#include "platform/session/BackendChoice.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// Keys grabbed or sent through XWayland, where both succeed without any effect; a capability
// without a backend, or without a reason.
TEST(BackendChoice, usesX11OnlyInX11Sessions) {
    const struct {
        SessionFacts facts;
        Backend best;
    } rows[] = {
        {{.display = ":0"}, Backend::x11},
        {{.sessionType = "x11", .display = ":0"}, Backend::x11},
        {{.sessionType = "wayland", .display = ":0"}, Backend::none},
        {{.display = ":0", .waylandDisplay = "wayland-0"}, Backend::none},
        {{}, Backend::none},
        {{.display = ":0", .keytap = KeytapInstallation::on}, Backend::x11},
        {{.waylandDisplay = "wayland-0", .keytap = KeytapInstallation::off}, Backend::keytap},
        {{.waylandDisplay = "wayland-0", .keytap = KeytapInstallation::on}, Backend::keytap},
    };
    for (const auto& [facts, best] : rows) {
        const BackendChoice choice = chooseBackends(facts);
        for (const auto* list :
             {&choice.keySource, &choice.clipboard, &choice.paste, &choice.overlay})
            for (std::size_t i = 0; i < list->size() || i == 0; ++i)
                EXPECT_FALSE(list->at(i).reason.empty());
        EXPECT_EQ(choice.keySource.front().backend, best);
        EXPECT_EQ(choice.paste.front().backend, best);
        EXPECT_EQ(choice.clipboard.front().backend, Backend::qt);
    }
}

}  // namespace
}  // namespace nulo
