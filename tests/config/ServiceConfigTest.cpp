#include "config/ServiceConfig.h"

#include <gmock/gmock.h>

#include <fstream>

#include "fakes/PrintedLines.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class ServiceConfigTest : public testing::Test {
  protected:
    Result<ServiceConfig> load(const std::string& text, unsigned mode = 0600) {
        std::ofstream(m_file) << text;
        fs::permissions(m_file, fs::perms(mode));
        return loadServiceConfig(m_file, "http://127.0.0.1:8737", m_printed.print());
    }

    TemporaryFolder m_folder;
    const fs::path m_file = m_folder / "service.json";
    PrintedLines m_printed;
};

TEST_F(ServiceConfigTest, readsAddressAndHeadersOfAPrivateFile) {
    const auto absent = [&](const char* builtIn) {
        return loadServiceConfig(m_file, builtIn, m_printed.print());
    };
    EXPECT_EQ(absent("http://127.0.0.1:8737").value().baseURL, "http://127.0.0.1:8737");
    EXPECT_FALSE(absent("http://speech.example.org"));

    const char* text =
        R"({"baseURL": "https://h:444/s", "headers": {"Authorization": "Bearer a/b"}})";
    const auto config = load(text);
    EXPECT_EQ(config.value().baseURL, "https://h:444/s");
    EXPECT_EQ(config.value().authHeaders.at(0).second, "Bearer a/b");
    EXPECT_TRUE(m_printed.lines().empty());
    EXPECT_TRUE(load(text, 0640));
    EXPECT_THAT(m_printed.lines().at(0), HasSubstr("chmod 600 " + m_file.string()));
    EXPECT_THAT(load(text, 0620).error().description,
                HasSubstr("other users can change it; run: chmod 600"));
}

// Speech and credentials sent to where others can read them; a header that ends the request's head.
TEST_F(ServiceConfigTest, refusesTheRestWithOneLineNamingTheFile) {
    for (const char* text :
         {"", "{", "[]", "{}", R"({"baseURL": 1})", R"({"baseURL": "http://example.org"})",
          R"({"baseURL": "https://user@a.org"})", R"({"baseURL": "https://a.org?x"})",
          R"({"baseURL": "https://a.org#x"})", R"({"baseURL": "https://a.org", "headers": []})",
          R"({"baseURL": "https://a.org", "headers": {"A": 1}})",
          R"({"baseURL": "https://a.org", "headers": {"A b": "x"}})",
          R"({"baseURL": "https://a.org", "headers": {"A": "x\r\nB: y"}})",
          R"({"baseURL": "https://a.org", "header": {}})"}) {
        const auto config = load(text);
        ASSERT_FALSE(config) << text;
        EXPECT_THAT(config.error().description, HasSubstr(m_file.string()));
        EXPECT_THAT(config.error().description, testing::Not(HasSubstr("\n")));
    }
}

}  // namespace
}  // namespace nulo
