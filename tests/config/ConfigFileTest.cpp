#include "config/ConfigFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <system_error>

#include "base/FileIO.h"
#include "fakes/PrintedLines.h"
#include "rig/process/TemporaryFolder.h"
#include "support/FileSizeLimit.h"

namespace nulo {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class ConfigFileTest : public testing::Test {
  protected:
    void write(const std::string& text, const fs::path& file) {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }
    std::string written() { return readFile(m_path, 1 << 20).value_or("not readable"); }
    std::string loadedIds() {
        std::string ids;
        for (const auto config = m_file.load().value(); const auto& mode : config.modes)
            ids += mode.id + " ";
        return ids;
    }
    /// Saves as a user who cannot write into the folder, but to the file in it.
    Outcome saveIntoReadOnlyFolder(const AppConfig& config) {
        const bool isRoot = geteuid() == 0;
        fs::permissions(m_file.configDir(), fs::perms(0555));
        EXPECT_TRUE(!isRoot || (chown(m_path.c_str(), 65534, 65534) == 0 && seteuid(65534) == 0));
        Outcome outcome = m_file.trySave(config);
        EXPECT_TRUE(!isRoot || seteuid(0) == 0);
        fs::permissions(m_file.configDir(), fs::perms(0755));
        return outcome;
    }

