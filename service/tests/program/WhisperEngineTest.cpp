#include "service/offline/WhisperEngine.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "ConfiguredService.h"
#include "Form.h"
#include "service/offline/Sha256.h"

namespace nulo::service {
namespace {

OfflineModel modelOf(const std::filesystem::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
    return {file, sha256(bytes)};
}

#ifdef NULO_HAS_WHISPER

/// A complete multilingual model of the smallest size whose layers know nothing.
class RandomModel {
  public:
    /// A vocabulary without a blank makes every inference throw.
    std::string bytes(bool hasBlank = true) {
        constexpr int magic = 0x67676d6c;
        constexpr int words = 51865, audio = 1500, text = 448, state = 64, mels = 80, bins = 201;
        constexpr int audioLayers = 4, textLayers = 1, heads = 1, halves = 1;
        for (const int number : {magic, words, audio, state, heads, audioLayers, text, state, heads,
                                 textLayers, mels, halves, mels, bins})
            put(number);
        values(std::size_t{mels} * bins);
        put(words - 1609);  // the others are marks that the library adds
        for (int i = 0; i < words - 1609; ++i) {
            const std::string word = i == 0 && hasBlank ? " "
                                     : i % 3            ? " w" + std::to_string(i)
                                                        : "\xC3";
            put(static_cast<int>(word.size()));
            m_bytes += word;
        }
        tensor("encoder.positional_embedding", {state, audio});
        tensor("encoder.conv1.weight", {3, mels, state});
        tensor("encoder.conv1.bias", {1, state});
        tensor("encoder.conv2.weight", {3, state, state});
        tensor("encoder.conv2.bias", {1, state});
        norm("encoder.ln_post", state);
        for (int i = 0; i < audioLayers; ++i)
            block("encoder.blocks." + std::to_string(i), state, false);
        tensor("decoder.positional_embedding", {state, text});
        tensor("decoder.token_embedding.weight", {state, words});
        norm("decoder.ln", state);
        for (int i = 0; i < textLayers; ++i)
            block("decoder.blocks." + std::to_string(i), state, true);
        return std::move(m_bytes);
    }

  private:
    void put(int number) { m_bytes.append(reinterpret_cast<const char*>(&number), sizeof number); }
    static constexpr std::size_t endOfText = 50257;

    void values(std::size_t count, float least = -0.1F, float most = 0.1F) {
        std::uniform_real_distribution<float> weights(least, most);
        for (std::size_t i = 0; i < count; ++i) {
            const float value = weights(m_random);
            m_bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
        }
    }
    void tensor(const std::string& name, const std::vector<int>& size) {
        put(static_cast<int>(size.size()));
        put(static_cast<int>(name.size()));
        // Embeddings of positions, norms and biases are kept exact, the rest in 16 bits.
        const bool half = name.ends_with("weight") && size.size() > 1;
        put(half ? 1 : 0);
        std::size_t count = 1;
        for (const int length : size) {
            put(length);
            count *= static_cast<std::size_t>(length);
        }
        m_bytes += name;
        if (name == "decoder.ln.bias")
            return values(count, 4, 4);
        if (!half)
            return values(count);
        for (std::size_t i = 0; i < count; ++i) {
            // Any sign and fraction, of a size between 1/32 and 1/16.
            auto value = static_cast<std::uint16_t>((m_random() & 0x83FF) | (10 << 10));
            if (name == "decoder.token_embedding.weight" && i / 64 == endOfText)
                value = 0x2C00;  // in line with the last bias: it soon says that it is done
            m_bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
        }
    }
    void norm(const std::string& name, int state) {
        tensor(name + ".weight", {state});
        tensor(name + ".bias", {state});
    }
    void attention(const std::string& name, int state) {
        norm(name + "_ln", state);
        for (const char* part : {".query", ".key", ".value", ".out"}) {
            tensor(name + part + ".weight", {state, state});
            if (part != std::string(".key"))
                tensor(name + part + ".bias", {state});
        }
    }
    void block(const std::string& name, int state, bool crosses) {
        attention(name + ".attn", state);
        if (crosses)
            attention(name + ".cross_attn", state);
        norm(name + ".mlp_ln", state);
        tensor(name + ".mlp.0.weight", {state, 4 * state});
        tensor(name + ".mlp.0.bias", {4 * state});
        tensor(name + ".mlp.2.weight", {4 * state, state});
        tensor(name + ".mlp.2.bias", {state});
    }

