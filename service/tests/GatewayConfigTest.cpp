#include "service/gateway/GatewayConfig.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "rig/process/TemporaryFolder.h"
#include "service/offline/Sha256.h"

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
    EXPECT_EQ(config.value().offline->file, folder / "m.bin");
    const Provider* mistral = config.value().provider("mistral");
    EXPECT_EQ(mistral->apiKey, "sk-from-a-file");
    EXPECT_EQ(mistral->baseURL, "https://api.mistral.ai/v1");
    EXPECT_EQ(config.value().provider("local")->baseURL, "http://127.0.0.1:9/v1");
    EXPECT_NE(printed.find("others can read the keys in " + (folder / "key").string()),
              std::string::npos);
    std::string described;
    for (const std::string& line : descriptionOf(config.value()))
        described += line + "\n";
    for (const char* part : {"https://eu.api.example/v1", "mistral-large-latest",
                             "local: ", "transcribes with nothing", "m.bin"})
        EXPECT_NE(described.find(part), std::string::npos) << part << " in " << described;
    EXPECT_EQ(described.find("sk-"), std::string::npos);
}

// A mistyped key must not be passed over, and what is wrong must be found without reading the code.
TEST_F(GatewayConfigTest, refusesWhatItCannotUseAndNamesTheKey) {
    const std::pair<const char*, const char*> faults[] = {
        {"", "not valid JSON"},
        {"{\n\n]", "line 3"},
        {"[]", "the file must be a JSON object"},
        {R"({"adress": "::1"})", "adress is no key"},
        {R"({"port": 65536})", "port must be"},
        {R"({"port": "80"})", "port must be"},
        {R"({"port": 1e999})", "a number that is too large"},
        {R"({"address": ""})", "address must be"},
        {R"({"tokens": ["secret-token"]})", "tokens[0] is not the SHA-256"},
        {R"({"tokens": []})", "tokens must be a list"},
        {R"({"offline": {"model": "m.bin"}})", "offline.sha256 must be"},
        {R"({"tls": {"certificate": "c"}})", "tls.key is missing"},
        {R"({"providers": {"vendor": {}}})", "providers.vendor is no key"},
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
        {R"({"providers": {"local": {"baseURL": "http://127.0.0.1:1/v1"}}})", "name the models"},
        {R"({"providers": {"local": {"chatModel": "m"}}})", "providers.local.baseURL is missing"},
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
    EXPECT_EQ(sha256("abc"), digest);
    EXPECT_EQ(sha256OfFile(folder / "abc").value(), digest);
    EXPECT_FALSE(sha256OfFile(folder / "missing"));
    EXPECT_FALSE(sha256OfFile(folder.path()));
}

}  // namespace
}  // namespace nulo::service
