#pragma once

#include <atspi/atspi.h>

#include "rig/desktop/DesktopSession.h"
#include "rig/process/WaitUntil.h"

namespace nulo {

/// Reads and presses what Nulo shows, the way a screen reader does: what it does not find, a blind
/// user does not either. One a process, since libatspi keeps its bus for ever.
class ScreenReader {
  public:
    explicit ScreenReader(const DesktopSession& desktop)
        : m_launcher({"/usr/libexec/at-spi-bus-launcher", "--launch-immediately"},
                     {desktop.environment(), {}}) {
        outputOf({"gdbus", "wait", "--session", "--timeout=20", "org.a11y.Bus"});
        if (atspi_init() != 0)
            throw std::runtime_error("there is no accessibility bus");
        atspi_accessible_set_cache_mask(owned(atspi_get_desktop(0)).get(), ATSPI_CACHE_NONE);
    }

    /// Names of the buttons of the window of that title, in reading order, as soon as it is shown;
    /// none when it does not come.
    std::vector<std::string> buttonsIn(const std::string& window) const {
        std::vector<std::string> names;
        waitUntil([&] {
            for (const Node& button : shownButtons(window))
                names.push_back(nameOf(button));
            return !names.empty();
        });
        return names;
    }
    /// Presses the button of that name; false when there is none.
    bool press(const std::string& window, const std::string& button) const {
        for (const Node& node : shownButtons(window))
            if (nameOf(node) == button)
                return atspi_action_do_action(
                    owned(atspi_accessible_get_action_iface(node.get())).get(), 0, nullptr);
        return false;
    }

  private:
    using Node = std::shared_ptr<AtspiAccessible>;

    template <typename Object>
    static std::shared_ptr<Object> owned(Object* object) {
        return {object, [](Object* old) { g_clear_object(&old); }};
    }
    static std::string nameOf(const Node& node) {
        const std::unique_ptr<gchar, decltype(&g_free)> name(
            atspi_accessible_get_name(node.get(), nullptr), g_free);
        return name ? name.get() : "";
    }
    /// Those that are not gone meanwhile.
    static std::vector<Node> children(const Node& node) {
        std::vector<Node> found;
        const int count = atspi_accessible_get_child_count(node.get(), nullptr);
        for (int i = 0; i < count; ++i)
            if (const Node child =
                    owned(atspi_accessible_get_child_at_index(node.get(), i, nullptr)))
                found.push_back(child);
        return found;
    }
    static void collectButtons(const Node& node, std::vector<Node>& buttons) {
        const auto states = owned(atspi_accessible_get_state_set(node.get()));
        if (!states || !atspi_state_set_contains(states.get(), ATSPI_STATE_SHOWING))
            return;
        const AtspiRole role = atspi_accessible_get_role(node.get(), nullptr);
        if (role == ATSPI_ROLE_PUSH_BUTTON || role == ATSPI_ROLE_TOGGLE_BUTTON)
            buttons.push_back(node);
        for (const Node& child : children(node))
            collectButtons(child, buttons);
    }
    /// Of the shown windows of that title; nothing when there is none.
    static std::vector<Node> shownButtons(const std::string& title) {
        std::vector<Node> buttons;
        for (const Node& program : children(owned(atspi_get_desktop(0))))
            if (nameOf(program) == "nulo")
                for (const Node& window : children(program))
                    if (nameOf(window) == title)
                        collectButtons(window, buttons);
        return buttons;
    }

    ChildProcess m_launcher;
};

}  // namespace nulo
