#include <gtest/gtest.h>

#include <filesystem>

#include "base/FileIO.h"
#include "service/tests/fuzz/Checks.h"

namespace nulo::service {
namespace {

// Replays what the fuzzers begin with and every input that ever made trouble.
TEST(Corpus, isTakenAlikeHoweverItIsCut) {
    for (const auto& [folder, faultIn] : {std::pair{"/request-body", &faultInRequest},
                                          {"/provider-answer", &faultInProviderAnswer}}) {
        int files = 0;
        for (const auto& entry :
             std::filesystem::directory_iterator(std::string(NULO_TEST_DATA) + folder)) {
            const auto bytes = readFile(entry.path(), 1 << 20);
            for (std::uint32_t seed = 1; seed <= 5; ++seed)
                EXPECT_EQ(faultIn(bytes.value(), seed), "") << entry.path();
            ++files;
        }
        EXPECT_GE(files, 8);
    }
}

}  // namespace
}  // namespace nulo::service
