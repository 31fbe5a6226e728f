#pragma once

#include <httplib.h>

#include <optional>
#include <string>

#include "base/Result.h"
#include "service/Failure.h"
#include "service/Recogniser.h"

namespace nulo::service {

/// Bytes of a request's body, form included.
inline constexpr std::size_t largestBody = 25 * 1024 * 1024;

Failure bodyTooLarge();

/// The multipart form of "/api/transcribe".
struct TranscribeForm {
    Take take;
    std::optional<std::string> cleanupPrompt;  // absent: the plain text is wanted
    std::string cleanupModel;
};

/// Has a form's body read as it is: the library's own reader takes a boundary that arrives in two
/// pieces for content. Before the body of any request is read.
void hideForm(httplib::Request& request);

/// The Content-Type of a hidden form; empty when the request is none.
std::string formType(const httplib::Request& request);

/// Reads the request's body to its end, or as far as it can be understood. 400, 413.
Result<TranscribeForm, Failure> readTranscribeForm(const httplib::Request& request,
                                                   const httplib::ContentReader& content);

}  // namespace nulo::service
