#include "fuzz/Fuzz.h"
#include "service/http/TranscribeForm.h"

namespace nulo {
namespace {

/// What came of a form: the recording, then the texts; of one that is refused the status.
using Taken = std::vector<std::string>;

Taken takenFrom(std::string_view type, const std::vector<std::string_view>& pieces) {
    const auto reader = service::TranscribeFormReader::forType(type);
    if (!reader)
        return {"400"};
    for (const std::string_view piece : pieces)
        if (const auto refused = reader->add(piece))
            return {std::to_string(refused->status)};
    const auto form = reader->finish();
    if (!form)
        return {std::to_string(form.error().status)};
    const service::Take& take = form.value().take;
    std::string audio(take.audio.size(), '\0');
    take.audio.read(0, audio.data(), audio.size());
    return {audio,         take.provider,           take.model, take.responseFormat,
            take.language, take.prompt.value_or("")};
}

}  // namespace

// The first line is the Content-Type, the rest the form. It is refused, or nothing is handed on
// that is not in it; a form that holds these bytes as its recording gives exactly that recording.
std::string faultIn(std::string_view bytes, std::uint32_t seed) {
    const std::size_t line = std::min(bytes.find('\n'), bytes.size());
    const std::string_view type = bytes.substr(0, line);
    const std::string_view body = bytes.substr(std::min(line + 1, bytes.size()));
    const Taken whole = takenFrom(type, {body});
    for (const std::size_t longest : {1, 7, 100})
        if (takenFrom(type, cut(body, seed, longest)) != whole)
            return "in pieces of at most " + std::to_string(longest) + " bytes it is another form";
    if (whole.size() == 1 && whole[0] != "400" && whole[0] != "413")
        return "the form is answered with " + whole[0];
    std::size_t size = 0;
    for (const std::string& part : whole)
        size += part.size();
    if (whole.size() > 1 && size > body.size())
        return "more is handed on than was sent";

    if (body.find("--made-up") != std::string_view::npos)
        return {};
    const std::string prompt(body.substr(body.size() / 2));
    const std::string field = "--made-up\r\nContent-Disposition: form-data; name=";
    const std::string made = field + "\"prompt\"\r\n\r\n" + prompt + "\r\n" + field +
                             "\"file\"; filename=\"a\"\r\nContent-Type: audio/mp4\r\n\r\n" +
                             std::string(body) + "\r\n--made-up--\r\n";
    if (takenFrom("multipart/form-data; boundary=made-up", cut(made, seed, 100)) !=
        Taken{std::string(body), "", "", "", "", prompt})
        return "of a whole form something else is handed on than it holds";
    return {};
}

}  // namespace nulo
