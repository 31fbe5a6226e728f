#include "platform/x11/X11MainScreen.h"

#include <xcb/xcb.h>

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/x11/Xcb.h"

namespace nulo {
namespace {

/// Bounds on what other programs say, in windows and in words of 32 bits.
constexpr int deepestWindow = 32;
constexpr std::uint32_t mostWords = 4096;

/// A bar's share of an edge of the desktop.
struct Strut {
    std::uint32_t left, right, top, bottom;
    std::uint32_t leftStart, leftEnd, rightStart, rightEnd;
    std::uint32_t topStart, topEnd, bottomStart, bottomEnd;
};

class Desktop {
  public:
    explicit Desktop(xcb_connection_t* server)
        : m_server(server), m_root(xcb_setup_roots_iterator(xcb_get_setup(server)).data->root) {}

    /// Where the window with the keyboard is, its frame included. Nothing when none has it, or only
    /// the one that is the desktop's background.
    std::optional<QRect> focusedWindow() const {
        const auto focus = NULO_XCB(xcb_get_input_focus, m_server);
        if (!focus || focus->focus <= XCB_INPUT_FOCUS_POINTER_ROOT || focus->focus == m_root)
            return {};
        xcb_window_t window = focus->focus;
        for (int depth = 0; depth < deepestWindow; ++depth) {
            if (isBackground(window))
                return {};
            const auto tree = NULO_XCB(xcb_query_tree, m_server, window);
            if (!tree)
                return {};
            if (tree->parent == m_root)
                return frameOf(window);
            window = tree->parent;
        }
        return {};
    }

    std::vector<Strut> struts() const {
        const xcb_atom_t partial = atom("_NET_WM_STRUT_PARTIAL");
        const xcb_atom_t whole = atom("_NET_WM_STRUT");
        std::vector<xcb_get_property_cookie_t> asked;
        for (const xcb_window_t window : words(ask(m_root, atom("_NET_CLIENT_LIST"))))
            for (const xcb_atom_t property : {partial, whole})
                asked.push_back(ask(window, property));
        std::vector<Strut> found;
        for (std::size_t i = 0; i + 1 < asked.size(); i += 2) {
            const std::vector<std::uint32_t> exact = words(asked[i]);
            const std::vector<std::uint32_t> rough = words(asked[i + 1]);
            constexpr std::uint32_t end = 0xffff;
            if (exact.size() == 12)
                found.push_back({exact[0], exact[1], exact[2], exact[3], exact[4], exact[5],
                                 exact[6], exact[7], exact[8], exact[9], exact[10], exact[11]});
            else if (rough.size() == 4)
                found.push_back(
                    {rough[0], rough[1], rough[2], rough[3], 0, end, 0, end, 0, end, 0, end});
        }
        return found;
    }

    /// What a window manager whose bars are no windows leaves of each monitor; mostly nothing.
    std::vector<QRect> workAreas() const {
        const auto desktop = words(ask(m_root, atom("_NET_CURRENT_DESKTOP")));
        const auto areas = words(ask(
            m_root, atom("_GTK_WORKAREAS_D" + std::to_string(desktop.empty() ? 0 : desktop[0]))));
        std::vector<QRect> found;
        for (std::size_t i = 0; i + 3 < areas.size(); i += 4)
            found.emplace_back(int(areas[i]), int(areas[i + 1]), int(areas[i + 2]),
                               int(areas[i + 3]));
        return found;
    }

    QSize size() const { return frameOf(m_root).value_or(QRect()).size(); }

  private:
    bool isBackground(xcb_window_t window) const {
        const auto types = words(ask(window, atom("_NET_WM_WINDOW_TYPE")));
        const xcb_atom_t background = atom("_NET_WM_WINDOW_TYPE_DESKTOP");
        return std::find(types.begin(), types.end(), background) != types.end();
    }

    std::optional<QRect> frameOf(xcb_window_t window) const {
        const auto frame = NULO_XCB(xcb_get_geometry, m_server, window);
        if (!frame)
            return {};
        return QRect(frame->x, frame->y, frame->width, frame->height);
    }

    xcb_atom_t atom(std::string_view name) const { return atomOf(m_server, name); }

