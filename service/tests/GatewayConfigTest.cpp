#include "service/gateway/GatewayConfig.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "rig/process/TemporaryFolder.h"
#include "service/Sha256.h"

namespace nulo::service {
namespace {

class GatewayConfigTest : public testing::Test {
  protected:
    Result<GatewayConfig> read(const std::string& bytes) {
        printed.clear();
        const auto file = folder / "nulo-service.json";
        std::ofstream(file) << bytes;
        std::filesystem::permissions(file, std::filesystem::perms(0600));
        return readGatewayConfig(file, [this](std::string_view line) { printed += line; });
    }
    TemporaryFolder folder;
    std::string printed;
};

TEST_F(GatewayConfigTest, readsAWholeFileAndFillsInWhatIsNotSaid) {
    std::ofstream(folder / "key") << " sk-from-a-file\n";
    const std::string digest = sha256("a token");
    const auto config = read(R"({"address": "::1", "port": 0, "tokens": [")" + digest + R"("],
        "offline": {"model": "m.bin", "sha256": ")" +
                             digest + R"("},
        "tls": {"certificate": "c.pem", "key": "/k.pem"},
        "providers": {
          "local": {"baseURL": "http://127.0.0.1:9/v1/", "chatModel": "small"},
          "mistral": {"apiKeyFile": "key", "chatModel": "mistral-large-latest"},
          "openai": {"apiKey": "sk-1", "baseURL": "https://eu.api.example/v1"}}})");
    ASSERT_TRUE(config) << config.error().description;
    EXPECT_EQ(config.value().tokens, std::vector{digest});
    EXPECT_EQ(config.value().tls->certificate, folder / "c.pem");
    EXPECT_EQ(config.value().tls->key, "/k.pem");
    const Provider* mistral = config.value().provider("mistral");
    EXPECT_EQ(mistral->apiKey, "sk-from-a-file");
    EXPECT_EQ(mistral->baseURL, "https://api.mistral.ai/v1");
    EXPECT_EQ(config.value().provider("local")->baseURL, "http://127.0.0.1:9/v1");
    EXPECT_NE(printed.find("others can read the keys in " + (folder / "key").string()),
              std::string::npos);
    for (const std::string& line : descriptionOf(config.value()))
        EXPECT_EQ(line.find("sk-"), std::string::npos) << line;
}

// A mistyped key must not be passed over, and what is wrong must be found without reading the code.
TEST_F(GatewayConfigTest, refusesWhatItCannotUseAndNamesTheKey) {
    const std::pair<const char*, const char*> faults[] = {
        {"", "not valid JSON"},
        {R"({"adress": "::1"})", "adress is no key"},
        {R"({"port": 65536})", "port must be"},
        {R"({"tokens": ["secret-token"]})", "tokens[0] is not the SHA-256"},
        {R"({"tls": {"certificate": "c"}})", "tls.key is missing"},
        {R"({"providers": {"openai": {}}})", "providers.openai.apiKey is missing"},
        {R"({"providers": {"openai": {"apiKey": "sk-secret", "apiKeyFile": "f"}}})",
         "providers.openai.apiKeyFile stands beside"},
        {R"({"providers": {"openai": {"apiKeyFile": "missing"}}})", "cannot be read"},
        {R"({"providers": {"openai": {"apiKey": "sk secret"}}})", "visible ASCII"},
        {R"({"providers": {"openai": {"apiKey": "sk-secret\r\nX: y"}}})", "one line"},
        {R"({"providers": {"openai": {"apiKey": "sk-secret", "baseURL": "http://api.example"}}})",
         "must be https"},
        {R"({"providers": {"openai": {"apiKey": "sk-secret", "baseURL": "https://secret@a.b"}}})",
         "no user name"},
        {R"({"port": 1, "port": 2})", "twice"},
        {R"({"sk-secret": 1})", "is no key"},
    };
    for (const auto& [bytes, text] : faults) {
        const auto config = read(bytes);
        ASSERT_FALSE(config) << bytes;
        const std::string& line = config.error().description;
        EXPECT_NE(line.find(text), std::string::npos) << line;
        EXPECT_EQ(line.rfind((folder / "nulo-service.json").string(), 0), 0u) << line;
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
        EXPECT_EQ(line.find("secret"), std::string::npos) << line;
    }
    EXPECT_FALSE(readGatewayConfig(folder / "missing", [](std::string_view) {}));
    EXPECT_FALSE(readGatewayConfig("/dev/zero", [](std::string_view) {}));
    ASSERT_TRUE(read("{}"));
    std::filesystem::permissions(folder / "nulo-service.json", std::filesystem::perms(0602));
    EXPECT_FALSE(readGatewayConfig(folder / "nulo-service.json", [](std::string_view) {}));
}

TEST(Sha256, isTheOneThatSha256sumPrints) {
    const TemporaryFolder folder;
    std::ofstream(folder / "abc") << "abc";
    const std::string digest = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    EXPECT_EQ(sha256OfFile(folder / "abc").value(), digest);
    EXPECT_FALSE(sha256OfFile("/dev/zero"));
}

}  // namespace
}  // namespace nulo::service
