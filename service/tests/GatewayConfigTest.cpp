#include "service/GatewayConfig.h"

#include <gmock/gmock.h>

#include <fstream>

#include "rig/process/TemporaryFolder.h"
#include "service/Sha256.h"

namespace nulo::service {
namespace {

using testing::HasSubstr;
using testing::Not;

class GatewayConfigTest : public testing::Test {
  protected:
    Result<GatewayConfig> read(const std::string& bytes, unsigned mode = 0600) {
        std::ofstream(file) << bytes;
        std::filesystem::permissions(file, std::filesystem::perms(mode));
        return readGatewayConfig(file, [this](std::string_view line) { printed += line; });
    }
    const TemporaryFolder folder;
    const std::filesystem::path file = folder / "nulo-service.json";
    std::string printed;
};

TEST_F(GatewayConfigTest, readsAWholeFileAndFillsInWhatIsNotSaid) {
    std::ofstream(folder / "key") << " sk-from-a-file\n";
    const std::string digest = sha256("abc");  // as sha256sum prints it
    EXPECT_EQ(digest, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const auto config = read(R"({"address": "::1", "port": 0, "tokens": [")" + digest + R"("],
        "offline": {"model": "m.bin", "sha256": ")" +
                             digest + R"(", "keepMinutes": 0.5},
        "tls": {"certificate": "c.pem", "key": "/k.pem"},
        "providers": {
          "local": {"baseURL": "http://127.0.0.1:9/v1/", "chatModel": "small"},
          "mistral": {"apiKeyFile": "key", "chatModel": "mistral-large-latest"},
          "openai": {"apiKey": "sk-1", "baseURL": "https://eu.api.example/v1"}}})");
    ASSERT_TRUE(config) << config.error().description;
    EXPECT_EQ(config.value().tokens, std::vector{digest});
    EXPECT_EQ(config.value().offline.keep, std::chrono::seconds(30));
    EXPECT_EQ(config.value().tls->certificate, folder / "c.pem");
    EXPECT_EQ(config.value().tls->key, "/k.pem");
    EXPECT_EQ(config.value().provider("mistral")->apiKey, "sk-from-a-file");
    EXPECT_EQ(config.value().provider("mistral")->baseURL, "https://api.mistral.ai/v1");
    EXPECT_EQ(config.value().provider("local")->baseURL, "http://127.0.0.1:9/v1");
    EXPECT_THAT(printed, HasSubstr("others can read the keys in " + (folder / "key").string()));
    EXPECT_THAT(descriptionOf(config.value()), testing::Each(Not(HasSubstr("sk-"))));
}

// A mistyped key must not be passed over, and what is wrong must be found without reading the code.
TEST_F(GatewayConfigTest, refusesWhatItCannotUseAndNamesTheKey) {
    const auto openai = [](const std::string& members) {
        return R"({"providers": {"openai": {)" + members + "}}}";
    };
    const std::pair<std::string, const char*> faults[] = {
        {"", "not valid JSON"},
        {R"({"adress": "::1"})", "adress is no key"},
        {R"({"port": 65536})", "port must be"},
        {R"({"tokens": ["secret-token"]})", "tokens[0] is not the SHA-256"},
        {R"({"tls": {"certificate": "c"}})", "tls.key is missing"},
        {openai(""), "providers.openai.apiKey is missing"},
        {openai(R"("apiKey": "sk-secret", "apiKeyFile": "f")"), "apiKeyFile stands beside"},
        {openai(R"("apiKeyFile": "missing")"), "providers.openai.apiKeyFile names a file"},
        {openai(R"("apiKey": "sk secret")"), "visible ASCII"},
        {openai(R"("apiKey": "sk-secret\r\nX: y")"), "one line"},
        {openai(R"("apiKey": "sk-secret", "baseURL": "http://api.example")"), "must be https"},
        {openai(R"("apiKey": "sk-secret", "baseURL": "https://secret@a.b")"), "no user name"},
        {R"({"offline": {"modelSource": "http://m.example"}})", "offline.modelSource must be an"},
        {R"({"offline": {"model": "tiny", "sha256": "00"}})", "offline.sha256 is for a model"},
        {R"({"offline": {"model": "tiny.bin"}})", "offline.sha256 must be"},
        {R"({"offline": {"language": "fr en"}})", "offline.language must be"},
        {R"({"offline": {"spokenPunctuation": 1}})", "offline.spokenPunctuation must be"},
        {R"({"offline": {"keepMinutes": -1}})", "offline.keepMinutes must be"},
        {R"({"offline": {"keepMinutes": 10081}})", "offline.keepMinutes must be"},
        {R"({"offline": {"keepMinutes": "10"}})", "offline.keepMinutes must be"},
        {R"({"port": 1, "port": 2})", "twice"},
        {R"({"port": 1e999})", "too large"},
        {R"({"sk-secret": 1})", "is no key"},
    };
    for (const auto& [bytes, text] : faults) {
        const auto config = read(bytes);
        ASSERT_FALSE(config) << bytes;
        EXPECT_THAT(config.error().description,
                    AllOf(testing::StartsWith(file.string()), HasSubstr(text), Not(HasSubstr("\n")),
                          Not(HasSubstr("secret"))));
    }
    EXPECT_TRUE(read("{}"));
    EXPECT_FALSE(read("{}", 0602));
    EXPECT_FALSE(readGatewayConfig("/dev/zero", [](std::string_view) {}));
}

}  // namespace
}  // namespace nulo::service
