#include "config/ConfigFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>
#include <system_error>

#include "fakes/PrintedLines.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// What a full disk is to a program, while it lives.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_old);
        const rlimit limit{bytes, m_old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_handler);
    }

  private:
    rlimit m_old{};
    decltype(SIG_DFL) m_handler;
};

class ConfigFileTest : public testing::Test {
  protected:
    void write(const std::string& text, const fs::path& file) {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }
    void write(const std::string& text) { write(text, m_file.configFile()); }
    void writeLegacy(const std::string& text) {
        write(text, m_home / ".config" / "quennel" / "config.json");
    }
    std::string written() {
        std::ostringstream text;
        text << std::ifstream(m_file.configFile()).rdbuf();
        return text.str();
    }
    std::vector<std::string> loadedIds() {
        std::vector<std::string> ids;
        const AppConfig config = m_file.load().value();
        for (const auto& mode : config.modes)
            ids.push_back(mode.id);
        return ids;
    }

    TemporaryFolder m_home;
    PrintedLines m_printed;
    ConfigFile m_file{m_home.path(), m_printed.print()};
};

TEST_F(ConfigFileTest, builtInPromptsAreComplete) {
    EXPECT_EQ(voiceToTextMode().prompt.size(), 876u);
    EXPECT_EQ(systemCommandMode().prompt.size(), 580u);
    EXPECT_EQ(emailMode().prompt.size(), 487u);
    EXPECT_EQ(spanishMode().prompt.size(), 390u);
    const PromptMode custom = newCustomMode("9F8E7D6C-0000-4000-8000-000000000000");
    EXPECT_EQ(custom.id, "9f8e7d6c");
    EXPECT_EQ(custom.prompt.size(), 100u);
}

TEST_F(ConfigFileTest, createsTheDefaultFile) {
    m_file.createDefaultIfNeeded();
    EXPECT_THAT(m_printed.lines(),
                ElementsAre("Config created at: " + m_file.configFile().string()));
    EXPECT_EQ(m_file.load(), defaultConfig());
    const std::string text = written();
    EXPECT_THAT(text, HasSubstr("(bash/zsh)"));
    std::size_t last = 0;
    for (const char* key :
         {"\"activeMode\"", "\"modes\"", "\"id\"", "\"name\"", "\"prompt\"", "\"isBuiltIn\"",
          "\"cleanupModel\"", "\"dictionary\"", "\"transcriptionProvider\"", "\"debugMode\""}) {
        const std::size_t at = text.find(key, last);
        ASSERT_NE(at, std::string::npos) << key << " is missing or out of order";
        last = at;
    }
}

TEST_F(ConfigFileTest, migratesTheLegacyPromptOnce) {
    writeLegacy(R"({"cleanupPrompt": "Nettoie é", "openaiApiKey": "k", "dictionary": ["x"]})");
    m_file.createDefaultIfNeeded();
    EXPECT_THAT(m_printed.lines(),
                ElementsAre("Config migrated from ~/.config/quennel/ to ~/.config/nulo/"));
    EXPECT_THAT(written(), HasSubstr("Nettoie é"));
    EXPECT_EQ(m_file.load(), defaultConfig());  // the refresh of the built-ins takes it back
}

TEST_F(ConfigFileTest, unusableLegacyFileGivesDefaults) {
    for (const char* text : {"", "[1]", "{\"cleanupPrompt\"", "{\"a\":\"\xFF\"}"}) {
        fs::remove(m_file.configFile());
        writeLegacy(text);
        m_file.createDefaultIfNeeded();
        EXPECT_EQ(m_file.load(), defaultConfig()) << text;
    }
    EXPECT_THAT(m_printed.lines(), testing::Each(HasSubstr("Config created at: ")));
}

TEST_F(ConfigFileTest, putsMissingBuiltInsBack) {
    write("{}");
    EXPECT_THAT(loadedIds(), ElementsAre("voice-to-text", "raw-transcription", "system-command",
                                         "email", "spanish"));
    EXPECT_THAT(written(), HasSubstr("\"spanish\""));

    AppConfig config = defaultConfig();
    config.modes.erase(config.modes.begin() + 1, config.modes.begin() + 3);
    config.modes.push_back(newCustomMode("ABCDEF01"));
    m_file.save(config);
    EXPECT_THAT(loadedIds(), ElementsAre("voice-to-text", "system-command", "raw-transcription",
                                         "email", "spanish", "abcdef01"));
}

