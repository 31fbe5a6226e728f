#include "service/http/UpdateFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "base/FileIO.h"

namespace nulo::service {
namespace {

constexpr std::uintmax_t largestVersionInfo = 1024 * 1024;
constexpr std::string_view archivePrefix = "/updates/";

bool isPlainName(std::string_view name) {
    const auto isPlain = [](unsigned char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               c == '.' || c == '-' || c == '_' || c == '+' || c == '~';
    };
    return !name.empty() && name.front() != '.' && std::ranges::all_of(name, isPlain);
}

/// A file that is open for reading.
class OpenFile {
  public:
    explicit OpenFile(const std::filesystem::path& path)
        // Opening a FIFO would wait for its writer.
        : m_descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat facts {};
        if (m_descriptor >= 0 && fstat(m_descriptor, &facts) == 0 && S_ISREG(facts.st_mode))
            m_size = static_cast<std::size_t>(facts.st_size);
    }
    ~OpenFile() {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// Nothing unless it is a regular file that could be opened.
    std::optional<std::size_t> size() const { return m_size; }

    bool copyTo(httplib::DataSink& sink, std::size_t offset, std::size_t length) const {
        std::array<char, 64 * 1024> buffer;
        const ssize_t count = pread(m_descriptor, buffer.data(), std::min(length, buffer.size()),
                                    static_cast<off_t>(offset));
        return count > 0 && sink.write(buffer.data(), static_cast<std::size_t>(count));
    }

  private:
    const int m_descriptor;
    std::optional<std::size_t> m_size;
};

}  // namespace

std::optional<std::string> UpdateFolder::versionInfo() const {
    if (m_folder.empty())
        return std::nullopt;
    return readFile(m_folder / "version.json", largestVersionInfo);
}

bool UpdateFolder::serves(std::string_view path) {
    return path == "/update.sh" ||
           (path.starts_with(archivePrefix) && isPlainName(path.substr(archivePrefix.size())));
}

bool UpdateFolder::answer(std::string_view path, httplib::Response& response) const {
    if (m_folder.empty() || !serves(path))
        return false;
    const auto file = std::make_shared<OpenFile>(m_folder / path.substr(1));
    if (!file->size())
        return false;
    const bool isScript = path == "/update.sh";
    const char* type = isScript ? "text/x-shellscript" : "application/octet-stream";
    if (*file->size() == 0)
        response.set_content("", type);  // the library sends no length for an empty provider
    else
        response.set_content_provider(
            *file->size(), type,
            [file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                return file->copyTo(sink, offset, length);
            });
    return true;
}

}  // namespace nulo::service
