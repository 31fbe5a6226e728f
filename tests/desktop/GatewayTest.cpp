// The installed program and the companion, with both vendors' parts played by a scripted server.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "config/PromptMode.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

// The three roads of a dictation: transcribed and cleaned in one request, transcribed only, and in
// two requests.
TEST(Gateway, servesEveryRoadOfADictation) {
    ScriptedHttpServer vendors([](const ReceivedRequest& request, auto& client) {
        const std::string& path = request.target;
        if (path == "/openai/audio/transcriptions")
            client.send(httpResponse(200, "euh bonjour\n", {"Content-Type: text/plain"}));
        else if (path == "/mistral/audio/transcriptions")
            client.send(httpResponse(200, R"({"text": "euh bonsoir"})",
                                     {"Content-Type: application/json"}));
        else
            client.send(httpResponse(200,
                                     "data: {\"choices\":[{\"delta\":{\"content\":\"Bon\"}}]}\n\n"
                                     "data: {\"choices\":[{\"delta\":{\"content\":\"jour, dit " +
                                         path.substr(1, path.find('/', 1) - 1) +
                                         ".\"}}]}\n\ndata: [DONE]\n\n",
                                     {"Content-Type: text/event-stream"}));
    });
    const CompanionProcess companion(
        R"({"providers": {"openai": {"apiKey": "one", "baseURL": ")" + vendors.url("/openai") +
        R"("}, "mistral": {"apiKey": "two", "baseURL": ")" + vendors.url("/mistral") + R"("}}})");
    DesktopSession desktop;
    desktop.writeServiceFile(companion.baseURL());
    desktop.startTextWindow();
    desktop.startNulo();
    std::string expected;
    const auto dictate = [&](const std::string& pasted) {
        expected += pasted;
        desktop.dictate(recordedSpeech().file.parent_path() /
                        "sense_and_sensibility_01_austen_64kb-0880.wav");
        EXPECT_TRUE(waitUntil([&] { return desktop.text() == expected; }))
            << "the window holds: " << desktop.text();
    };

    desktop.writeConfig("openai", "voice-to-text");
    dictate("Bonjour, dit openai.");
    desktop.writeConfig("mistral", "raw-transcription");
    dictate("euh bonsoir");
    desktop.writeConfig("mistral", "email", true);
    dictate("Bonjour, dit mistral.");

    const auto requests = vendors.requests();
    ASSERT_EQ(requests.size(), 5u);
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer one");
    const auto chat = nlohmann::json::parse(requests[1].body);
    EXPECT_EQ(chat["messages"][0]["content"], voiceToTextMode().prompt);
    EXPECT_EQ(requests[4].header("Authorization"), "Bearer two");
}

}  // namespace
}  // namespace nulo
