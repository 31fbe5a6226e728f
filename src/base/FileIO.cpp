#include "base/FileIO.h"

#include <cerrno>
#include <fstream>
#include <random>
#include <system_error>

namespace nulo {
namespace fs = std::filesystem;

std::optional<std::string> readFile(const fs::path& path, std::uintmax_t limit) {
    std::error_code error;
    if (!fs::is_regular_file(path, error))  // opening a FIFO would wait for its writer
        return std::nullopt;
    const std::uintmax_t size = fs::file_size(path, error);
    if (error || size > limit)
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (!file || !file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        return std::nullopt;
    return bytes;
}

Outcome replaceFile(const fs::path& path, std::string_view bytes) {
    std::error_code error;
    fs::path target = fs::weakly_canonical(path, error);
    if (error)
        target = path;

    std::random_device random;
    const fs::path fresh = target.parent_path() / ("." + target.filename().string() + "." +
                                                   std::to_string(random()) + ".tmp");
    const auto giveUp = [&](std::error_code reason) {
        std::error_code ignored;
        fs::remove(fresh, ignored);
        return Outcome(Error{target.string() + ": " + reason.message()});
    };
    const auto systemReason = [] {  // streams keep none of their own
        return std::error_code(errno == 0 ? EIO : errno, std::generic_category());
    };

    errno = 0;
    std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
    if (!file)
        return giveUp(systemReason());
    const fs::file_status present = fs::status(target, error);
    if (fs::exists(present)) {
        fs::permissions(fresh, present.permissions(), error);
        if (error)
            return giveUp(error);
    }
    errno = 0;
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file)
        return giveUp(systemReason());
    fs::rename(fresh, target, error);
    return error ? giveUp(error) : Success{};
}

}  // namespace nulo
