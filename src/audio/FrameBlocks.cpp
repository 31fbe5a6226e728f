#include "audio/FrameBlocks.h"

#include <algorithm>
#include <utility>

namespace nulo {

FrameBlocks::FrameBlocks(std::function<void(std::span<const float>)> consume)
    : m_consume(std::move(consume)) {}

void FrameBlocks::add(std::span<const float> frames) {
    while (!frames.empty()) {
        const std::size_t count = std::min(length - m_filled, frames.size());
        if (count == length) {
            m_consume(frames.first(length));  // uncopied
        } else {
            std::copy_n(frames.begin(), count, m_block.begin() + m_filled);
            m_filled += count;
            if (m_filled == length)
                flush();
        }
        frames = frames.subspan(count);
    }
}

void FrameBlocks::flush() {
    if (const std::size_t filled = std::exchange(m_filled, 0); filled > 0)
        m_consume({m_block.data(), filled});
}

}  // namespace nulo
