#include "service/http/TranscribeForm.h"

#include <utility>

namespace nulo::service {
namespace {

constexpr std::size_t mostFields = 32;
constexpr std::size_t mostText = 1024 * 1024;  // of all fields but the recording

Failure malformed(const std::string& why) {
    return {400, why + " Send a multipart/form-data body with the recording as \"file\".\n"};
}

/// Moves the field's value out; empty when there is none.
std::string taken(std::map<std::string, std::string>& fields, const char* name) {
    const auto entry = fields.find(name);
    return entry == fields.end() ? std::string() : std::move(entry->second);
}

}  // namespace

Failure noForm() {
    return malformed("The request is not a form.");
}

std::unique_ptr<TranscribeFormReader> TranscribeFormReader::forType(std::string_view contentType) {
    const auto boundary = formBoundary(contentType);
    if (!boundary)
        return nullptr;
    return std::unique_ptr<TranscribeFormReader>(new TranscribeFormReader(*boundary));
}

TranscribeFormReader::TranscribeFormReader(const std::string& boundary)
    : m_reader(
          boundary, [this](const std::string& name) { return startField(name); },
          [this](std::string_view bytes) { return addToField(bytes); }) {}

bool TranscribeFormReader::startField(const std::string& name) {
    const bool isAudio = name == "file";
    const bool isNew =
        isAudio ? !std::exchange(m_hasAudio, true) : m_fields.try_emplace(name).second;
    if (!isNew)
        m_refusal = malformed("The form has two fields of one name.");
    else if (m_fields.size() > mostFields)
        m_refusal = malformed("The form has too many fields.");
    m_current = isAudio ? nullptr : &m_fields[name];
    return !m_refusal;
}

bool TranscribeFormReader::addToField(std::string_view bytes) {
    if (m_current && (m_textSize += bytes.size()) > mostText)
        m_refusal = Failure{413, "The texts of the form are longer than 1 MB. Shorten them.\n"};
    else if (m_current)
        m_current->append(bytes);
    else if (const auto error = m_audio.append(bytes))
        m_refusal = Failure{503,
                            "The service cannot keep the recording in " + Spool::folder() + " (" +
                                error.message() + "). Mend that, then try again.\n",
                            10};
    return !m_refusal;
}

std::optional<Failure> TranscribeFormReader::add(std::string_view bytes) {
    if (m_reader.add(bytes))
        return std::nullopt;
    return m_refusal ? *m_refusal : malformed("The form is malformed.");
}

Result<TranscribeForm, Failure> TranscribeFormReader::finish() {
    if (!m_reader.isComplete())
        return malformed("The form broke off.");
    if (!m_hasAudio)
        return malformed("The form has no recording.");
    TranscribeForm form;
    form.take.audio = std::move(m_audio);
    form.take.provider = taken(m_fields, "provider");
    form.take.model = taken(m_fields, "model");
    form.take.responseFormat = taken(m_fields, "response_format");
    form.take.language = taken(m_fields, "language");
    if (m_fields.contains("prompt"))
        form.take.prompt = taken(m_fields, "prompt");
    if (m_fields.contains("cleanup_prompt"))
        form.cleanupPrompt = taken(m_fields, "cleanup_prompt");
    form.cleanupModel = taken(m_fields, "cleanup_model");
    return form;
}

}  // namespace nulo::service
