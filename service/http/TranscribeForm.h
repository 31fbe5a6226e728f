#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"
#include "service/Failure.h"
#include "service/Recogniser.h"
#include "service/http/FormReader.h"

namespace nulo::service {

/// The multipart form of "/api/transcribe".
struct TranscribeForm {
    Take take;
    std::optional<std::string> cleanupPrompt;  // absent: the plain text is wanted
    std::string cleanupModel;
};

/// Reads that form in pieces of any size. One thread at a time.
class TranscribeFormReader {
  public:
    /// A reader for a body of that Content-Type; null when the type is none of a form.
    static std::unique_ptr<TranscribeFormReader> forType(std::string_view contentType);

    /// Reads the next bytes. They are refused with 400, 413 or 503; nothing may follow then.
    std::optional<Failure> add(std::string_view bytes);
    /// The form, once no more bytes will come; 400 when it is not complete.
    Result<TranscribeForm, Failure> finish();

  private:
    explicit TranscribeFormReader(const std::string& boundary);
    bool startField(const std::string& name);
    bool addToField(std::string_view bytes);

    FormReader m_reader;
    std::map<std::string, std::string> m_fields;
    std::string* m_current = nullptr;  // null: the recording is being read
    Spool m_audio;
    bool m_hasAudio = false;
    std::size_t m_textSize = 0;
    std::optional<Failure> m_refusal;
};

/// What a request without a form is told.
Failure noForm();

}  // namespace nulo::service
