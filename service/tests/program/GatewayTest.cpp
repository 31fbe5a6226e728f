#include "GatewayFixture.h"

namespace nulo::service {
namespace {

TEST_F(GatewayTest, transcribesWithTheVendorThatIsNamed) {
    play(says(httpResponse(200, "what was spoken\n", {"Content-Type: text/plain"})));
    std::string form = formOf({{"provider", "openai"},
                               {"model", "gpt-4o-mini-transcribe"},
                               {"response_format", "text"},
                               {"prompt", ""},
                               {"file", speech("0880")}});
    form.replace(form.find("take.m4a"), 8, "../../etc/passwd");
    auto answer = nulo().Post("/api/transcribe", form, formType);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(answer->body, "what was spoken\n");
    play(says(jsonAnswer(200, {{"text", "l'été"}, {"model", "voxtral"}})));
    EXPECT_EQ(transcribe("mistral")->body, "l'été");

    const auto requests = upstream.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/openai/v1/audio/transcriptions");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer sk-secret-one");
    for (const char* part : {"name=\"model\"\r\n\r\ngpt-4o-mini-transcribe\r\n",
                             "name=\"response_format\"\r\n\r\ntext\r\n",
                             "name=\"prompt\"\r\n\r\n\r\n", "filename=\"take.wav\""})
        EXPECT_NE(requests[0].body.find(part), std::string::npos) << part;
    EXPECT_NE(requests[0].body.find(speech("0880")), std::string::npos);
    EXPECT_EQ(requests[0].body.find("passwd"), std::string::npos);
    EXPECT_EQ(requests[1].target, "/mistral/v1/audio/transcriptions");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer sk-secret-two");
    EXPECT_NE(requests[1].body.find("name=\"model\"\r\n\r\nvoxtral-mini-latest\r\n"),
              std::string::npos);
    EXPECT_EQ(requests[1].body.find("name=\"prompt\""), std::string::npos);
    EXPECT_NE(logged().find("transcription: mistral (voxtral-mini-latest), since the request"),
              std::string::npos)
        << logged();
}

// The stream was held back until the model was done.
TEST_F(GatewayTest, handsTheFirstWordOnWhileTheModelIsStillWriting) {
    play(says(httpResponse(200, "bon jour")), [](const ReceivedRequest&, Connection& connection) {
        connection.send(streamHead + httpChunk(token("Bon")));
        connection.stall();
        connection.send(httpChunk(token("jour")) + httpChunk("data: [DONE]\n\n") + httpChunk(""));
    });
    std::string bytes;
    httplib::Request request;
    request.method = "POST";
    request.path = "/api/transcribe";
    request.body = formOf({{"provider", "openai"},
                           {"cleanup_prompt", "Corrige.\nPas plus."},
                           {"cleanup_model", "mistral"},
                           {"file", speech("0880")}});
    request.set_header("Content-Type", formType);
    request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t,
                                   std::uint64_t) {
        bytes.append(data, size);
        upstream.release();  // only once the first word is here
        return true;
    };
    const auto answer = nulo().send(request);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_TRUE(answer->has_header("X-Transcription-Ms"));
    EXPECT_EQ(textOf(bytes), std::pair(std::string("Bonjour"), true));
    const auto asked = upstream.requests().back();
    EXPECT_EQ(asked.target, "/mistral/v1/chat/completions");
    EXPECT_EQ(json::parse(asked.body),
              json({{"model", "mistral-small-latest"},
                    {"stream", true},
                    {"messages",
                     {{{"role", "system"}, {"content", "Corrige.\nPas plus."}},
                      {{"role", "user"}, {"content", "bon jour"}}}}}));
}

TEST_F(GatewayTest, passesAChatOnAndKeepsItsConnection) {
    play({}, says(streamHead + httpChunk(": hello\r\n\r\ndata: {\"choices\":[]}\n\n") +
                  httpChunk("data: {\"choices\":[{\"delta\":{\"role\":\"assistant\","
                            "\"content\":null}}]}\r\n\r\ndata:") +
                  httpChunk(" {\"choices\":[{\"delta\":{\"content\":\"\\u00e9\xff\"}}]}\n\n") +
                  httpChunk("data: [DONE]\n\n") + httpChunk("")));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(textOf(chat()->body), std::pair(std::string("é\uFFFD"), true));
    EXPECT_EQ(upstream.acceptedConnections(), 1);
    EXPECT_EQ(json::parse(upstream.requests()[0].body), json::parse(question()));
    EXPECT_EQ(upstream.requests()[0].target, "/openai/v1/chat/completions");
}

// A model that is asked about nothing invents something.
TEST_F(GatewayTest, asksNobodyAboutSilenceOrAnEmptyText) {
    const std::string silence = speech("0880").substr(0, 44) + std::string(64000, '\0');
    const auto plain = nulo().Post("/api/transcribe",
                                   formOf({{"provider", "openai"}, {"file", silence}}), formType);
    EXPECT_EQ(plain->status, 200);
    EXPECT_EQ(plain->body, "");
    const auto both = nulo().Post(
        "/api/transcribe", formOf({{"cleanup_prompt", "Tidy."}, {"file", silence}}), formType);
    EXPECT_EQ(both->status, 200);
    EXPECT_EQ(both->body, "data: [DONE]\n\n");
    EXPECT_EQ(chat(question("gpt-5.4-mini", " \n"))->body, "data: [DONE]\n\n");
    EXPECT_EQ(nulo().Post("/api/transcribe", formOf({{"file", "no audio"}}), formType)->status,
              415);
    EXPECT_TRUE(upstream.requests().empty());
    play(says(httpResponse(200, " \n")));
    EXPECT_EQ(combined()->body, "data: [DONE]\n\n");
    EXPECT_EQ(upstream.requests().size(), 1u);
}

}  // namespace
}  // namespace nulo::service
