#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>

#include "base/FileIO.h"
#include "fakes/FakeMainQueue.h"
#include "platform/Backends.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Connection = ScriptedHttpServer::Connection;

class CurlUpdateHttpTest : public testing::Test {
  protected:
    CurlUpdateHttpTest() { m_http = makeUpdateHttp(m_queue); }

    std::string get(const std::string& url, std::size_t limit = 100) {
        std::optional<std::string> outcome;
        m_http->get(url, limit, [&](const Result<std::string>& body) {
            outcome = body ? body.value() : "error: " + body.error().description;
        });
        EXPECT_FALSE(outcome) << "completed inside the call";
        return runUntil(outcome);
    }
    /// The status as text.
    std::string download(const std::string& url, std::uintmax_t limit = 100 << 20) {
        std::optional<std::string> outcome;
        m_http->download(url, m_file, limit, [&](const Result<UpdateHttp::Download>& download) {
            outcome = download ? std::to_string(download.value().status) +
                                     (download.value().isWhole ? "" : ", perhaps cut off")
                               : "error: " + download.error().description;
        });
        EXPECT_FALSE(outcome) << "completed inside the call";
        return runUntil(outcome);
    }
    std::string runUntil(const std::optional<std::string>& outcome) {
        waitUntil([&] {
            m_queue.runPending();
            return outcome.has_value();
        });
        return outcome.value_or("no completion");
    }
    /// Plain files, and misbehaviour by name.
    void handle(const ReceivedRequest& request, Connection& connection) {
        const std::string& path = request.target;
        if (path == "/file")
            connection.send(httpResponse(200, m_content));
        else if (path == "/missing")
            connection.send(httpResponse(404, "Not here\n"));
        else if (path == "/cut") {
            connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbegin");
            connection.close();
        } else if (path == "/unmarked") {
            connection.send("HTTP/1.1 200 OK\r\n\r\nbegin");
            connection.close();
        } else if (path == "/reset")
            connection.reset();
        else if (path == "/stall") {
            connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbegin");
            connection.stall();
        } else if (path == "/endless") {
            connection.send("HTTP/1.1 200 OK\r\n\r\n");
            while (connection.send(std::string(1 << 16, 'x'))) {
            }
        } else if (path.starts_with("/to?"))
            connection.send(httpResponse(302, "moved", {"Location: " + path.substr(4)}));
        else if (path == "/loop")
            connection.send(httpResponse(302, "", {"Location: " + m_other.url("/loop")}));
    }

    const std::string m_content = [] {
        std::string bytes;
        for (int i = 0; i < 300'000; ++i)
            bytes += static_cast<char>(i * 7 + i / 256);  // no valid UTF-8
        return bytes;
    }();
    ScriptedHttpServer m_other{[this](const ReceivedRequest& request, Connection& connection) {
        if (request.target == "/loop")
            connection.send(httpResponse(307, "", {"Location: " + m_server.url("/loop")}));
        else
            connection.send(httpResponse(200, "from the other"));
    }};
    ScriptedHttpServer m_server{[this](const ReceivedRequest& request, Connection& connection) {
        handle(request, connection);
    }};
    TemporaryFolder m_folder;
    fs::path m_file = m_folder / "file";
    FakeMainQueue m_queue;
    std::unique_ptr<UpdateHttp> m_http;
};

TEST_F(CurlUpdateHttpTest, getsABodyWhateverTheStatusWithoutHeadersOfOurs) {
    EXPECT_EQ(get(m_server.url("/missing")), "Not here\n");
    const auto request = m_server.requests().at(0);
    EXPECT_EQ(request.method, "GET");
    for (const auto& [name, value] : request.headers)
        EXPECT_TRUE(name == "Host" || name == "Accept") << name;
    // No more of an endless answer is read than was asked for.
    EXPECT_EQ(get(m_server.url("/endless"), 100), std::string(100, 'x'));
    EXPECT_THAT(get(m_server.url("/reset")), HasSubstr("closed before the answer was complete"));
}

TEST_F(CurlUpdateHttpTest, downloadsEveryByteForItsOwnerOnly) {
    EXPECT_EQ(download(m_server.url("/file")), "200");
    EXPECT_TRUE(readFile(m_file, 1'000'000) == m_content);
    EXPECT_EQ(fs::status(m_file).permissions(), fs::perms(0600));
    fs::remove(m_file);
    EXPECT_EQ(download(m_server.url("/missing")), "404");
    EXPECT_EQ(readFile(m_file, 100), "Not here\n");
    fs::remove(m_file);
    EXPECT_EQ(download(m_server.url("/unmarked")), "200, perhaps cut off");
    fs::remove(m_file);
    EXPECT_EQ(download(m_server.url("/endless"), 1 << 20), "error: What came is larger than 1 MB");
    EXPECT_FALSE(fs::exists(m_file));
    EXPECT_EQ(download(m_server.url("/missing")), "404");
    // What lies there, a link to something precious say, is not written to.
    EXPECT_THAT(download(m_server.url("/file")), HasSubstr("cannot be written: File exists"));
    EXPECT_EQ(readFile(m_file, 100), "Not here\n");
}

TEST_F(CurlUpdateHttpTest, aFailedDownloadSaysWhyAndLeavesNoFile) {
    EXPECT_EQ(download(m_server.url("/cut")),
              "error: The connection to 127.0.0.1:" + std::to_string(m_server.port()) +
                  " was closed before the answer was complete");
    m_other.stop();
    EXPECT_EQ(download(m_other.url("/")), "error: Could not connect to the server at 127.0.0.1:" +
                                              std::to_string(m_other.port()) +
                                              ": connection refused");
    EXPECT_TRUE(fs::is_empty(m_folder.path()));
    m_file = m_folder / "missing/file";
    EXPECT_THAT(download(m_server.url("/file")),
                HasSubstr("file cannot be written: No such file or directory"));
    m_file = "/proc/file";  // a folder that nobody can write to, not root either
    EXPECT_THAT(download(m_server.url("/file")), StartsWith("error: /proc/file cannot be written"));
}

// A limit on the size of files stands in for a full disk: write() then fails in the middle.
TEST_F(CurlUpdateHttpTest, aFullDiskEndsTheTransferAtOnce) {
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto oldHandler = signal(SIGXFSZ, SIG_IGN);
    const rlimit small{1 << 20, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string outcome = download(m_server.url("/endless"));
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, oldHandler);
    EXPECT_THAT(outcome, HasSubstr("file cannot be written: File too large"));
    EXPECT_FALSE(fs::exists(m_file));
}

TEST_F(CurlUpdateHttpTest, followsRedirectsToSecureAddressesOnly) {
    EXPECT_EQ(download(m_server.url("/to?" + m_other.url("/a.zip"))), "200");
    EXPECT_EQ(readFile(m_file, 100), "from the other") << "with the redirect's own body in it?";
    fs::remove(m_file);
    EXPECT_EQ(get(m_server.url("/to?/missing")), "Not here\n");
    EXPECT_EQ(m_server.requests().size(), 3u);
    for (const char* target : {"http://192.0.2.1/a.zip", "ftp://127.0.0.1/a", "file:///etc/passwd",
                               "http://localhost.example/a"}) {
        EXPECT_EQ(download(m_server.url(std::string("/to?") + target)),
                  "error: The address " + std::string(target) + " is not secure: it must be https");
        EXPECT_FALSE(fs::exists(m_file));
    }
    EXPECT_EQ(get("http://192.0.2.1/"),
              "error: The address http://192.0.2.1/ is not secure: it must be https");
    EXPECT_THAT(get(m_server.url("/loop")), HasSubstr("from one address to another forever"));
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
