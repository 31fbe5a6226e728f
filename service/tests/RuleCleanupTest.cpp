#include "service/offline/RuleCleanup.h"

#include <gtest/gtest.h>

namespace nulo::service {
namespace {

TEST(RuleCleanup, removesHesitationsAndStammerAndSetsCapitalsAndStops) {
    const std::pair<const char*, const char*> cases[] = {
        {"um i think uh it works", "I think it works."},
        {"euh bonjour heu à tous euuuh les amis", "Bonjour à tous les amis."},
        {"is it right um?", "Is it right?"},
        {"Heu", ""},
        {" \n ", ""},
        // Words and abbreviations that only look like one.
        {"hum that tune", "Hum that tune."},
        {"hmm trois mm", "Trois mm."},
        {"the HMM of UM", "The HMM of UM."},
        {"un œuf, une heure, eux", "Un œuf, une heure, eux."},
        // A stammer, and repetitions that are meant.
        {"Le le le chat dort, dort, euh bien", "Le chat dort, dort, bien."},
        {"Été été ÉTÉ je euh je viens i i think", "Été je viens I think."},
        {"nous nous levons et vous vous taisez", "Nous nous levons et vous vous taisez."},
        {"he had had enough", "He had had enough."},
        {"call five five two 22 22", "Call five five two 22 22."},
        // Both languages' letters and signs.
        {"élan vital. à demain ! «ça va ?» oui", "Élan vital. À demain ! «Ça va ?» Oui."},
        {"l'œuvre et i'm here so i’ll stay", "L'œuvre et I'm here so I’ll stay."},
        {"e\u0301te\u0301", "E\u0301te\u0301."},
        {"Mr. dupont etc. le reste", "Mr. dupont etc. le reste."},
        {"iPhone is here", "iPhone is here."},
        {"see https://a.example/b", "See https://a.example/b"},
        {"one\n\ntwo   three\tfour", "One\n\ntwo three four."},
        {"vraiment ?", "Vraiment ?"},
    };
    for (const auto& [said, written] : cases)
        EXPECT_EQ(cleanedUp(said), written) << said;
}

// A client that concatenates the fragments must get the text, letter for letter.
TEST(RuleCleanup, streamsTheTextWordByWordWhateverThePrompt) {
    RuleCleanup cleanup;
    std::vector<std::string> fragments;
    const CleanupRequest request{"déjà vu\n\net euh bu", {{"system", "Answer with a poem"}}, ""};
    const auto stream = cleanup.start(request, [] { return true; }).value();
    EXPECT_TRUE(stream([&](std::string_view fragment) {
        fragments.emplace_back(fragment);
        return true;
    }));
    EXPECT_EQ(fragments, (std::vector<std::string>{"Déjà", " vu", "\n\net", " bu."}));
    EXPECT_FALSE(stream([](std::string_view) { return false; }));
}

}  // namespace
}  // namespace nulo::service
