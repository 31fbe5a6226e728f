#pragma once

#include <filesystem>

namespace nulo {

/// The measures of a model of whisper.cpp, each of which names one of its usual sizes.
struct ModelShape {
    int state;  // numbers a layer works on, a multiple of 64
    int audioLayers;
    int textLayers;
};
/// As little as the library takes; loaded in a moment.
inline constexpr ModelShape leastShape{64, 4, 1};
/// That of the model named "tiny" (39 million weights, 78 MB).
inline constexpr ModelShape tinyShape{384, 4, 4};
/// As large, and as much work, as the model named "base" (74 million weights, 148 MB).
inline constexpr ModelShape baseShape{512, 6, 6};

/// Writes a multilingual ggml model whose layers know nothing: their weights are random, the same
/// in each file. It says the same of every recording: in French " w103", " w104" and so on to "
/// w138", each with certainty, since the words are in the embeddings of its positions. Without a
/// blank in its vocabulary every inference throws. Throws when it cannot be written.
void writeRandomModel(const std::filesystem::path& file, const ModelShape& shape,
                      bool hasBlank = true);

}  // namespace nulo
