#include "base/Uuid.h"

#include <gtest/gtest.h>

#include <set>

namespace nulo {
namespace {

// Catches lower case, a lost leading zero, wrong version bits and a generator that repeats itself.
TEST(Uuid, isCanonicalUpperCaseAndNeverTheSame) {
    const std::string shape = "XXXXXXXX-XXXX-4XXX-VXXX-XXXXXXXXXXXX";
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        const std::string uuid = randomUuid();
        ASSERT_EQ(uuid.size(), shape.size());
        for (std::size_t j = 0; j < shape.size(); ++j) {
            const std::string allowed = shape[j] == 'X'   ? "0123456789ABCDEF"
                                        : shape[j] == 'V' ? "89AB"
                                                          : shape.substr(j, 1);
            EXPECT_NE(allowed.find(uuid[j]), std::string::npos) << uuid;
        }
        EXPECT_TRUE(seen.insert(uuid).second) << uuid;
    }
}

}  // namespace
}  // namespace nulo
