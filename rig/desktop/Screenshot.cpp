#include "rig/desktop/Screenshot.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace nulo {

QImage takeScreenshot(const std::string& display) {
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(display.c_str(), nullptr), xcb_disconnect);
    if (xcb_connection_has_error(connection.get()))
        throw std::runtime_error("no X server on " + display);
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection.get())).data;
    const std::unique_ptr<xcb_get_image_reply_t, decltype(&std::free)> image(
        xcb_get_image_reply(
            connection.get(),
            xcb_get_image(connection.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root, 0, 0,
                          screen->width_in_pixels, screen->height_in_pixels, ~0u),
            nullptr),
        std::free);
    if (!image || screen->root_depth != 24)
        throw std::runtime_error("the screen cannot be read");
    return QImage(xcb_get_image_data(image.get()), screen->width_in_pixels,
                  screen->height_in_pixels, QImage::Format_RGB32)
        .copy();
}

void savePicture(const QImage& picture, const std::filesystem::path& file) {
    if (!picture.save(QString::fromStdString(file.string()), "PNG"))
        throw std::runtime_error("cannot write " + file.string());
}

}  // namespace nulo
