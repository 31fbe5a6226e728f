#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "base/Result.h"

namespace nulo {

/// Bytes that an answer may have; what is longer is not kept.
constexpr std::size_t largestText = 8 * 1024 * 1024;
constexpr std::size_t largestLine = 1024 * 1024;
constexpr std::size_t largestErrorBody = 64 * 1024;  // the rest of an error's text is left out

/// What can go wrong with a request apart from its transport.
class TranscriptionError {
  public:
    /// The service answered with a status other than success; `message` is the body of the answer.
    static TranscriptionError apiError(int statusCode, std::string message) {
        return {Case::apiError, statusCode, std::move(message)};
    }
    static TranscriptionError fileReadFailed() { return {Case::fileReadFailed}; }
    static TranscriptionError invalidResponse() { return {Case::invalidResponse}; }
    static TranscriptionError noData() { return {Case::noData}; }
    static TranscriptionError noApiKey() { return {Case::noApiKey}; }

    /// One line for the console, to stand after the caller's own prefix; see visible().
    std::string errorDescription() const;
    /// The status of the service's answer; 0 for an error that is no apiError().
    int statusCode() const { return m_statusCode; }

    bool operator==(const TranscriptionError&) const = default;

  private:
    enum class Case { apiError, fileReadFailed, invalidResponse, noData, noApiKey };

    TranscriptionError(Case kind, int statusCode = 0, std::string message = {})
        : m_case(kind), m_statusCode(statusCode), m_message(std::move(message)) {}

    Case m_case;
    int m_statusCode;       // apiError only
    std::string m_message;  // apiError only
};

/// An error of the client itself, or the transport's, passed through unchanged.
using TranscriptionFailure = std::variant<TranscriptionError, Error>;

/// Why an answer was cut off at `limit` bytes of `what`.
Error tooLong(std::string_view what, std::size_t limit);

std::string describe(const TranscriptionFailure& failure);

/// Whether the same request may succeed at another time: the network failed, or the service was
/// late, busy or broken.
bool mayPass(const TranscriptionFailure& failure);

/// How every request ends.
using TextResult = Result<std::string, TranscriptionFailure>;

}  // namespace nulo
