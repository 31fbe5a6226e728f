#pragma once

#include <QImage>
#include <QSize>
#include <cstddef>
#include <functional>

#include "platform/wayland/Wayland.h"

namespace nulo {

/// A buffer in memory that the compositor shares, of premultiplied ARGB. The connection's thread.
class ShmPicture {
  public:
    /// Not isValid() when there is no memory. `onRelease` is called when the compositor has done
    /// with it.
    ShmPicture(wl_shm* shm, QSize size, std::function<void()> onRelease);
    ~ShmPicture();
    ShmPicture(const ShmPicture&) = delete;
    ShmPicture& operator=(const ShmPicture&) = delete;

    bool isValid() const { return m_buffer != nullptr; }
    QSize size() const { return m_size; }
    /// Whether the compositor still reads it.
    bool isBusy() const { return m_isBusy; }
    /// An image of the same size; `opacity` is 0...1. Hand it over with buffer() right after.
    void fill(const QImage& image, double opacity);
    wl_buffer* buffer() { return m_buffer.get(); }

  private:
    const QSize m_size;
    const std::function<void()> m_onRelease;
    void* m_memory = nullptr;
    std::size_t m_bytes = 0;
    Wayland<wl_buffer> m_buffer;
    bool m_isBusy = false;
};

}  // namespace nulo
