#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "base/Text.h"
#include "platform/Backends.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace {

/// A resolver that never answers for one name; the others go to the real one. It is not destroyed:
/// its lookups still wait when the program ends.
struct StalledResolver {
    std::mutex mutex;
    std::condition_variable changed;
    int lookups = 0;
};
StalledResolver& stalledResolver = *new StalledResolver;

/// Called on a session's thread right before a POST is written to its connection.
std::function<void(int socket)> beforePost;

}  // namespace

extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    if (name && std::string_view(name) == "stalled.test") {
        std::unique_lock lock(stalledResolver.mutex);
        ++stalledResolver.lookups;
        stalledResolver.changed.notify_all();
        stalledResolver.changed.wait(lock, [] { return false; });
        return EAI_FAIL;
    }
    if (name && std::string_view(name) == "unknown.test")
        return EAI_NONAME;
    static const auto real =
        reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(name, service, hints, result);
}

extern "C" ssize_t send(int socket, const void* bytes, std::size_t size, int flags) {
    static const auto real = reinterpret_cast<decltype(&send)>(dlsym(RTLD_NEXT, "send"));
    if (beforePost && size > 4 && std::memcmp(bytes, "POST", 4) == 0)
        std::exchange(beforePost, nullptr)(socket);
    return real(socket, bytes, size, flags);
}

namespace nulo {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using Connection = ScriptedHttpServer::Connection;

/// What one task was told, in a form that a test can look at.
struct Answer {
    std::string order;  // one letter a call: Response, Data, Metrics, Complete
    HttpResponseHead head;
    std::vector<std::string> chunks;
    std::vector<HttpTransactionMetrics> metrics;
    std::string error;  // empty for none

    std::string body() const {
        std::string all;
        for (const std::string& chunk : chunks)
            all += chunk;
        return all;
    }
};

class Listener final : public HttpSessionDelegate {
  public:
    void didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) override {
        note(task, 'R', [&](Answer& answer) { answer.head = head; });
    }
    bool didReceiveData(HttpTaskId task, std::string_view bytes) override {
        note(task, 'D', [&](Answer& answer) { answer.chunks.emplace_back(bytes); });
        return wantsMore;
    }
    void didCollectMetrics(HttpTaskId task,
                           const std::vector<HttpTransactionMetrics>& metrics) override {
        note(task, 'M', [&](Answer& answer) { answer.metrics = metrics; });
    }
    void didComplete(HttpTaskId task, const std::optional<Error>& error) override {
        note(task, 'C', [&](Answer& answer) { answer.error = error ? error->description : ""; });
    }

    std::atomic<bool> wantsMore = true;

    /// Once the task is complete.
    Answer answerTo(HttpTaskId task) {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, std::chrono::seconds(60),
                                [&] { return m_answers[task].order.ends_with("C"); }))
            ADD_FAILURE() << "the task did not complete";
        return m_answers[task];
    }
    std::size_t calls() {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }
    std::size_t threads() {
        const std::lock_guard lock(m_mutex);
        return m_threads.size();
    }

  private:
    void note(HttpTaskId task, char letter, const std::function<void(Answer&)>& change) {
        const std::lock_guard lock(m_mutex);
        ++m_calls;
        m_threads.insert(std::this_thread::get_id());
        m_answers[task].order += letter;
        change(m_answers[task]);
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<HttpTaskId, Answer> m_answers;
    std::set<std::thread::id> m_threads;
    std::size_t m_calls = 0;
};

HttpRequest request(std::string method, std::string url, HttpHeaders headers = {}) {
    HttpRequest result;
    result.method = std::move(method);
    result.url = std::move(url);
    result.headers = std::move(headers);
    return result;
}

struct Client {
    Listener listener;
    std::unique_ptr<HttpSession> session = makeHttpSession(listener);

    Answer ask(HttpRequest question) {
        const HttpTaskId task = session->createTask(std::move(question));
        session->resume(task);
        return listener.answerTo(task);
    }
};