    std::string m_bytes;
    std::mt19937 m_random{1};
};

std::string configurationOf(const OfflineModel& model) {
    return R"({"offline": {"model": ")" + model.file.string() + R"(", "sha256": ")" + model.sha256 +
           R"("}})";
}
int statusOfFrench(const Service& service) {
    return service.post("/api/transcribe", formOf({{"language", "fr"}, {"file", speech("0880")}}),
                        formType);
}

// What random weights hear is nonsense; that they are loaded, heard with and let go is not.
TEST(WhisperEngine, hearsWithTheModelThatIsConfigured) {
    const TemporaryFolder folder;
    const OfflineModel model = modelOf(folder / "tiny.bin", RandomModel().bytes());
    const auto make = loadWhisperModel(model);
    ASSERT_TRUE(make) << make.error().description;
    auto engine = make.value()();
    ASSERT_TRUE(engine);
    std::vector<std::int16_t> samples(speechRate * 2);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<std::int16_t>(i * 7919 % 20000);
    const std::string first = engine.value()->hear(samples, "fr");
    EXPECT_EQ(engine.value()->hear(samples, "fr"), first);  // what came before has no influence
    engine.value()->hear({samples.data(), 1}, "no language");

    const ConfiguredService configured(configurationOf(model));
    EXPECT_EQ(statusOfFrench(configured.service), 200);
}

TEST(WhisperEngine, outlivesAnInferenceThatFails) {
    const TemporaryFolder folder;
    const ConfiguredService configured(
        configurationOf(modelOf(folder / "tiny.bin", RandomModel().bytes(false))));
    EXPECT_EQ(statusOfFrench(configured.service), 500);
    EXPECT_EQ(configured.service.client().Get("/healthz")->body, "ok\n");
}

TEST(WhisperEngine, refusesWhatIsNoModel) {
    const TemporaryFolder folder;
    const std::string whole = RandomModel().bytes();
    for (const std::string& bytes : {std::string("no model"), whole.substr(0, whole.size() / 2)}) {
        const auto make = loadWhisperModel(modelOf(folder / "model.bin", bytes));
        ASSERT_FALSE(make);
        EXPECT_NE(make.error().description.find("is no ggml model"), std::string::npos);
    }
}

#else

TEST(WhisperEngine, saysHowToGetIt) {
    const TemporaryFolder folder;
    const auto make = loadWhisperModel(modelOf(folder / "model.bin", "any"));
    ASSERT_FALSE(make);
    EXPECT_NE(make.error().description.find("tools/whisper"), std::string::npos);
}

#endif

TEST(WhisperEngine, looksAtTheDigestFirst) {
    const TemporaryFolder folder;
    OfflineModel model = modelOf(folder / "model.bin", "any");
    model.sha256[0] = model.sha256[0] == '0' ? '1' : '0';
    for (const char* part : {"another file", "offline.sha256"})
        EXPECT_NE(loadWhisperModel(model).error().description.find(part), std::string::npos);
    model.file = folder / "missing";
    EXPECT_NE(loadWhisperModel(model).error().description.find("cannot be read"),
              std::string::npos);
}

// The text names the ways out.
TEST(Offline, refusesALanguageThatItDoesNotKnow) {
    const ConfiguredService configured("{}");
    const auto refused = configured.service.client().Post(
        "/api/transcribe", formOf({{"language", "fr"}, {"file", speech("0880")}}), formType);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 501);
    EXPECT_NE(refused->body.find("English only"), std::string::npos);
    EXPECT_NE(refused->body.find("nulo-service.json"), std::string::npos);
    const auto english = configured.service.client().Post(
        "/api/transcribe", formOf({{"language", "en-GB"}, {"file", speech("0880")}}), formType);
    EXPECT_EQ(english->status, 200);
}

}  // namespace
}  // namespace nulo::service
