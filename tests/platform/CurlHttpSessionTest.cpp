#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <csignal>
#include <cstring>

#include "base/FileIO.h"
#include "base/Text.h"
#include "platform/Backends.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace {

/// Of a name that the resolver never answers for.
std::atomic<int> stalledLookups = 0;

/// Called on a session's thread right before a POST is written to its connection.
std::function<void(int socket)> beforePost;

}  // namespace

extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    const std::string_view host(name ? name : "");
    if (host == "stalled.test" && ++stalledLookups)
        for (;;)
            pause();
    if (host == "unknown.test")
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
    std::string body;
    std::vector<std::string> pieces;  // of the body, as they came
    std::vector<HttpTransactionMetrics> metrics;
    std::string error;  // empty for none
};

HttpRequest request(const std::string& method, const std::string& url, const std::string& body = {},
                    milliseconds idleTimeout = std::chrono::seconds(30)) {
    return {.method = method, .url = url, .headers = {}, .body = body, .idleTimeout = idleTimeout};
}

struct Client final : HttpSessionDelegate {
    /// Trusts nothing but this certificate when there is one.
    explicit Client(const std::string& certificate = {}) {
        if (!certificate.empty())
            setenv("SSL_CERT_FILE", certificate.c_str(), 1);
        session = makeHttpSession(*this);
        unsetenv("SSL_CERT_FILE");
    }

    Answer ask(HttpRequest question) { return answerTo(start(std::move(question))); }
    HttpTaskId start(HttpRequest question) {
        const HttpTaskId task = session->createTask(std::move(question));
        session->resume(task);
        return task;
    }
    /// Once the task is complete.
    Answer answerTo(HttpTaskId task) {
        const auto answer = [&] { return std::scoped_lock(m_mutex), m_answers[task]; };
        EXPECT_TRUE(
            waitUntil([&] { return answer().order.ends_with("C"); }, std::chrono::seconds(60)));
        return answer();
    }

    std::atomic<bool> wantsMore = true;
    std::atomic<int> calls = 0;
    std::set<std::thread::id> threads;  // those of the calls, once they are complete

    void didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) override {
        note(task, 'R', [&](Answer& answer) { answer.head = head; });
    }
    bool didReceiveData(HttpTaskId task, std::string_view bytes) override {
        note(task, 'D', [&](Answer& answer) { answer.body += answer.pieces.emplace_back(bytes); });
        return wantsMore;
    }
    void didCollectMetrics(HttpTaskId task,
                           const std::vector<HttpTransactionMetrics>& metrics) override {
        note(task, 'M', [&](Answer& answer) { answer.metrics = metrics; });
    }
    void didComplete(HttpTaskId task, const std::optional<Error>& error) override {
        note(task, 'C', [&](Answer& answer) { answer.error = error ? error->description : ""; });
    }
    void note(HttpTaskId task, char letter, const std::function<void(Answer&)>& change) {
        const std::lock_guard lock(m_mutex);
        ++calls;
        threads.insert(std::this_thread::get_id());
        change(m_answers[task]);
        m_answers[task].order += letter;
    }

    std::mutex m_mutex;
    std::map<HttpTaskId, Answer> m_answers;
    std::unique_ptr<HttpSession> session;  // ends before what its thread uses
};

/// A server that does the same to every client, and what a GET there comes to.
Answer answerOf(const std::function<void(Connection&)>& script,
                milliseconds idleTimeout = std::chrono::seconds(30)) {
    ScriptedHttpServer server([&](const ReceivedRequest&, Connection& to) { script(to); });
    return Client().ask(request("GET", server.url("/"), "", idleTimeout));
}

ScriptedHttpServer::Handler answering(const std::string& body) {
    return [body](const ReceivedRequest&, Connection& to) { to.send(httpResponse(200, body)); };
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
    HttpRequest question = request("POST", server.url("/a?b=c"), std::string("bo\0dy", 5));
    question.headers = {{"X-Key", "old"}, {"X-Empty", ""}, {"x-key", "new"}};
    const Answer answer = client.ask(question);
    EXPECT_EQ(answer.order + answer.error, "RDMC");
    EXPECT_EQ(answer.body, question.body);
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
    EXPECT_THAT(client.threads, SizeIs(1));
}