    xcb_get_property_cookie_t ask(xcb_window_t window, xcb_atom_t property) const {
        return xcb_get_property(m_server, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                                mostWords);
    }
    /// Nothing for a property that is missing or not of words.
    std::vector<std::uint32_t> words(xcb_get_property_cookie_t asked) const {
        const XcbMemory<xcb_get_property_reply_t> reply(
            xcb_get_property_reply(m_server, asked, nullptr));
        if (!reply || reply->format != 32)
            return {};
        const auto* const first =
            static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
        return {first, first + xcb_get_property_value_length(reply.get()) / 4};
    }

    xcb_connection_t* const m_server;
    const xcb_window_t m_root;
};

/// The screen in the X server's pixels. The toolkit scales what is on a screen, but not where the
/// screen is.
QRect pixelsOf(const QScreen& screen) {
    return {screen.geometry().topLeft(),
            (QSizeF(screen.geometry().size()) * screen.devicePixelRatio()).toSize()};
}

/// The screen with most of the rectangle; null when none has any of it.
const QScreen* screenWith(const QRect& pixels) {
    const auto share = [&](const QScreen* screen) {
        const QRect common = pixelsOf(*screen) & pixels;
        return qint64{common.width()} * common.height();
    };
    const QScreen* best = nullptr;
    for (const QScreen* screen : QGuiApplication::screens())
        if (share(screen) > (best ? share(best) : 0))
            best = screen;
    return best;
}

const QScreen* mainScreen(const Desktop* desktop) {
    const auto focused = desktop ? desktop->focusedWindow() : std::nullopt;
    const QScreen* screen = focused ? screenWith(*focused) : nullptr;
    if (!screen)
        screen = QGuiApplication::screenAt(QCursor::pos());
    return screen ? screen : QGuiApplication::primaryScreen();
}

/// A strut is measured from the desktop's edge, over whatever monitors lie between: it belongs to
/// the one in which it ends.
void subtract(const Strut& strut, QSize desktop, const QRect& screen, QRect& visible) {
    const auto meets = [](std::uint32_t start, std::uint32_t end, int first, int last) {
        return qint64{start} <= last && qint64{end} >= first;
    };
    const auto isInside = [](qint64 edge, int first, int last) {
        return edge > first && edge <= last;
    };
    const qint64 left = strut.left;
    const qint64 right = qint64{desktop.width()} - strut.right;
    const qint64 top = strut.top;
    const qint64 bottom = qint64{desktop.height()} - strut.bottom;
    if (meets(strut.leftStart, strut.leftEnd, screen.top(), screen.bottom()) &&
        isInside(left, screen.left(), screen.right()))
        visible.setLeft(std::max(visible.left(), int(left)));
    if (meets(strut.rightStart, strut.rightEnd, screen.top(), screen.bottom()) &&
        isInside(right, screen.left(), screen.right()))
        visible.setRight(std::min(visible.right(), int(right) - 1));
    if (meets(strut.topStart, strut.topEnd, screen.left(), screen.right()) &&
        isInside(top, screen.top(), screen.bottom()))
        visible.setTop(std::max(visible.top(), int(top)));
    if (meets(strut.bottomStart, strut.bottomEnd, screen.left(), screen.right()) &&
        isInside(bottom, screen.top(), screen.bottom()))
        visible.setBottom(std::min(visible.bottom(), int(bottom) - 1));
}

/// What the desktop's bars leave of the screen, in the X server's pixels.
QRect withoutBars(const Desktop& desktop, const QRect& screen) {
    QRect visible = screen;
    for (const Strut& strut : desktop.struts())
        subtract(strut, desktop.size(), screen, visible);
    for (const QRect& area : desktop.workAreas())
        if (screen.contains(area))
            visible &= area;
    return visible;
}

}  // namespace

QRect visibleFrameOfMainScreen(xcb_connection_t* server) {
    std::optional<Desktop> desktop;
    if (server)
        desktop.emplace(server);
    const QScreen* const screen = mainScreen(desktop ? &*desktop : nullptr);
    if (!screen)
        return {};
    // The toolkit knows the bars around a lone screen only.
    const bool isAlone = QGuiApplication::screens().size() == 1;
    QRect visible = isAlone ? screen->availableGeometry() : screen->geometry();
    if (desktop) {
        const QRect pixels = pixelsOf(*screen);
        const QRect left = withoutBars(*desktop, pixels);
        const double scale = screen->devicePixelRatio();
        const QPoint origin = pixels.topLeft();
        visible &= QRect(origin + (QPointF(left.topLeft() - origin) / scale).toPoint(),
                         (QSizeF(left.size()) / scale).toSize());
    }
    return visible.isEmpty() ? screen->geometry() : visible;
}

}  // namespace nulo
