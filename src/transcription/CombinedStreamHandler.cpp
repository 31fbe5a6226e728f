#include "transcription/CombinedStreamHandler.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/Text.h"

namespace nulo {
namespace {

constexpr std::size_t mostBytesAfterOutcome = 64 * 1024;

/// A whole decimal number: an optional sign, ASCII digits and nothing else.
std::optional<long long> parseInteger(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-'))
            return std::nullopt;
    }
    long long value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

/// The text at choices[0].delta.content; nothing when any step of the way is of another shape.
std::optional<std::string> contentOf(std::string_view payload) {
    using nlohmann::json;
    json event = json::parse(payload, nullptr, /*allow_exceptions=*/false);
    if (!event.is_object())
        return std::nullopt;
    const auto choices = event.find("choices");
    if (choices == event.end() || !choices->is_array() || choices->empty() ||
        !std::ranges::all_of(*choices, [](const json& choice) { return choice.is_object(); }))
        return std::nullopt;
    json& choice = choices->front();
    const auto delta = choice.find("delta");
    if (delta == choice.end() || !delta->is_object())
        return std::nullopt;
    const auto content = delta->find("content");
    if (content == delta->end() || !content->is_string())
        return std::nullopt;
    return std::move(content->get_ref<std::string&>());
}

}  // namespace

CombinedStreamHandler::CombinedStreamHandler(MainQueue& mainQueue, Print log,
                                             OnTranscriptionTime onTranscriptionTime,
                                             OnToken onToken, Completion completion)
    : m_mainQueue(mainQueue),
      m_log(std::move(log)),
      m_callbacks(std::make_shared<const Callbacks>(
          Callbacks{std::move(onTranscriptionTime), std::move(onToken), std::move(completion)})) {}

void CombinedStreamHandler::didReceiveResponse(const HttpResponseHead& head) {
    if (m_completed)
        return;
    m_httpStatusCode = head.status;
    m_log("HTTP response: " + std::to_string(head.status) +
          ", Content-Type: " + visible(head.header("Content-Type").value_or("?")));
    const auto time = parseInteger(head.header("X-Transcription-Ms").value_or(""));
    if (!time) {
        m_log("No X-Transcription-Ms header found");
        return;
    }
    m_log("X-Transcription-Ms header: " + std::to_string(*time) + "ms");
    if (const auto upload = head.header("X-Upload-Ms"))
        m_log("X-Upload-Ms header (server-side multer receive): " + visible(*upload) + "ms");
    if (m_callbacks->onTranscriptionTime)
        m_mainQueue.async(
            [callbacks = m_callbacks, time = *time] { callbacks->onTranscriptionTime(time); });
}

bool CombinedStreamHandler::didReceiveData(std::string_view chunk) {
    if (m_completed) {
        // Read to its end, the answer leaves a connection for the next request.
        m_bytesAfterOutcome += chunk.size();
        return m_bytesAfterOutcome <= mostBytesAfterOutcome;
    }
    if (m_httpStatusCode.value_or(200) != 200) {
        const std::string_view kept = chunk.substr(0, largestErrorBody - m_errorData.size());
        const bool isAll = kept.size() == chunk.size();
        m_errorData += isAll ? chunk : kept.substr(0, completeUtf8Length(kept));
        return isAll;
    }
    if (isValidUtf8(chunk))
        takeText(chunk);
    if (m_buffer.size() > largestLine)
        didComplete(tooLong("a line", largestLine));
    if (m_fullText.size() > largestText)
        didComplete(tooLong("a text", largestText));
    return true;
}

void CombinedStreamHandler::takeText(std::string_view chunk) {
    if (m_dataChunkCount++ == 0)
        m_log("First data chunk received: " + std::to_string(chunk.size()) + " bytes");

    // The buffer never holds an LF, so only the new bytes are searched: a long line that arrives in
    // many pieces costs no more than one that arrives whole.
    for (auto end = chunk.find('\n'); end != std::string_view::npos && !m_completed;
         end = chunk.find('\n')) {
        if (m_buffer.empty()) {
            takeLine(chunk.substr(0, end));
        } else {
            m_buffer += chunk.substr(0, end);
            takeLine(m_buffer);
            m_buffer.clear();
        }
        chunk.remove_prefix(end + 1);
    }
    m_buffer += chunk;
}

void CombinedStreamHandler::takeLine(std::string_view line) {
    constexpr std::string_view prefix = "data: ";
    if (!line.starts_with(prefix))
        return;
    line.remove_prefix(prefix.size());
    if (line == "[DONE]") {
        m_log("SSE [DONE] received after " + std::to_string(m_dataChunkCount) + " data chunks");
        finishStream();
        return;
    }
    auto content = contentOf(line);
    if (!content)
        return;
    m_fullText += *content;
    m_mainQueue.async([callbacks = m_callbacks, fragment = std::move(*content)] {
        callbacks->onToken(fragment);
    });
}

void CombinedStreamHandler::didComplete(const std::optional<Error>& error) {
    if (m_completed)
        return;
    if (error) {
        m_log("URLSession error: " + error->description);
        report(TranscriptionFailure(*error));
    } else if (m_httpStatusCode.value_or(200) != 200) {
        const int status = *m_httpStatusCode;
        std::string message = isValidUtf8(m_errorData) ? m_errorData : "Unknown error";
        m_log("HTTP error " + std::to_string(status) + ": " + visible(message));
        report(TranscriptionFailure(TranscriptionError::apiError(status, std::move(message))));
    } else {
        m_log("URLSession completed normally");
        finishStream();
    }
}

void CombinedStreamHandler::finishStream() {
    std::string text = trimmed(m_fullText);
    m_log("finishStream: " + std::to_string(characterCount(text)) + " chars total");
    report(std::move(text));
}

void CombinedStreamHandler::report(TextResult result) {
    m_completed = true;
    // The last reference goes along, so that the callbacks also die on the main thread.
    m_mainQueue.async([callbacks = std::move(m_callbacks), result = std::move(result)] {
        callbacks->completion(result);
    });
}

}  // namespace nulo
