#include "service/Spool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/Environment.h"

namespace nulo::service {
namespace {

int namelessFile() {
    const std::string folder = Spool::folder();
    const int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, 0600);
    if (file >= 0)
        return file;
    // Not every file system knows files without a name.
    std::string pattern = folder + "/nulo-upload-XXXXXX";
    const int named = mkostemp(pattern.data(), O_CLOEXEC);
    if (named >= 0)
        unlink(pattern.c_str());
    return named;
}

std::error_code systemError() {
    return {errno == 0 ? EIO : errno, std::generic_category()};
}

}  // namespace

Spool::~Spool() {
    if (m_file >= 0)
        close(m_file);
}

Spool::Spool(Spool&& other) noexcept
    : m_memory(std::exchange(other.m_memory, {})),
      m_file(std::exchange(other.m_file, -1)),
      m_size(std::exchange(other.m_size, 0)) {}

Spool& Spool::operator=(Spool&& other) noexcept {
    std::swap(m_memory, other.m_memory);
    std::swap(m_file, other.m_file);
    std::swap(m_size, other.m_size);
    return *this;
}

std::string Spool::folder() {
    const std::string folder = environmentVariable("TMPDIR");
    return folder.empty() ? "/tmp" : folder;
}

std::error_code Spool::append(std::string_view bytes) {
    if (m_file < 0 && m_size + bytes.size() <= mostInMemory) {
        m_memory.append(bytes);
        m_size += bytes.size();
        return {};
    }
    if (m_file < 0) {
        m_file = namelessFile();
        if (m_file < 0)
            return systemError();
        if (const auto error = write(m_file, m_memory))
            return error;
        std::string().swap(m_memory);  // assigning would keep the megabyte
    }
    if (const auto error = write(m_file, bytes))
        return error;
    m_size += bytes.size();
    return {};
}

int Spool::makeDescriptor() const {
    if (m_file >= 0)
        return fcntl(m_file, F_DUPFD_CLOEXEC, 0);
    const int file = memfd_create("nulo-take", MFD_CLOEXEC);
    if (file >= 0 && !write(file, m_memory))
        return file;
    if (file >= 0)
        close(file);
    return -1;
}

std::error_code Spool::write(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return systemError();
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return {};
}

std::ptrdiff_t Spool::read(std::size_t offset, void* target, std::size_t room) const {
    if (offset >= m_size)
        return 0;
    if (m_file < 0) {
        const std::size_t count = std::min(room, m_size - offset);
        std::memcpy(target, m_memory.data() + offset, count);
        return static_cast<std::ptrdiff_t>(count);
    }
    ssize_t count = 0;
    do
        count = pread(m_file, target, room, static_cast<off_t>(offset));
    while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace nulo::service
