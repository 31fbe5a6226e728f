#include "base/PrivateFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>

namespace nulo {
namespace {

constexpr mode_t ownerOnly = 0700;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

Error folderError(const std::filesystem::path& folder, const std::string& reason) {
    return {"the folder " + folder.string() + " " + reason};
}

Error systemError(const std::filesystem::path& folder, int number) {
    return folderError(folder, "cannot be used: " + std::generic_category().message(number));
}

Outcome checkOpenFolder(int descriptor, const std::filesystem::path& folder) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0)
        return systemError(folder, errno);
    if (status.st_uid != geteuid())
        return folderError(folder, "belongs to another user");
    if ((status.st_mode & 07777) != ownerOnly && fchmod(descriptor, ownerOnly) != 0)
        return folderError(folder, "is open to other users and cannot be closed to them");
    return Success{};
}

}  // namespace

void removeOwnFiles(const std::filesystem::path& folder, std::string_view prefix,
                    std::string_view suffix, std::chrono::system_clock::time_point moment) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return;
    const std::unique_ptr<DIR, CloseFolder> entries(fdopendir(descriptor));
    if (!entries) {
        close(descriptor);
        return;
    }
    while (const dirent* entry = readdir(entries.get())) {
        const std::string_view name = entry->d_name;
        struct stat status {};
        if (!name.starts_with(prefix) || !name.ends_with(suffix) ||
            fstatat(descriptor, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        const std::chrono::system_clock::time_point written(
            std::chrono::seconds(status.st_mtim.tv_sec) +
            std::chrono::microseconds(status.st_mtim.tv_nsec / 1000));
        if (S_ISREG(status.st_mode) && status.st_uid == geteuid() && written < moment)
            unlinkat(descriptor, entry->d_name, 0);
    }
}

Outcome makePrivateFolder(const std::filesystem::path& folder) {
    std::error_code failure;
    std::filesystem::create_directories(folder.parent_path(), failure);
    if (mkdir(folder.c_str(), ownerOnly) != 0 && errno != EEXIST)
        return systemError(folder, errno);

    // Looked at and changed through one descriptor, so that nobody can swap it in between.
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0) {
        const int reason = errno;
        struct stat status {};
        if (lstat(folder.c_str(), &status) == 0) {
            if (S_ISLNK(status.st_mode))
                return folderError(folder, "is a symbolic link");
            if (!S_ISDIR(status.st_mode))
                return folderError(folder, "is not a folder");
            if (status.st_uid != geteuid())
                return folderError(folder, "belongs to another user");
        }
        return systemError(folder, reason);
    }
    Outcome outcome = checkOpenFolder(descriptor, folder);
    close(descriptor);
    return outcome;
}

}  // namespace nulo
