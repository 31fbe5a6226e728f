// A doctor who is wrong is worse than none: what cannot work must be told from what can.

#include "doctor/Judgement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nulo {
namespace {

using testing::HasSubstr;
using Verdict = Finding::Verdict;

constexpr auto version =
    R"({"version":"1.2","build":3,"downloadUrl":"","releaseNotes":"","minVersion":"0.0"})";

TEST(Judgement, tellsWhatCannotWorkFromWhatCan) {
    const ServiceConfig plain{"http://127.0.0.1:8737", {}};
    const ServiceConfig secret{"https://speech.example", {{"Authorization", "Bearer hush"}}};
    struct Case {
        Finding finding;
        Verdict verdict;
        const char* text;
    };
    for (const auto& [finding, verdict, text] : std::vector<Case>{
             {judgedMicrophone(Error{"no microphone is connected"}), Verdict::broken,
              "no microphone is connected"},
             {judgedMicrophone(MicrophoneSample{"Desk", 48000, 0, 0}), Verdict::broken,
              "Desk, 48000 Hz, sends no sound"},
             {judgedMicrophone(MicrophoneSample{"", 48000, 48000, 0}), Verdict::weak,
              "the default one, 48000 Hz, dead silence"},
             {judgedMicrophone(MicrophoneSample{"Desk", 44100, 44100, 0.1f}), Verdict::good,
              "loudest -20 dBFS"},
             {judgedServiceFile(plain, "/h/service.json", false, false), Verdict::good, "none"},
             {judgedServiceFile(secret, "/h/service.json", true, true), Verdict::weak,
              "with 1 header, which other users can read"},
             {judgedServiceFile(Error{"it is no JSON"}, "/h/service.json", true, false),
              Verdict::broken, "it is no JSON"},
             {judgedService(plain.baseURL, {std::string(version)}), Verdict::good,
              "this machine, answers in 0 ms, version 1.2"},
             {judgedService(secret.baseURL, {std::string("<html>")}), Verdict::weak,
              "encrypted, answers in 0 ms, but not as Nulo's service does"},
             {judgedService(secret.baseURL, {Error{"timed out"}}), Verdict::broken, "timed out"},
             {judgedConfig("/h/config.json", false, {}, ""), Verdict::good, "first start"},
             {judgedConfig("/h/config.json", true, {}, ""), Verdict::broken, "cannot be read"},
             {judgedConfig("/h/config.json", true, 5, "Brut"), Verdict::good,
              "5 modes, in use: Brut"}}) {
        EXPECT_EQ(finding.verdict, verdict) << finding.text;
        EXPECT_THAT(finding.text, HasSubstr(text));
        EXPECT_EQ(finding.verdict != Verdict::good, !finding.advice.empty()) << finding.text;
        EXPECT_THAT(asJson({finding}), testing::Not(HasSubstr("hush")));
        EXPECT_EQ(canDictate({finding, {.name = "Tray"}}), verdict != Verdict::broken);
    }
}

TEST(Judgement, survivesNamesThatAreNoUtf8) {
    EXPECT_THAT(asJson({judgedMicrophone(MicrophoneSample{"\xff", 48000, 1, 1})}),
                HasSubstr("\"canDictate\": true"));
}

}  // namespace
}  // namespace nulo