// An error status made a transport failure, a body invented for an answer that has none, one that
// is not UTF-8 changed or lost, a letter torn in two by the network.
TEST(CurlHttpSession, passesOnWhateverAnswerComes) {
    const std::string broken = "a\xFF\xC3(\xE2\x82";
    const std::tuple<std::string, int, std::string> rows[] = {
        {httpResponse(401, "<html>no"), 401, "<html>no"},
        {httpResponse(500, broken), 500, broken},
        {httpResponse(500, ""), 500, ""},
        {"HTTP/1.1 200 OK\r\n\r\nto the end", 200, "to the end"}};
    for (const auto& [bytes, status, body] : rows) {
        const Answer answer =
            answerOf([&bytes = bytes](Connection& to) { to.send(bytes), to.close(); });
        EXPECT_EQ(answer.pieces.empty(), body.empty());
        EXPECT_EQ(answer.head.status, status);
        EXPECT_EQ(answer.body + answer.error, body);
    }
    const std::string text = "é, €, 😀";
    const Answer bytewise = answerOf([&](Connection& to) {
        to.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        for (const char byte : text)
            to.send(httpChunk({&byte, 1})), to.pause(milliseconds(2));
        to.send(httpChunk("\xF0\x9F\x98") + httpChunk(""));
    });
    EXPECT_EQ(bytewise.body, text + "\xF0\x9F\x98");
    ASSERT_GT(bytewise.pieces.size(), 2u);
    for (std::size_t i = 0; i + 1 < bytewise.pieces.size(); ++i)
        EXPECT_TRUE(isValidUtf8(bytewise.pieces[i]) && !bytewise.pieces[i].empty());
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
    const std::string upload(300'000, '\xE2');
    const Answer answer = client.ask(request("POST", server.url("/t"), upload));
    EXPECT_TRUE(server.requests().at(1).body == upload);
    EXPECT_EQ(warmUp.order, "RMC");
    EXPECT_EQ(server.acceptedConnections(), 1);
    ASSERT_EQ(warmUp.metrics.size() * answer.metrics.size(), 1u);
    const HttpTransactionMetrics &first = warmUp.metrics[0], &second = answer.metrics[0];
    EXPECT_TRUE(second.reusedConnection && !first.reusedConnection);
    EXPECT_FALSE(second.domainLookupStart || second.connectStart || second.secureConnectionStart);
    EXPECT_EQ(second.protocolName, "http/1.1");
    const std::vector times{first.fetchStart,    first.domainLookupEnd, first.connectEnd,
                            first.requestStart,  first.responseEnd,     second.fetchStart,
                            second.requestStart, second.requestEnd,     second.responseStart,
                            second.responseEnd};
    EXPECT_TRUE(times.front() && std::is_sorted(times.begin(), times.end()));
    EXPECT_EQ(first.connectStart, first.domainLookupEnd);
    EXPECT_GE(*second.responseStart - *second.requestStart, thought);
}

// A dictation lost because the server has meanwhile closed the warm connection, or does so while
// the request is on its way; one that is paid for, and recognised, twice.
TEST(CurlHttpSession, survivesTheLossOfAWarmConnectionAndSendsNothingTwice) {
    ScriptedHttpServer server([](const ReceivedRequest& received, Connection& to) {
        if (received.target != "/lost")
            to.send(httpResponse(200, received.body));
        if (received.target == "/crossing")
            to.stall();
        if (received.target != "/warm")
            to.close();
    });
    for (const std::string warmUp : {"/", "/crossing"}) {
        Client client;
        client.ask(request("GET", server.url(warmUp)));
        if (warmUp == "/crossing")
            beforePost = [&](int socket) {
                server.release();
                pollfd closed{socket, POLLRDHUP, 0};
                poll(&closed, 1, -1);
            };
        const Answer answer = client.ask(request("POST", server.url(), "text"));
        EXPECT_EQ(answer.body, "text") << answer.error;
        EXPECT_FALSE(answer.metrics.at(0).reusedConnection);
    }
    Client client;
    client.ask(request("GET", server.url("/warm")));
    EXPECT_THAT(client.ask(request("POST", server.url("/lost"), "text")).error,
                HasSubstr("was closed before the answer was complete"));
    EXPECT_THAT(server.requests(), SizeIs(6));
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
    EXPECT_TRUE(redirect.error.empty() && redirect.body.size() <= 64u * 1024);
    client.wantsMore = false;
    EXPECT_EQ(client.ask(request("GET", server.url("/"))).order, "RDMC");
}

// A fault that hangs, passes for success, or is told in words that help nobody.
TEST(CurlHttpSession, reportsWhatWentWrong) {
    const std::string begun = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf";
    const std::string closed = "was closed before the answer was complete";
    const std::string silent = "did not answer for 150 milliseconds";
    const std::tuple<std::function<void(Connection&)>, std::string, std::string> cases[] = {
        {[](Connection& to) { to.stall(); }, "MC", silent},
        {[&](Connection& to) { to.send(begun), to.stall(); }, "RDMC", silent},
        {[](Connection& to) { to.close(); }, "MC", closed},
        {[&](Connection& to) { to.send(begun), to.close(); }, "RDMC", closed},
        {[&](Connection& to) {
             to.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + httpChunk("half"));
             to.close();
         },
         "RDMC", closed},
        {[](Connection& to) { to.reset(); }, "MC", closed},
        {[](Connection& to) { to.send("SSH-2.0-x\r\n\r\n"), to.close(); }, "MC", "not speak HTTP"},
        {[](Connection& to) {
             to.send("HTTP/1.1 200 OK\r\nX-Long: " + std::string(400'000, 'h') + "\r\n\r\n");
         },
         "MC", "oversized header"},
    };
    for (const auto& [script, order, text] : cases) {
        const Answer answer = answerOf(script, milliseconds(text == silent ? 150 : 30'000));
        EXPECT_EQ(answer.order, order) << text;
        EXPECT_EQ(answer.body, order == "MC" ? "" : "half");
        EXPECT_THAT(answer.error, testing::AllOf(HasSubstr(text), HasSubstr("127.0.0.1:")));
    }
    ScriptedHttpServer gone(answering(""));
    gone.stop();
    EXPECT_EQ(Client().ask(request("GET", gone.url())).error,
              "Could not connect to the speech service at 127.0.0.1:" +
                  std::to_string(gone.port()) + ": connection refused");
    EXPECT_EQ(Client().ask(request("GET", "http://unknown.test/")).error,
              "The name unknown.test could not be found");
}

// A total time-out in place of one for silence, in either direction and inside a head.
TEST(CurlHttpSession, lastsAsLongAsAnythingMoves) {
    const auto dropByDrop = [](Connection& to) {
        for (const char byte : httpResponse(200, "drop by drop", {"X-Long: aaaaaaaaaa"}))
            to.send({&byte, 1}), to.pause(milliseconds(10));
    };
    EXPECT_EQ(answerOf(dropByDrop, milliseconds(500)).body, "drop by drop");

    constexpr std::size_t size = 24'000'000, step = 600'000;
    ScriptedHttpServer server(
        [](const ReceivedRequest&, Connection& to) {
            for (std::size_t taken = 0; taken < size; to.pause(milliseconds(20)))
                for (const std::size_t next = taken + step; taken < next;)
                    if (const std::size_t count = to.receive(next - taken).size())
                        taken += count;
                    else
                        return;
            to.send(httpResponse(200, "taken"));
        },
        ScriptedHttpServer::Bodies::leftToTheHandler);
    EXPECT_EQ(
        Client().ask(request("POST", server.url(), std::string(size, 'x'), milliseconds(500))).body,
        "taken");
}

// Credentials handed to another origin, a redirect inside the origin not followed or followed with
// the wrong method, a loop without end.
TEST(CurlHttpSession, followsRedirectsWithinTheOriginOnly) {
    ScriptedHttpServer other(answering("stolen"));
    ScriptedHttpServer server([&](const ReceivedRequest& received, Connection& to) {
        const auto header = [&](const char* name) { return received.header(name).value_or("-"); };
        if (received.target.starts_with("/to/"))
            to.send(httpResponse(std::atoi(received.target.c_str() + 4), "moved",
                                 {"Location: ../end"}));
        else if (received.target == "/away")
            to.send(httpResponse(307, "moved", {"Location: " + other.url("/end")}));
        else if (received.target == "/loop")
            to.send(httpResponse(302, "again", {"Location: /loop"}));
        else
            to.send(httpResponse(200, received.method + " " + received.body + " " +
                                          header("X-Key") + " " + header("Content-Type")));
    });
    Client client;
    const auto post = [&](const std::string& target) {
        HttpRequest question = request("POST", server.url(target), "body");
        question.headers = {{"X-Key", "k"}, {"Content-Type", "t"}};
        return client.ask(std::move(question));
    };
    for (const std::string status : {"301", "302", "303", "307", "308"})
        EXPECT_EQ(post("/to/" + status).body, status < "304" ? "GET  k -" : "POST body k t");
    const Answer followed = post("/to/307");
    EXPECT_EQ(followed.order, "RDMC");
    ASSERT_THAT(followed.metrics, SizeIs(2));
    EXPECT_TRUE(followed.metrics[1].reusedConnection);
    const Answer away = post("/away");
    EXPECT_EQ(std::to_string(away.head.status) + away.body, "307moved");
    EXPECT_EQ(other.acceptedConnections(), 0);
    EXPECT_EQ(post("/loop").head.status, 302);
}

// A header that smuggles in another line; a secret repeated in an error; a URL of another scheme.
TEST(CurlHttpSession, refusesWhatWouldBreakTheRequest) {
    ScriptedHttpServer server(answering(""));
    const std::string url = server.url();
    const std::tuple<std::string, std::string, HttpHeaders> rows[] = {
        {"GET", url, {{"X-Key", "secret\r\nX-Injected: 1"}}},
        {"GET", url, {{"X-Key", std::string("secret\0", 7)}}},
        {"GET", url, {{"X: secret\r\nY", "1"}}},
        {"GET x HTTP/1.1\r\nY: 1", url, {}},
        {"GET", url + "/ HTTP/1.1\r\nX-Injected:1", {}},
        {"GET", "file:///etc/passwd", {}},
        {"GET", "/relative", {}}};
    for (const auto& [method, address, headers] : rows) {
        HttpRequest bad = request(method, address);
        bad.headers = headers;
        const Answer answer = Client().ask(bad);
        EXPECT_EQ(answer.order, "MC") << bad.url;
        EXPECT_THAT(answer.metrics, SizeIs(0));
        EXPECT_THAT(answer.error, testing::AllOf(testing::Ne(""), Not(HasSubstr("secret"))));
    }
    EXPECT_EQ(server.acceptedConnections(), 0);
}

// Dictations sent by way of a proxy to this very machine, or a proxy that is needed left out.
TEST(CurlHttpSession, usesTheProxyOfTheEnvironmentButNotForLoopback) {
    ScriptedHttpServer proxy(answering("by proxy"));
    ScriptedHttpServer server(answering("direct"));
    setenv("http_proxy", proxy.url().c_str(), 1);
    EXPECT_EQ(Client().ask(request("GET", server.url())).body, "direct");
    EXPECT_EQ(Client().ask(request("GET", "http://elsewhere.test/")).body, "by proxy");
    unsetenv("http_proxy");
}

// A wait without end for a resolver, or for a server that takes the connection and says nothing.
TEST(CurlHttpSession, countsConnectingAsSilence) {
    ScriptedHttpServer server([](const ReceivedRequest&, Connection&) {});
    const std::string withoutTls = "127.0.0.1:" + std::to_string(server.port());
    for (const std::string& host : {std::string("stalled.test"), withoutTls}) {
        const Answer answer =
            Client().ask(request("GET", "https://" + host + "/", "", milliseconds(150)));
        EXPECT_EQ(answer.error, "Could not connect to the speech service at " + host +
                                    " within 150 milliseconds");
        EXPECT_THAT(answer.metrics, SizeIs(1));
    }
}

// A program that cannot be quit while a server or a resolver is silent, or is called back after.
TEST(CurlHttpSession, isCancelledByItsEnd) {
    Client client;
    std::atomic<bool> clientLeft = false;
    ScriptedHttpServer server([&](const ReceivedRequest&, Connection& to) {
        to.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n");
        to.waitForClientToLeave();
        clientLeft = true;
    });
    client.start(request("GET", server.url()));
    EXPECT_TRUE(waitUntil([&] { return client.calls == 1; }));
    const int before = stalledLookups;
    client.start(request("GET", "http://stalled.test/"));
    EXPECT_TRUE(waitUntil([&] { return stalledLookups > before; }));
    client.session.reset();
    EXPECT_TRUE(waitUntil([&] { return clientLeft.load(); }));
    EXPECT_EQ(client.calls, 1);
}

/// `openssl s_server` with a certificate for "localhost" that it signed itself.
struct TlsServer {
    /// `input` is a command of the shell's whose output the server sends to its client.
    explicit TlsServer(const std::string& options, const std::string& input = ":") {
        outputOf({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                  "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", key,
                  "-out", certificate});
        process.emplace(std::vector<std::string>{"bash", "-c",
                                                 "exec openssl s_server -accept 127.0.0.1:0 -key " +
                                                     key + " -cert " + certificate + " " + options +
                                                     " < <(" + input + ")"},
                        ChildProcess::Options{{}, m_folder / "log"});
        EXPECT_TRUE(hasLogged(accepting));
    }
    bool hasLogged(const std::string& text) const {
        return waitUntil([&] { return log().find(text) != std::string::npos; });
    }
    std::string url(const std::string& host) const {
        const std::string text = log();
        const int port = std::atoi(text.c_str() + text.find(accepting) + accepting.size());
        return "https://" + host + ":" + std::to_string(port) + "/";
    }

    std::string log() const { return readFile(m_folder / "log", 1 << 20).value_or(""); }

    const std::string accepting = "ACCEPT 127.0.0.1:";
    TemporaryFolder m_folder;
    const std::string key = m_folder / "key", certificate = m_folder / "certificate";
    std::optional<ChildProcess> process;
};

// A certificate accepted from anybody, or for another name; the timings of TLS left out.
TEST(CurlHttpSession, verifiesCertificates) {
    TlsServer server("-www");
    EXPECT_EQ(Client().ask(request("GET", server.url("localhost"))).error,
              "The certificate of localhost could not be verified: self-signed certificate");
    Client client(server.certificate);
    const Answer trusted = client.ask(request("GET", server.url("localhost")));
    EXPECT_EQ(trusted.head.status, 200) << trusted.error;
    ASSERT_THAT(trusted.metrics, SizeIs(1));
    EXPECT_LT(trusted.metrics[0].secureConnectionStart, trusted.metrics[0].secureConnectionEnd);
    EXPECT_THAT(client.ask(request("GET", server.url("127.0.0.1"))).error,
                HasSubstr("The certificate of 127.0.0.1 could not be verified: "));
}

// A dead request kept alive by what else its connection carries: HTTP/2 shares one.
TEST(CurlHttpSession, hearsSilenceBesideOtherTraffic) {
    const std::string settings(R"(\0\0\0\4\0\0\0\0\0)");
    const std::string ping(R"(\0\0\10\6\0\0\0\0\0nulonulo)");
    TlsServer server("-alpn h2", "exec 9<> <(:); printf '" + settings +
                                     "'; until read -t 0.02 -u 9; do printf '" + ping + "'; done");
    EXPECT_THAT(Client(server.certificate)
                    .ask(request("POST", server.url("localhost"), "text", milliseconds(1000)))
                    .error,
                HasSubstr("did not answer for 1 second"));
}

// A program that a dying server takes with it (SIGPIPE), or that takes the upload for done.
TEST(CurlHttpSession, outlivesAServerThatDiesDuringAnUpload) {
    TlsServer server("-www -state");
    Client client(server.certificate);
    const HttpTaskId task =
        client.start(request("POST", server.url("localhost"), std::string(25'000'000, 'x')));
    EXPECT_TRUE(server.hasLogged("write session ticket"));
    server.process->signal(SIGKILL);
    EXPECT_THAT(client.answerTo(task).error, HasSubstr("was closed before"));
}

}  // namespace
}  // namespace nulo
