#include "service/offline/OfflineRecogniser.h"

#include <gtest/gtest.h>

#include "Form.h"

namespace nulo::service {
namespace {

struct Heard {
    std::vector<std::size_t> pieces;
    std::vector<std::string> before;
    std::vector<std::string> says;  // "word" for those behind the last
};

/// Keeps how long each piece was, and what it was told of those before.
struct CountingEngine final : SpeechEngine {
    explicit CountingEngine(Heard& one) : heard(one) {}
    bool knowsEnglishOnly() const override { return true; }
    Transcript hear(std::span<const std::int16_t> samples, const SpeechHints& hints,
                    const StillWanted&) override {
        heard.pieces.push_back(samples.size());
        heard.before.push_back(hints.language + ":" + hints.before);
        const std::size_t index = heard.pieces.size() - 1;
        return {index < heard.says.size() ? heard.says[index] : "word", "en"};
    }
    Heard& heard;
};

class OfflineRecogniserTest : public testing::Test {
  protected:
    static Take takeOf(const std::vector<std::int16_t>& samples) {
        Take take;
        EXPECT_FALSE(take.audio.append(speechWav(samples)));
        return take;
    }
    Heard heard;
    OfflineRecogniser recogniser{
        [this] {
            return Result<std::unique_ptr<SpeechEngine>>(std::make_unique<CountingEngine>(heard));
        },
        {.atOnce = 1, .waiting = 0}};
    const StillWanted always = [] { return true; };
};

// A dictation that is given up must not keep a processor busy to its end.
TEST_F(OfflineRecogniserTest, hearsALongTakeInPiecesUntilItIsGivenUp) {
    std::vector<std::int16_t> samples(std::size_t{speechRate} * 70, 1000);
    std::fill_n(samples.begin() + std::ptrdiff_t{speechRate} * 25, speechRate / 2, 0);  // a pause
    Take take = takeOf(samples);
    const auto text = recogniser.recognise(take, always);
    ASSERT_TRUE(text);
    EXPECT_EQ(text.value().text, "word word word");
    ASSERT_EQ(heard.pieces.size(), 3u);
    EXPECT_EQ(heard.pieces[0] + heard.pieces[1] + heard.pieces[2], samples.size());
    EXPECT_NEAR(double(heard.pieces[0]), 25.25 * speechRate, 0.25 * speechRate);
    heard.pieces.clear();
    const auto givenUp = recogniser.recognise(take, [&] { return heard.pieces.empty(); });
    ASSERT_FALSE(givenUp);
    EXPECT_EQ(givenUp.error().status, clientGone);
    EXPECT_EQ(heard.pieces.size(), 1u);
    EXPECT_TRUE(recogniser.recognise(take, always));  // its place is free again

    // The text names the ways out.
    take.language = "fr";
    const auto refused = recogniser.recognise(take, always);
    EXPECT_EQ(refused.error().status, 501);
    EXPECT_NE(refused.error().text.find("nulo-service models get small"), std::string::npos);
    take.language = "en-GB";
    EXPECT_TRUE(recogniser.recognise(take, always));
}

// The words before help with the next ones, unless they are those of a model that has lost its way;
// where nobody speaks, nobody is asked.
TEST_F(OfflineRecogniserTest, tellsEachPieceWhatCameBeforeAndLeavesOutSilence) {
    std::string endless = "ok";
    while (endless.size() < 100)
        endless += " ok";
    heard.says = {"[Music] one", endless};
    std::vector<std::int16_t> samples(std::size_t{speechRate} * 85, 1000);
    std::fill_n(samples.begin() + std::ptrdiff_t{speechRate} * 60, speechRate * 25, 5);
    const auto text = recogniser.recognise(takeOf(samples), always);
    ASSERT_TRUE(text);
    EXPECT_TRUE(text.value().text.starts_with("one ok")) << text.value().text;
    EXPECT_EQ(text.value().text.find("ok ok ok"), std::string::npos);
    ASSERT_GE(heard.before.size(), 3u);
    EXPECT_EQ(heard.before[0], ":");
    EXPECT_EQ(heard.before[1], "en:one");
    EXPECT_EQ(heard.before[2], "en:");
    heard.pieces.clear();
    EXPECT_EQ(
        recogniser.recognise(takeOf(std::vector<std::int16_t>(speechRate, 5)), always).value().text,
        "");
    EXPECT_TRUE(heard.pieces.empty());
}

}  // namespace
}  // namespace nulo::service
