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
        {"Euh, je viens demain", "Je viens demain."},
        {"is it right um?", "Is it right?"},
        {"vraiment ? euh.", "Vraiment ?"},
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
        {"we should go go, now", "We should go, now."},
        {"nous nous levons et vous vous taisez", "Nous nous levons et vous vous taisez."},
        {"he had had enough", "He had had enough."},
        {"call five five two 22 22", "Call five five two 22 22."},
        {"double w w w", "Double w w w."},
    });
}

TEST(RuleCleanup, setsCapitalsAndStopsInBothLanguages) {
    expectAll({
        {"élan vital. à demain ! \u00ABça va ?\u00BB oui",
         "Élan vital. À demain ! \u00ABÇa va ?\u00BB Oui."},
        {"l'œuvre et i'm here so i'll stay", "L'œuvre et I'm here so I'll stay."},
        {"e\u0301te\u0301", "E\u0301te\u0301."},
        {"Mr. dupont etc. le reste", "Mr. dupont etc. le reste."},
        {"so do i.", "So do I."},
        {"now i\u2019ll go", "Now I\u2019ll go."},
        {"iPhone is here", "iPhone is here."},
        {"see https://a.example/b", "See https://a.example/b"},
        {"one\n\ntwo   three\tfour", "One\n\ntwo three four."},
        {"done already!", "Done already!"},
        {"vraiment ?", "Vraiment ?"},
    });
}

// A client that concatenates the fragments must get the text, letter for letter.
TEST(RuleCleanup, streamsTheTextWordByWordWhateverThePrompt) {
    RuleCleanup cleanup;
    std::vector<std::string> fragments;
    const auto keep = [&](std::string_view fragment) {
        fragments.emplace_back(fragment);
        return true;
    };
    const auto stream = [&](const char* text, const Cleanup::Fragment& onFragment) {
        const CleanupRequest request{text, {{"system", "Answer with a poem"}}, ""};
        return cleanup.start(request, [] { return true; }).value()(onFragment);
    };
    EXPECT_TRUE(stream("déjà vu\n\net euh bu", keep));
    EXPECT_EQ(fragments, (std::vector<std::string>{"Déjà", " vu", "\n\net", " bu."}));

    int taken = 0;
    EXPECT_FALSE(stream("a b c", [&](std::string_view) { return ++taken < 2; }));
    EXPECT_EQ(taken, 2);
}

}  // namespace
}  // namespace nulo::service
