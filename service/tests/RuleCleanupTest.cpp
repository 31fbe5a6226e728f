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
        {"élan vital. à demain ! \u00ABça va ?\u00BB oui",
         "Élan vital. À demain\u202F! \u00AB\u00A0Ça va\u202F?\u00A0\u00BB Oui."},
        {"l'œuvre et i'm here so i’ll stay", "L'œuvre et I'm here so I’ll stay."},
        {"e\u0301te\u0301", "E\u0301te\u0301."},
        {"Mr. dupont etc. le reste", "Mr. dupont etc. le reste."},
        {"iPhone is here", "iPhone is here."},
        {"see https://a.example/b", "See https://a.example/b"},
        {"one\n\ntwo   three\tfour", "One\n\ntwo three four."},
    };
    for (const auto& [said, written] : cases)
        EXPECT_EQ(cleanedUp(said), written) << said;
}

// A word that is meant must never go.
TEST(RuleCleanup, removesFrenchTicsOnlyWhereTheyAreNone) {
    const std::string prompt = "Elimine les tics (\"euh\", \"du coup\", \u00AB en fait \u00BB)";
    const struct {
        const char* said;
        const char* written;
        std::string prompt = {};
    } cases[] = {
        {"Hum, je ne sais pas hum trop", "Je ne sais pas trop."},
        {"Il dit \u00ABeuh\u00BB et \"hum\"", "Il dit \u00AB\u00A0euh\u00A0\u00BB et \"hum\""},
        {"Euh ben je sais pas, ben, non", "Je sais pas, non."},
        {"Je ben je viens", "Je viens."},
        {"Ben, tu viens ? Ben oui, eh ben, mais ben non, je vois Ben",
         "Ben, tu viens\u202F? Ben oui, eh ben, mais ben non, je vois Ben."},
        {"ben arrive demain avec ben", "Ben arrive demain avec ben."},  // perhaps a name
        {"Du coup, je viens et du coup ça marche, en fait, oui",
         "Du coup, je viens et du coup ça marche, en fait, oui."},
        {"Du coup, je viens et du coup ça marche, en fait, oui", "Je viens et ça marche, oui.",
         prompt},
        {"Euh du coup on part", "On part.", prompt},
        {"Du coup, en fait, je pars\ndu coup, ben on part", "Je pars\non part.", prompt},
        {"Le bruit du coup de feu, du coup de vent, il en fait trop, en fait trois",
         "Le bruit du coup de feu, du coup de vent, il en fait trop, en fait trois.", prompt},
        {"Du coup, je viens", "Du coup, je viens.", "Garde bien du coup de feu"},
    };
    for (const auto& [said, written, asked] : cases)
        EXPECT_EQ(cleanedUp(said, {"fr", asked}), written);
    EXPECT_EQ(cleanedUp("That old ben, hum that tune", {"en", prompt}),
              "That old ben, hum that tune.");
}

TEST(RuleCleanup, setsFrenchSpacesInFrenchAlone) {
    const std::pair<const char*, const char*> cases[] = {
        {"vous êtes où? je suis là!", "Vous êtes où\u202F? Je suis là\u202F!"},
        {"elle dit : \u00ABoui ;\u00BB et \u00AB non !?\u00BB alors",
         "Elle dit\u00A0: \u00AB\u00A0oui\u202F;\u00A0\u00BB et "
         "\u00AB\u00A0non\u202F!?\u00A0\u00BB Alors."},
        {"c'est à 10:30 sur https://a.example/?b et les ratios 3:4 :)",
         "C'est à 10:30 sur https://a.example/?b et les ratios 3:4 :)"},
        {"il y a les (bons ?) prix pour vous", "Il y a les (bons\u202F?) Prix pour vous."},
        {"what is it ? that is all: yes!", "What is it ? That is all: yes!"},
        {"¿el coche es para los dos? la mesa es de una persona!",
         "¿El coche es para los dos? La mesa es de una persona!"},
        {"vraiment ?", "Vraiment ?"},  // nobody can tell
    };
    for (const auto& [said, written] : cases)
        EXPECT_EQ(cleanedUp(said), written);
    EXPECT_EQ(cleanedUp("vraiment?", {"fr-CA"}), "Vraiment\u202F?");
    EXPECT_EQ(cleanedUp("vous êtes où? je suis là!", {"en"}), "Vous êtes où? Je suis là!");
}

TEST(RuleCleanup, setsSpokenPunctuationWhereThatIsAskedFor) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"Bonjour virgule, tu viens point d'interrogation. À la ligne. merci point final",
         "Bonjour, tu viens\u202F?\nMerci.", "fr"},
        {"deux points l'un point-virgule \u00ABpoint\u00BB point",
         "L'un\u202F; \u00AB\u00A0point\u00A0\u00BB.", "fr"},
        {"hello comma it is new paragraph a question mark", "Hello, it is\n\na?", "en"},
        {"virgule", "Virgule.", "en"},
    };
    for (const auto& [said, written, language] : cases) {
        EXPECT_EQ(cleanedUp(said, {language, "", true}), written);
        EXPECT_NE(cleanedUp(said, {language}), written == std::string("Virgule.") ? "" : written);
    }
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