/// A server that does the same to every client, and what a GET there comes to.
Answer answerOf(const std::function<void(Connection&)>& script,
                milliseconds idleTimeout = std::chrono::seconds(30)) {
    ScriptedHttpServer server([&](const ReceivedRequest&, Connection& to) { script(to); });
    HttpRequest question = request("GET", server.url("/"));
    question.idleTimeout = idleTimeout;
    return Client().ask(std::move(question));
}

// Calls out of order or on several threads, an interim head taken for the answer, values with their
// blanks, a body type or a pause for "100 Continue" that nobody asked for, a header sent twice.
TEST(CurlHttpSession, tellsOneExchangeInOrderOnOneThread) {
    ScriptedHttpServer server([](const ReceivedRequest& received, Connection& to) {
        to.send(
            "HTTP/1.1 103 Early Hints\r\nX-Early: 1\r\n\r\nHTTP/1.1 200 OK\r\nX-Time: \t850 \r\n"
            "Transfer-Encoding: chunked\r\n\r\n" +
            httpChunk(received.body) + "0\r\nX-Trailer: 1\r\n\r\n");
    });
    Client client;
    HttpRequest question = request("POST", server.url("/a?b=c"),
                                   {{"X-Key", "old"}, {"X-Empty", ""}, {"x-key", "new"}});
    question.body = std::string("bo\0dy", 5);
    const Answer answer = client.ask(question);
    EXPECT_EQ(answer.order, "RDMC");
    EXPECT_EQ(answer.error, "");
    EXPECT_EQ(answer.body(), question.body);
    EXPECT_EQ(answer.head.status, 200);
    EXPECT_THAT(answer.head.headers,
                ElementsAre(std::pair("X-Time", "850"), std::pair("Transfer-Encoding", "chunked")));
    const ReceivedRequest received = server.requests().at(0);
    EXPECT_EQ(received.target, "/a?b=c");
    EXPECT_THAT(received.headers,
                ElementsAre(std::pair("Host", "127.0.0.1:" + std::to_string(server.port())),
                            std::pair("Accept", "*/*"), std::pair("X-Empty", ""),
                            std::pair("x-key", "new"), std::pair("Content-Length", "5")));
    client.ask(request("GET", server.url()));
    EXPECT_EQ(client.listener.threads(), 1u);
}

// An error status made a transport failure, a body invented for an answer that has none, a body
// that is not UTF-8 changed or lost.
TEST(CurlHttpSession, passesOnWhateverAnswerComes) {
    const std::string html = "<html><body>no</body></html>", broken = "a\xFF\xC3(\xE2\x82";
    for (const auto& [status, body] : {std::pair(201, html), std::pair(401, html),
                                       std::pair(500, broken), std::pair(200, broken)}) {
        const Answer answer =
            answerOf([&](Connection& to) { to.send(httpResponse(status, body)); });
        EXPECT_EQ(answer.head.status, status);
        EXPECT_EQ(answer.body(), body);
        EXPECT_EQ(answer.error, "");
    }
    EXPECT_EQ(answerOf([](Connection& to) { to.send(httpResponse(500, "")); }).order, "RMC");
    const Answer untilClosed = answerOf([](Connection& to) {
        to.send("HTTP/1.1 200 OK\r\n\r\nto the end");
        to.close();
    });
    EXPECT_EQ(untilClosed.body(), "to the end");
    EXPECT_EQ(untilClosed.error, "");
}

