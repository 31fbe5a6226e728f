#include "base/Uuid.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace nulo {
namespace {

// Catches lower case, a lost leading zero, wrong version bits and a generator that repeats itself.
TEST(Uuid, isCanonicalUpperCaseAndNeverTheSame) {
    const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        const std::string uuid = randomUuid();
        EXPECT_TRUE(std::regex_match(uuid, shape)) << uuid;
        EXPECT_TRUE(seen.insert(uuid).second) << uuid;
    }
}

}  // namespace
}  // namespace nulo
