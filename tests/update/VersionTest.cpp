#include <gtest/gtest.h>

#include "update/IsNewer.h"
#include "update/VersionInfo.h"

namespace nulo {
namespace {

TEST(IsNewer, comparesNumberByNumber) {
    const std::string thirtyDigits(30, '9');
    for (const auto& [newer, older] : std::initializer_list<std::pair<std::string, std::string>>{
             {"1.3", "1.2.9"},
             {"1.2.10", "1.2.9"},
             {"1.10", "1.9"},
             {"0.0.1", "0.0"},
             {"1", ""},
             {"2", "1.9.9.9"},
             {"1.2b.4", "1.3"},    // 1.4
             {"1.0.1", "1.-1.5"},  // a negative number is an integer too
             {"1.+2", "1.1"},
             {"1.2", thirtyDigits + ".1.1"},  // 1.1
             {"9223372036854775807", "1"}}) {
        EXPECT_TRUE(isNewer(newer, older)) << newer << " " << older;
        EXPECT_FALSE(isNewer(older, newer)) << newer << " " << older;
    }
}

TEST(IsNewer, equalVersionsAreNotNewer) {
    for (const auto& [one, other] : std::initializer_list<std::pair<const char*, const char*>>{
             {"", ""},
             {"1.2", "1.2.0"},
             {"1..2", "1.2"},
             {"1.2...", "1.2"},
             {".1.2", "1.2"},
             {"1.2b.3", "1.3"},
             {"v2", "0.0"},
             {"0.0.0", "0.0"},
             {"9223372036854775808.1", "1"},  // too large for an integer: left out
             {"1.+-2", "1"},
             {"1. 2", "1"},
             {"0x1.1", "1"}}) {
        EXPECT_FALSE(isNewer(one, other)) << one << " " << other;
        EXPECT_FALSE(isNewer(other, one)) << one << " " << other;
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
         {std::string(), std::string("<html></html>"), std::string("null"), std::string("[]"),
          body("\"7\""), body("7.5"), body("true"), body("null"), body("18446744073709551615"),
          body("1", R"("minversion":"1")"), body("1", R"("minVersion":1)"),
          body("1", R"("minVersion":[])"), body("1", "\"minVersion\":\"\xff\""), body("1") + "x",
          body("1").substr(1), std::string(1 << 20, '['),
          body("1", "\"minVersion\":\"" + std::string(largestVersionInfo, 'x') + "\"")})
        EXPECT_FALSE(parsedVersionInfo(wrong)) << wrong.substr(0, 200);
    EXPECT_TRUE(
        parsedVersionInfo(body("1", "\"minVersion\":\"" + std::string(1 << 20, 'x') + "\"")));
}

}  // namespace
}  // namespace nulo
