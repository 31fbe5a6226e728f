#include "transcription/MultipartForm.h"

#include <utility>

#include "base/Ascii.h"

namespace nulo {
namespace {

std::string_view audioType(const std::filesystem::path& path) {
    const bool isM4a = equalIgnoringAsciiCase(path.extension().string(), ".m4a");
    return isM4a ? "audio/mp4" : "audio/wav";
}

}  // namespace

void MultipartForm::addText(std::string_view name, std::string_view value) {
    append({"--", m_boundary, "\r\n"});
    append({"Content-Disposition: form-data; name=\"", name, "\"\r\n\r\n"});
    append({value, "\r\n"});
}

void MultipartForm::addAudioFile(const std::filesystem::path& path, std::string_view bytes) {
    constexpr std::size_t roomForFraming = 512;
    m_body.reserve(m_body.size() + bytes.size() + roomForFraming);
    append({"--", m_boundary, "\r\n"});
    append({"Content-Disposition: form-data; name=\"file\"; filename=\"", path.filename().string(),
            "\"\r\n"});
    append({"Content-Type: ", audioType(path), "\r\n\r\n"});
    append({bytes, "\r\n"});
}

std::string MultipartForm::contentType() const {
    return "multipart/form-data; boundary=" + m_boundary;
}

std::string MultipartForm::takeBody() {
    append({"--", m_boundary, "--\r\n"});
    return std::exchange(m_body, {});
}

void MultipartForm::append(std::initializer_list<std::string_view> pieces) {
    for (const std::string_view piece : pieces)
        m_body += piece;
}

}  // namespace nulo
