#include "config/ServiceConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "fakes/PrintedLines.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

class ServiceConfigTest : public testing::Test {
  protected:
    Result<ServiceConfig> load(const std::string& text) {
        std::ofstream(m_file, std::ios::binary) << text;
        fs::permissions(m_file, fs::perms::owner_read | fs::perms::owner_write);
        return load();
    }
    Result<ServiceConfig> load() {
        return loadServiceConfig(m_file, "http://127.0.0.1:8737", m_printed.print());
    }

    TemporaryFolder m_folder;
    fs::path m_file = m_folder / "service.json";
    PrintedLines m_printed;
};

TEST_F(ServiceConfigTest, missingFileIsTheBuiltInAddress) {
    const auto config = load();
    ASSERT_TRUE(config);
    EXPECT_EQ(config.value().baseURL, "http://127.0.0.1:8737");
    EXPECT_TRUE(config.value().authHeaders.empty());
    EXPECT_FALSE(loadServiceConfig(m_file, "http://speech.example.org", m_printed.print()));
}

TEST_F(ServiceConfigTest, readsAddressAndHeaders) {
    const auto config = load(
        R"({"baseURL": "https://speech.example.org", "headers": {"Authorization": "Bearer a/b"}})");
    ASSERT_TRUE(config) << config.error().description;
    EXPECT_EQ(config.value().baseURL, "https://speech.example.org");
    EXPECT_THAT(config.value().authHeaders,
                ElementsAre(std::pair<std::string, std::string>("Authorization", "Bearer a/b")));
    EXPECT_TRUE(m_printed.lines().empty());

    fs::permissions(m_file, fs::perms::group_read, fs::perm_options::add);
    EXPECT_TRUE(load());
    EXPECT_THAT(m_printed.lines(),
                ElementsAre(AllOf(HasSubstr(m_file.string()), HasSubstr("chmod 600"))));
    fs::permissions(m_file, fs::perms::group_write, fs::perm_options::add);
    EXPECT_THAT(load().error().description, HasSubstr("other users can change it; run: chmod 600"));
}

TEST_F(ServiceConfigTest, plainHttpIsForThisMachineOnly) {
    for (const char* url : {"http://127.0.0.1", "https://example.org:444/speech"})
        EXPECT_EQ(serviceUrlFault(url), "") << url;
    for (const char* url : {"http://example.org", "", "https://user@example.org",
                            "https://example.org?x", "https://example.org#x"})
        EXPECT_NE(serviceUrlFault(url), "") << url;
}

TEST_F(ServiceConfigTest, refusesTheRestWithOneLineNamingTheFile) {
    for (const char* text :
         {"", "{", "[]", "{}", R"({"baseURL": 1})", R"({"baseURL": "http://example.org"})",
          R"({"baseURL": "https://a.org", "headers": []})",
          R"({"baseURL": "https://a.org", "headers": {"A": 1}})",
          R"({"baseURL": "https://a.org", "headers": {"A b": "x"}})",
          R"({"baseURL": "https://a.org", "headers": {"A": "x\r\nB: y"}})",
          R"({"baseURL": "https://a.org", "header": {}})"}) {
        const auto config = load(text);
        ASSERT_FALSE(config) << text;
        EXPECT_THAT(config.error().description,
                    AllOf(HasSubstr(m_file.string()), testing::Not(HasSubstr("\n"))));
    }
    fs::remove(m_file);
    ASSERT_EQ(mkfifo(m_file.c_str(), 0600), 0);
    EXPECT_FALSE(load()) << "or rather waits";
}

}  // namespace
}  // namespace nulo
