#include "rig/speech/RandomModel.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace nulo {
namespace {

constexpr int vocabulary = 51865;
constexpr int ownWords = 50256;  // the others are marks that the library adds
constexpr int endOfText = 50257;
constexpr int french = 50259 + 6;
constexpr int audioPositions = 1500;
constexpr int textPositions = 448;
constexpr int mels = 80;
constexpr int bins = 201;
constexpr int firstWord = 100;
constexpr int period = 40;  // positions to the end of the text

/// Of numbers that are neither tiny nor huge.
std::uint16_t half(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return static_cast<std::uint16_t>(((bits >> 16) & 0x8000) |
                                      (((bits >> 13) - ((127 - 15) << 10)) & 0x7FFF));
}

class Writer {
  public:
    Writer(const std::filesystem::path& file, const ModelShape& shape)
        : m_file(file, std::ios::binary), m_shape(shape) {}

    void write(bool hasBlank) {
        constexpr int magic = 0x67676d6c;
        constexpr int sixteenBits = 1;
        const int heads = m_shape.state / 64;
        for (const int number : {magic, vocabulary, audioPositions, m_shape.state, heads,
                                 m_shape.audioLayers, textPositions, m_shape.state, heads,
                                 m_shape.textLayers, mels, sixteenBits, mels, bins})
            put(number);
        for (int i = 0; i < mels * bins; ++i)
            put(std::abs(random(0.02F)));
        put(ownWords);
        for (int i = 0; i < ownWords; ++i)
            put(i == 0 && hasBlank ? " " : " w" + std::to_string(i));
        const int state = m_shape.state;
        tensor("encoder.positional_embedding", {state, audioPositions});
        tensor("encoder.conv1.weight", {3, mels, state});
        tensor("encoder.conv1.bias", {1, state});
        tensor("encoder.conv2.weight", {3, state, state});
        tensor("encoder.conv2.bias", {1, state});
        norm("encoder.ln_post");
        for (int i = 0; i < m_shape.audioLayers; ++i)
            block("encoder.blocks." + std::to_string(i), false);
        embeddings();
        head("decoder.ln.weight", {state}, false);  // it leaves as it is what the words look like
        put(std::vector<float>(static_cast<std::size_t>(state), 1.0F));
        head("decoder.ln.bias", {state}, false);
        put(std::vector<float>(static_cast<std::size_t>(state), 0.0F));
        for (int i = 0; i < m_shape.textLayers; ++i)
            block("decoder.blocks." + std::to_string(i), true);
        if (!m_file.flush())
            throw std::runtime_error("a model cannot be written");
    }

  private:
    template <typename Number>
    void put(Number number) {
        m_file.write(reinterpret_cast<const char*>(&number), sizeof number);
    }
    void put(const std::string& text) {
        put(static_cast<int>(text.size()));
        m_file << text;
    }
    template <typename Number>
    void put(const std::vector<Number>& numbers) {
        m_file.write(reinterpret_cast<const char*>(numbers.data()),
                     static_cast<std::streamsize>(numbers.size() * sizeof numbers[0]));
    }
    /// Between -most and most, and not next to 0.
    float random(float most) {
        m_seed ^= m_seed << 13;
        m_seed ^= m_seed >> 17;
        m_seed ^= m_seed << 5;
        const auto part = static_cast<float>(m_seed >> 8) / static_cast<float>(1 << 24);
        return most * (part < 0.5F ? 0.02F + 1.96F * part : -0.02F - 1.96F * (part - 0.5F));
    }
    void head(const std::string& name, const std::vector<int>& size, bool inHalves) {
        put(static_cast<int>(size.size()));
        put(static_cast<int>(name.size()));
        put(inHalves ? 1 : 0);
        for (const int length : size)
            put(length);
        m_file << name;
    }
    /// Weights are in 16 bits; the rest, and norms, in 32.
    void tensor(const std::string& name, const std::vector<int>& size) {
        const bool inHalves = name.ends_with("weight") && size.size() > 1;
        head(name, size, inHalves);
        std::size_t count = 1;
        for (const int length : size)
            count *= static_cast<std::size_t>(length);
        const float most = 1 / std::sqrt(static_cast<float>(m_shape.state));
        if (inHalves) {
            std::vector<std::uint16_t> values(count);
            for (auto& value : values)
                value = half(random(most));
            return put(values);
        }
        std::vector<float> values(count);
        for (auto& value : values)
            value = random(0.1F);
        put(values);
    }
    void norm(const std::string& name) {
        tensor(name + ".weight", {m_shape.state});
        tensor(name + ".bias", {m_shape.state});
    }
    /// What a position is to say is what it looks like, so much that no layer matters; the words
    /// are large enough to be far from each other.
    void embeddings() {
        const auto state = static_cast<std::size_t>(m_shape.state);
        const float length = 32 / std::sqrt(static_cast<float>(state));
        std::vector<float> words(state * vocabulary);
        for (float& value : words)
            value = random(length * std::sqrt(3 / static_cast<float>(state)));
        head("decoder.positional_embedding", {m_shape.state, textPositions}, false);
        for (int position = 0; position < textPositions; ++position) {
            const int word = position == 0                     ? french
                             : position % period == period - 1 ? endOfText
                                                               : firstWord + position;
            for (std::size_t i = 0; i < state; ++i)
                put(20 * words[static_cast<std::size_t>(word) * state + i]);
        }
        head("decoder.token_embedding.weight", {m_shape.state, vocabulary}, true);
        std::vector<std::uint16_t> halves(words.size());
        for (std::size_t i = 0; i < words.size(); ++i)
            halves[i] = half(words[i]);
        put(halves);
    }
    void attention(const std::string& name) {
        norm(name + "_ln");
        const int state = m_shape.state;
        for (const char* part : {".query", ".key", ".value", ".out"}) {
            tensor(name + part + ".weight", {state, state});
            if (part != std::string(".key"))
                tensor(name + part + ".bias", {state});
        }
    }
    void block(const std::string& name, bool crosses) {
        const int state = m_shape.state;
        attention(name + ".attn");
        if (crosses)
            attention(name + ".cross_attn");
        norm(name + ".mlp_ln");
        tensor(name + ".mlp.0.weight", {state, 4 * state});
        tensor(name + ".mlp.0.bias", {4 * state});
        tensor(name + ".mlp.2.weight", {4 * state, state});
        tensor(name + ".mlp.2.bias", {state});
    }

    std::ofstream m_file;
    const ModelShape m_shape;
    std::uint32_t m_seed = 2463534242;
};

}  // namespace

void writeRandomModel(const std::filesystem::path& file, const ModelShape& shape, bool hasBlank) {
    Writer(file, shape).write(hasBlank);
}

}  // namespace nulo
