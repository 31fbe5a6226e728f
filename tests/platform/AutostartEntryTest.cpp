#include <gtest/gtest.h>

#include <fstream>

#include "base/FileIO.h"
#include "platform/Backends.h"
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
         {"with space", "\"quoted\" 'too'", "back\\slash \\n", "$HOME `id` $(id)", "100% %f %%",
          "a=b", "semi;colon&|<>#*?~", "accentué", "line\nbreak\ttab"}) {
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
    EXPECT_FALSE(makeLoginItem(config, "/\xff/nulo")->registerItem());
}

TEST_F(AutostartEntryTest, replacesOneThatIsSwitchedOffAndRenewsAnEarlierVersions) {
    fs::create_directories(entry.parent_path());
    std::ofstream(entry) << "[Desktop Entry]\nHidden=true\n";
    const auto item = makeLoginItem(config, "/usr/bin/nulo");
    EXPECT_NE(content().find("Hidden"), std::string::npos);
    ASSERT_TRUE(item->registerItem());
    const std::string registered = content();
    EXPECT_EQ(registered.find("Hidden"), std::string::npos);

    // An earlier version's has the session's log hold what is dictated.
    const std::string switchedOff = registered + "Hidden=true\n";
    std::string earlier = switchedOff;
    earlier.erase(earlier.find(" --quiet"), 8);
    std::ofstream(entry) << earlier;
    makeLoginItem(config, "/opt/bin/nulo");  // not the one that the entry starts
    EXPECT_EQ(content(), earlier);
    makeLoginItem(config, "/usr/bin/nulo");
    EXPECT_EQ(content(), switchedOff);

    fs::remove(entry);
    fs::create_directory(entry);
    const Outcome outcome = item->registerItem();
    EXPECT_EQ(outcome ? "" : outcome.error().description,
              "cannot write " + entry.string() + ": Is a directory");
}

}  // namespace
}  // namespace nulo
