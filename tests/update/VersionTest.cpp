#include <gtest/gtest.h>

#include "update/IsNewer.h"
#include "update/VersionInfo.h"

namespace nulo {
namespace {

// Catches versions compared as text, and pieces that are no numbers counted as 0 or read in part.
TEST(IsNewer, comparesNumberByNumber) {
    const struct {
        const char *one, *other;
        bool isNewer;
    } pairs[] = {{"1.3", "1.2.9", true},
                 {"1.10", "1.9", true},
                 {"1", "", true},
                 {"1.2b.4", "1.3", true},
                 {"1.0.1", "1.-1.5", true},
                 {"1.2", "9223372036854775808.1.1", true},  // left out, as all that is no number
                 {"1.2", "1.2.0", false},
                 {"1..2", ".1.2.", false},
                 {"v2", "0.0", false},
                 {"1.+-2", "1", false}};
    for (const auto& [one, other, expected] : pairs) {
        EXPECT_EQ(isNewer(one, other), expected) << one << " " << other;
        EXPECT_FALSE(isNewer(other, one)) << other << " " << one;
    }
}

std::string body(const std::string& build, const std::string& rest = R"("minVersion":"1")") {
    return R"({"version":"1.3","build":)" + build +
           R"(,"downloadUrl":"https://h/a.zip","releaseNotes":"é\n",)" + rest + "}";
}

// A window about half of an answer; a value of another type, or too large, taken as some number.
TEST(VersionInfo, isReadWholeOrNotAtAll) {
    const auto info = parsedVersionInfo(
        body("-7", R"("minVersion":"1","more":{"version":"9"},"version2":[[1],{}])"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->version + info->downloadUrl + info->releaseNotes + info->minVersion,
              "1.3https://h/a.zipé\n1");
    EXPECT_EQ(info->build, -7);
    for (const std::string& wrong :
         {std::string("[]"), body("\"7\""), body("7.5"), body("18446744073709551615"),
          body("1", R"("minversion":"1")"), body("1", R"("minVersion":[])"),
          body("1", "\"minVersion\":\"\xff\""), body("1") + "x", std::string(1 << 20, '['),
          body("1", "\"minVersion\":\"" + std::string(largestVersionInfo, 'x') + "\"")})
        EXPECT_FALSE(parsedVersionInfo(wrong)) << wrong.substr(0, 200);
}

}  // namespace
}  // namespace nulo
