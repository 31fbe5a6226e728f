#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

#include "base/FileIO.h"
#include "platform/Backends.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;

TEST(QtUserDefaults, remembersFromOneRunToTheNext) {
    const TemporaryFolder folder;
    const fs::path file = folder / "config/nulo/defaults.ini";
    EXPECT_EQ(makeUserDefaults(file)->boolean("nuloHasLaunched"), std::nullopt);
    EXPECT_FALSE(fs::exists(file));
    {
        const auto defaults = makeUserDefaults(file);
        defaults->set("nuloHasLaunched", true);
        defaults->set("nuloLastUpdateCheck", 1763706880.123456);
        EXPECT_EQ(readFile(file, 1000),
                  "[General]\nnuloHasLaunched=true\nnuloLastUpdateCheck=1763706880.123456\n");
        EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    }
    const auto defaults = makeUserDefaults(file);
    EXPECT_EQ(defaults->boolean("nuloHasLaunched"), true);
    EXPECT_EQ(defaults->number("nuloLastUpdateCheck"), 1763706880.123456);
    EXPECT_EQ(defaults->number("nuloHasLaunched"), std::nullopt);
    defaults->set("nuloHasLaunched", false);
    EXPECT_EQ(makeUserDefaults(file)->boolean("nuloHasLaunched"), false);
}

TEST(QtUserDefaults, livesWithAnyFile) {
    for (const std::string& content :
         {std::string("{\"no\": \"ini\"}"), std::string("[[[\n=\n%%"), std::string(5000, '\0'),
          std::string("[General]\nnumber=nan\nboolean=maybe\n"),
          std::string("number=@Variant(\\0\\0\\0\\x7f)\nboolean=@Invalid()\n")}) {
        const TemporaryFolder folder;
        const fs::path file = folder / "defaults.ini";
        std::ofstream(file) << content;
        const auto defaults = makeUserDefaults(file);
        EXPECT_EQ(defaults->number("number"), std::nullopt) << content.substr(0, 100);
        EXPECT_EQ(defaults->boolean("boolean"), std::nullopt) << content.substr(0, 100);
        defaults->set("number", 2.5);
        EXPECT_EQ(makeUserDefaults(file)->number("number"), 2.5) << content.substr(0, 100);
    }
    // What is no file of a sane size is left alone.
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "defaults.ini").c_str(), 0600), 0);
    const auto fifo = makeUserDefaults(folder / "defaults.ini");
    fifo->set("number", 1.0);
    EXPECT_EQ(fifo->number("number"), std::nullopt);
    std::ofstream(folder / "large") << std::string(2 << 20, 'x');
    makeUserDefaults(folder / "large")->set("number", 1.0);
    EXPECT_EQ(fs::file_size(folder / "large"), 2u << 20);
    const auto unwritable = makeUserDefaults("/proc/nulo/defaults.ini");
    unwritable->set("number", 1.0);
}

}  // namespace
}  // namespace nulo
