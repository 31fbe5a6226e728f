#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fstream>

#include "base/FileIO.h"
#include "platform/Backends.h"
#include "platform/system/UserFolders.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

// A folder that two users share is the first one's: the second cannot dictate.
TEST(UserFolders, takesGoToAFolderOfTheUsersOwn) {
    const TemporaryFolder own;
    const std::filesystem::path byDefault = "/tmp/nulo-" + std::to_string(geteuid());
    const std::tuple<std::string, std::string, std::filesystem::path> rows[] = {
        {"/else/where", own.path(), "/else/where/nulo"},
        {"", own.path(), own / "nulo"},
        {"", "relative", byDefault},
        {"", "/not/there", byDefault}};
    for (const auto& [temporary, runtime, takes] : rows) {
        setenv("TMPDIR", temporary.c_str(), 1);
        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
        EXPECT_EQ(userFolders().recordings, takes);
    }
    unsetenv("TMPDIR");
    unsetenv("XDG_RUNTIME_DIR");
}

TEST(QtUserDefaults, remembersFromOneRunToTheNextWhateverTheFileHeld) {
    const TemporaryFolder folder;
    const auto file = folder / "defaults.ini";
    for (const std::string& before :
         {std::string(), std::string("[[[\n=\n%%"), std::string(5000, '\0'),
          std::string("[General]\nnumber=nan\nflag=maybe\n"),
          std::string("number=@Variant(\\0\\0\\0\\x7f)\nflag=@Invalid()\n")}) {
        std::ofstream(file) << before;
        const auto defaults = makeUserDefaults(file);
        EXPECT_EQ(defaults->number("number"), std::nullopt) << before.substr(0, 100);
        EXPECT_EQ(defaults->boolean("flag"), std::nullopt) << before.substr(0, 100);
        defaults->set("flag", true);
        defaults->set("number", 1763706880.123456);
        EXPECT_EQ(makeUserDefaults(file)->number("number"), 1763706880.123456);
        EXPECT_EQ(makeUserDefaults(file)->boolean("flag"), true);
    }
    for (const char* before : {"chord=Ctrl,Alt+D", "[General]\nchord=\"Ctrl,Alt+D\"\n"}) {
        std::ofstream(file) << before;
        EXPECT_EQ(makeUserDefaults(file)->text("chord"), "Ctrl,Alt+D") << before;
    }
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    makeUserDefaults(folder / "fifo")->set("number", 1.0);  // would wait for the FIFO's other end
}

// A path that starts another program or none; an entry that stays switched off when it is asked
// for; one of an earlier version, which has the session's log hold what is dictated.
TEST(AutostartEntry, startsExactlyThisProgramWhateverItsPath) {
    const TemporaryFolder folder;
    const auto config = folder / "config", entry = config / "autostart/nulo.desktop";
    const auto content = [&] { return readFile(entry, 1 << 20).value_or("(no file)"); };
    for (const std::string name :
         {"with space", "\"quoted\" 'too'", "back\\slash \\n", "$HOME `id` $(id)", "100% %f %%",
          "a=b", "semi;colon&|<>#*?~", "accentué", "line\nbreak\ttab"}) {
        const auto program = folder / name / "nulo", marker = folder / "started";
        create_directory(folder / name);
        remove(marker);
        std::ofstream(program) << "#!/bin/sh\necho \"$*\" >'" << marker.native() << "'\n";
        permissions(program, std::filesystem::perms::owner_all);
        ASSERT_TRUE(makeLoginItem(config, program)->registerItem());
        EXPECT_NO_THROW(outputOf({"desktop-file-validate", entry})) << content();
        outputOf({"gio", "launch", entry});
        EXPECT_TRUE(waitUntil([&] { return readFile(marker, 10) == "--quiet\n"; })) << content();
    }
    EXPECT_FALSE(makeLoginItem(config, "/\xff/nulo")->registerItem());

    const auto item = makeLoginItem(config, "/usr/bin/nulo");
    std::ofstream(entry) << "[Desktop Entry]\nHidden=true\n";
    ASSERT_TRUE(item->registerItem());
    std::string earlier = content() + "Hidden=true\n";
    EXPECT_EQ(earlier.find("Hidden"), earlier.rfind("Hidden"));
    const std::string switchedOff = earlier;
    earlier.erase(earlier.find(" --quiet"), 8);
    std::ofstream(entry) << earlier;
    makeLoginItem(config, "/opt/bin/nulo");  // not the one that the entry starts
    EXPECT_EQ(content(), earlier);
    makeLoginItem(config, "/usr/bin/nulo");
    EXPECT_EQ(content(), switchedOff);

    remove(entry);
    create_directory(entry);
    const Outcome outcome = item->registerItem();
    EXPECT_EQ(outcome ? "" : outcome.error().description,
              "cannot write " + entry.string() + ": Is a directory");
}

}  // namespace
}  // namespace nulo
