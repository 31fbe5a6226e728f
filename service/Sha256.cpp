#include "service/Sha256.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>

namespace nulo::service {
namespace {

class Digest {
  public:
    Digest() : m_context(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        if (!m_context || EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) != 1)
            throw std::bad_alloc();
    }
    void add(std::string_view bytes) {
        EVP_DigestUpdate(m_context.get(), bytes.data(), bytes.size());
    }
    std::string text() {
        std::array<unsigned char, 32> bytes{};
        EVP_DigestFinal_ex(m_context.get(), bytes.data(), nullptr);
        constexpr std::string_view digits = "0123456789abcdef";
        std::string result;
        for (const unsigned char byte : bytes) {
            result += digits[byte >> 4];
            result += digits[byte & 15];
        }
        return result;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> m_context;
};

}  // namespace

std::string sha256(std::string_view bytes) {
    Digest digest;
    digest.add(bytes);
    return digest.text();
}

Result<std::string> sha256OfFile(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))  // opening a FIFO would wait for its writer
        return Error{error ? error.message() : "it is no regular file"};
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    Digest digest;
    std::string piece(1 << 20, '\0');
    while (stream) {
        stream.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        digest.add(std::string_view(piece).substr(0, static_cast<std::size_t>(stream.gcount())));
    }
    if (!stream.eof())
        return Error{std::strerror(errno ? errno : EIO)};
    return digest.text();
}

bool isSha256(std::string_view text) {
    return text.size() == 64 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

}  // namespace nulo::service
