#include "transcription/TranscriptionError.h"

#include "base/Text.h"

namespace nulo {

std::string TranscriptionError::errorDescription() const {
    switch (m_case) {
        case Case::apiError:
            return "API error " + std::to_string(m_statusCode) + ": " + visible(m_message);
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

Error tooLong(std::string_view what, std::size_t limit) {
    return {"The speech service sent " + std::string(what) + " of more than " +
            std::to_string(limit / (1024 * 1024)) + " MB; the rest was not read"};
}

bool mayPass(const TranscriptionFailure& failure) {
    if (std::holds_alternative<Error>(failure))
        return true;
    const int status = std::get<TranscriptionError>(failure).statusCode();
    return status == 408 || status == 429 || (status >= 500 && status <= 599);
}

std::string describe(const TranscriptionFailure& failure) {
    if (const auto* transport = std::get_if<Error>(&failure))
        return transport->description;
    return std::get<TranscriptionError>(failure).errorDescription();
}

}  // namespace nulo
