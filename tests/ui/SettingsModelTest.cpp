#include "ui/settings/SettingsModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nulo {
namespace {

// An edit or a deletion that goes to another mode of the same id, or a selection beyond the end.
TEST(SettingsModel, editsAndDeletesTheSelectedRow) {
    AppConfig config;
    config.modes.assign(2, {"twice", "Mine", "Do it", false, "openai"});
    config.dictionary = {"b", "a", "b"};
    SettingsModel model(config, [] { return "ABCDEF01-rest"; });
    model.selectMode(1);
    model.editName("Other");
    EXPECT_EQ(model.modes()[0].name, "Mine");
    EXPECT_EQ(model.modes()[1].name, "Other");
    model.addMode();
    EXPECT_EQ(*model.selectedMode(), newCustomMode("abcdef01"));
    for (int left = 2; left >= 0; --left) {
        model.deleteSelectedMode();
        EXPECT_EQ(model.modes().size(), static_cast<std::size_t>(left));
    }
    EXPECT_EQ(model.selectedMode(), nullptr);

    EXPECT_FALSE(model.addWord(" \t "));
    EXPECT_TRUE(model.addWord("\t\u00A0 "));  // neither a space nor a tab
    EXPECT_EQ(model.removeWord(2), 0u);       // the first of the equal ones
    EXPECT_THAT(model.words(), testing::ElementsAre("a", "b", "\u00A0"));
}

}  // namespace
}  // namespace nulo
