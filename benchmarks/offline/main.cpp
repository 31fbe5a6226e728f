// How long the companion's whisper.cpp takes for a recording, beside whisper.cpp's own command line
// with the same threads, in turns; what it holds in memory; how soon it lets go.

#include <cstdio>

#include "common/Report.h"

#ifdef NULO_HAS_WHISPER

#include <curl/curl.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "common/ProcessFacts.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "rig/speech/RandomModel.h"
#include "service/Sha256.h"
#include "service/offline/PhysicalCores.h"

namespace {

using namespace nulo;

const std::string boundary = "0A1B2C3D-0000-4000-8000-00000000ABCD";

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Noise as a WAV file: the model says the same of all.
std::string noiseOf(int seconds) {
    const auto number = [](std::uint32_t value, int size) {
        return std::string(reinterpret_cast<const char*>(&value), static_cast<std::size_t>(size));
    };
    const auto length = static_cast<std::uint32_t>(seconds) * 32000;
    std::string file = "RIFF" + number(36 + length, 4) + "WAVEfmt " + number(16, 4) + number(1, 2) +
                       number(1, 2) + number(16000, 4) + number(32000, 4) + number(2, 2) +
                       number(16, 2) + "data" + number(length, 4);
    std::uint32_t seed = 1;
    for (std::uint32_t i = 0; i < length / 2; ++i) {
        seed = seed * 1664525 + 1013904223;
        file += number(static_cast<std::uint16_t>(static_cast<std::int16_t>(seed >> 16) / 8), 2);
    }
    return file;
}

std::string formOf(const std::string& audio) {
    return "--" + boundary +
           "\r\nContent-Disposition: form-data; name=\"language\"\r\n\r\nfr\r\n--" + boundary +
           "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.wav\"\r\n\r\n" + audio +
           "\r\n--" + boundary + "--\r\n";
}

class Companion {
  public:
    Companion(const std::filesystem::path& model, const std::string& digest, double keepMinutes)
        : m_process(arguments(model, digest, keepMinutes), {{}, m_folder / "log"}) {
        const std::regex marker("Listening on http://127\\.0\\.0\\.1:(\\d+)\n");
        std::smatch found;
        std::string log;
        if (!waitUntil([&] {
                return std::regex_search(log = contentOf(m_folder / "log"), found, marker);
            }))
            throw std::runtime_error("the companion does not start: " + log);
        m_port = std::stoi(found[1]);
    }

