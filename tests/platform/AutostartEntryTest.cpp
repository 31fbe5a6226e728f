#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <fstream>

#include "base/FileIO.h"
#include "platform/Backends.h"
#include "platform/system/UserFolders.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {
namespace fs = std::filesystem;

class AutostartEntryTest : public testing::Test {
  protected:
    std::string content() const { return readFile(entry, 1 << 20).value_or("(no file)"); }

    TemporaryFolder folder;
    const fs::path config = folder / "config";
    const fs::path entry = config / "autostart" / "nulo.desktop";
};

TEST_F(AutostartEntryTest, startsExactlyThisProgramWhateverItsPath) {
    for (const std::string name :
         {"plain", "with space", "\"quoted\" 'too'", "back\\slash \\n", "$HOME `id` $(id)",
          "100% %f %%", "a=b", "semi;colon&|<>#*?~", "accentué", "line\nbreak\ttab"}) {
        SCOPED_TRACE(name);
        const fs::path program = folder / name / "nulo";
        const fs::path marker = folder / "started";
        fs::create_directory(folder / name);
        fs::remove(marker);
        std::ofstream(program) << "#!/bin/sh\necho \"$*\" >'" << marker.native() << "'\n";
        fs::permissions(program, fs::perms::owner_all);

        ASSERT_TRUE(makeLoginItem(config, program)->registerItem());

        EXPECT_NO_THROW(outputOf({"desktop-file-validate", entry})) << content();
        outputOf({"gio", "launch", entry});
        EXPECT_TRUE(waitUntil([&] { return readFile(marker, 10) == "--quiet\n"; })) << content();
    }
}

TEST_F(AutostartEntryTest, replacesAnEntryThatItsUserSwitchedOff) {
    fs::create_directories(entry.parent_path());
    std::ofstream(entry) << "[Desktop Entry]\nHidden=true\n";
    const auto item = makeLoginItem(config, "/usr/bin/nulo");
    EXPECT_NE(content().find("Hidden"), std::string::npos);
    ASSERT_TRUE(item->registerItem());
    ASSERT_TRUE(item->registerItem());
    EXPECT_EQ(content().find("Hidden"), std::string::npos);
    const std::string present = content();
    EXPECT_NE(present.find("Exec=\"/usr/bin/nulo\" --quiet\n"), std::string::npos);
    EXPECT_EQ(std::distance(fs::directory_iterator(entry.parent_path()), {}), 1);

    // One of an earlier version leaves what is dictated in the session's log.
    const std::string switchedOff = present + "Hidden=true\n";
    std::string earlier = switchedOff;
    earlier.erase(earlier.find(" --quiet"), 8);
    std::ofstream(entry) << earlier;
    makeLoginItem(config, "/opt/bin/nulo");  // not the one that the entry starts
    EXPECT_EQ(content(), earlier);
    makeLoginItem(config, "/usr/bin/nulo");
    EXPECT_EQ(content(), switchedOff);
}

TEST_F(AutostartEntryTest, saysWhichFileCannotBeWrittenAndWhy) {
    const auto failure = [&](const fs::path& program = "/usr/bin/nulo") {
        const Outcome outcome = makeLoginItem(config, program)->registerItem();
        return outcome ? "it succeeded" : outcome.error().description;
    };
    const std::string start = "cannot write " + entry.string() + ": ";

    std::ofstream(config) << "a file where the folder should be";
    EXPECT_EQ(failure(), start + "Not a directory");

    fs::remove(config);
    fs::create_directories(entry);
    EXPECT_EQ(failure(), start + "Is a directory");
    EXPECT_EQ(std::distance(fs::directory_iterator(entry.parent_path()), {}), 1);
    fs::remove(entry);

    EXPECT_NE(failure("nulo").find("cannot be written there"), std::string::npos);
    EXPECT_NE(failure("/\xff/nulo").find("cannot be written there"), std::string::npos);
    EXPECT_FALSE(fs::exists(entry));
}

TEST_F(AutostartEntryTest, keepsTheOldEntryWhenTheDiskIsFull) {
    const auto item = makeLoginItem(config, "/usr/bin/nulo");
    ASSERT_TRUE(item->registerItem());
    const std::string before = content();

    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    const Outcome outcome = makeLoginItem(config, "/opt/nulo")->registerItem();
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, handler);

    ASSERT_FALSE(outcome);
    EXPECT_NE(outcome.error().description.find("File too large"), std::string::npos);
    EXPECT_EQ(content(), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(entry.parent_path()), {}), 1);
}

class Environment {
  public:
    explicit Environment(const char* name) : m_name(name) {
        if (const char* value = std::getenv(name))
            m_before = value;
    }
    ~Environment() { set(m_before ? m_before->c_str() : nullptr); }
    void set(const char* value) const { value ? setenv(m_name, value, 1) : unsetenv(m_name); }

  private:
    const char* const m_name;
    std::optional<std::string> m_before;
};

TEST(UserFolders, settingsFolderIsTheDesktopsOnlyWhenItIsAbsolute) {
    const Environment variable("XDG_CONFIG_HOME");
    const fs::path byDefault = userFolders().home / ".config";
    for (const auto& [value, expected] : {std::pair("/else/where", fs::path("/else/where")),
                                          {"relative", byDefault},
                                          {"", byDefault}}) {
        variable.set(value);
        EXPECT_EQ(userFolders().config, expected) << value;
    }
}

// A folder that two users share is the first one's: the second cannot dictate.
TEST(UserFolders, takesGoToAFolderOfTheUsersOwn) {
    const Environment temporary("TMPDIR");
    const Environment runtime("XDG_RUNTIME_DIR");
    const TemporaryFolder own;
    const fs::path byDefault = "/tmp/nulo-" + std::to_string(geteuid());
    struct Case {
        const char* temporary;
        const char* runtime;
        fs::path takes;
    };
    for (const Case& c : {Case{"/else/where", own.path().c_str(), "/else/where/nulo"},
                          {nullptr, own.path().c_str(), own / "nulo"},
                          {"", "relative", byDefault},
                          {nullptr, "/not/there", byDefault},
                          {nullptr, nullptr, byDefault}}) {
        temporary.set(c.temporary);
        runtime.set(c.runtime);
        EXPECT_EQ(userFolders().recordings, c.takes);
    }
}

}  // namespace
}  // namespace nulo
