#include "service/tests/fuzz/Checks.h"

#include <random>
#include <vector>

#include "service/http/TranscribeForm.h"

namespace nulo::service {
namespace {

/// What came of a form: the recording, then the texts.
struct Taken {
    int status = 200;
    std::vector<std::string> parts;

    bool operator==(const Taken&) const = default;
};

/// Of a form in pieces of 1 to `longest` bytes.
Taken takenFrom(const std::string& type, std::string_view body, std::uint32_t seed,
                std::size_t longest) {
    std::minstd_rand random(seed);
    const auto reader = TranscribeFormReader::forType(type);
    if (!reader)
        return {400, {}};
    while (!body.empty()) {
        const std::string_view piece = body.substr(0, 1 + random() % longest);
        if (const auto refused = reader->add(piece))
            return {refused->status, {}};
        body.remove_prefix(piece.size());
    }
    const auto form = reader->finish();
    if (!form)
        return {form.error().status, {}};
    const Take& take = form.value().take;
    std::string audio(take.audio.size(), '\0');
    take.audio.read(0, audio.data(), audio.size());
    return {200,
            {audio, take.provider, take.model, take.responseFormat, take.language,
             take.prompt.value_or("")}};
}

/// A form whose recording are these bytes, and whose prompt are some of them.
std::string formAround(std::string_view bytes, std::string_view prompt) {
    const std::string boundary = "--made-up\r\nContent-Disposition: form-data; name=";
    return boundary + "\"prompt\"\r\n\r\n" + std::string(prompt) + "\r\n" + boundary +
           "\"file\"; filename=\"a\"\r\nContent-Type: audio/mp4\r\n\r\n" + std::string(bytes) +
           "\r\n--made-up--\r\n";
}

}  // namespace

std::string faultInRequest(std::string_view bytes, std::uint32_t seed) {
    const std::size_t line = bytes.find('\n');
    const std::string type(bytes.substr(0, line));
    const std::string_view body = line == std::string_view::npos ? "" : bytes.substr(line + 1);

    const Taken whole = takenFrom(type, body, seed, bytes.size() + 1000);
    for (const std::size_t longest : {1, 7, 100})
        if (takenFrom(type, body, seed, longest) != whole)
            return "in pieces of at most " + std::to_string(longest) + " bytes (seed " +
                   std::to_string(seed) + ") the form is taken in another way";
    if (whole.status != 200 && whole.status != 400 && whole.status != 413)
        return "the form is answered with " + std::to_string(whole.status);
    std::size_t size = 0;
    for (const std::string& part : whole.parts)
        size += part.size();
    if (size > body.size())
        return "more is handed on than was sent";

    const std::string_view prompt = body.substr(body.size() / 2);
    if (body.find("--made-up") == std::string_view::npos) {
        const Taken made =
            takenFrom("multipart/form-data; boundary=made-up", formAround(body, prompt), seed, 100);
        if (made != Taken{200, {std::string(body), "", "", "", "", std::string(prompt)}})
            return "of a whole form something else is handed on than it holds";
    }
    return {};
}

}  // namespace nulo::service
