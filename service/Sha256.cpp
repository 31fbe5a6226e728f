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
    explicit Digest(const EVP_MD* algorithm) : m_context(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        if (!m_context || EVP_DigestInit_ex(m_context.get(), algorithm, nullptr) != 1)
            throw std::bad_alloc();
    }
    void add(std::string_view bytes) {
        EVP_DigestUpdate(m_context.get(), bytes.data(), bytes.size());
    }
    std::string text() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
        unsigned size = 0;
        EVP_DigestFinal_ex(m_context.get(), bytes.data(), &size);
        constexpr std::string_view digits = "0123456789abcdef";
        std::string result;
        for (unsigned i = 0; i < size; ++i) {
            result += digits[bytes[i] >> 4];
            result += digits[bytes[i] & 15];
        }
        return result;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> m_context;
};

/// Hands all bytes of a regular file on, piece by piece.
template <typename Take>
Outcome readPieces(const std::filesystem::path& file, Take take) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))  // opening a FIFO would wait for its writer
        return Error{error ? error.message() : "it is no regular file"};
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    std::string piece(1 << 20, '\0');
    while (stream) {
        stream.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        take(std::string_view(piece).substr(0, static_cast<std::size_t>(stream.gcount())));
    }
    if (!stream.eof())
        return Error{std::strerror(errno ? errno : EIO)};
    return Success{};
}

}  // namespace

std::string sha256(std::string_view bytes) {
    Digest digest(EVP_sha256());
    digest.add(bytes);
    return digest.text();
}

Result<std::string> sha256OfFile(const std::filesystem::path& file) {
    Digest digest(EVP_sha256());
    const auto read = readPieces(file, [&](std::string_view piece) { digest.add(piece); });
    return read ? Result<std::string>(digest.text()) : read.error();
}

Result<FileDigests> digestsOfFile(const std::filesystem::path& file) {
    Digest one(EVP_sha1());
    Digest other(EVP_sha256());
    const auto read = readPieces(file, [&](std::string_view piece) {
        one.add(piece);
        other.add(piece);
    });
    return read ? Result<FileDigests>(FileDigests{one.text(), other.text()}) : read.error();
}

bool isSha256(std::string_view text) {
    return text.size() == 64 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

}  // namespace nulo::service