// A warm-up that warms nothing; timings that are missing, out of order, or of another exchange.
TEST(CurlHttpSession, usesTheWarmConnectionAndMeasures) {
    constexpr milliseconds thought{30};
    ScriptedHttpServer server([](const ReceivedRequest& received, Connection& to) {
        to.pause(thought);
        to.send(received.method == "HEAD" ? "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n"
                                          : httpResponse(200, "text"));
    });
    Client client;
    const Answer warmUp = client.ask(request("HEAD", server.url("/v")));
    HttpRequest upload = request("POST", server.url("/t"));
    for (int i = 0; i < 300'000; ++i)
        upload.body += static_cast<char>(i * 31 >> 3);
    const Answer answer = client.ask(upload);
    EXPECT_TRUE(server.requests().at(1).body == upload.body);
    EXPECT_EQ(warmUp.order, "RMC");
    EXPECT_EQ(server.acceptedConnections(), 1);
    ASSERT_THAT(warmUp.metrics, SizeIs(1));
    ASSERT_THAT(answer.metrics, SizeIs(1));
    const HttpTransactionMetrics& first = warmUp.metrics[0];
    const HttpTransactionMetrics& second = answer.metrics[0];
    EXPECT_FALSE(first.reusedConnection);
    EXPECT_TRUE(first.domainLookupEnd && first.connectStart && first.connectEnd);
    EXPECT_LE(first.connectStart, first.connectEnd);
    EXPECT_TRUE(second.reusedConnection);
    EXPECT_FALSE(second.domainLookupStart || second.connectStart || second.secureConnectionStart);
    EXPECT_EQ(second.protocolName, "http/1.1");
    ASSERT_TRUE(second.fetchStart && second.requestStart && second.requestEnd &&
                second.responseStart && second.responseEnd);
    EXPECT_LE(first.responseEnd, second.fetchStart);
    EXPECT_LE(second.fetchStart, second.requestStart);
    EXPECT_LE(second.requestStart, second.requestEnd);
    EXPECT_LE(second.requestEnd, second.responseStart);
    EXPECT_LE(second.responseStart, second.responseEnd);
    EXPECT_GE(*second.responseStart - *second.requestStart, thought);

    Client another;
    another.ask(request("GET", server.url()));
    EXPECT_EQ(server.acceptedConnections(), 2);
}

// A dictation lost because the server has meanwhile closed the warm connection, or does so while
// the request is on its way.
TEST(CurlHttpSession, survivesTheLossOfAWarmConnection) {
    ScriptedHttpServer server([](const ReceivedRequest& received, Connection& to) {
        to.send(httpResponse(200, received.body));
        if (received.target == "/crossing")
            to.stall();
        to.close();
    });
    for (const char* warmUp : {"/", "/crossing"}) {
        Client client;
        client.ask(request("GET", server.url(warmUp)));
        if (warmUp == std::string("/crossing"))
            beforePost = [&](int socket) {
                server.release();
                pollfd closed{socket, POLLRDHUP, 0};
                poll(&closed, 1, -1);
            };
        HttpRequest post = request("POST", server.url());
        post.body = "text";
        const Answer answer = client.ask(post);
        EXPECT_EQ(answer.body(), "text") << answer.error;
        EXPECT_FALSE(answer.metrics.at(0).reusedConnection);
    }
    EXPECT_THAT(server.requests(), SizeIs(4));
}

// A dictation that is paid for, and recognised, twice.
TEST(CurlHttpSession, sendsNothingTwiceThatMayHaveArrived) {
    ScriptedHttpServer server([](const ReceivedRequest& received, Connection& to) {
        received.method == "POST" ? to.close() : void(to.send(httpResponse(200, "warm")));
    });
    Client client;
    client.ask(request("GET", server.url()));
    HttpRequest post = request("POST", server.url());
    post.body = "text";
    EXPECT_THAT(client.ask(post).error, HasSubstr("was closed before the answer was complete"));
    EXPECT_THAT(server.requests(), SizeIs(2));
}

// Dictations told to whoever among this machine's users was first to listen on the service's port.
TEST(CurlHttpSession, sendsNothingToAnotherUsersProgram) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can have another user's socket";
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::listen(server, 1) | ::fchown(server, 65534, 65534), 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(server, reinterpret_cast<sockaddr*>(&address), &size);
    const std::string authority = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    EXPECT_EQ(Client().ask(request("HEAD", "http://" + authority + "/")).error,
              "What answers at " + authority +
                  " is not this user's program, nor the system's: nothing was sent");
    const int client = ::accept(server, nullptr, nullptr);
    char byte = 0;
    EXPECT_EQ(::recv(client, &byte, 1, 0), 0);
    ::close(client);
    ::close(server);
}