    TemporaryFolder m_home;
    PrintedLines m_printed;
    ConfigFile m_file{m_home.path(), m_printed.print()};
    const fs::path m_path = m_file.configFile();
};

// A first file with a key missing or out of order; a prompt of the legacy program lost.
TEST_F(ConfigFileTest, createsTheFileFromDefaultsOrTheLegacyOne) {
    const fs::path legacy = m_home / ".config/quennel/config.json";
    for (const char* text : {"", "[1]", "{\"a\":\"\xFF\"}"}) {
        write(text, legacy);
        m_file.createDefaultIfNeeded();
        EXPECT_EQ(m_printed.lines().back(), "Config created at: " + m_path.string());
        EXPECT_EQ(m_file.load(), defaultConfig()) << text;
        fs::remove(m_path);
    }
    write(R"({"cleanupPrompt": "Nettoie"})", legacy);
    m_file.createDefaultIfNeeded();
    EXPECT_THAT(m_printed.lines().back(), HasSubstr("migrated from ~/.config/quennel/ to ~/.con"));
    const char* order =
        "activeMode.*modes.*\"id\".*name.*\"prompt\": \"Nettoie\".*isBuiltIn.*cleanupModel.*"
        "bash/zsh.*dictionary.*transcriptionProvider.*debugMode";
    EXPECT_THAT(written(), testing::ContainsRegex(order));
    EXPECT_EQ(m_file.load(), defaultConfig()) << "the refresh takes the prompt back";
}

// A built-in mode lost, moved or left as edited; a clean file written at every reading.
TEST_F(ConfigFileTest, refreshesTheBuiltInModesAndDropsLegacyKeys) {
    write("{}", m_path);
    EXPECT_EQ(loadedIds(), "voice-to-text raw-transcription system-command email spanish ");
    AppConfig config = defaultConfig();
    config.dictionary = {"Nulo"};
    config.modes.erase(config.modes.begin() + 1, config.modes.begin() + 3);
    config.modes.push_back(newCustomMode("ABCDEF01"));
    config.modes[1].name = "Mine";
    config.modes[1].isBuiltIn = false;
    m_file.save(config);
    EXPECT_EQ(loadedIds(),
              "voice-to-text system-command raw-transcription email spanish abcdef01 ");
    config = m_file.load().value();
    EXPECT_EQ(config.modes[3].name, "Email");
    EXPECT_FALSE(config.modes[3].isBuiltIn);
    EXPECT_EQ(config.dictionary, std::vector<std::string>{"Nulo"});
    EXPECT_EQ(AppConfig{.activeMode = "gone"}.activeModeName(), "Voice to Text");
    EXPECT_EQ(AppConfig{.activeMode = "gone"}.activePrompt(), voiceToTextMode().prompt);

    write("{\"openaiApiKey\": null, " + written().substr(1), m_path);
    EXPECT_EQ(m_file.load(), config);
    EXPECT_EQ(written().find("openaiApiKey"), std::string::npos);
    fs::create_hard_link(m_path, m_home / "before");
    EXPECT_EQ(m_file.load(), config);
    EXPECT_TRUE(fs::equivalent(m_path, m_home / "before"));
}

// What the user wrote by hand overwritten because of a slip; a file that is none, or without end.
TEST_F(ConfigFileTest, refusesWhatDoesNotDecodeAndLeavesItAlone) {
    const std::string deep(99'999, '[');
    for (const std::string text :
         {"", "{", "[]", "{\"activeMode\":\"\xC3\"}", deep.c_str(), R"({"activeMode":1})",
          R"({"modes":{}})", R"({"modes":[1]})", R"({"dictionary":[1]})",
          R"({"transcriptionProvider":[]})", R"({"debugMode":1})",
          R"({"modes":[{"name":"b","prompt":"c","isBuiltIn":false}]})",
          R"({"modes":[{"id":"a","name":"b","prompt":"c"}]})"}) {
        write(text, m_path);
        EXPECT_FALSE(m_file.load()) << text.substr(0, 80);
        m_file.createDefaultIfNeeded();
        EXPECT_EQ(written(), text);
    }
    write(R"({"modes":[{"id":"a","name":"b","prompt":"c","isBuiltIn":false}]})", m_path);
    EXPECT_EQ(m_file.load().value().modes[0].cleanupModel, "mistral");

    fs::resize_file(m_path, 5'000'000'000);  // sparse
    EXPECT_FALSE(m_file.load());
    fs::remove(m_path);
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    EXPECT_FALSE(m_file.load()) << "reading a FIFO would wait for ever";
    fs::remove_all(m_home / ".config");
    write("", m_home / ".config");
    m_file.createDefaultIfNeeded();
    EXPECT_THAT(m_file.trySave({}).error().description,
                HasSubstr(std::generic_category().message(ENOTDIR)));
}

// A link into a folder of dotfiles turned into a file of its own; a private file opened to others.
TEST_F(ConfigFileTest, savesThroughLinksAndKeepsTheMode) {
    const fs::path target = m_home / "nulo.json";
    fs::create_directories(m_file.configDir());
    fs::create_symlink("../../link.json", m_path);
    fs::create_symlink("nulo.json", m_home / "link.json");
    m_file.createDefaultIfNeeded();  // where nothing was yet
    fs::permissions(target, fs::perms(0640));
    EXPECT_TRUE(m_file.trySave(AppConfig{.activeMode = "changed"}));
    EXPECT_TRUE(fs::is_symlink(m_path));
    EXPECT_EQ(m_file.load().value().activeMode, "changed");
    EXPECT_EQ(fs::symlink_status(target).permissions(), fs::perms(0640));
    fs::remove(m_path);
    fs::create_symlink("config.json", m_path);
    EXPECT_FALSE(m_file.trySave({})) << "the link leads to itself";
}

// Settings cut short by a full disk, or not saved where only the file may be written.
TEST_F(ConfigFileTest, savesInPlaceWhereItMustAndSurvivesAFullDisk) {
    fs::permissions(m_home.path(), fs::perms(0755));
    m_file.createDefaultIfNeeded();
    AppConfig longer = defaultConfig();
    longer.dictionary.assign(100, "word");
    for (const AppConfig& config : {longer, defaultConfig()}) {
        EXPECT_TRUE(saveIntoReadOnlyFolder(config));
        EXPECT_EQ(m_file.load(), config);
    }
    longer.dictionary.assign(1000, std::string(100, 'x'));
    const FileSizeLimit limit(16 * 1024);
    const std::string reason = m_path.string() + ": " + std::generic_category().message(EFBIG);
    EXPECT_EQ(m_file.trySave(longer).error().description, reason);
    EXPECT_EQ(saveIntoReadOnlyFolder(longer).error().description, reason);
    EXPECT_EQ(m_file.load(), defaultConfig());
    EXPECT_EQ(std::distance(fs::directory_iterator(m_file.configDir()), {}), 1);
}

}  // namespace
}  // namespace nulo
