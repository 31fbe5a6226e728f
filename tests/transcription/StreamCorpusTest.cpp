#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "base/FileIO.h"
#include "fuzz/StreamSplitting.h"

namespace nulo {
namespace {

const std::filesystem::path corpus = std::filesystem::path(NULO_TEST_DATA) / "event-stream";

std::string contentOf(const std::filesystem::path& path) {
    return readFile(path, 1 << 20).value_or("");
}

// Catches any dependence on where the network cuts a stream, on every stream that ever made
// trouble.
TEST(StreamCorpus, givesTheSameHoweverItIsSplit) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
        ++files;
        const std::string bytes = contentOf(entry.path());
        for (std::uint32_t seed = 1; seed <= 20; ++seed)
            EXPECT_EQ(faultInSplitting(bytes, seed), "") << entry.path();
    }
    EXPECT_GE(files, 9);
}

// The splitting test holds a handler against itself only; this one holds it against what is right.
TEST(StreamCorpus, givesTheRightText) {
    const auto fragments = [](const char* name) {
        return outcomeOf({contentOf(corpus / name)}).fragments;
    };
    EXPECT_THAT(fragments("two-fragments.txt"), testing::ElementsAre("Bon", "jour"));
    EXPECT_THAT(fragments("end-marker-with-cr.txt"), testing::ElementsAre("Bon", "jour", " après"));
    EXPECT_THAT(fragments("text-after-the-end.txt"), testing::ElementsAre("un"));
    EXPECT_THAT(fragments("unended-last-line.txt"), testing::ElementsAre("un", "deux"));
    EXPECT_THAT(fragments("other-lines.txt"), testing::ElementsAre("x"));
    EXPECT_THAT(fragments("wrong-shapes.txt"), testing::ElementsAre("ok"));
    EXPECT_THAT(
        fragments("unicode-and-escapes.txt"),
        testing::ElementsAre("déjà 😀 \"\\\n", "", "  ", "été 👩‍💻 漢字", " fin"));
    EXPECT_THAT(fragments("deep-nesting.txt"), testing::ElementsAre("deep"));
    EXPECT_THAT(fragments("invalid-utf8.bin"), testing::IsEmpty());
}

}  // namespace
}  // namespace nulo
