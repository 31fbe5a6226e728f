#include "ui/settings/SettingsModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nulo {
namespace {

using testing::ElementsAre;

PromptMode custom(const std::string& id) {
    return {id, "Mine", "Do it", false, "openai"};
}

// Blanks kept, a word twice, another than the first of two equal words removed.
TEST(SettingsModel, words) {
    AppConfig config;
    config.dictionary = {"b", "a", "b"};
    SettingsModel model(config);
    EXPECT_TRUE(model.addWord(" \tNew York\t "));
    EXPECT_FALSE(model.addWord("New York"));
    EXPECT_FALSE(model.addWord(" \t "));
    EXPECT_FALSE(model.addWord(""));
    EXPECT_TRUE(model.addWord("new york"));
    EXPECT_TRUE(model.addWord("\u00A0"));  // neither a space nor a tab
    EXPECT_EQ(model.removeWord(2), 0u);
    EXPECT_EQ(model.removeWord(99), std::nullopt);
    EXPECT_THAT(model.words(), ElementsAre("a", "b", "New York", "new york", "\u00A0"));
}

// A built-in mode changed or deleted, or an edit that goes to another mode than the selected one.
TEST(SettingsModel, editsReachOnlyTheSelectedModeOfTheUser) {
    AppConfig config = defaultConfig();
    config.modes.push_back(custom("twice"));
    config.modes.push_back(custom("twice"));
    SettingsModel model(config);
    ASSERT_EQ(model.selectedRow(), 0u);
    EXPECT_FALSE(model.canDeleteSelectedMode());
    model.deleteSelectedMode();
    model.editName("x");
    model.editPrompt("x");
    model.editCleanupModel("mistral");
    EXPECT_EQ(model.editedPrompt(), "x");
    EXPECT_TRUE(model.editsAreDropped());
    model.selectMode(1);
    EXPECT_FALSE(model.editsAreDropped());
    EXPECT_EQ(model.editedName(), "Transcription brute");
    EXPECT_EQ(model.modes(), config.modes);

    model.selectMode(6);
    model.editName("Other");
    model.editPrompt("");
    model.editCleanupModel("mistral");
    EXPECT_FALSE(model.editsAreDropped());
    config.modes[6] = {"twice", "Other", "", false, "mistral"};
    EXPECT_EQ(model.modes(), config.modes);
}

// A deletion that takes the wrong mode, or leaves a selection that points behind the end.
TEST(SettingsModel, addsAndDeletesModes) {
    int made = 0;
    SettingsModel model({}, [&] { return "ABCDEF0" + std::to_string(++made) + "-rest"; });
    EXPECT_EQ(model.selectedMode(), nullptr);
    model.editName("nobody's");
    model.deleteSelectedMode();
    EXPECT_TRUE(model.modes().empty());

    model.addMode();
    model.editCleanupModel("openai");
    model.addMode();
    ASSERT_EQ(model.selectedRow(), 1u);
    EXPECT_EQ(*model.selectedMode(), newCustomMode("abcdef02"));
    EXPECT_EQ(model.editedName(), "Nouveau mode");
    EXPECT_EQ(model.editedCleanupModel(), "mistral");
    model.deleteSelectedMode();
    ASSERT_EQ(model.selectedRow(), 0u);
    EXPECT_EQ(model.selectedMode()->id, "abcdef01");
    EXPECT_EQ(model.editedCleanupModel(), "openai");
    model.deleteSelectedMode();
    EXPECT_EQ(model.selectedRow(), std::nullopt);
}

// Settings that the window does not show lost, or kept from when it was opened.
TEST(SettingsModel, savesOverWhatIsOnDiskNow) {
    AppConfig opened = defaultConfig();
    opened.dictionary = {"Nulo"};
    SettingsModel model(opened);
    AppConfig onDisk = defaultConfig();
    onDisk.activeMode = "email";
    onDisk.transcriptionProvider = "mistral";
    onDisk.debugMode = true;
    onDisk.dictionary = {"lost"};
    onDisk.modes.clear();
    AppConfig expected = onDisk;
    expected.modes = opened.modes;
    expected.dictionary = opened.dictionary;
    EXPECT_EQ(model.recordToSave(onDisk), expected);
    EXPECT_EQ(model.recordToSave(std::nullopt), opened);
}

}  // namespace
}  // namespace nulo
