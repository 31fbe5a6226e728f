#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "Form.h"
#include "ServiceProgram.h"

namespace nulo::service {
namespace {

/// What a client makes of an event stream; fails the test when it is not as promised.
std::string textOf(const std::string& stream) {
    std::istringstream lines(stream);
    std::string text;
    bool ended = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty())
            continue;
        EXPECT_FALSE(ended);
        EXPECT_EQ(line.rfind("data: ", 0), 0u) << line;
        ended = line == "data: [DONE]";
        if (!ended)
            text += nlohmann::json::parse(line.substr(6))["choices"][0]["delta"]["content"];
    }
    EXPECT_TRUE(ended);
    return text;
}

bool isMilliseconds(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

TEST(Service, recognisesAHumanVoice) {
    const Service service;
    auto client = service.client();
    const auto plain = client.Post("/api/transcribe",
                                   formOf({{"provider", "openai"},
                                           {"model", "gpt-4o-mini-transcribe"},
                                           {"file", speech("0870")}}),
                                   formType);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->status, 200);
    EXPECT_EQ(plain->get_header_value("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_NE(plain->body.find("leisure to consider how much there might be"), std::string::npos)
        << plain->body;

    const auto combined = client.Post("/api/transcribe",
                                      formOf({{"provider", "mistral"},
                                              {"cleanup_prompt", "Fix it."},
                                              {"cleanup_model", "mistral"},
                                              {"file", speech("0880")}}),
                                      formType);
    ASSERT_TRUE(combined);
    EXPECT_EQ(combined->status, 200);
    EXPECT_EQ(combined->get_header_value("Content-Type"), "text/event-stream");
    EXPECT_TRUE(isMilliseconds(combined->get_header_value("X-Upload-Ms")));
    EXPECT_TRUE(isMilliseconds(combined->get_header_value("X-Transcription-Ms")));
    const std::string text = textOf(combined->body);
    EXPECT_EQ(text.rfind("He was not ", 0), 0u) << text;
    EXPECT_EQ(text.substr(text.size() - 11), " young man.") << text;
    // The log says what was asked and how long it took, not what was spoken.
    ASSERT_TRUE(waitUntil(
        [&] { return service.log().find("POST /api/transcribe 200 ") != std::string::npos; }));
    EXPECT_EQ(service.log().find("leisure"), std::string::npos);

    // Silence is no text, and no error; one sample is a recording too.
    std::string silence = speech("0880").substr(0, 44) + std::string(64000, '\0');
    EXPECT_EQ(client.Post("/api/transcribe", formOf({{"file", silence}}), formType)->body, "");
    EXPECT_EQ(service.post("/api/transcribe", formOf({{"file", silence.substr(0, 46)}}), formType),
              200);
}

TEST(Service, streamsCleanedTextAndTellsItsVersion) {
    const Service service;
    auto client = service.client();
    nlohmann::json chat = {{"model", "mistral-small-latest"},
                           {"stream", true},
                           {"messages",
                            {{{"role", "system"}, {"content", "Réponds en vers."}},
                             {{"role", "user"}, {"content", "euh l'été est \"là\" là"}}}}};
    const auto answer = client.Post("/api/chat", chat.dump(), "application/json");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->get_header_value("Content-Type"), "text/event-stream");
    EXPECT_EQ(textOf(answer->body), "L'été est \"là\" là.");
    chat["messages"][1]["content"] = " ";
    EXPECT_EQ(textOf(client.Post("/api/chat", chat.dump(), "application/json")->body), "");

    EXPECT_EQ(client.Head("/api/version")->status, 200);
    EXPECT_EQ(client.Get("/api/version", {{"Range", "bytes=0-3"}})->status, 200);
    const auto info = nlohmann::json::parse(client.Get("/api/version")->body);
    EXPECT_TRUE(info.at("build").is_number_integer());
    for (const char* key : {"version", "downloadUrl", "releaseNotes", "minVersion"})
        EXPECT_TRUE(info.at(key).is_string()) << key;
    EXPECT_EQ(client.Get("/update.sh")->status, 404);
}

TEST(Service, offersTheUpdateInItsFolderAndNothingElseOfTheDisk) {
    const TemporaryFolder folder;
    const auto write = [&](const char* name, const std::string& content) {
        std::ofstream(folder / name) << content;
    };
    std::filesystem::create_directories(folder / "offer/updates/inner");
    write("secret", "secret");
    write("token", "a-token-of-some-length");
    const Service service({"--update-dir", folder / "offer", "--token-file", folder / "token"});
    auto client = service.client();
    const auto status = [&](const char* path) {
        const auto answer = client.Get(path);
        EXPECT_TRUE(answer) << path;
        return answer ? answer->status : 0;
    };
    EXPECT_EQ(client.Head("/api/version")->status, 200);
    EXPECT_EQ(nlohmann::json::parse(client.Get("/api/version")->body).at("downloadUrl"), "");
    EXPECT_EQ(status("/update.sh"), 404);

    // What is put there later is served, without credentials.
    std::string archive;
    for (int i = 0; i < 3'000'000; ++i)
        archive += static_cast<char>(i * 7 + i / 256);
    write("offer/version.json", R"({"version":"9.9"})");
    write("offer/update.sh", "#!/bin/bash\n");
    write("offer/updates/nulo-9.9.zip", archive);
    write("offer/updates/empty.zip", "");
    write("offer/updates/.hidden", "hidden");
    write("offer/updates/inner/a.zip", "inner");
    EXPECT_EQ(client.Get("/api/version")->body, R"({"version":"9.9"})");
    EXPECT_EQ(client.Head("/api/version")->status, 200);
    EXPECT_EQ(client.Get("/update.sh")->body, "#!/bin/bash\n");
    EXPECT_TRUE(client.Get("/updates/nulo-9.9.zip")->body == archive);
    EXPECT_EQ(client.Head("/updates/nulo-9.9.zip")->get_header_value("Content-Length"),
              std::to_string(archive.size()));
    EXPECT_EQ(client.Get("/updates/empty.zip")->body, "");
    EXPECT_EQ(service.post("/update.sh", "", "text/plain"), 405);

    ASSERT_EQ(mkfifo((folder / "offer/updates/fifo").c_str(), 0600), 0);
    for (const char* path :
         {"/updates/", "/updates/..", "/updates/../../secret", "/updates/%2e%2e/%2e%2e/secret",
          "/updates/..%2f..%2fsecret", "/updates/.hidden", "/updates/inner", "/updates/inner/a.zip",
          "/updates/fifo", "/updates/none.zip", "/updates/a%00.zip", "/version.json", "/updates"})
        EXPECT_EQ(status(path), 404) << path;
    EXPECT_EQ(status("/api/version"), 200);
}

TEST(Service, refusesBadRequestsWithATextAndLivesOn) {
    const Service service;
    const std::string transcribe = "/api/transcribe";
    const std::string wav = speech("0880");
    EXPECT_EQ(service.post(transcribe, formOf({{"provider", "openai"}}), formType), 400);
    EXPECT_EQ(service.post(transcribe, formOf({{"file", wav}, {"file", wav}}), formType), 400);
    EXPECT_EQ(service.post(transcribe, formOf({{"file", wav}}).substr(0, 5000), formType), 400);
    EXPECT_EQ(service.post(transcribe, "no form", formType), 400);
    EXPECT_EQ(service.post(transcribe, "", "multipart/form-data"), 400);
    EXPECT_EQ(service.post(transcribe, "{}", "application/json"), 400);
    std::vector<std::pair<std::string, std::string>> many;
    for (int i = 0; i < 10000; ++i)
        many.emplace_back("field" + std::to_string(i), "x");
    EXPECT_EQ(service.post(transcribe, formOf(many), formType), 400);
    EXPECT_EQ(service.post(transcribe, formOf({{"file", ""}}), formType), 415);
    EXPECT_EQ(service.post(transcribe, formOf({{"file", "no audio"}}), formType), 415);
    EXPECT_EQ(service.post(transcribe, formOf({{"file", std::string(25 << 20, 'x')}}), formType),
              413);
    for (const char* chat :
         {"", "{", "[]", R"({"stream":true})", R"({"messages":[],"stream":true})",
          R"({"messages":[{"role":"user","content":1}],"stream":true})",
          R"({"messages":[{"role":"user","content":"a"}]})",
          R"({"model":1,"messages":[{"role":"user","content":"a"}],"stream":true})",
          "{\"messages\":[{\"role\":\"user\",\"content\":\"\xff\"}],\"stream\":true}"})
        EXPECT_EQ(service.post("/api/chat", chat, "application/json"), 400) << chat;
    EXPECT_EQ(service.post("/api/chat", formOf({{"file", wav}}), formType), 400);
    EXPECT_EQ(service.post("/api/chat", std::string(1 << 20, '['), "application/json"), 400);
    EXPECT_EQ(service.post("/api/chat", std::string((1 << 20) + 1, '['), "application/json"), 413);
    EXPECT_EQ(service.post("/api/version", "", "text/plain"), 405);
    EXPECT_EQ(service.client().Get("/api/chat")->get_header_value("Allow"), "POST");
    EXPECT_EQ(service.client().Get("/etc/passwd")->status, 404);
    httplib::Headers manyHeaders;
    for (int i = 0; i < 20; ++i)
        manyHeaders.emplace("X-" + std::to_string(i), std::string(7000, 'x'));
    const auto largeHead = service.client().Get("/api/version", manyHeaders);
    EXPECT_TRUE(!largeHead || largeHead->status == 431);
    EXPECT_EQ(service.client().Get("/api/version", {{"Origin", "https://a.example"}})->status, 403);
    EXPECT_EQ(service.client().Get("/api/version")->status, 200);
}

TEST(Service, wantsItsTokenForSpeechAndTextOnly) {
    const TemporaryFolder folder;
    std::ofstream(folder / "token") << "a-token-of-some-length\n";
    const Service service({"--token-file", folder / "token"});
    auto client = service.client();
    const std::string chat = R"({"stream":true,"messages":[{"role":"user","content":"a"}]})";
    const auto refused = client.Post("/api/chat", chat, "application/json");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 401);
    EXPECT_EQ(refused->get_header_value("WWW-Authenticate"), "Bearer");
    EXPECT_EQ(service.post("/api/transcribe", formOf({{"file", speech("0880")}}), formType), 401);
    EXPECT_EQ(client.Get("/api/version")->status, 200);
    client.set_bearer_token_auth("a-token-of-some-length");
    EXPECT_EQ(client.Post("/api/chat", chat, "application/json")->status, 200);
    EXPECT_EQ(service.log().find("a-token"), std::string::npos);
}