    /// What Nulo sends when the keys go down.
    void announce() const {
        const auto curl = handle("/api/version");
        curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
        perform(curl.get());
    }
    /// From the request to the end of its answer, in milliseconds.
    double transcribe(const std::string& form) const {
        const auto curl = handle("/api/transcribe");
        const std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers(
            curl_slist_append(curl_slist_append(nullptr, "Expect:"),
                              ("Content-Type: multipart/form-data; boundary=" + boundary).c_str()),
            curl_slist_free_all);
        curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, form.data());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(form.size()));
        std::string text;
        using Write = std::size_t (*)(char*, std::size_t, std::size_t, void*);
        const Write write = [](char* bytes, std::size_t, std::size_t size, void* all) {
            static_cast<std::string*>(all)->append(bytes, size);
            return size;
        };
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &text);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, write);
        const auto start = BenchClock::now();
        perform(curl.get());
        const double duration = nulo::milliseconds(BenchClock::now() - start);
        if (text.find("w103 w104") == std::string::npos)
            throw std::runtime_error("the companion answers \"" + text + "\"");
        return duration;
    }
    /// Sends a recording and hangs up while it is heard; the processor time that the companion
    /// spends behind that, in milliseconds.
    double hangUp(const std::string& form) const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(m_port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const std::string request =
            "POST /api/transcribe HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: "
            "multipart/form-data; boundary=" +
            boundary + "\r\nContent-Length: " + std::to_string(form.size()) + "\r\n\r\n" + form;
        if (connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("no connection");
        for (std::size_t sent = 0; sent < request.size();) {
            const auto count = send(client, request.data() + sent, request.size() - sent, 0);
            if (count <= 0)
                throw std::runtime_error("the companion takes no recording");
            sent += static_cast<std::size_t>(count);
        }
        const double before = seconds();
        if (!waitUntil([&] { return seconds() > before + 0.2; }))  // it is at work
            throw std::runtime_error("the companion hears nothing");
        const double hungUp = seconds();
        close(client);
        if (!waitUntil([&] { return isStill(); }))
            throw std::runtime_error("the companion goes on");
        return 1000 * (seconds() - hungUp);
    }
    long peak() const { return status("VmHWM:"); }
    long resident() const { return status("VmRSS:"); }
    double seconds() const { return processFacts(m_process.pid()).processorSeconds; }

  private:
    using Handle = std::unique_ptr<CURL, void (*)(CURL*)>;

    /// Whether it used no processor for a moment, but for looking at its connections four times a
    /// second.
    bool isStill() const {
        const double before = seconds();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return seconds() - before < 0.002;
    }
    long status(const std::string& key) const {
        std::ifstream lines("/proc/" + std::to_string(m_process.pid()) + "/status");
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with(key))
                return std::stol(line.substr(key.size()));
        return 0;
    }
    std::vector<std::string> arguments(const std::filesystem::path& model,
                                       const std::string& digest, double keepMinutes) {
        std::ofstream(m_folder / "nulo-service.json")
            << R"({"offline": {"model": ")" << model.string() << R"(", "sha256": ")" << digest
            << R"(", "keepMinutes": )" << keepMinutes << "}}";
        return {NULO_BINARY_FOLDER "/nulo-service", "--port", "0", "--config",
                (m_folder / "nulo-service.json").string()};
    }
    Handle handle(const std::string& path) const {
        Handle curl(curl_easy_init(), curl_easy_cleanup);
        curl_easy_setopt(curl.get(), CURLOPT_URL,
                         ("http://127.0.0.1:" + std::to_string(m_port) + path).c_str());
        curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
        curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
        return curl;
    }
    static void perform(CURL* curl) {
        const CURLcode code = curl_easy_perform(curl);
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (code != CURLE_OK || status != 200)
            throw std::runtime_error("a request failed: " + std::string(curl_easy_strerror(code)) +
                                     ", status " + std::to_string(status));
    }

    TemporaryFolder m_folder;
    ChildProcess m_process;
    int m_port = 0;
};

/// One run of whisper.cpp's own command line.
struct CommandLine {
    double heard = 0;  // milliseconds, without loading the model
    long peak = 0;     // KB
};
CommandLine commandLine(const std::filesystem::path& model, const std::filesystem::path& take,
                        const std::filesystem::path& log) {
    const std::string threads = std::to_string(service::physicalCores());
    const std::vector<std::string> words = {NULO_WHISPER_FOLDER "/whisper-cli",
                                            "--model",
                                            model,
                                            "--file",
                                            take,
                                            "--threads",
                                            threads,
                                            "--language",
                                            "fr",
                                            "--beam-size",
                                            "1",
                                            "--no-timestamps",
                                            "--no-gpu"};
    std::vector<char*> arguments;
    for (const auto& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, 1);
        dup2(file, 2);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    rusage used{};
    if (child < 0 || wait4(child, &status, 0, &used) != child || status != 0)
        throw std::runtime_error("whisper.cpp's command line failed: " + contentOf(log));
    const std::string text = contentOf(log);
    const auto figure = [&](const std::string& name) {
        std::smatch found;
        if (!std::regex_search(text, found, std::regex(name + " time = +([0-9.]+) ms")))
            throw std::runtime_error("whisper.cpp's command line says no " + name + " time");
        return std::stod(found[1]);
    };
    return {figure("total") - figure("load"), used.ru_maxrss};
}

Row rowOf(const std::string& figure, const char* unit, double ours) {
    Row row;
    row.figure = figure;
    row.unit = unit;
    row.ours = ours;
    return row;
}

