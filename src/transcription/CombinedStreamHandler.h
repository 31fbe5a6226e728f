#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/MainQueue.h"
#include "base/Print.h"
#include "transcription/HttpSession.h"
#include "transcription/TranscriptionError.h"

namespace nulo {

/// Turns the answer to one streamed request into text fragments and exactly one outcome.
///
/// The answer is an event stream: of its lines, each ended by LF, those that begin with "data: "
/// count, and hold either a chat-completion chunk in JSON or the end marker [DONE]. What is
/// malformed is skipped. An answer with a status other than 200 is collected as an error message.
///
/// The did…() functions are called on the session's thread; the callbacks run on the main thread,
/// each queued by itself, in the order in which they were issued, the completion last.
class CombinedStreamHandler {
  public:
    /// The time that the service spent transcribing, as it says itself.
    using OnTranscriptionTime = std::function<void(long long milliseconds)>;
    using OnToken = std::function<void(const std::string& fragment)>;
    using Completion = std::function<void(const TextResult& result)>;

    /// `onTranscriptionTime` may be empty. `mainQueue` outlives the handler.
    CombinedStreamHandler(MainQueue& mainQueue, Print log, OnTranscriptionTime onTranscriptionTime,
                          OnToken onToken, Completion completion);

    void didReceiveResponse(const HttpResponseHead& head);
    /// A chunk that is not UTF-8 by itself is dropped whole. Tells whether more is wanted.
    bool didReceiveData(std::string_view chunk);
    void didComplete(const std::optional<Error>& error);

  private:
    struct Callbacks {
        OnTranscriptionTime onTranscriptionTime;
        OnToken onToken;
        Completion completion;
    };

    void takeText(std::string_view chunk);
    void takeLine(std::string_view line);
    void finishStream();
    void report(TextResult result);

    MainQueue& m_mainQueue;
    Print m_log;
    std::shared_ptr<const Callbacks> m_callbacks;  // gone once the outcome is reported
    std::string m_fullText;
    std::string m_buffer;  // what came after the last LF
    std::optional<int> m_httpStatusCode;
    std::string m_errorData;
    std::size_t m_bytesAfterOutcome = 0;
    bool m_completed = false;
    std::size_t m_dataChunkCount = 0;
};

}  // namespace nulo
