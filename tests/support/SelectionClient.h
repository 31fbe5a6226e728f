#pragma once

#include <string>
#include <string_view>

#include "platform/x11/Xcb.h"
#include "support/QtProgram.h"

namespace nulo {

/// Another program that has to do with selections and has no window on the screen, such as a
/// clipboard manager.
class SelectionClient {
  public:
    SelectionClient() {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(server())).data->root;
        xcb_create_window(server(), 0, m_window, root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                          XCB_COPY_FROM_PARENT, 0, nullptr);
    }

    /// What the owner of the clipboard, maybe this process, has of that kind; empty when it has
    /// nothing of it.
    std::string ask(std::string_view kind = "UTF8_STRING") {
        const xcb_atom_t target = atomOf(server(), kind);
        xcb_convert_selection(server(), m_window, atomOf(server(), "CLIPBOARD"), target, target,
                              XCB_CURRENT_TIME);
        xcb_flush(server());
        std::string text;
        EXPECT_TRUE(processUntil([&] {
            const XcbEvent event(xcb_poll_for_event(server()));
            if (!event || typeOf(*event) != XCB_SELECTION_NOTIFY)
                return false;
            const auto reply = NULO_XCB(xcb_get_property, server(), 1, m_window, target,
                                        XCB_GET_PROPERTY_TYPE_ANY, 0, 1000);
            text.assign(static_cast<const char*>(xcb_get_property_value(reply.get())),
                        static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
            return true;
        }));
        return text;
    }
    void take(std::string_view selection) {
        xcb_set_selection_owner(server(), m_window, atomOf(server(), selection), XCB_CURRENT_TIME);
        NULO_XCB(xcb_get_input_focus, server());
    }

  private:
    xcb_connection_t* server() const { return m_connection.get(); }

    const XcbConnection m_connection{xcb_connect(nullptr, nullptr)};
    const xcb_window_t m_window = xcb_generate_id(server());
};

}  // namespace nulo
