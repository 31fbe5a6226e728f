#include "platform/http/FileDownload.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace nulo {

FileDownload::~FileDownload() {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    if (!m_path.empty())
        ::unlink(m_path.c_str());
}

Outcome FileDownload::create(const std::filesystem::path& path) {
    m_path = path;
    m_descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (m_descriptor >= 0)
        return Success{};
    const Error failure = error(errno);
    m_path.clear();
    return failure;
}

Outcome FileDownload::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return error(errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return Success{};
}

Outcome FileDownload::close() {
    if (::close(std::exchange(m_descriptor, -1)) != 0)
        return error(errno);
    return Success{};
}

Error FileDownload::error(int number) const {
    return {m_path.string() + " cannot be written: " + std::generic_category().message(number)};
}

}  // namespace nulo
