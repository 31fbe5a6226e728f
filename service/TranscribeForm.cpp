#include "service/TranscribeForm.h"

#include <map>

namespace nulo::service {
namespace {

constexpr std::size_t mostFields = 32;

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

Result<TranscribeForm, Failure> readTranscribeForm(const httplib::Request& request,
                                                   const httplib::ContentReader& content) {
    if (!request.is_multipart_form_data())
        return malformed("The request is not a form.");
    std::map<std::string, std::string> fields;
    std::string* current = nullptr;
    std::size_t size = 0;
    std::optional<Failure> refusal;
    const auto startField = [&](const httplib::MultipartFormData& field) {
        const auto [entry, isNew] = fields.try_emplace(field.name);
        if (!isNew)
            refusal = malformed("The form has two fields of one name.");
        else if (fields.size() > mostFields)
            refusal = malformed("The form has too many fields.");
        current = &entry->second;
        return !refusal;
    };
    const auto addToField = [&](const char* data, std::size_t length) {
        size += length;  // the length in the head says nothing when the body is compressed
        if (size > largestBody)
            refusal = bodyTooLarge();
        else
            current->append(data, length);
        return !refusal;
    };
    const bool whole = content(startField, addToField);
    if (refusal)
        return *refusal;
    if (!whole)
        return malformed("The form is malformed or broke off.");
    if (!fields.contains("file"))
        return malformed("The form has no recording.");
    TranscribeForm form;
    form.take = {taken(fields, "file"), taken(fields, "provider"), taken(fields, "model"),
                 taken(fields, "prompt")};
    if (fields.contains("cleanup_prompt"))
        form.cleanupPrompt = taken(fields, "cleanup_prompt");
    form.cleanupModel = taken(fields, "cleanup_model");
    return form;
}

}  // namespace nulo::service