TEST_F(ConfigFileTest, overwritesEditedBuiltInsButNotTheirPlace) {
    AppConfig config = defaultConfig();
    std::swap(config.modes[0], config.modes[4]);
    config.modes[4].name = "Mine";
    config.modes[4].isBuiltIn = false;
    m_file.save(config);
    const AppConfig loaded = m_file.load().value();
    EXPECT_EQ(loaded.modes[4].name, "Voice to Text");
    EXPECT_FALSE(loaded.modes[4].isBuiltIn);
    EXPECT_EQ(written().find("Mine"), std::string::npos);
}

TEST_F(ConfigFileTest, dropsLegacyKeysWithOneSave) {
    AppConfig config = defaultConfig();
    config.dictionary = {"Nulo"};
    m_file.save(config);
    write("{\"openaiApiKey\": null, " + written().substr(1));
    EXPECT_EQ(m_file.load(), config);
    EXPECT_EQ(written().find("openaiApiKey"), std::string::npos);
    const auto saved = fs::last_write_time(m_file.configFile());
    struct stat before {};
    stat(m_file.configFile().c_str(), &before);
    EXPECT_EQ(m_file.load(), config);
    struct stat after {};
    stat(m_file.configFile().c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino) << "a clean file was saved again";
    EXPECT_EQ(saved, fs::last_write_time(m_file.configFile()));
}

TEST_F(ConfigFileTest, refusesWhatDoesNotDecodeAndLeavesItAlone) {
    const std::string mode = R"({"id":"a","name":"b","prompt":"c","isBuiltIn":false})";
    std::vector<std::string> bad{"",
                                 "{",
                                 "[]",
                                 "null",
                                 "{\"activeMode\":\"\xC3\"}",
                                 R"({"activeMode":1})",
                                 R"({"modes":{}})",
                                 R"({"modes":[1]})",
                                 R"({"dictionary":"x"})",
                                 R"({"dictionary":[1]})",
                                 R"({"transcriptionProvider":[]})",
                                 R"({"debugMode":"true"})",
                                 R"({"debugMode":1})",
                                 R"({"modes":[{"id":"a","name":"b","prompt":"c","isBuiltIn":0}]})",
                                 R"({"modes":[{"id":1,"name":"b","prompt":"c","isBuiltIn":true}]})",
                                 std::string(200000, '[')};
    for (const char* key :
         {"\"id\":\"a\",", "\"name\":\"b\",", "\"prompt\":\"c\",", ",\"isBuiltIn\":false"}) {
        std::string shorter = mode;
        shorter.erase(shorter.find(key), std::string(key).size());
        bad.push_back("{\"modes\":[" + shorter + "]}");
    }
    for (const std::string& text : bad) {
        write(text);
        EXPECT_FALSE(m_file.load()) << text.substr(0, 80);
        m_file.createDefaultIfNeeded();
        EXPECT_EQ(written(), text) << "an unreadable file was overwritten";
    }
    write("{\"modes\":[" + mode + "]}");
    EXPECT_EQ(m_file.load().value().modes[0].cleanupModel, "mistral");
}

