#include "service/offline/OfflineRecogniser.h"

#include <gtest/gtest.h>

#include "Form.h"

namespace nulo::service {
namespace {

/// Keeps how many samples each piece had.
class CountingEngine final : public SpeechEngine {
  public:
    explicit CountingEngine(std::vector<std::size_t>& pieces) : m_pieces(pieces) {}
    Transcript hear(std::span<const std::int16_t> samples, const SpeechHints&) override {
        m_pieces.push_back(samples.size());
        return {"word", "en"};
    }

  private:
    std::vector<std::size_t>& m_pieces;
};

// A dictation that is given up must not keep a processor busy to its end.
TEST(OfflineRecogniser, hearsALongTakeInPiecesUntilItIsGivenUp) {
    std::vector<std::int16_t> samples(std::size_t{speechRate} * 70, 1000);
    std::fill_n(samples.begin() + std::ptrdiff_t{speechRate} * 25, speechRate / 2, 0);  // a pause
    Take take;
    ASSERT_FALSE(take.audio.append(speechWav(samples)));
    std::vector<std::size_t> pieces;
    OfflineRecogniser recogniser(
        [&] {
            return Result<std::unique_ptr<SpeechEngine>>(std::make_unique<CountingEngine>(pieces));
        },
        {.atOnce = 1, .waiting = 0}, OfflineRecogniser::Languages::english);
    const auto text = recogniser.recognise(take, [] { return true; });
    ASSERT_TRUE(text);
    EXPECT_EQ(text.value().text, "word word word");
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[0] + pieces[1] + pieces[2], samples.size());
    EXPECT_NEAR(double(pieces[0]), 25.25 * speechRate, 0.25 * speechRate);
    pieces.clear();
    const auto givenUp = recogniser.recognise(take, [&] { return pieces.empty(); });
    ASSERT_FALSE(givenUp);
    EXPECT_EQ(givenUp.error().status, clientGone);
    EXPECT_EQ(pieces.size(), 1u);
    EXPECT_TRUE(recogniser.recognise(take, [] { return true; }));  // its place is free again

    // The text names the ways out.
    take.language = "fr";
    const auto refused = recogniser.recognise(take, [] { return true; });
    EXPECT_EQ(refused.error().status, 501);
    EXPECT_NE(refused.error().text.find("nulo-service.json"), std::string::npos);
    take.language = "en-GB";
    EXPECT_TRUE(recogniser.recognise(take, [] { return true; }));
}

}  // namespace
}  // namespace nulo::service
