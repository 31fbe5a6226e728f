#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace nulo::service {

/// The bytes of an upload: in memory up to a megabyte, beyond it in a file that has no name, so
/// that no other program finds it and nothing is left behind. One thread at a time.
class Spool {
  public:
    static constexpr std::size_t mostInMemory = 1024 * 1024;

    Spool() = default;
    explicit Spool(std::string_view bytes) { static_cast<void>(append(bytes)); }
    ~Spool();
    Spool(Spool&& other) noexcept;
    Spool& operator=(Spool&& other) noexcept;

    /// Keeps more bytes; the error says why they cannot be kept.
    [[nodiscard]] std::error_code append(std::string_view bytes);
    /// The folder of uploads that are too large for the memory: $TMPDIR, else /tmp.
    static std::string folder();
    std::size_t size() const { return m_size; }
    bool isOnDisk() const { return m_file >= 0; }
    /// Copies what is there from `offset` on, `room` bytes at most; 0 at the end, below 0 when it
    /// cannot be read.
    std::ptrdiff_t read(std::size_t offset, void* target, std::size_t room) const;
    /// A file of the same bytes, for its caller to close; below 0 when there can be none.
    int makeDescriptor() const;

  private:
    static std::error_code write(int file, std::string_view bytes);

    std::string m_memory;
    int m_file = -1;
    std::size_t m_size = 0;
};

}  // namespace nulo::service
