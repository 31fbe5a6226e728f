#include "Companion.h"
#include "config/PromptMode.h"

namespace nulo::service {
namespace {

/// A language model on this machine beside the offline engine, and nobody else.
class LocalModelTest : public CompanionTest {
  protected:
    LocalModelTest() {
        config.providers = {{"local", model.url("/v1"), "", "", "small-instruct"}};
        letGo();
    }

    // As such servers write it: the role first, an empty end with its reason, then the count.
    ScriptedHttpServer model{[](const ReceivedRequest& request, Connection& connection) {
        const json asked = json::parse(request.body);
        const auto event = [](const json& delta, const json& reason) {
            return httpChunk(
                "data: " +
                json{{"object", "chat.completion.chunk"},
                     {"choices", {{{"index", 0}, {"delta", delta}, {"finish_reason", reason}}}}}
                    .dump() +
                "\n\n");
        };
        connection.send(
            "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
            "Transfer-Encoding: chunked\r\n\r\n" +
            event({{"role", "assistant"}, {"content", nullptr}}, nullptr) +
            event({{"content", "Written: "}}, nullptr) +
            event({{"content", asked["messages"][1]["content"]}}, nullptr) +
            event(json::object(), "stop") +
            httpChunk("data: {\"choices\":[],\"usage\":{\"total_tokens\":9}}\n\n") +
            httpChunk("data: [DONE]\n\n") + httpChunk(""));
    }};
};

TEST_F(LocalModelTest, rewritesInEveryModeThatAsksForIt) {
    std::size_t asked = 0;
    for (const PromptMode& mode : defaultModes()) {
        const std::vector<std::pair<std::string, std::string>> wish = {
            {"provider", "openai"},
            {"cleanup_prompt", mode.prompt},
            {"cleanup_model", mode.cleanupModel}};
        if (mode.prompt.empty()) {
            EXPECT_EQ(transcribe({wish[0]})->body, "um spoken words") << mode.id;
            continue;
        }
        EXPECT_EQ(textOf(transcribe(wish)->body),
                  std::pair(std::string("Written: um spoken words"), true))
            << mode.id;
        ASSERT_EQ(model.requests().size(), ++asked) << mode.id;
        EXPECT_EQ(model.requests().back().target, "/v1/chat/completions");
        const json body = json::parse(model.requests().back().body);
        EXPECT_EQ(body["model"], "small-instruct") << mode.id;
        EXPECT_EQ(body["messages"][0]["content"], mode.prompt) << mode.id;
    }
    EXPECT_EQ(asked, 4u);
    model.stop();
    EXPECT_EQ(combined()->status, 502);  // what it would have written is not made up
}

}  // namespace
}  // namespace nulo::service
