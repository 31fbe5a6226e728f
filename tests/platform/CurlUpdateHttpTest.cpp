#include <gmock/gmock.h>

#include "base/FileIO.h"
#include "fakes/FakeMainQueue.h"
#include "platform/Backends.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "support/FileSizeLimit.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class CurlUpdateHttpTest : public testing::Test {
  protected:
    std::string get(const std::string& url) {
        m_http->get(url, 100, [this](const Result<std::string>& body) {
            m_outcome = body ? body.value() : "error: " + body.error().description;
        });
        return takeOutcome();
    }
    /// The status as text.
    std::string download(const std::string& url) {
        m_http->download(url, m_file, 1 << 20, [this](const Result<UpdateHttp::Download>& ending) {
            m_outcome = ending ? std::to_string(ending.value().status) +
                                     (ending.value().isWhole ? "" : ", perhaps cut off")
                               : "error: " + ending.error().description;
        });
        return takeOutcome();
    }
    std::string takeOutcome() {
        EXPECT_EQ(m_outcome, "") << "completed inside the call";
        waitUntil([&] { return m_queue.runPending(), !m_outcome.empty(); });
        return std::exchange(m_outcome, "");
    }

    const std::string m_content = std::string(300'000, '\xE2') + std::string("\xFF\0end", 5);
    ScriptedHttpServer m_other{[this](const ReceivedRequest& request, auto& connection) {
        connection.send(request.target == "/loop"
                            ? httpResponse(307, "", {"Location: " + m_server.url("/loop")})
                            : httpResponse(200, "from the other"));
    }};
    ScriptedHttpServer m_server{[this](const ReceivedRequest& request, auto& connection) {
        const std::string path = request.target.substr(0, request.target.find('?'));
        const std::map<std::string, std::string> answers{
            {"/file", httpResponse(200, m_content)},
            {"/missing", httpResponse(404, "Not here\n")},
            {"/cut", "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbegin"},
            {"/stall", "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbegin"},
            {"/unmarked", "HTTP/1.1 200 OK\r\n\r\nbegin"},
            {"/endless", "HTTP/1.1 200 OK\r\n\r\n"},
            {"/to", httpResponse(302, "moved", {"Location: " + request.target.substr(4)})},
            {"/loop", httpResponse(302, "", {"Location: " + m_other.url("/loop")})}};
        connection.send(answers.at(path));
        if (path == "/stall")
            connection.stall();
        while (path == "/endless" && connection.send(std::string(1 << 16, 'x'))) {
        }
        connection.close();
    }};
    std::string m_outcome;
    TemporaryFolder m_folder;
    fs::path m_file = m_folder / "file";
    FakeMainQueue m_queue;
    std::unique_ptr<UpdateHttp> m_http = makeUpdateHttp(m_queue);
};

// A header that tells who asks; more of an endless answer than was asked for; a redirect that is
// not followed, or followed for ever or in the clear.
TEST_F(CurlUpdateHttpTest, getsABodyWhateverTheStatusWithoutHeadersOfOurs) {
    EXPECT_EQ(get(m_server.url("/to?/missing")), "Not here\n");
    const ReceivedRequest request = m_server.requests().at(1);
    for (const auto& [name, value] : request.headers)
        EXPECT_TRUE(name == "Host" || name == "Accept") << name;
    EXPECT_EQ(get(m_server.url("/endless")), std::string(100, 'x'));
    EXPECT_THAT(get(m_server.url("/loop")), HasSubstr("from one address to another forever"));
    EXPECT_EQ(get("http://192.0.2.1/"),
              "error: The address http://192.0.2.1/ is not secure: it must be https");
}

// Bytes lost or added, such as a redirect's own; a part that passes for the whole or stays behind;
// an update taken from an address that anybody can answer for.
TEST_F(CurlUpdateHttpTest, downloadsEveryByteOrLeavesNoFile) {
    ScriptedHttpServer gone([](const ReceivedRequest&, auto&) {});
    gone.stop();
    const auto authority = [](const ScriptedHttpServer& server) { return server.url().substr(7); };
    std::vector<std::tuple<std::string, std::string, std::optional<std::string>>> rows{
        {m_server.url("/file"), "200", m_content},
        {m_server.url("/missing"), "404", "Not here\n"},
        {m_server.url("/unmarked"), "200, perhaps cut off", "begin"},
        {m_server.url("/to?" + m_other.url("/a.zip")), "200", "from the other"},
        {m_server.url("/endless"), "error: What came is larger than 1 MB", {}},
        {m_server.url("/cut"),
         "error: The connection to " + authority(m_server) +
             " was closed before the answer was complete",
         {}},
        {gone.url("/"),
         "error: Could not connect to the server at " + authority(gone) + ": connection refused",
         {}}};
    for (const std::string target : {"http://192.0.2.1/a.zip", "ftp://127.0.0.1/a",
                                     "file:///etc/passwd", "http://localhost.example/a"})
        rows.push_back({m_server.url("/to?" + target),
                        "error: The address " + target + " is not secure: it must be https",
                        {}});
    for (const auto& [url, outcome, file] : rows) {
        EXPECT_EQ(download(url), outcome);
        EXPECT_TRUE(readFile(m_file, 1'000'000) == file) << url;
        EXPECT_TRUE(!file || fs::status(m_file).permissions() == fs::perms(0600));
        fs::remove(m_file);
    }
}

// What lies there, a link to something precious say, written to; a full disk that nobody tells of.
TEST_F(CurlUpdateHttpTest, saysWhyTheFileCannotBeWritten) {
    {
        const FileSizeLimit disk(1 << 18);
        EXPECT_THAT(download(m_server.url("/file")),
                    HasSubstr("file cannot be written: File too large"));
    }
    EXPECT_FALSE(fs::exists(m_file));
    EXPECT_EQ(download(m_server.url("/missing")), "404");
    EXPECT_THAT(download(m_server.url("/file")), HasSubstr("cannot be written: File exists"));
    EXPECT_EQ(readFile(m_file, 100), "Not here\n");
    m_file = "/proc/file";  // a folder that nobody can write to, not root either
    EXPECT_THAT(download(m_server.url("/file")), HasSubstr("/proc/file cannot be written"));
}

TEST_F(CurlUpdateHttpTest, itsEndCancelsWithoutCompletionAndRemovesTheFile) {
    int completions = 0;
    const auto count = [&](const Result<UpdateHttp::Download>&) { ++completions; };
    m_http->download(m_server.url("/stall"), m_file, 100, count);
    ASSERT_TRUE(waitUntil([&] { return fs::exists(m_file) && fs::file_size(m_file) == 5; }));
    m_http->cancel();
    EXPECT_FALSE(fs::exists(m_file));
    // The same when all has come but was not handed over.
    m_http->download(m_server.url("/missing"), m_file, 100, count);
    ASSERT_TRUE(waitUntil([&] { return m_queue.pendingCount() > 0; }));
    m_http.reset();
    m_queue.runPending();
    EXPECT_FALSE(fs::exists(m_file));
    EXPECT_EQ(completions, 0);
}

}  // namespace
}  // namespace nulo
