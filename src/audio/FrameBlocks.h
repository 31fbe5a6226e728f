#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <span>

namespace nulo {

/// Cuts mono float32 frames, which sound servers hand over in any number, into blocks of 1,024, so
/// that a level always stands for the same stretch of sound. One thread at a time.
class FrameBlocks {
  public:
    static constexpr std::size_t length = 1024;  // frames

    /// `consume` gets each block as soon as it is full; it is valid during the call only.
    explicit FrameBlocks(std::function<void(std::span<const float> block)> consume);

    void add(std::span<const float> frames);
    /// Hands on what does not fill a block.
    void flush();

  private:
    const std::function<void(std::span<const float>)> m_consume;
    std::array<float, length> m_block{};
    std::size_t m_filled = 0;
};

}  // namespace nulo
