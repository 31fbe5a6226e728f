#include "service/http/RequestGuard.h"

#include <gtest/gtest.h>

#include <fstream>

#include "rig/process/TemporaryFolder.h"
#include "service/Options.h"
#include "service/Sha256.h"

namespace nulo::service {
namespace {

RequestHead with(const char* name, const std::string& value, bool isFromOwnUser = true) {
    return {"POST", "/", {{name, value}}, isFromOwnUser};
}
int status(const std::optional<Failure>& refusal) {
    return refusal ? refusal->status : 200;
}

TEST(RequestGuard, tellsOwnProgramsFromWebPagesAndOtherUsers) {
    const RequestGuard guard({});
    for (const char* host :
         {"", "localhost:8737", "LOCALHOST", "127.0.0.1:80", "127.9.9.9", "[::1]:8"})
        EXPECT_EQ(status(guard.refusedSender(with("Host", host))), 200) << host;
    // A page whose own name was made to point here, and names that only begin like this machine's.
    for (const char* host :
         {"evil.example:8737", "127.0.0.1.evil.example", "localhost.evil", "[::2]", "["})
        EXPECT_EQ(status(guard.refusedSender(with("Host", host))), 403) << host;
    EXPECT_EQ(status(guard.refusedSender(with("Host", "localhost", false))), 403);
    EXPECT_EQ(status(guard.refusedToken({})), 200);
    const RequestGuard withTokens({sha256("0123456789abcdef")});
    for (const RequestGuard& any : {guard, withTokens}) {
        for (const char* origin : {"https://evil.example", "null", "http://localhost:8737", ""})
            EXPECT_EQ(status(any.refusedSender(with("oRIGIN", origin))), 403) << origin;
        for (const char* site : {"cross-site", "same-site", "None"})
            EXPECT_EQ(status(any.refusedSender(with("Sec-Fetch-Site", site))), 403) << site;
        for (const char* site : {"none", "same-origin"})
            EXPECT_EQ(status(any.refusedSender(with("Sec-Fetch-Site", site))), 200) << site;
    }
}

TEST(RequestGuard, wantsTheWholeOfOneToken) {
    const RequestGuard guard({sha256("0123456789abcdef"), sha256("another-token")});
    EXPECT_EQ(status(guard.refusedSender(with("Host", "speech.example", false))), 200);
    for (const char* right :
         {"Bearer another-token", "Bearer 0123456789abcdef", "bearer 0123456789abcdef"})
        EXPECT_EQ(status(guard.refusedToken(with("Authorization", right))), 200) << right;
    for (const std::string wrong :
         {"", "Bearer ", "Bearer", "0123456789abcdef", "Bearer 0123456789abcdeF",
          "Bearer 0123456789abcdef0", "Bearer 0123456789abcde", "Basic 0123456789abcdef"})
        EXPECT_EQ(status(guard.refusedToken(with("Authorization", wrong))), 401) << wrong;
    EXPECT_EQ(
        status(guard.refusedToken(with("Authorization", "Bearer " + sha256("another-token")))),
        401);
}

// An empty or tiny token file must never stand for a protected service.
TEST(RequestGuard, refusesWeakTokenFiles) {
    const TemporaryFolder folder;
    const auto tokenOf = [&](const std::string& bytes) {
        std::ofstream(folder / "token") << bytes;
        return readToken(folder / "token");
    };
    EXPECT_EQ(tokenOf("  0123456789abcdef\n").value(), "0123456789abcdef");
    for (const char* bad : {"", "\n", "short", "two words of twenty"})
        EXPECT_FALSE(tokenOf(bad)) << bad;
    EXPECT_FALSE(readToken("/dev/zero"));
}

TEST(Options, acceptsOnlyWhatItCanDo) {
    const auto options =
        parsedOptions({"--check", "--port", "0", "--jobs", "3", "--address", "::1"}).value();
    EXPECT_EQ(options.port, 0);
    EXPECT_EQ(options.jobs, 3u);
    EXPECT_EQ(options.action, Options::Action::check);
    using Arguments = std::vector<std::string>;
    for (const Arguments& bad : {Arguments{"--port", "65536"},
                                 {"--port", "80x"},
                                 {"--port"},
                                 {"--jobs", "0"},
                                 {"8737"},
                                 {"--address", ""}})
        EXPECT_FALSE(parsedOptions(bad)) << testing::PrintToString(bad);
    for (const char* open : {"0.0.0.0", "::", "192.0.2.1", "127.0.0.1.example"}) {
        EXPECT_FALSE(checkReach(open, false)) << open;
        EXPECT_TRUE(checkReach(open, true)) << open;
    }
    EXPECT_TRUE(checkReach("::1", false));
}

}  // namespace
}  // namespace nulo::service