/// Heard in pieces: what is held grows by the recording's samples alone.
void measureLongTake(const TemporaryFolder& folder) {
    const auto model = folder / "tiny.bin";
    writeRandomModel(model, tinyShape);
    const Companion companion(model, service::sha256OfFile(model).value(), 10);
    const std::string minute = formOf(noiseOf(60));
    companion.transcribe(minute);
    companion.transcribe(minute);
    const double afterMinute = double(companion.peak()) / 1024;
    Row duration = rowOf("offline: a take of 10 minutes, model of tiny's shape", "s",
                         companion.transcribe(formOf(noiseOf(600))) / 1000);
    report(duration);
    Row peak =
        rowOf("offline: a take of 10 minutes: peak memory", "MB", double(companion.peak()) / 1024);
    peak.reference = afterMinute;
    peak.referenceName = "a take of 1 minute";
    report(peak);
}

void run() {
    const TemporaryFolder folder;
    measureLongTake(folder);
    const auto model = folder / "base.bin";
    writeRandomModel(model, baseShape);
    const std::string digest = service::sha256OfFile(model).value();
    long peakOfCommandLine = 0;
    const Companion companion(model, digest, 10);
    for (const int seconds : {5, 30}) {
        const std::string take = noiseOf(seconds);
        const std::string form = formOf(take);
        std::ofstream(folder / "take.wav", std::ios::binary) << take;
        Samples ours, theirs;
        companion.transcribe(form);  // the model is there
        for (int turn = 0; turn < 7; ++turn) {
            companion.announce();  // as the keys go down, long before the take is there
            const auto reference = commandLine(model, folder / "take.wav", folder / "log");
            theirs.add(reference.heard);
            peakOfCommandLine = std::max(peakOfCommandLine, reference.peak);
            ours.add(companion.transcribe(form));
        }
        Row row =
            rowOf("offline: a take of " + std::to_string(seconds) + " s", "ms", ours.median());
        row.reference = theirs.median();
        row.referenceName = "whisper.cpp's command line, without loading";
        row.bound = 1.05;
        report(row);
    }
    Row peak = rowOf("offline: peak memory", "MB", double(companion.peak()) / 1024);
    peak.reference = double(peakOfCommandLine) / 1024;
    peak.referenceName = "whisper.cpp's command line";
    peak.bound = 1.1;
    report(peak);

    const std::string five = formOf(noiseOf(5));
    Samples together, oneByOne;
    for (int turn = 0; turn < 5; ++turn) {
        auto start = BenchClock::now();
        std::thread other([&] { companion.transcribe(five); });
        companion.transcribe(five);
        other.join();
        together.add(milliseconds(BenchClock::now() - start));
        start = BenchClock::now();
        companion.transcribe(five);
        companion.transcribe(five);
        oneByOne.add(milliseconds(BenchClock::now() - start));
    }
    Row two = rowOf("offline: two takes of 5 s at once", "ms", together.median());
    two.reference = oneByOne.median();
    two.referenceName = "one after the other";
    report(two);

    Samples after;
    for (int turn = 0; turn < 5; ++turn)
        after.add(companion.hangUp(five));
    Row hangUp =
        rowOf("offline: spent after a client hung up, worst of 5", "ms", after.percentile(100));
    hangUp.bound = 300;
    report(hangUp);

    const Companion forgetful(model, digest, 0);
    const std::string three = formOf(noiseOf(3));
    forgetful.transcribe(three);
    Samples cold, warm;
    for (int turn = 0; turn < 5; ++turn)
        for (const auto& [one, samples] : {std::pair{&forgetful, &cold}, {&companion, &warm}}) {
            one->announce();
            std::this_thread::sleep_for(std::chrono::seconds(3));  // the user speaks
            samples->add(one->transcribe(three));
        }
    Row first = rowOf("offline: the first take of 3 s after idle", "ms", cold.median());
    first.reference = warm.median();
    first.referenceName = "with the model there";
    first.bound = 1.1;
    report(first);
    const long held = companion.resident();
    waitUntil([&] { return forgetful.resident() < held / 2; });
    Row idle = rowOf("offline: resident when the model was let go", "MB",
                     double(forgetful.resident()) / 1024);
    idle.reference = double(held) / 1024;
    idle.referenceName = "with the model there";
    report(idle);
}

}  // namespace

int main() {
    return runBench("bench-offline", run);
}

#else

int main() {
    std::fputs("bench-offline: this build has no whisper.cpp (see tools/whisper)\n", stderr);
    return 0;
}

#endif
