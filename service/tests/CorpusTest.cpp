#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "service/tests/fuzz/ProviderAnswerCheck.h"
#include "service/tests/fuzz/RequestBodyCheck.h"

namespace nulo::service {
namespace {

// Replays what the fuzzers begin with and every input that ever made trouble.
void expectNoFault(const char* folder, std::string (*faultIn)(std::string_view, std::uint32_t)) {
    int files = 0;
    const std::filesystem::path corpus = std::filesystem::path(NULO_TEST_DATA) / folder;
    for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
        ++files;
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
        for (std::uint32_t seed = 1; seed <= 5; ++seed)
            EXPECT_EQ(faultIn(bytes, seed), "") << entry.path();
    }
    EXPECT_GE(files, 9);
}

TEST(Corpus, requestsAreTakenAlikeHoweverTheyAreCut) {
    expectNoFault("request-body", faultInRequest);
}

TEST(Corpus, answersOfProvidersAreTakenAlikeHoweverTheyAreCut) {
    expectNoFault("provider-answer", faultInProviderAnswer);
}

}  // namespace
}  // namespace nulo::service