TEST_F(ConfigFileTest, survivesWhatIsNoReadableFile) {
    fs::create_directories(m_file.configFile());
    EXPECT_FALSE(m_file.load());
    m_file.save(defaultConfig());
    fs::remove(m_file.configFile());
    ASSERT_EQ(mkfifo(m_file.configFile().c_str(), 0600), 0);
    EXPECT_FALSE(m_file.load()) << "reading a FIFO would wait for ever";
    fs::remove(m_file.configFile());
    write("");
    fs::resize_file(m_file.configFile(), 5'000'000'000);  // sparse
    EXPECT_FALSE(m_file.load());
    fs::remove_all(m_home.path() / ".config");
    write("", m_home.path() / ".config");  // a file where the folder should be
    m_file.createDefaultIfNeeded();
    EXPECT_FALSE(m_file.load());
    const Outcome outcome = m_file.trySave(defaultConfig());
    ASSERT_FALSE(outcome);
    EXPECT_THAT(outcome.error().description, HasSubstr(std::generic_category().message(ENOTDIR)));
}

TEST_F(ConfigFileTest, saveKeepsLinkAndModeAndLeavesNoLitter) {
    const fs::path dotfiles = m_home / "dotfiles" / "nulo.json";
    write("{}", dotfiles);
    fs::permissions(dotfiles, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_directories(m_file.configDir());
    fs::create_symlink("../../dotfiles/nulo.json", m_file.configFile());
    AppConfig config = defaultConfig();
    config.debugMode = true;
    EXPECT_TRUE(m_file.trySave(config));
    EXPECT_TRUE(fs::is_symlink(m_file.configFile()));
    EXPECT_EQ(m_file.load(), config);
    EXPECT_EQ(fs::status(dotfiles).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(std::distance(fs::directory_iterator(dotfiles.parent_path()), {}), 1);
}

// A link into a folder of dotfiles that was not checked out yet, turned into a file of its own.
TEST_F(ConfigFileTest, saveMakesWhatADanglingLinkPointsTo) {
    fs::create_directories(m_home / "dotfiles");
    fs::create_directories(m_file.configDir());
    fs::create_symlink("../../dotfiles/link.json", m_file.configFile());
    fs::create_symlink("nulo.json", m_home / "dotfiles" / "link.json");
    m_file.createDefaultIfNeeded();
    EXPECT_TRUE(fs::is_symlink(m_file.configFile()));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(m_home / "dotfiles" / "nulo.json")));
    EXPECT_EQ(m_file.load(), defaultConfig());

    fs::remove(m_file.configFile());
    fs::create_symlink("config.json", m_file.configFile());
    EXPECT_FALSE(m_file.trySave(defaultConfig())) << "the link leads to itself";
}

/// What `action` does as a user who cannot write into `folder`, but to the files in it.
template <typename Action>
auto withReadOnlyFolder(const fs::path& folder, Action action) {
    constexpr uid_t nobody = 65534;
    const bool isRoot = geteuid() == 0;
    for (const auto& entry : fs::directory_iterator(folder))
        if (isRoot && chown(entry.path().c_str(), nobody, nobody) != 0)
            throw std::runtime_error("no file can be given away");
    fs::permissions(folder, fs::perms(0555));
    if (isRoot && seteuid(nobody) != 0)
        throw std::runtime_error("no other user can be taken on");
    auto result = action();
    if (isRoot && seteuid(0) != 0)
        throw std::runtime_error("root cannot be taken back");
    fs::permissions(folder, fs::perms(0755));
    return result;
}

// A file that the user may write, but whose folder takes no new one; a disk that is full then.
TEST_F(ConfigFileTest, savesInPlaceWhereTheFolderTakesNoNewFile) {
    fs::permissions(m_home.path(), fs::perms(0755));
    AppConfig longer = defaultConfig();
    longer.dictionary.assign(100, "word");
    for (const AppConfig& config : {longer, defaultConfig()}) {
        m_file.createDefaultIfNeeded();
        EXPECT_TRUE(withReadOnlyFolder(m_file.configDir(), [&] { return m_file.trySave(config); }));
        EXPECT_EQ(m_file.load(), config);
    }
    longer.dictionary.assign(1000, std::string(100, 'x'));
    const Outcome outcome = withReadOnlyFolder(m_file.configDir(), [&] {
        const FileSizeLimit limit(16 * 1024);
        return m_file.trySave(longer);
    });
    EXPECT_THAT(outcome.error().description, HasSubstr(std::generic_category().message(EFBIG)));
    EXPECT_EQ(m_file.load(), defaultConfig());
}

TEST_F(ConfigFileTest, aFullDiskKeepsTheOldFile) {
    m_file.createDefaultIfNeeded();
    const std::string before = written();
    AppConfig config = defaultConfig();
    config.dictionary.assign(1000, std::string(100, 'x'));
    const Outcome outcome = [&] {
        const FileSizeLimit limit(16 * 1024);
        return m_file.trySave(config);
    }();
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error().description,
              m_file.configFile().string() + ": " + std::generic_category().message(EFBIG));
    EXPECT_EQ(written(), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_file.configDir()), {}), 1);
}

TEST(AppConfig, unknownActiveModeSpeaksForVoiceToText) {
    AppConfig config = defaultConfig();
    config.activeMode = "gone";
    EXPECT_EQ(config.activeModeName(), "Voice to Text");
    EXPECT_EQ(config.activeCleanupModel(), "mistral");
    EXPECT_EQ(config.activePrompt(), voiceToTextMode().prompt);
    config.activeMode = "voice-to-text";
    EXPECT_EQ(config.activeCleanupModel(), "openai");
}

TEST(AppConfig, joinsTheDictionary) {
    AppConfig config;
    EXPECT_EQ(config.dictionaryPrompt(), std::nullopt);
    config.dictionary = {"Nulo", "GPT"};
    EXPECT_EQ(config.dictionaryPrompt(), "Vocabulaire : Nulo, GPT");
}

}  // namespace
}  // namespace nulo
