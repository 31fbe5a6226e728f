#include "service/offline/RuleCleanup.h"

#include <gtest/gtest.h>

namespace nulo::service {
namespace {

struct Case {
    const char* said;
    const char* written;
};

void expectAll(std::initializer_list<Case> cases) {
    for (const Case& one : cases)
        EXPECT_EQ(cleanedUp(one.said), one.written) << one.said;
}

TEST(RuleCleanup, removesHesitationsOnly) {
    expectAll({
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
    });
}

TEST(RuleCleanup, removesStammerButNoMeantRepetition) {
    expectAll({
        {"le le le chat", "Le chat."},
        {"Le le chat dort, dort, euh bien", "Le chat dort, dort, bien."},
        {"Été été ÉTÉ", "Été."},
        {"je euh je viens", "Je viens."},
        {"i i think", "I think."},
        {"nous nous levons et vous vous taisez", "Nous nous levons et vous vous taisez."},
        {"he had had enough", "He had had enough."},
        {"call five five two 22 22", "Call five five two 22 22."},
    });
}

TEST(RuleCleanup, setsCapitalsAndStopsInBothLanguages) {
    expectAll({
        {"élan vital. à demain ! \u00ABça va ?\u00BB oui",
         "Élan vital. À demain ! \u00ABÇa va ?\u00BB Oui."},
        {"l'œuvre et i'm here so i'll stay", "L'œuvre et I'm here so I'll stay."},
        {"e\u0301te\u0301", "E\u0301te\u0301."},
        {"Mr. dupont etc. le reste", "Mr. dupont etc. le reste."},
        {"now i\u2019ll go", "Now I\u2019ll go."},
        {"iPhone is here", "iPhone is here."},
        {"see https://a.example/b", "See https://a.example/b"},
        {"one\n\ntwo   three\tfour", "One\n\ntwo three four."},
        {"vraiment ?", "Vraiment ?"},
    });
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
