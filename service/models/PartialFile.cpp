#include "service/models/PartialFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "base/FileIO.h"
#include "service/models/Amounts.h"

namespace nulo::service {
namespace fs = std::filesystem;

fs::path PartialFile::pathFor(const fs::path& file) {
    return file.string() + ".part";
}

fs::path PartialFile::originFor(const fs::path& file) {
    return file.string() + ".part.from";
}

Result<PartialFile, ModelFailure> PartialFile::open(const fs::path& file) {
    // Never a FIFO's reader, nor written through a link to somewhere else.
    const int descriptor =
        ::open(pathFor(file).c_str(),
               O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
    const int number = errno;
    PartialFile part(pathFor(file), originFor(file), descriptor);
    if (descriptor < 0)
        return part.failure(number);
    struct stat facts {};
    if (fstat(descriptor, &facts) != 0)
        return part.failure(errno);
    if (!S_ISREG(facts.st_mode))
        return part.failure(EINVAL);
    part.m_size = static_cast<std::uintmax_t>(facts.st_size);
    if (const auto known = readFile(part.m_originPath, 16 * 1024)) {
        const std::size_t first = known->find('\n');
        const std::size_t second = known->find('\n', first + 1);
        if (first != std::string::npos && second != std::string::npos)
            part.m_origin = {known->substr(0, first), known->substr(first + 1, second - first - 1)};
    }
    return part;
}

PartialFile::PartialFile(fs::path path, fs::path originPath, int descriptor)
    : m_path(std::move(path)), m_originPath(std::move(originPath)), m_descriptor(descriptor) {}

PartialFile::PartialFile(PartialFile&& other) noexcept
    : m_path(std::move(other.m_path)),
      m_originPath(std::move(other.m_originPath)),
      m_descriptor(std::exchange(other.m_descriptor, -1)),
      m_size(other.m_size),
      m_origin(std::move(other.m_origin)) {}

PartialFile::~PartialFile() {
    if (m_descriptor >= 0)
        close(m_descriptor);
}

ModelOutcome PartialFile::restart(Origin origin) {
    // Emptied first: bytes must never stand beside the validator of others.
    if (ftruncate(m_descriptor, 0) != 0)
        return failure(errno);
    m_size = 0;
    m_origin = std::move(origin);
    if (const auto kept =
            replaceFile(m_originPath, m_origin.url + "\n" + m_origin.validator + "\n");
        !kept)
        return ModelFailure{ModelFailure::Kind::disk, kept.error().description};
    return Success{};
}

ModelOutcome PartialFile::append(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return failure(errno);
        m_size += static_cast<std::uintmax_t>(written);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return Success{};
}

ModelOutcome PartialFile::sync() {
    if (fsync(m_descriptor) != 0)
        return failure(errno);
    return Success{};
}

void PartialFile::discard() {
    std::error_code ignored;
    fs::remove(m_path, ignored);
    fs::remove(m_originPath, ignored);
}

ModelOutcome PartialFile::checkRoomFor(std::uintmax_t bytes) const {
    std::error_code error;
    const std::uintmax_t room = fs::space(m_path.parent_path(), error).available;
    if (error || room >= bytes)
        return Success{};
    return ModelFailure{ModelFailure::Kind::disk,
                        "there is not enough room in " + m_path.parent_path().string() + ": " +
                            amountOf(bytes) + " are needed and " + amountOf(room) +
                            " are free; make room, or take a smaller model"};
}

ModelFailure PartialFile::failure(int number) const {
    const bool full = number == ENOSPC || number == EDQUOT || number == EFBIG;
    return {ModelFailure::Kind::disk,
            m_path.string() + " cannot be written: " + std::generic_category().message(number) +
                (full ? "; make room and give the same command again" : "")};
}

}  // namespace nulo::service
