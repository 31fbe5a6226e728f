// What the companion adds to asking a provider directly: the same requests, through it and without
// it, to a provider that answers at once; and its memory while two hundred recordings are in
// flight.

#include <curl/curl.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace {

using namespace nulo;
using Clock = std::chrono::steady_clock;

const std::string boundary = "0A1B2C3D-0000-4000-8000-00000000ABCD";

std::string contentOf(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

/// A tone as a WAV file: what it says does not matter here, only that it is not silent.
std::string toneOf(std::size_t bytes) {
    const auto number = [](std::uint32_t value, int size) {
        return std::string(reinterpret_cast<const char*>(&value), static_cast<std::size_t>(size));
    };
    const auto length = static_cast<std::uint32_t>(bytes);
    std::string file = "RIFF" + number(36 + length, 4) + "WAVEfmt " + number(16, 4) + number(1, 2) +
                       number(1, 2) + number(16000, 4) + number(32000, 4) + number(2, 2) +
                       number(16, 2) + "data" + number(length, 4);
    while (bytes-- > 0)
        file += static_cast<char>(bytes % 97);
    return file;
}

std::string formOf(const std::string& audio) {
    const auto field = [](const std::string& name, const std::string& value) {
        return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name +
               "\"\r\n\r\n" + value + "\r\n";
    };
    return field("provider", "openai") + field("model", "m") + "--" + boundary +
           "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.wav\"\r\n\r\n" + audio +
           "\r\n--" + boundary + "--\r\n";
}

struct Request {
    std::string url;
    std::string contentType;
    const std::string* body;
};

/// One client with a kept connection.
class Client {
  public:
    Client() : m_easy(curl_easy_init(), curl_easy_cleanup) {}

    /// Time to the first byte of the answer's body, in milliseconds; throws when it is no 200.
    /// (What libcurl calls so starts with the first byte that is sent.)
    double firstByte(const Request& request) {
        CURL* easy = m_easy.get();
        const std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers(
            curl_slist_append(curl_slist_append(nullptr, "Expect:"),
                              ("Content-Type: " + request.contentType).c_str()),
            curl_slist_free_all);
        curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
        curl_easy_setopt(easy, CURLOPT_PROXY, "");
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body->data());
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(request.body->size()));
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
        Clock::time_point first{};
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, &first);
        using Write = std::size_t (*)(char*, std::size_t, std::size_t, void*);
        const Write write = [](char*, std::size_t, std::size_t size, void* time) {
            auto& noted = *static_cast<Clock::time_point*>(time);
            if (noted == Clock::time_point{})
                noted = Clock::now();
            return size;
        };
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, write);
        const auto start = Clock::now();
        const CURLcode code = curl_easy_perform(easy);
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        if (code != CURLE_OK || status != 200)
            throw std::runtime_error("a request failed: " + std::string(curl_easy_strerror(code)) +
                                     ", status " + std::to_string(status));
        return std::chrono::duration<double, std::milli>(first - start).count();
    }

  private:
    const std::unique_ptr<CURL, void (*)(CURL*)> m_easy;
};

struct Figures {
    double perSecond = 0, p50 = 0, p95 = 0;
};

Figures measured(const Request& request, int clients, int each) {
    std::vector<std::vector<double>> times(static_cast<std::size_t>(clients));
    std::vector<std::thread> threads;
    Clock::duration spent{};
    std::atomic<int> ready = 0;
    std::atomic<bool> go = false;
    for (auto& mine : times)
        threads.emplace_back([&] {
            Client client;
            client.firstByte(request);  // opens the connections
            ++ready;
            while (!go)
                std::this_thread::yield();
            for (int i = 0; i < each; ++i)
                mine.push_back(client.firstByte(request));
        });
    while (ready < clients)
        std::this_thread::yield();
    const auto start = Clock::now();
    go = true;
    for (std::thread& thread : threads)
        thread.join();
    spent = Clock::now() - start;
    std::vector<double> all;
    for (const auto& mine : times)
        all.insert(all.end(), mine.begin(), mine.end());
    std::sort(all.begin(), all.end());
    return {double(all.size()) / std::chrono::duration<double>(spent).count(), all[all.size() / 2],
            all[all.size() * 95 / 100]};
}

