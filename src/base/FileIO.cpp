#include "base/FileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <system_error>

namespace nulo {
namespace fs = std::filesystem;
namespace {

std::error_code systemError() {
    return {errno, std::generic_category()};
}

/// Closes the file that it is given.
class Descriptor {
  public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor() {
        if (m_number >= 0)
            ::close(m_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return m_number; }
    bool isOpen() const { return m_number >= 0; }

  private:
    const int m_number;
};

std::error_code writeAt(int descriptor, off_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), offset);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return systemError();
        bytes.remove_prefix(static_cast<std::size_t>(written));
        offset += written;
    }
    return {};
}

/// Makes `path` what its symbolic links lead to, which need not exist.
std::error_code followLinks(fs::path& path) {
    std::error_code error;
    for (int links = 0; fs::is_symlink(fs::symlink_status(path, error)); ++links) {
        if (links == 40)  // as many as the kernel follows
            return make_error_code(std::errc::too_many_symbolic_link_levels);
        const fs::path next = fs::read_symlink(path, error);
        if (error)
            return error;
        path = path.parent_path() / next;
    }
    return {};
}

std::error_code fill(const fs::path& fresh, const fs::path& target, std::string_view bytes) {
    struct stat present {};
    const bool exists = stat(target.c_str(), &present) == 0;
    const Descriptor file(
        open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen())
        return systemError();
    if (exists) {
        // Only root can give a file away; for anybody else the owner is the right one already.
        [[maybe_unused]] const int given = fchown(file.number(), present.st_uid, present.st_gid);
        if (fchmod(file.number(), present.st_mode & 07777) != 0)
            return systemError();
    }
    if (const std::error_code failure = writeAt(file.number(), 0, bytes))
        return failure;
    // Some file systems put the renaming on the disk before the bytes: a power cut in between would
    // leave an empty file.
    return fsync(file.number()) == 0 ? std::error_code() : systemError();
}

std::error_code replaceByRenaming(const fs::path& target, std::string_view bytes) {
    std::random_device random;
    const fs::path fresh = target.parent_path() / ("." + target.filename().string() + "." +
                                                   std::to_string(random()) + ".tmp");
    std::error_code failure = fill(fresh, target, bytes);
    if (!failure)
        fs::rename(fresh, target, failure);
    std::error_code ignored;
    if (failure)
        fs::remove(fresh, ignored);
    return failure;
}

/// Whether the folder takes no new file, or a file system is mounted on the very file: the file
/// itself may be writable all the same.
bool folderRefuses(std::error_code failure) {
    return failure == std::errc::permission_denied ||
           failure == std::errc::operation_not_permitted ||
           failure == std::errc::read_only_file_system ||
           failure == std::errc::device_or_resource_busy;
}

std::error_code writeInPlace(const fs::path& target, std::string_view bytes) {
    // Opening a FIFO would wait for its reader.
    const Descriptor file(open(target.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat present {};
    if (!file.isOpen() || fstat(file.number(), &present) != 0)
        return systemError();
    if (!S_ISREG(present.st_mode))
        return make_error_code(std::errc::not_supported);
    // What is beyond the old end goes first, so that a full disk shows before anything is lost.
    const auto oldSize = static_cast<std::size_t>(present.st_size);
    if (bytes.size() > oldSize) {
        std::error_code failure = writeAt(file.number(), present.st_size, bytes.substr(oldSize));
        if (!failure && fsync(file.number()) != 0)
            failure = systemError();
        if (failure) {
            [[maybe_unused]] const int restored = ftruncate(file.number(), present.st_size);
            return failure;
        }
    }
    if (const std::error_code failure = writeAt(file.number(), 0, bytes.substr(0, oldSize)))
        return failure;
    if (ftruncate(file.number(), static_cast<off_t>(bytes.size())) != 0 ||
        fsync(file.number()) != 0)
        return systemError();
    return {};
}

}  // namespace

std::optional<std::string> readFile(const fs::path& path, std::uintmax_t limit) {
    // Opening a FIFO would wait for its writer.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::uintmax_t>(status.st_size) > limit)
        return std::nullopt;
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    for (std::size_t filled = 0; filled < bytes.size();) {
        const ssize_t count = read(file.number(), bytes.data() + filled, bytes.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return std::nullopt;
        filled += static_cast<std::size_t>(count);
    }
    return bytes;
}

std::optional<ForeignAccess> foreignAccess(const fs::path& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    const bool isForeign = status.st_uid != geteuid() && status.st_uid != 0;
    return ForeignAccess{(status.st_mode & (S_IRGRP | S_IROTH)) != 0,
                         isForeign || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0};
}

Outcome replaceFile(const fs::path& path, std::string_view bytes) {
    fs::path target = path;
    std::error_code failure = followLinks(target);
    if (!failure)
        failure = replaceByRenaming(target, bytes);
    std::error_code ignored;
    if (folderRefuses(failure) && fs::exists(target, ignored))
        failure = writeInPlace(target, bytes);
    if (failure)
        return Error{target.string() + ": " + failure.message()};
    return Success{};
}

}  // namespace nulo
