#include "transcription/TranscriptionError.h"

namespace nulo {

std::string TranscriptionError::errorDescription() const {
    switch (m_case) {
        case Case::apiError:
            return "API error " + std::to_string(m_statusCode) + ": " + m_message;
        case Case::fileReadFailed:
            return "Failed to read audio file";
        case Case::invalidResponse:
            return "Invalid server response";
        case Case::noData:
            return "No data received";
        case Case::noApiKey:
            return "No API key configured";
    }
    return {};
}

std::string describe(const TranscriptionFailure& failure) {
    if (const auto* transport = std::get_if<Error>(&failure))
        return transport->description;
    return std::get<TranscriptionError>(failure).errorDescription();
}

}  // namespace nulo
