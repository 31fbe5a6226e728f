#include "platform/wayland/ShmPicture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <QRgb>
#include <cstdint>
#include <cstring>
#include <utility>

namespace nulo {
namespace {

/// All four parts at once, in pairs with room for the product. `opacity` is 0...256.
std::uint32_t scaled(std::uint32_t pixel, std::uint32_t opacity) {
    const std::uint32_t even = ((pixel & 0x00ff00ff) * opacity >> 8) & 0x00ff00ff;
    const std::uint32_t odd = ((pixel >> 8 & 0x00ff00ff) * opacity) & 0xff00ff00;
    return even | odd;
}

}  // namespace

ShmPicture::ShmPicture(wl_shm* shm, QSize size, std::function<void()> onRelease)
    : m_size(size), m_onRelease(std::move(onRelease)) {
    const int stride = size.width() * 4;
    m_bytes = static_cast<std::size_t>(stride) * static_cast<std::size_t>(size.height());
    const int descriptor = memfd_create("nulo-overlay", MFD_CLOEXEC);
    if (descriptor < 0)
        return;
    void* const memory =
        ftruncate(descriptor, static_cast<off_t>(m_bytes)) == 0
            ? mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0)
            : MAP_FAILED;
    if (memory != MAP_FAILED) {
        m_memory = memory;
        const Wayland<wl_shm_pool> pool(
            wl_shm_create_pool(shm, descriptor, static_cast<std::int32_t>(m_bytes)));
        m_buffer.reset(wl_shm_pool_create_buffer(pool.get(), 0, size.width(), size.height(), stride,
                                                 WL_SHM_FORMAT_ARGB8888));
        static const wl_buffer_listener listener{[](void* data, wl_buffer*) {
            ShmPicture& picture = *static_cast<ShmPicture*>(data);
            picture.m_isBusy = false;
            const auto released = picture.m_onRelease;  // may destroy the picture
            released();
        }};
        wl_buffer_add_listener(m_buffer.get(), &listener, this);
    }
    close(descriptor);
}

ShmPicture::~ShmPicture() {
    if (m_memory)
        munmap(m_memory, m_bytes);
}

void ShmPicture::fill(const QImage& image, double opacity) {
    const auto share = static_cast<std::uint32_t>(qBound(0, qRound(opacity * 256), 256));
    auto* to = static_cast<std::uint32_t*>(m_memory);
    for (int y = 0; y < m_size.height(); ++y, to += m_size.width()) {
        const auto* const from = reinterpret_cast<const std::uint32_t*>(image.constScanLine(y));
        if (share == 256)
            std::memcpy(to, from, static_cast<std::size_t>(m_size.width()) * 4);
        else
            for (int x = 0; x < m_size.width(); ++x)
                to[x] = scaled(from[x], share);
    }
    m_isBusy = true;
}

}  // namespace nulo
