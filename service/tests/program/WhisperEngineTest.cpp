#include "service/offline/WhisperEngine.h"

#include <gtest/gtest.h>
#include <sched.h>

#include "Form.h"
#include "ServiceProgram.h"
#include "rig/speech/RandomModel.h"
#include "service/Sha256.h"
#include "service/models/ModelFolder.h"

namespace nulo::service {
namespace {

TEST(WhisperEngine, looksAtTheDigestFirst) {
    const TemporaryFolder folder;
    std::ofstream(folder / "model.bin") << "no model";
    const auto refusal = [&](const char* file, const std::string& digest) {
        return whisperEngines({folder / file, digest}).error().description;
    };
    EXPECT_NE(refusal("model.bin", sha256("another")).find("is another file"), std::string::npos);
    EXPECT_NE(refusal("missing", sha256("no model")).find("cannot be read"), std::string::npos);
#ifndef NULO_HAS_WHISPER
    EXPECT_NE(refusal("model.bin", sha256("no model")).find("tools/whisper"), std::string::npos);
#endif
}

#ifdef NULO_HAS_WHISPER

class WhisperModelTest : public testing::Test {
  protected:
    /// On one core: of several threads each would wait, at every step, for the one that a busy
    /// machine keeps waiting.
    WhisperModelTest() : samples(speechRate * 2) {
        sched_getaffinity(0, sizeof m_cores, &m_cores);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(sched_getcpu(), &one);
        sched_setaffinity(0, sizeof one, &one);
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = static_cast<std::int16_t>(i * 7919 % 20000);
    }
    ~WhisperModelTest() override { sched_setaffinity(0, sizeof m_cores, &m_cores); }
    MakeEngine enginesOf(const ModelShape& shape, bool hasBlank = true) {
        writeRandomModel(file, shape, hasBlank);
        return whisperEngines(model()).value();
    }
    OfflineModel model() const { return {file, sha256OfFile(file).value()}; }

    const TemporaryFolder folder;
    const std::filesystem::path file = folder / "model.bin";
    std::vector<std::int16_t> samples;

  private:
    cpu_set_t m_cores{};
};

const StillWanted always = [] { return true; };

// What random weights hear is the same of all; that they are loaded, told of hints, interrupted and
// let go is not.
TEST_F(WhisperModelTest, hearsWithHintsAndCanBeInterrupted) {
    const auto make = enginesOf(leastShape);
    auto engine = make();
    ASSERT_TRUE(engine) << engine.error().description;
    const auto plain = engine.value()->hear(samples, {}, always);
    EXPECT_EQ(plain.language, "fr");  // recognised
    EXPECT_TRUE(plain.text.starts_with("w103 w104 w105 ")) << plain.text;
    EXPECT_TRUE(plain.text.ends_with(" w138")) << plain.text;

    // What was given up leaves nothing behind; nor do hints.
    EXPECT_EQ(engine.value()->hear(samples, {"de", "w7"}, [] { return false; }).text, "");
    const auto hinted = engine.value()->hear(samples, {"de-AT", "w7 w8", "w9"}, always);
    EXPECT_EQ(hinted.language, "de");
    EXPECT_FALSE(hinted.text.starts_with("w103")) << hinted.text;  // the words came before
    EXPECT_EQ(engine.value()->hear(samples, {}, always).text, plain.text);
    EXPECT_EQ(engine.value()
                  ->hear({samples.data(), 1}, {"no language", std::string(1 << 20, 'w')}, always)
                  .language,
              "fr");
}

TEST_F(WhisperModelTest, refusesWhatIsNoModelAndOutlivesAnInferenceThatFails) {
    std::ofstream(file) << "no model";
    EXPECT_NE(whisperEngines(model()).value()().error().description.find("is no ggml model"),
              std::string::npos);
    auto engine = enginesOf(leastShape, false)();
    ASSERT_TRUE(engine);
    EXPECT_ANY_THROW(engine.value()->hear(samples, {"fr", ""}, always));
}

// While nobody used it, somebody else put another file there.
TEST_F(WhisperModelTest, looksAtAFileThatHasChangedOnceMore) {
    const auto make = enginesOf(leastShape);
    EXPECT_TRUE(make());
    std::ofstream(file, std::ios::app) << "more";
    EXPECT_NE(make().error().description.find("is another file"), std::string::npos);
}

// Nobody has to start the companion again for a model that has come meanwhile.
TEST_F(WhisperModelTest, servesRequestsFromTheMomentItIsInstalled) {
    const Service service;
    const auto answer = [&] {
        return service.client().Post(
            "/api/transcribe", formOf({{"language", "fr"}, {"file", speech("0880")}}), formType);
    };
    EXPECT_EQ(answer()->status, 501);
    enginesOf(leastShape);
    const ModelFolder models(service.folder / "nulo/models");
    ASSERT_TRUE(models.lock());
    ASSERT_TRUE(models.install("tiny", file, model().sha256));
    const auto heard = answer();
    EXPECT_EQ(heard->status, 200);
    EXPECT_TRUE(heard->body.starts_with("w103 w104 ")) << heard->body;
    EXPECT_NE(service.log().find("whisper.cpp, model tiny"), std::string::npos);
}

#endif

}  // namespace
}  // namespace nulo::service
