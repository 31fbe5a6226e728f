#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "base/FileIO.h"
#include "platform/Backends.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

TEST(QtUserDefaults, remembersFromOneRunToTheNextWhateverTheFileHeld) {
    for (const std::string& before :
         {std::string(), std::string("[[[\n=\n%%"), std::string(5000, '\0'),
          std::string("[General]\nnumber=nan\nflag=maybe\n"),
          std::string("number=@Variant(\\0\\0\\0\\x7f)\nflag=@Invalid()\n")}) {
        const TemporaryFolder folder;
        std::ofstream(folder / "defaults.ini") << before;
        const auto defaults = makeUserDefaults(folder / "defaults.ini");
        EXPECT_EQ(defaults->number("number"), std::nullopt) << before.substr(0, 100);
        EXPECT_EQ(defaults->boolean("flag"), std::nullopt) << before.substr(0, 100);
        defaults->set("flag", true);
        defaults->set("number", 1763706880.123456);
        EXPECT_EQ(makeUserDefaults(folder / "defaults.ini")->number("number"), 1763706880.123456);
        EXPECT_EQ(makeUserDefaults(folder / "defaults.ini")->boolean("flag"), true);
    }
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    makeUserDefaults(folder / "fifo")->set("number", 1.0);  // would wait for the FIFO's other end
}

}  // namespace
}  // namespace nulo
