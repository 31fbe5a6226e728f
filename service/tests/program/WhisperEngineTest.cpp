#include "service/offline/WhisperEngine.h"

#include <gtest/gtest.h>

#include <fstream>

#include "rig/process/TemporaryFolder.h"
#include "service/Sha256.h"

namespace nulo::service {
namespace {

TEST(WhisperEngine, looksAtTheDigestFirstAndRefusesWhatIsNoModel) {
    const TemporaryFolder folder;
    std::ofstream(folder / "model.bin") << "no model";
    const auto refusal = [&](const char* file, const std::string& digest) {
        return loadWhisperModel({folder / file, digest}).error().description;
    };
    EXPECT_NE(refusal("model.bin", sha256("another")).find("is another file"), std::string::npos);
    EXPECT_NE(refusal("missing", sha256("no model")).find("cannot be read"), std::string::npos);
#ifdef NULO_HAS_WHISPER
    const char* text = "is no ggml model";
#else
    const char* text = "tools/whisper";
#endif
    EXPECT_NE(refusal("model.bin", sha256("no model")).find(text), std::string::npos);
}

}  // namespace
}  // namespace nulo::service
