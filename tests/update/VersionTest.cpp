#include <gtest/gtest.h>

#include <sstream>

#include "update/IsNewer.h"
#include "update/VersionInfo.h"

namespace nulo {
namespace {

// Catches versions compared as text, and pieces that are no numbers counted as 0 or read in part.
TEST(IsNewer, comparesNumberByNumber) {
    const std::string tooLarge =
        "1.2 9223372036854775808.1.1";  // left out, as all that is no number
    const auto read = [](const std::string& pair) {
        std::pair<std::string, std::string> versions;
        std::istringstream(pair) >> versions.first >> versions.second;
        return versions;
    };
    for (const std::string& pair :
         {std::string("1.3 1.2.9"), std::string("1.10 1.9"), std::string("1"),
          std::string("1.2b.4 1.3"), std::string("1.0.1 1.-1.5"), std::string("1.+2 1.1"),
          tooLarge}) {
        const auto [newer, older] = read(pair);
        EXPECT_TRUE(isNewer(newer, older)) << pair;
        EXPECT_FALSE(isNewer(older, newer)) << pair;
    }
    for (const char* pair :
         {"1.2 1.2.0", "1..2 .1.2.", "1.2b.3 1.3", "v2 0.0", "1.+-2 1", "0x1.1 1"}) {
        const auto [one, other] = read(pair);
        EXPECT_FALSE(isNewer(one, other) || isNewer(other, one)) << pair;
    }
}

std::string body(const std::string& build, const std::string& rest = R"("minVersion":"1")") {
    return R"({"version":"1.3","build":)" + build +
           R"(,"downloadUrl":"https://h/a.zip","releaseNotes":"é\n",)" + rest + "}";
}

TEST(VersionInfo, isReadWithOtherKeysAround) {
    const auto info = parsedVersionInfo(
        body("-7", R"("minVersion":"1","more":{"version":"9"},"version2":[[1],{}])"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->version, "1.3");
    EXPECT_EQ(info->build, -7);
    EXPECT_EQ(info->downloadUrl, "https://h/a.zip");
    EXPECT_EQ(info->releaseNotes, "é\n");
    EXPECT_EQ(info->minVersion, "1");
}

TEST(VersionInfo, isInvalidAsAWholeWhenAnythingIsWrong) {
    for (const std::string& wrong :
         {std::string(), std::string("<html></html>"), std::string("[]"), body("\"7\""),
          body("7.5"), body("18446744073709551615"), body("1", R"("minversion":"1")"),
          body("1", R"("minVersion":1)"), body("1", R"("minVersion":[])"),
          body("1", "\"minVersion\":\"\xff\""), body("1") + "x", body("1").substr(1),
          std::string(1 << 20, '['),
          body("1", "\"minVersion\":\"" + std::string(largestVersionInfo, 'x') + "\"")})
        EXPECT_FALSE(parsedVersionInfo(wrong)) << wrong.substr(0, 200);
    EXPECT_TRUE(
        parsedVersionInfo(body("1", "\"minVersion\":\"" + std::string(1 << 20, 'x') + "\"")));
}

}  // namespace
}  // namespace nulo
