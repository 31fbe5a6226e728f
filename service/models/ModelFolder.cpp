#include "service/models/ModelFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "base/Environment.h"
#include "base/FileIO.h"
#include "service/Sha256.h"
#include "service/models/ModelTable.h"
#include "service/models/PartialFile.h"

namespace nulo::service {
namespace fs = std::filesystem;
namespace {

ModelFailure diskFailure(const fs::path& path, const std::string& reason) {
    return {ModelFailure::Kind::disk, path.string() + " cannot be written: " + reason};
}

fs::path digestOf(const fs::path& file) {
    return file.string() + ".sha256";
}

/// The name that the file of a model was made of.
std::string nameIn(const fs::path& file) {
    const std::string name = file.filename().string();
    constexpr std::string_view before = "ggml-";
    constexpr std::string_view after = ".bin";
    if (!name.starts_with(before) || !name.ends_with(after) ||
        name.size() <= before.size() + after.size())
        return {};
    return name.substr(before.size(), name.size() - before.size() - after.size());
}

std::error_code syncFolder(const fs::path& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool done = descriptor >= 0 && fsync(descriptor) == 0;
    const std::error_code failure =
        done ? std::error_code() : std::error_code(errno, std::generic_category());
    if (descriptor >= 0)
        close(descriptor);
    return failure;
}

}  // namespace

fs::path defaultModelFolder() {
    fs::path folder = environmentVariable("XDG_DATA_HOME");
    if (!folder.is_absolute()) {
        const std::string home = environmentVariable("HOME");
        folder = fs::path(home.empty() ? "/" : home) / ".local/share";
    }
    return folder / "nulo" / "models";
}

ModelFolder::Lock::~Lock() {
    if (m_descriptor >= 0)
        close(m_descriptor);
}

ModelFolder::Lock::Lock(Lock&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

fs::path ModelFolder::fileOf(const std::string& name) const {
    return m_path / modelFileName(name);
}

std::optional<InstalledModel> ModelFolder::installed(const std::string& name) const {
    const fs::path file = fileOf(name);
    std::error_code error;
    if (!isModelName(name) || !fs::is_regular_file(file, error))
        return std::nullopt;
    const std::uintmax_t bytes = fs::file_size(file, error);
    const std::string digest = readFile(digestOf(file), 4096).value_or("").substr(0, 64);
    if (error || !isSha256(digest))
        return std::nullopt;
    return InstalledModel{name, {file, digest}, bytes};
}

std::vector<InstalledModel> ModelFolder::installed() const {
    std::vector<InstalledModel> models;
    std::error_code error;
    for (fs::directory_iterator entry(m_path, error), end; !error && entry != end;
         entry.increment(error))
        if (auto model = installed(nameIn(entry->path())))
            models.push_back(*std::move(model));
    std::ranges::sort(models, {}, [](const InstalledModel& model) {
        const KnownModel* known = knownModel(model.name);
        return std::pair(known ? known - knownModels().data() : -1, model.name);
    });
    return models;
}

Result<ModelFolder::Lock, ModelFailure> ModelFolder::lock() const {
    std::error_code error;
    fs::create_directories(m_path, error);
    // A file of its own, since network file systems lock nothing that is only read.
    const int descriptor =
        open((m_path / ".lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return diskFailure(m_path,
                           error ? error.message() : std::generic_category().message(errno));
    Lock lock(descriptor);
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0)
        return lock;
    if (errno == EWOULDBLOCK)
        return ModelFailure{ModelFailure::Kind::busy,
                            "another nulo-service is fetching or removing models in " +
                                m_path.string() + "; wait until it has ended"};
    return diskFailure(m_path, std::generic_category().message(errno));
}

ModelOutcome ModelFolder::install(const std::string& name, const fs::path& file,
                                  const std::string& sha256) const {
    const fs::path target = fileOf(name);
    const std::string line = sha256 + "  " + target.filename().string() + "\n";
    if (const auto written = replaceFile(digestOf(target), line); !written)
        return ModelFailure{ModelFailure::Kind::disk, written.error().description};
    std::error_code failure;
    fs::rename(file, target, failure);
    if (!failure)
        failure = syncFolder(m_path);
    if (failure)
        return diskFailure(target, failure.message());
    return Success{};
}

Result<bool, ModelFailure> ModelFolder::remove(const std::string& name) const {
    const fs::path target = fileOf(name);
    bool found = false;
    // The digest last: while it is there, a model that could not be removed can still be used.
    for (const fs::path& file :
         {PartialFile::pathFor(target), PartialFile::originFor(target), target, digestOf(target)}) {
        std::error_code failure;
        found = fs::remove(file, failure) || found;
        if (failure)
            return ModelFailure{ModelFailure::Kind::disk,
                                file.string() + " cannot be removed: " + failure.message()};
    }
    return found;
}

}  // namespace nulo::service