// A server, or somebody in its place, that never ends: memory, disk and time without bound.
TEST(CurlHttpSession, endsAnAnswerThatIsNotWanted) {
    ScriptedHttpServer server([](const ReceivedRequest& received, Connection& to) {
        to.send(received.target == "/" ? "HTTP/1.1 200 OK\r\n\r\n"
                                       : "HTTP/1.1 302 Go\r\nLocation: https://a.test/\r\n\r\n");
        while (to.send(std::string(10'000, 'x'))) {
        }
    });
    Client client;
    const Answer redirect = client.ask(request("GET", server.url("/elsewhere")));
    EXPECT_EQ(redirect.error, "");
    EXPECT_LE(redirect.body().size(), 64u * 1024);
    client.listener.wantsMore = false;
    const Answer answer = client.ask(request("GET", server.url("/")));
    EXPECT_EQ(answer.order, "RDMC");
    EXPECT_EQ(answer.error, "");
}

// A letter torn in two by the network, or lost with it.
TEST(CurlHttpSession, neverSplitsACharacter) {
    const std::string text = "é, €, 😀";
    const auto bytewise = [](const std::string& body) {
        return answerOf([&](Connection& to) {
            to.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
            for (const char byte : body) {
                to.send(httpChunk({&byte, 1}));
                to.pause(milliseconds(2));
            }
            to.send(httpChunk(""));
        });
    };
    const Answer answer = bytewise(text);
    EXPECT_EQ(answer.body(), text);
    EXPECT_GT(answer.chunks.size(), 1u);
    for (const std::string& chunk : answer.chunks)
        EXPECT_TRUE(isValidUtf8(chunk) && !chunk.empty());
    EXPECT_EQ(bytewise("ab\xF0\x9F\x98").body(), "ab\xF0\x9F\x98");
}

// A fault that hangs, passes for success, or is told in words that help nobody.
TEST(CurlHttpSession, reportsWhatWentWrong) {
    const std::string begun = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf";
    const std::string closed = "was closed before the answer was complete";
    const std::string silent = "did not answer for 150 milliseconds";
    struct Case {
        std::function<void(Connection&)> script;
        std::string order, text;
    };
    const std::vector<Case> cases = {
        {[](Connection& to) { to.stall(); }, "MC", silent},
        {[&](Connection& to) { to.send(begun), to.stall(); }, "RDMC", silent},
        {[](Connection& to) { to.close(); }, "MC", closed},
        {[&](Connection& to) { to.send(begun), to.close(); }, "RDMC", closed},
        {[](Connection& to) { to.reset(); }, "MC", closed},
        {[](Connection& to) { to.send("SSH-2.0-x\r\n\r\n"), to.close(); }, "MC", "not speak HTTP"},
        {[](Connection& to) {
             to.send("HTTP/1.1 200 OK\r\nX-Long: " + std::string(400'000, 'h') + "\r\n\r\n");
         },
         "MC", "oversized header"},
    };
    for (const Case& fault : cases) {
        const Answer answer =
            answerOf(fault.script, milliseconds(fault.text == silent ? 150 : 30'000));
        EXPECT_EQ(answer.order, fault.order) << fault.text;
        EXPECT_THAT(answer.error, HasSubstr(fault.text));
        EXPECT_THAT(answer.error, HasSubstr("127.0.0.1:"));
    }
    const Answer cut = answerOf([](Connection& to) {
        to.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + httpChunk("half"));
        to.pause(milliseconds(20));  // or the reset overtakes what was sent
        to.reset();
    });
    EXPECT_EQ(cut.body(), "half");
    EXPECT_THAT(cut.error, HasSubstr(closed));

    Client client;
    ScriptedHttpServer gone([](const ReceivedRequest&, Connection&) {});
    gone.stop();
    EXPECT_EQ(client.ask(request("GET", gone.url())).error,
              "Could not connect to the speech service at 127.0.0.1:" +
                  std::to_string(gone.port()) + ": connection refused");
    EXPECT_EQ(client.ask(request("GET", "http://unknown.test/")).error,
              "The name unknown.test could not be found");
}

// A total time-out in place of one for silence, in either direction and inside a head.
TEST(CurlHttpSession, lastsAsLongAsAnythingMoves) {
    const Answer answer = answerOf(
        [](Connection& to) {
            for (const char byte : httpResponse(200, "drop by drop", {"X-Long: aaaaaaaaaa"})) {
                to.send({&byte, 1});
                to.pause(milliseconds(20));
            }
        },
        milliseconds(500));
    EXPECT_EQ(answer.error, "");
    EXPECT_EQ(answer.body(), "drop by drop");

    constexpr std::size_t size = 24'000'000;
    ScriptedHttpServer server(
        [](const ReceivedRequest&, Connection& to) {
            for (std::size_t left = size; left > 0;) {
                const std::size_t step = std::min<std::size_t>(left, 600'000);
                for (std::size_t taken = 0; taken < step;) {
                    const std::size_t count = to.receive(step - taken).size();
                    if (count == 0)
                        return;
                    taken += count;
                }
                left -= step;
                to.pause(milliseconds(20));
            }
            to.send(httpResponse(200, "taken"));
        },
        ScriptedHttpServer::Bodies::leftToTheHandler);
    HttpRequest upload = request("POST", server.url());
    upload.body.assign(size, 'x');
    upload.idleTimeout = milliseconds(500);
    EXPECT_EQ(Client().ask(std::move(upload)).body(), "taken");
}

// Credentials handed to another origin, a redirect inside the origin not followed or followed with
// the wrong method, a loop without end.
TEST(CurlHttpSession, followsRedirectsWithinTheOriginOnly) {
    ScriptedHttpServer other(
        [](const ReceivedRequest&, Connection& to) { to.send(httpResponse(200, "stolen")); });
    ScriptedHttpServer server([&](const ReceivedRequest& received, Connection& to) {
        if (const auto code = received.target.find("/to/"); code == 0) {
            const int status = std::atoi(received.target.c_str() + 4);
            to.send(httpResponse(status, "moved", {"Location: ../end"}));
        } else if (received.target == "/away") {
            to.send(httpResponse(307, "moved", {"Location: " + other.url("/end")}));
        } else if (received.target == "/loop") {
            to.send(httpResponse(302, "again", {"Location: /loop"}));
        } else {
            to.send(httpResponse(200, received.method + " " + received.body + " " +
                                          received.header("X-Key").value_or("-") + " " +
                                          received.header("Content-Type").value_or("-")));
        }
    });
    Client client;
    const auto post = [&](const std::string& target) {
        HttpRequest question =
            request("POST", server.url(target), {{"X-Key", "k"}, {"Content-Type", "t"}});
        question.body = "body";
        return client.ask(std::move(question));
    };
    for (const char* target : {"/to/307", "/to/308"})
        EXPECT_EQ(post(target).body(), "POST body k t") << target;
    for (const char* target : {"/to/301", "/to/302", "/to/303"})
        EXPECT_EQ(post(target).body(), "GET  k -") << target;
    const Answer followed = post("/to/307");
    EXPECT_EQ(followed.order, "RDMC");
    ASSERT_THAT(followed.metrics, SizeIs(2));
    EXPECT_TRUE(followed.metrics[1].reusedConnection);

    const Answer away = post("/away");
    EXPECT_EQ(away.head.status, 307);
    EXPECT_EQ(away.body(), "moved");
    EXPECT_EQ(other.acceptedConnections(), 0);
    EXPECT_EQ(post("/loop").head.status, 302);
}

// A header that smuggles in another line; a secret repeated in an error; a URL of another scheme.
TEST(CurlHttpSession, refusesWhatWouldBreakTheRequest) {
    ScriptedHttpServer server(
        [](const ReceivedRequest&, Connection& to) { to.send(httpResponse(200, "")); });
    Client client;
    const std::string url = server.url();
    for (const HttpRequest& bad :
         {request("GET", url, {{"X-Key", "secret\r\nX-Injected: 1"}}),
          request("GET", url, {{"X-Key", std::string("secret\0", 7)}}),
          request("GET", url, {{"X: secret\r\nY", "1"}}), request("GET x HTTP/1.1\r\nY: 1", url),
          request("GET", url + "/ HTTP/1.1\r\nX-Injected:1"), request("GET", "file:///etc/passwd"),
          request("GET", ""), request("GET", "/relative")}) {
        const Answer answer = client.ask(bad);
        EXPECT_EQ(answer.order, "MC") << bad.url;
        EXPECT_THAT(answer.metrics, SizeIs(0));
        EXPECT_NE(answer.error, "");
        EXPECT_THAT(answer.error, testing::Not(HasSubstr("secret")));
    }
    EXPECT_EQ(server.acceptedConnections(), 0);
}

// Dictations sent by way of a proxy to this very machine, or a proxy that is needed left out.
TEST(CurlHttpSession, usesTheProxyOfTheEnvironmentButNotForLoopback) {
    ScriptedHttpServer proxy(
        [](const ReceivedRequest&, Connection& to) { to.send(httpResponse(200, "by proxy")); });
    ScriptedHttpServer server(
        [](const ReceivedRequest&, Connection& to) { to.send(httpResponse(200, "direct")); });
    setenv("http_proxy", proxy.url().c_str(), 1);
    EXPECT_EQ(Client().ask(request("GET", server.url())).body(), "direct");
    EXPECT_EQ(Client().ask(request("GET", "http://elsewhere.test/")).body(), "by proxy");
    unsetenv("http_proxy");
}

// A wait without end for a resolver, or for a server that takes the connection and says nothing.
TEST(CurlHttpSession, countsConnectingAsSilence) {
    ScriptedHttpServer server([](const ReceivedRequest&, Connection&) {});
    const std::string withoutTls = "127.0.0.1:" + std::to_string(server.port());
    for (const std::string& host : {std::string("stalled.test"), withoutTls}) {
        HttpRequest question = request("GET", "https://" + host + "/");
        question.idleTimeout = milliseconds(150);
        const Answer answer = Client().ask(std::move(question));
        EXPECT_EQ(answer.error, "Could not connect to the speech service at " + host +
                                    " within 150 milliseconds");
        EXPECT_THAT(answer.metrics, SizeIs(1));
    }
}

// A program that cannot be quit while a server or a resolver is silent, or is called back after.
TEST(CurlHttpSession, isCancelledByItsEnd) {
    Listener listener;
    auto session = makeHttpSession(listener);
    std::atomic<bool> clientLeft = false;
    ScriptedHttpServer server([&](const ReceivedRequest&, Connection& to) {
        to.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n");
        to.waitForClientToLeave();
        clientLeft = true;
    });
    session->resume(session->createTask(request("GET", server.url())));
    EXPECT_TRUE(waitUntil([&] { return listener.calls() == 1; }));
    {
        std::unique_lock lock(stalledResolver.mutex);
        const int before = stalledResolver.lookups;
        session->resume(session->createTask(request("GET", "http://stalled.test/")));
        stalledResolver.changed.wait(lock, [&] { return stalledResolver.lookups > before; });
    }
    session.reset();
    EXPECT_TRUE(waitUntil([&] { return clientLeft.load(); }));
    EXPECT_EQ(listener.calls(), 1u);
}

/// `openssl s_server` with a certificate for "localhost" that it signed itself.
class TlsServer {
  public:
    /// `input` is a command of the shell's whose output the server sends to its client.
    explicit TlsServer(std::vector<std::string> options, const std::string& input = "") {
        outputOf({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                  "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout",
                  (m_folder / "key").string(), "-out", certificate()});
        std::vector<std::string> command = {
            "openssl", "s_server",   "-accept", "127.0.0.1:0", "-key", (m_folder / "key").string(),
            "-cert",   certificate()};
        command.insert(command.end(), options.begin(), options.end());
        if (!input.empty())
            command.insert(command.begin(), {"bash", "-c", "exec \"$@\" < <(" + input + ")", ""});
        m_process.emplace(command, ChildProcess::Options{{}, m_folder / "log"});
        waitUntil([this] { return log().find("ACCEPT 127.0.0.1:") != std::string::npos; });
    }
    std::string certificate() const { return (m_folder / "certificate").string(); }
    std::string log() const {
        std::ifstream file(m_folder / "log");
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string url(const std::string& host) const {
        const std::string text = log();
        const std::string before = "ACCEPT 127.0.0.1:";
        return "https://" + host + ":" +
               std::to_string(std::atoi(text.c_str() + text.find(before) + before.size())) + "/";
    }
    ChildProcess& process() { return *m_process; }

  private:
    TemporaryFolder m_folder;
    std::optional<ChildProcess> m_process;
};

// A certificate accepted from anybody, or for another name; the timings of TLS left out.
TEST(CurlHttpSession, verifiesCertificates) {
    TlsServer server({"-www"});
    EXPECT_EQ(Client().ask(request("GET", server.url("localhost"))).error,
              "The certificate of localhost could not be verified: self-signed certificate");
    setenv("SSL_CERT_FILE", server.certificate().c_str(), 1);
    const Answer trusted = Client().ask(request("GET", server.url("localhost")));
    const Answer misnamed = Client().ask(request("GET", server.url("127.0.0.1")));
    unsetenv("SSL_CERT_FILE");
    EXPECT_EQ(trusted.error, "");
    EXPECT_EQ(trusted.head.status, 200);
    ASSERT_THAT(trusted.metrics, SizeIs(1));
    EXPECT_LT(trusted.metrics[0].secureConnectionStart, trusted.metrics[0].secureConnectionEnd);
    EXPECT_THAT(misnamed.error, HasSubstr("The certificate of 127.0.0.1 could not be verified: "));
}

// A dead request kept alive by what else its connection carries: HTTP/2 shares one.
TEST(CurlHttpSession, hearsSilenceBesideOtherTraffic) {
    const std::string settings(R"(\0\0\0\4\0\0\0\0\0)");
    const std::string ping(R"(\0\0\10\6\0\0\0\0\0nulonulo)");
    TlsServer server({"-alpn", "h2"}, "exec 9<> <(:); printf '" + settings +
                                          "'; until read -t 0.02 -u 9; do printf '" + ping +
                                          "'; done");
    setenv("SSL_CERT_FILE", server.certificate().c_str(), 1);
    Client client;
    unsetenv("SSL_CERT_FILE");
    HttpRequest question = request("POST", server.url("localhost"));
    question.body = "text";
    question.idleTimeout = milliseconds(1000);
    EXPECT_THAT(client.ask(question).error, HasSubstr("did not answer for 1 second"));
}

// A program that a dying server takes with it (SIGPIPE), or that takes the upload for done.
TEST(CurlHttpSession, outlivesAServerThatDiesDuringAnUpload) {
    TlsServer server({"-www", "-state"});
    setenv("SSL_CERT_FILE", server.certificate().c_str(), 1);
    Client client;
    unsetenv("SSL_CERT_FILE");
    HttpRequest upload = request("POST", server.url("localhost"));
    upload.body.assign(25'000'000, 'x');
    const HttpTaskId task = client.session->createTask(std::move(upload));
    client.session->resume(task);
    EXPECT_TRUE(
        waitUntil([&] { return server.log().find("write session ticket") != std::string::npos; }));
    server.process().signal(SIGKILL);
    EXPECT_THAT(client.listener.answerTo(task).error, HasSubstr("was closed before"));
}

}  // namespace
}  // namespace nulo
