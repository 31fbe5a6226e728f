#include "service/tests/fuzz/RequestBodyCheck.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "base/Text.h"
#include "rig/process/FakeClock.h"
#include "service/SpeechApi.h"
#include "service/http/TranscribeForm.h"

namespace nulo::service {
namespace {

/// The bytes of a connection, in pieces of 1 to `longest` bytes; keeps what is sent.
class CutStream final : public httplib::Stream {
  public:
    CutStream(std::string_view bytes, std::uint32_t seed, std::size_t longest)
        : m_bytes(bytes), m_random(seed), m_longest(longest) {}

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* target, std::size_t size) override {
        const std::size_t count =
            std::min({size, m_bytes.size(), std::size_t{1} + m_random() % m_longest});
        std::memcpy(target, m_bytes.data(), count);
        m_bytes.remove_prefix(count);
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* data, std::size_t size) override {
        sent.append(data, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string&, int&) const override {}
    void get_local_ip_and_port(std::string&, int&) const override {}
    socket_t socket() const override { return -1; }

    std::string sent;

  private:
    std::string_view m_bytes;
    std::minstd_rand m_random;
    const std::size_t m_longest;
};

/// What came of a request.
struct Outcome {
    std::string answer;                 // head and body
    std::vector<std::string> handedOn;  // the recording, then the texts

    bool operator==(const Outcome&) const = default;
    bool hasStatus(const char* status) const {
        return answer.starts_with(std::string("HTTP/1.1 ") + status + " ");
    }
};

/// The endpoints, with parts behind them that keep what they get.
class Endpoints final : private httplib::Server, private Recogniser, private Cleanup {
  public:
    Endpoints() { m_api.attachTo(*this); }

    Outcome outcomeOf(const std::string& type, std::string_view body, std::uint32_t seed,
                      std::size_t longest) {
        const bool isForm = type.find("multipart/") != std::string::npos;
        const std::string request =
            std::string("POST ") + (isForm ? "/api/transcribe" : "/api/chat") +
            " HTTP/1.1\r\nHost: localhost\r\nContent-Type: " + type +
            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
        CutStream stream(request, seed, longest);
        m_handedOn.clear();
        bool closed = false;
        process_request(stream, false, closed, hideForm);
        return {std::move(stream.sent), std::move(m_handedOn)};
    }

  private:
    Result<std::string, Failure> recognise(const Take& take, const StillWanted&) override {
        std::string audio(take.audio.size(), '\0');
        take.audio.read(0, audio.data(), audio.size());
        m_handedOn = {std::move(audio),    take.provider, take.model,
                      take.responseFormat, take.language, take.prompt.value_or("")};
        return std::string();
    }
    Result<Stream, Failure> start(CleanupRequest request, const StillWanted&) override {
        for (const ChatMessage& message : request.messages)
            m_handedOn.insert(m_handedOn.end(), {message.content});
        return Stream([messages = std::move(request.messages)](const Fragment& onFragment) {
            return std::all_of(messages.begin(), messages.end(), [&](const ChatMessage& message) {
                return onFragment(message.content);
            });
        });
    }

    const FakeClock m_clock;
    std::vector<std::string> m_handedOn;
    SpeechApi m_api{*this, *this, RequestGuard({}), m_clock, "1.0", UpdateFolder({})};
};

/// A form whose recording are these bytes, and whose prompt are some of them.
std::string formAround(std::string_view bytes, std::string_view prompt) {
    const std::string boundary = "--made-up\r\nContent-Disposition: form-data; name=";
    return boundary + "\"prompt\"\r\n\r\n" + std::string(prompt) + "\r\n" + boundary +
           "\"file\"; filename=\"a\"\r\nContent-Type: audio/mp4\r\n\r\n" + std::string(bytes) +
           "\r\n--made-up--\r\n";
}

}  // namespace

std::string faultInRequest(std::string_view bytes, std::uint32_t seed) {
    static Endpoints endpoints;
    const std::size_t line = bytes.find('\n');
    const std::string type(bytes.substr(0, line));
    const std::string_view body = line == std::string_view::npos ? "" : bytes.substr(line + 1);
    if (std::any_of(type.begin(), type.end(), [](unsigned char c) { return c < 32 || c > 126; }))
        return {};  // the head would be another one

    const Outcome whole = endpoints.outcomeOf(type, body, seed, bytes.size() + 1000);
    for (const std::size_t longest : {1, 7, 100})
        if (endpoints.outcomeOf(type, body, seed, longest) != whole)
            return "in pieces of at most " + std::to_string(longest) + " bytes (seed " +
                   std::to_string(seed) + ") the request is taken in another way";

    const bool refused = whole.hasStatus("400") || whole.hasStatus("413");
    if (!refused && !whole.hasStatus("200"))
        return "the service fails: " + whole.answer;
    if (refused && (!whole.handedOn.empty() || !whole.answer.ends_with(".\n")))
        return "the refusal is none, or says nothing";
    if (!isValidUtf8(whole.answer))
        return "the answer is not UTF-8";
    const auto size =
        std::transform_reduce(whole.handedOn.begin(), whole.handedOn.end(), std::size_t{0},
                              std::plus(), [](const std::string& text) { return text.size(); });
    if (size > body.size())
        return "more is handed on than was sent";

    const std::string_view prompt = body.substr(body.size() / 2);
    if (body.find("--made-up") == std::string_view::npos) {
        const Outcome made = endpoints.outcomeOf("multipart/form-data; boundary=made-up",
                                                 formAround(body, prompt), seed, 100);
        const std::vector<std::string> expected{std::string(body),  "", "", "", "",
                                                std::string(prompt)};
        if (!made.hasStatus("200") || made.handedOn != expected)
            return "of a whole form something else is handed on than it holds";
    }
    return {};
}

}  // namespace nulo::service
