#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "Form.h"
#include "RawClient.h"
#include "ServiceProgram.h"

namespace nulo::service {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

TEST(Service, recognisesAHumanVoiceAndSaysNothingOfIt) {
    const Service service;
    const auto transcribed = [&](const std::string& wav) {
        const std::string form = formOf({{"provider", "openai"}, {"file", wav}});
        const auto answer = service.client().Post("/api/transcribe", form, formType);
        EXPECT_EQ(answer->get_header_value("Content-Type"), "text/plain; charset=utf-8");
        return answer->status == 200 ? answer->body : "status " + std::to_string(answer->status);
    };
    EXPECT_THAT(transcribed(speech("0870")), HasSubstr("leisure to consider how much there might"));
    // Silence is no text, and no error; one sample is a recording too.
    for (const std::size_t size : {32000, 1})
        EXPECT_EQ(transcribed(speechWav(std::vector<std::int16_t>(size))), "");
    ASSERT_TRUE(waitUntil(
        [&] { return service.log().find("POST /api/transcribe 200 ") != std::string::npos; }));
    EXPECT_THAT(service.log(), Not(HasSubstr("leisure")));
}

TEST(Service, loadsItsEngineWhileTheUserSpeaks) {
    Service service({}, R"({"offline": {"keepMinutes": 0}})");
    const auto isLoaded = [&] {  // its model is mapped
        std::ifstream maps("/proc/" + std::to_string(service.process().pid()) + "/maps");
        const std::string all{std::istreambuf_iterator<char>(maps), {}};
        return all.find("/en-us/mdef") != std::string::npos;
    };
    ASSERT_TRUE(waitUntil([&] { return !isLoaded(); }));  // it was, to see that it can be
    EXPECT_EQ(service.client().Head("/api/version")->status, 200);
    EXPECT_TRUE(waitUntil(isLoaded));
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
    const auto info = json::parse(client.Get("/api/version")->body);
    EXPECT_TRUE(info.at("build").is_number_integer());
    for (const char* key : {"version", "downloadUrl", "releaseNotes", "minVersion"})
        EXPECT_TRUE(info.at(key).is_string()) << key;
    EXPECT_EQ(client.Get("/update.sh")->status, 404);

    // What is put there later is served, without credentials.
    const std::string archive(3'000'000, 'a');
    write("offer/version.json", R"({"version":"9.9"})");
    write("offer/update.sh", "#!/bin/bash\n");
    write("offer/updates/nulo-9.9.zip", archive);
    write("offer/updates/empty.zip", "");
    write("offer/updates/.hidden", "hidden");
    write("offer/updates/inner/a.zip", "inner");
    EXPECT_EQ(client.Get("/api/version")->body, R"({"version":"9.9"})");
    EXPECT_EQ(client.Get("/update.sh")->body, "#!/bin/bash\n");
    EXPECT_TRUE(client.Get("/updates/nulo-9.9.zip")->body == archive);
    EXPECT_EQ(client.Head("/updates/nulo-9.9.zip")->get_header_value("Content-Length"),
              std::to_string(archive.size()));
    EXPECT_EQ(client.Get("/updates/empty.zip")->body, "");
    ASSERT_EQ(mkfifo((folder / "offer/updates/fifo").c_str(), 0600), 0);
    for (const char* path :
         {"/updates/", "/updates/..", "/updates/../../secret", "/updates/%2e%2e/%2e%2e/secret",
          "/updates/..%2f..%2fsecret", "/updates/.hidden", "/updates/inner", "/updates/inner/a.zip",
          "/updates/fifo", "/updates/none.zip", "/updates/a%00.zip", "/version.json", "/updates"})
        EXPECT_EQ(client.Get(path)->status, 404) << path;

    // The token is for speech and text only.
    const std::string chat = R"({"stream":true,"messages":[{"role":"user","content":"a"}]})";
    const auto refused = client.Post("/api/chat", chat, "application/json");
    EXPECT_EQ(refused->status, 401);
    EXPECT_EQ(refused->get_header_value("WWW-Authenticate"), "Bearer");
    EXPECT_EQ(service.post("/api/transcribe", formOf({{"file", speech("0880")}}), formType), 401);
    client.set_bearer_token_auth("a-token-of-some-length");
    EXPECT_EQ(client.Post("/api/chat", chat, "application/json")->status, 200);
    EXPECT_THAT(service.log(), Not(HasSubstr("a-token")));
}

TEST(Service, refusesBadRequestsWithATextAndLivesOn) {
    const Service service;
    const std::string wav = speech("0880");
    const std::string twice = formOf({{"file", wav}, {"file", wav}});
    for (const auto& [body, status] : {std::pair{formOf({{"provider", "openai"}}), 400},
                                       {twice, 400},
                                       {twice.substr(0, 5000), 400},
                                       {formOf({{"file", ""}}), 415},
                                       {formOf({{"file", std::string(25 << 20, 'x')}}), 413}})
        EXPECT_EQ(service.post("/api/transcribe", body, formType), status) << body.substr(0, 90);
    EXPECT_EQ(service.post("/api/transcribe", "{}", "application/json"), 400);
    const std::string deep(1 << 20, '[');
    for (const std::string body :
         {"{", "[]", R"({"stream":true})", R"({"messages":[],"stream":true})",
          R"({"messages":[{"role":"user","content":1}],"stream":true})",
          R"({"messages":[{"role":"user","content":"a"}]})",
          R"({"model":1,"messages":[{"role":"user","content":"a"}],"stream":true})",
          "{\"messages\":[{\"role\":\"user\",\"content\":\"\xff\"}],\"stream\":true}",
          deep.c_str()})
        EXPECT_EQ(service.post("/api/chat", body, "application/json"), 400) << body.substr(0, 90);
    EXPECT_EQ(service.post("/api/chat", twice, formType), 400);
    EXPECT_EQ(service.post("/api/chat", deep + "[", "application/json"), 413);
    auto client = service.client();
    EXPECT_EQ(client.Get("/api/chat")->get_header_value("Allow"), "POST");
    EXPECT_EQ(client.Get("/etc/passwd")->status, 404);
    EXPECT_EQ(client.Head("/api/version")->status, 200);
    EXPECT_EQ(client.Get("/api/version", {{"Origin", "https://a.example"}})->status, 403);
    EXPECT_EQ(client.Get("/api/version", {{"Range", "bytes=0-3"}})->status, 200);
}

// A stop must not cost the dictation that is being sent, nor wait for a client that sends none.
TEST(Service, finishesAnUploadInFlightWhenItIsStopped) {
    Service service;
    const RawClient idle(service.port);
    idle.send("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n");
    idle.readUntil("ok\n");
    const RawClient client(service.port);
    const std::string form = formOf({{"cleanup_prompt", "x"}, {"file", speech("0880")}});
    const std::string type = std::string("Content-Type: ") + formType + "\r\n";
    const std::string request = postOf("/api/transcribe", type + "Expect: 100-continue\r\n", form);
    client.send(request.substr(0, request.size() - form.size()));
    EXPECT_EQ(client.readUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");  // it is being read
    service.process().signal(SIGTERM);
    ASSERT_TRUE(waitUntil([&] { return !service.client().Get("/api/version"); }));
    client.send(form);
    const std::string answer = client.readAll();
    for (const char* part : {"200 OK", "text/event-stream", "X-Upload-Ms: ", "X-Transcription-Ms: ",
                             "\ndata: {\"choices\":[{\"delta\":{\"content\":\"He\"}}]}\n\n",
                             "\" man.\"}}]}\n\n", "data: [DONE]\n\n"})
        EXPECT_THAT(answer, HasSubstr(part));
    EXPECT_EQ(service.process().wait(std::chrono::seconds(30)), 0) << service.log();
}

// Each start that cannot work ends at once, with its status and a line that says why.
TEST(Service, saysWhyItDoesNotStart) {
    const Service first;
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "nulo");
    const auto expect = [&](std::vector<std::string> options, int status, const char* text) {
        std::filesystem::remove(folder / "log");
        options.insert(options.begin(), program);
        ChildProcess process(options,
                             {{"XDG_CONFIG_HOME=" + folder.path().string()}, folder / "log"});
        EXPECT_EQ(process.wait(std::chrono::seconds(30)), status) << text;
        const std::string log = readFile(folder / "log", 1 << 20).value_or("");
        EXPECT_THAT(log, AllOf(HasSubstr(text), Not(HasSubstr("sk-secret"))));
    };
    expect({"--port", std::to_string(first.port)}, 1, "listens there already");
    expect({"--port", "0", "--address", "192.0.2.1", "--token-file", "/dev/null"}, 1, "token");
    expect({"--port", "0", "--address", "0.0.0.0"}, 1, "--token-file");
    expect({"--nonsense"}, 2, "usage: nulo-service");
    expect({"--port", "0", "--model-dir", folder.path()}, 1, "pocketsphinx-en-us");
    expect({"--config", folder / "missing"}, 1, "missing cannot be read");
    std::ofstream(folder / "nulo/nulo-service.json")
        << R"({"address": "192.0.2.1", "providers": {"openai": {"apiKey": "sk-secret"}}})";
    expect({"--check"}, 1, "list tokens");  // the user's own file, found by itself
    expect({"--check", "--address", "::1"}, 0, "openai: https://api.openai.com/v1, with");
    std::ofstream(folder / "token") << "a-token-of-some-length";
    expect({"--token-file", folder / "token"}, 1, "no address of this machine");
}

}  // namespace
}  // namespace nulo::service