// A stop must not cost the dictation that is being sent.
TEST(Service, finishesAnUploadInFlightWhenItIsStopped) {
    Service service;
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(service.port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const std::string form = formOf({{"cleanup_prompt", "x"}, {"file", speech("0880")}});
    const std::string head = "POST /api/transcribe HTTP/1.1\r\nHost: localhost\r\nContent-Type: " +
                             std::string(formType) +
                             "\r\nContent-Length: " + std::to_string(form.size()) +
                             "\r\nExpect: 100-continue\r\n\r\n";
    ASSERT_EQ(send(client, head.data(), head.size(), 0), ssize_t(head.size()));
    char bytes[4096];
    ASSERT_GT(recv(client, bytes, sizeof bytes, 0),
              0);  // "100 Continue": the request is being read
    service.process().signal(SIGTERM);
    ASSERT_TRUE(waitUntil([&] { return !service.client().Get("/api/version"); }));
    ASSERT_EQ(send(client, form.data(), form.size(), MSG_NOSIGNAL), ssize_t(form.size()));
    std::string answer;
    for (ssize_t count = 0; (count = recv(client, bytes, sizeof bytes, 0)) > 0;)
        answer.append(bytes, static_cast<std::size_t>(count));
    close(client);
    EXPECT_NE(answer.find("200 OK"), std::string::npos) << answer;
    EXPECT_NE(answer.find("young"), std::string::npos) << answer;
    EXPECT_NE(answer.find("data: [DONE]"), std::string::npos) << answer;
    EXPECT_EQ(service.process().wait(std::chrono::seconds(30)), 0) << service.log();
}

// Each start that cannot work ends at once, with its status and a line that says why.
TEST(Service, saysWhyItDoesNotStart) {
    const Service first;
    const TemporaryFolder folder;
    const auto attempt = [&](std::vector<std::string> options) {
        const auto log = folder / "log";
        std::filesystem::remove(log);
        options.insert(options.begin(), program);
        ChildProcess process(options, {{"XDG_CONFIG_HOME=" + folder.path().string()}, log});
        const auto status = process.wait(std::chrono::seconds(30));
        std::ostringstream text;
        text << std::ifstream(log).rdbuf();
        return std::pair(status.value_or(-1), text.str());
    };
    const auto expect = [](const std::pair<int, std::string>& outcome, int status,
                           const char* text) {
        EXPECT_EQ(outcome.first, status) << outcome.second;
        EXPECT_NE(outcome.second.find(text), std::string::npos) << outcome.second;
    };
    expect(attempt({"--port", std::to_string(first.port)}), 1, "listens there already");
    expect(attempt({"--port", "0", "--address", "192.0.2.1", "--token-file", "/dev/null"}), 1,
           "token");
    expect(attempt({"--port", "0", "--address", "0.0.0.0"}), 1, "--token-file");
    expect(attempt({"--nonsense"}), 2, "usage: nulo-service");
    expect(attempt({"--port", "0", "--model-dir", folder.path()}), 1, "pocketsphinx-en-us");
    expect(attempt({"--port", "0", "--update-dir", folder / "none"}), 1, "is no folder");
    expect(attempt({"--version"}), 0, "nulo-service ");
    std::filesystem::create_directory(folder / "nulo");
    std::ofstream(folder / "nulo/nulo-service.json")
        << R"({"address": "192.0.2.1", "providers": {"openai": {"apiKey": "sk-secret"}}})";
    expect(attempt({"--check"}), 1, "list tokens");  // the user's own file, found by itself
    expect(attempt({"--check", "--address", "::1"}), 0, "openai: https://api.openai.com/v1, with");
    EXPECT_EQ(attempt({"--check", "--address", "::1"}).second.find("sk-secret"), std::string::npos);
    expect(attempt({"--config", folder / "missing"}), 1, "missing cannot be read");
    std::filesystem::remove_all(folder / "nulo");
    std::ofstream(folder / "token") << "a-token-of-some-length";
    expect(attempt({"--address", "192.0.2.1", "--token-file", folder / "token"}), 1,
           "no address of this machine");
}

}  // namespace
}  // namespace nulo::service
