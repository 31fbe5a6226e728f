#include "service/http/RequestGuard.h"

#include <gtest/gtest.h>

#include <fstream>

#include "rig/process/TemporaryFolder.h"
#include "service/Sha256.h"
#include "service/app/Options.h"

namespace nulo::service {
namespace {

const RequestGuard withoutTokens({});
const RequestGuard withTokens({sha256("0123456789abcdef"), sha256("another-token")});

int status(const std::optional<Failure>& refusal) {
    return refusal ? refusal->status : 200;
}
int sender(const RequestGuard& guard, const char* name, const char* value, bool isOwn = true) {
    return status(guard.refusedSender({"POST", "/", {{name, value}}, isOwn}));
}

TEST(RequestGuard, tellsOwnProgramsFromWebPagesAndOtherUsers) {
    for (const char* host :
         {"", "localhost:8737", "LOCALHOST", "127.0.0.1:80", "127.9.9.9", "[::1]:8"})
        EXPECT_EQ(sender(withoutTokens, "Host", host), 200) << host;
    // A page whose own name was made to point here, and names that only begin like this machine's.
    for (const char* host :
         {"evil.example:8737", "127.0.0.1.evil.example", "localhost.evil", "[::2]", "["})
        EXPECT_EQ(sender(withoutTokens, "Host", host), 403) << host;
    EXPECT_EQ(sender(withoutTokens, "Host", "localhost", false), 403);
    EXPECT_EQ(sender(withTokens, "Host", "speech.example", false), 200);
    for (const RequestGuard& any : {withoutTokens, withTokens}) {
        for (const char* origin : {"https://evil.example", "null", "http://localhost:8737", ""})
            EXPECT_EQ(sender(any, "oRIGIN", origin), 403) << origin;
        for (const char* site : {"cross-site", "same-site", "None"})
            EXPECT_EQ(sender(any, "Sec-Fetch-Site", site), 403) << site;
        for (const char* site : {"none", "same-origin"})
            EXPECT_EQ(sender(any, "Sec-Fetch-Site", site), 200) << site;
    }
}

TEST(RequestGuard, wantsTheWholeOfOneToken) {
    const auto token = [](const RequestGuard& guard, const std::string& value) {
        return status(guard.refusedToken({"", "", {{"Authorization", value}}}));
    };
    for (const char* right : {"Bearer another-token", "bearer 0123456789abcdef"})
        EXPECT_EQ(token(withTokens, right), 200) << right;
    for (const std::string wrong :
         {"", "Bearer ", "Bearer", "0123456789abcdef", "Bearer 0123456789abcdeF",
          "Bearer 0123456789abcdef0", "Bearer 0123456789abcde", "Basic 0123456789abcdef"})
        EXPECT_EQ(token(withTokens, wrong), 401) << wrong;
    EXPECT_EQ(token(withTokens, "Bearer " + sha256("another-token")), 401);
    EXPECT_EQ(token(withoutTokens, ""), 200);
}

// An empty or tiny token file must never stand for a protected service.
TEST(RequestGuard, refusesWeakTokenFiles) {
    const TemporaryFolder folder;
    for (const char* bytes : {"  0123456789abcdef\n", "", "\n", "short", "two words of twenty"}) {
        std::ofstream(folder / "token") << bytes;
        EXPECT_EQ(bool(readToken(folder / "token")), *bytes == ' ') << bytes;
    }
    EXPECT_FALSE(readToken("/dev/zero"));
}

TEST(Options, acceptsOnlyWhatItCanDo) {
    const auto options = parsedOptions({"--check", "--port", "0", "--jobs", "3"}).value();
    EXPECT_EQ(std::tie(*options.port, options.jobs), std::tuple(0, 3u));
    EXPECT_EQ(options.action, Options::Action::check);
    for (const std::string bad : {"--port=65536", "--port=80x", "--jobs=0", "--address=", "80="}) {
        const std::size_t end = bad.find('=');
        EXPECT_FALSE(parsedOptions({bad.substr(0, end), bad.substr(end + 1)})) << bad;
    }
    EXPECT_FALSE(parsedOptions({"--port"}));
}

}  // namespace
}  // namespace nulo::service
