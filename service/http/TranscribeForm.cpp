#include "service/http/TranscribeForm.h"

#include <map>
#include <utility>

#include "service/http/FormReader.h"

namespace nulo::service {
namespace {

constexpr std::size_t mostFields = 32;
constexpr const char* hiddenType = "X-Nulo-Form-Type";
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

Failure bodyTooLarge() {
    return {413, "The request is larger than 25 MB. Send a shorter recording.\n"};
}

void hideForm(httplib::Request& request) {
    request.headers.erase(hiddenType);
    if (!request.is_multipart_form_data())
        return;
    request.headers.emplace(hiddenType, request.get_header_value("Content-Type"));
    request.headers.erase("Content-Type");
}

std::string formType(const httplib::Request& request) {
    return request.get_header_value(hiddenType);
}

Result<TranscribeForm, Failure> readTranscribeForm(const httplib::Request& request,
                                                   const httplib::ContentReader& content) {
    const auto boundary = formBoundary(formType(request));
    if (!boundary)
        return malformed("The request is not a form.");
    std::map<std::string, std::string> fields;
    std::string* current = nullptr;  // null: the recording is being read
    Spool audio;
    bool hasAudio = false;
    std::size_t size = 0;
    std::size_t textSize = 0;
    std::optional<Failure> refusal;
    const auto startField = [&](const std::string& name) {
        const bool isAudio = name == "file";
        const bool isNew =
            isAudio ? !std::exchange(hasAudio, true) : fields.try_emplace(name).second;
        if (!isNew)
            refusal = malformed("The form has two fields of one name.");
        else if (fields.size() > mostFields)
            refusal = malformed("The form has too many fields.");
        current = isAudio ? nullptr : &fields[name];
        return !refusal;
    };
    const auto addToField = [&](std::string_view bytes) {
        if (current && (textSize += bytes.size()) > mostText)
            refusal = Failure{413, "The texts of the form are longer than 1 MB. Shorten them.\n"};
        else if (current)
            current->append(bytes);
        else if (!audio.append(bytes))
            refusal = Failure{503,
                              "The service's disk is full. Make room where temporary files are "
                              "kept, then try again.\n",
                              10};
        return !refusal;
    };
    FormReader reader(*boundary, startField, addToField);
    const bool whole = content([&](const char* data, std::size_t length) {
        size += length;  // the length in the head says nothing when the body is compressed
        if (size > largestBody)
            refusal = bodyTooLarge();
        return !refusal && reader.add({data, length});
    });
    if (refusal)
        return *refusal;
    if (!whole || !reader.isComplete())
        return malformed("The form is malformed or broke off.");
    if (!hasAudio)
        return malformed("The form has no recording.");
    TranscribeForm form;
    form.take.audio = std::move(audio);
    form.take.provider = taken(fields, "provider");
    form.take.model = taken(fields, "model");
    form.take.responseFormat = taken(fields, "response_format");
    form.take.language = taken(fields, "language");
    if (fields.contains("prompt"))
        form.take.prompt = taken(fields, "prompt");
    if (fields.contains("cleanup_prompt"))
        form.cleanupPrompt = taken(fields, "cleanup_prompt");
    form.cleanupModel = taken(fields, "cleanup_model");
    return form;
}

}  // namespace nulo::service