void compare(const char* what, const Request& direct, const Request& through, int clients,
             int each) {
    const Figures without = measured(direct, clients, each);
    const Figures with = measured(through, clients, each);
    std::printf("%-30s %3d clients\n", what, clients);
    const auto line = [](const char* name, double a, double b, const char* unit) {
        std::printf("  %-14s direct %9.2f   companion %9.2f %-4s ratio %.2f\n", name, a, b, unit,
                    b / a);
    };
    line("requests/s", without.perSecond, with.perSecond, "");
    line("first byte p50", without.p50, with.p50, "ms");
    line("first byte p95", without.p95, with.p95, "ms");
    std::printf("  added to the first byte: p50 %.2f ms, p95 %.2f ms\n", with.p50 - without.p50,
                with.p95 - without.p95);
}

std::string statusLine(pid_t process, const std::string& name) {
    std::istringstream lines(contentOf("/proc/" + std::to_string(process) + "/status"));
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(name + ":"))
            return line.substr(line.find_first_not_of(" \t", name.size() + 1));
    return "unknown";
}

int run() {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 8192);
    setrlimit(RLIMIT_NOFILE, &files);
    std::atomic<int> inFlight = 0;
    std::atomic<bool> holds = false;
    ScriptedHttpServer upstream([&](const ReceivedRequest& request, auto& connection) {
        if (request.target.ends_with("/transcriptions")) {
            ++inFlight;
            if (holds)
                connection.stall();
            connection.send(httpResponse(200, "words"));
            return;
        }
        std::string stream;
        for (int i = 0; i < 40; ++i)
            stream += httpChunk("data: {\"choices\":[{\"delta\":{\"content\":\"word \"}}]}\n\n");
        connection.send(
            "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
            "Transfer-Encoding: chunked\r\n\r\n" +
            stream + httpChunk("data: [DONE]\n\n") + httpChunk(""));
    });
    const TemporaryFolder folder;
    std::ofstream(folder / "nulo-service.json")
        << R"({"providers": {"openai": {"apiKey": "none", "baseURL": ")" << upstream.url("/v1")
        << R"("}}})";
    ChildProcess service({NULO_BINARY_FOLDER "/nulo-service", "--port", "0", "--config",
                          folder / "nulo-service.json"},
                         {{}, folder / "log"});
    std::smatch found;
    std::string log;
    const std::regex marker("Listening on (http://[0-9.:]+)\n");
    if (!waitUntil(
            [&] { return std::regex_search(log = contentOf(folder / "log"), found, marker); }))
        throw std::runtime_error("the companion does not start: " + log);
    const std::string origin = found[1];
    std::printf("companion idle: %s resident\n\n", statusLine(service.pid(), "VmRSS").c_str());

    const std::string chat =
        R"({"model":"gpt-5.4-mini","stream":true,"messages":[{"role":"user","content":"a b"}]})";
    const std::string form = formOf(toneOf(160 * 1024));  // twenty seconds as Nulo sends them
    const std::string type = "multipart/form-data; boundary=" + boundary;
    const Request directChat{upstream.url("/v1/chat/completions"), "application/json", &chat};
    const Request chatThrough{origin + "/api/chat", "application/json", &chat};
    const Request directTake{upstream.url("/v1/audio/transcriptions"), type, &form};
    const Request takeThrough{origin + "/api/transcribe", type, &form};
    for (const int clients : {1, 16}) {
        compare("chat, 40 words", directChat, chatThrough, clients, 600 / clients);
        compare("recording of 160 KB", directTake, takeThrough, clients, 400 / clients);
    }

    constexpr int crowd = 200;
    const std::string large = formOf(toneOf(2 * 1024 * 1024));
    holds = true;
    inFlight = 0;
    std::vector<std::thread> people;
    std::atomic<int> served = 0;
    for (int i = 0; i < crowd; ++i)
        people.emplace_back([&] {
            try {
                Client().firstByte({origin + "/api/transcribe", type, &large});
                ++served;
            } catch (const std::exception& error) {
                std::fprintf(stderr, "%s\n", error.what());
            }
        });
    const bool all = waitUntil([&] { return inFlight == crowd; }, std::chrono::seconds(50));
    std::printf("\n%d recordings of 2 MB in flight%s: peak %s (of it %s not in files)\n",
                inFlight.load(), all ? "" : " (not all)",
                statusLine(service.pid(), "VmHWM").c_str(),
                statusLine(service.pid(), "RssAnon").c_str());
    upstream.release();
    for (std::thread& person : people)
        person.join();
    std::printf("%d of %d served\n", served.load(), crowd);
    return served == crowd ? 0 : 1;
}

}  // namespace

int main() {
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "companion_bench: %s\n", error.what());
        return 1;
    }
}
