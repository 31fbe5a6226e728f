#include <signal.h>

#include <future>

#include "ServiceProgram.h"
#include "rig/process/FakeClock.h"
#include "service/Sha256.h"
#include "service/models/ModelsCommand.h"
#include "service/models/OfflineChoice.h"

namespace nulo::service {
namespace {

using Connection = ScriptedHttpServer::Connection;
using Part = std::function<void(const ReceivedRequest&, Connection&)>;

std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    unsigned state = 1;
    for (char& byte : bytes)
        byte = static_cast<char>((state = state * 1103515245 + 12345) >> 16);
    return bytes;
}

/// A mirror that plays a part, and behaves when it has none.
class ModelsTest : public testing::Test {
  protected:
    struct Run {
        int status = -1;
        std::string said;
    };
    std::vector<std::string> commandLine(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {program, "models"});
        return arguments;
    }
    std::vector<std::string> fetching() const {
        return {"get", "tiny", "--from", mirror.url("/m"), "--sha256", sha256(content)};
    }
    ChildProcess::Options surroundings(const char* log = "log") const {
        return {{"XDG_DATA_HOME=" + folder.path().string(), "XDG_CONFIG_HOME=/nowhere"},
                folder / log};
    }
    Run run(const std::vector<std::string>& arguments,
            std::vector<std::string> wrapper = {}) const {
        std::filesystem::remove(folder / "log");
        const auto line = commandLine(arguments);
        wrapper.insert(wrapper.end(), line.begin(), line.end());
        ChildProcess process(wrapper, surroundings());
        const int status = process.wait(std::chrono::seconds(60)).value_or(-1);
        return {status, readFile(folder / "log", 1 << 20).value_or("")};
    }
    std::string bytesOf(const std::string& ending) const {
        return readFile(file.string() + ending, 1 << 24).value_or("");
    }
    void put(const std::string& ending, const std::string& bytes) const {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file.string() + ending) << bytes;
    }
    void expectInstalled(const std::string& what) const {
        EXPECT_TRUE(bytesOf("") == content) << what;
        EXPECT_EQ(bytesOf(".sha256"), sha256(content) + "  ggml-tiny.bin\n") << what;
        EXPECT_FALSE(std::filesystem::exists(file.string() + ".part.from")) << what;
    }

    void behave(const ReceivedRequest& request, Connection& connection) const {
        const std::string range = request.header("Range").value_or("");
        const bool same = request.header("If-Range").value_or("\"v1\"") == "\"v1\"";
        const std::string size = std::to_string(content.size());
        const auto from = range.empty() ? 0 : std::stoul(range.substr(6));
        if (request.target != "/m/ggml-tiny.bin")
            connection.send(httpResponse(404, "no"));
        else if (range.empty() || !same)
            connection.send(httpResponse(200, content, {"ETag: \"v1\""}));
        else if (from >= content.size())
            connection.send(httpResponse(416, "", {"Content-Range: bytes */" + size}));
        else
            connection.send(httpResponse(
                206, content.substr(from),
                {"ETag: \"v1\"", "Content-Range: bytes " + std::to_string(from) + "-" +
                                     std::to_string(content.size() - 1) + "/" + size}));
    }
    static Part says(std::string bytes) {
        return [bytes = std::move(bytes)](const ReceivedRequest&, Connection& connection) {
            connection.send(bytes);
            connection.close();
        };
    }
    void play(Part next) {
        const std::scoped_lock lock(mutex);
        part = std::move(next);
    }

    const std::string content = noise(2'400'000);
    const std::string half = content.substr(0, 1'200'000);
    const std::string cut =
        "HTTP/1.1 200 OK\r\nContent-Length: 2400000\r\nETag: \"v1\"\r\n\r\n" + half;
    TemporaryFolder folder;
    const std::filesystem::path file = folder / "nulo/models/ggml-tiny.bin";
    std::mutex mutex;
    Part part;
    ScriptedHttpServer mirror{[this](const ReceivedRequest& request, Connection& connection) {
        std::unique_lock lock(mutex);
        const Part now = part;
        lock.unlock();
        now ? now(request, connection) : behave(request, connection);
    }};
};

// The same command, given again, must bring the model whatever went wrong before, without fetching
// again what had arrived.
TEST_F(ModelsTest, failsWithAReasonAndGoesOnFromWhatHasArrived) {
    struct Case {
        const char* says;
        int status;
        std::string answer;
        std::size_t left = 0;
        std::vector<std::string> wrapper = {};
    };
    const auto to = [&](const std::string& address) {
        return httpResponse(302, "", {"Location: " + address});
    };
    const Case cases[] = {
        {"goes on from there", 3, cut, half.size()},
        {"goes on from there", 3,
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + httpChunk(half), half.size()},
        {"its SHA-256 is", 4, httpResponse(200, "something else")},
        {"no such file", 3, httpResponse(404, "<html>")},
        {"a web page", 3, httpResponse(200, "<p>Log in", {"Content-Type: text/html"})},
        {"too large", 3, "HTTP/1.1 200 OK\r\nContent-Length: 9000000000\r\n\r\nx"},
        {"not https", 3, to("http://mirror.example/m/ggml-tiny.bin")},
        {"not https", 3, to("file:///etc/passwd")},
        {"without an end", 3, to(mirror.url("/m/ggml-tiny.bin"))},
        {"was lost", 3, ""},
        {"File too large; make room",
         5,
         httpResponse(200, content, {"ETag: \"v1\""}),
         100'000,
         {"prlimit", "--fsize=100000"}},
    };
    for (const Case& one : cases) {
        std::filesystem::remove_all(file.parent_path());
        play(says(one.answer));
        const Run failed = run(fetching(), one.wrapper);
        EXPECT_EQ(failed.status, one.status) << failed.said;
        EXPECT_NE(failed.said.find(one.says), std::string::npos) << failed.said;
        EXPECT_EQ(bytesOf(".part").size(), one.left) << failed.said;
        EXPECT_FALSE(std::filesystem::exists(file)) << failed.said;
        play({});
        const Run again = run(fetching());
        EXPECT_EQ(again.status, 0) << again.said;
        expectInstalled(one.answer.substr(0, 60));
        EXPECT_EQ(mirror.requests().back().header("Range").value_or("bytes=0-"),
                  "bytes=" + std::to_string(one.left) + "-");
    }
    mirror.stop();
    EXPECT_EQ(run({"get", "base", "--from", mirror.url("/m")}).status, 3);
}

// What lies there may be of another file, or of one that has changed since.
TEST_F(ModelsTest, startsAnewWhereItCannotGoOn) {
    const std::string from = mirror.url("/m/ggml-tiny.bin") + "\n";
    struct Case {
        std::string arrived, origin;
        std::size_t requests;
        Part part = {};
    };
    const Part whole = says(httpResponse(200, content));
    const Case cases[] = {
        {half, from + "\"v1\"\n", 1},
        {half, from + "\"old\"\n", 1},                  // the server sends all of it
        {half, "https://other.example/a\n\"x\"\n", 1},  // another mirror's
        {half, from + "\"v1\"\n", 1, whole},            // no ranges there
        {content, from + "\"v1\"\n", 1},                // nothing is missing
        {noise(2'500'000), from + "\"v1\"\n", 2},       // more than there is
        {std::string(1000, 'x'), "", 2},                // the digest tells
        {"", "", 2,  // a connection that is lost on the way is made again
         [this](const ReceivedRequest& request, Connection& connection) {
             if (request.header("Range"))
                 return behave(request, connection);
             connection.send(cut);
             connection.close();
         }},
        {half, std::string(10'000, 'x'), 1},
    };
    for (const Case& one : cases) {
        std::filesystem::remove_all(file.parent_path());
        put(".part", one.arrived);
        put(".part.from", one.origin);
        play(one.part);
        const std::size_t before = mirror.requests().size();
        const Run got = run(fetching());
        EXPECT_EQ(got.status, 0) << got.said;
        expectInstalled(one.origin);
        EXPECT_EQ(mirror.requests().size() - before, one.requests) << got.said;
    }
}

TEST_F(ModelsTest, keepsWhatHasArrivedOnCtrlCAndASecondOneOutMeanwhile) {
    play([this](const ReceivedRequest&, Connection& connection) {
        connection.send(cut);
        connection.stall();
    });
    ChildProcess first(commandLine(fetching()), surroundings("first"));
    ASSERT_TRUE(waitUntil([&] { return bytesOf(".part").size() == half.size(); }));
    EXPECT_EQ(run(fetching()).status, 6);
    EXPECT_EQ(run({"remove", "tiny"}).status, 6);
    first.signal(SIGINT);
    EXPECT_EQ(first.wait(std::chrono::seconds(60)), 130);
    EXPECT_NE(readFile(folder / "first", 1 << 20)->find("goes on from there"), std::string::npos);

    // A server that has gone to sleep ends it as well.
    ModelsCommand command(
        ModelFolder(file.parent_path()), {}, {}, {.silence = std::chrono::seconds(1)},
        systemClock(), [](std::string_view) {}, 0);
    const auto options = parsedModelsOptions(fetching()).value();
    const auto stalled = command.run(options, [] { return true; });
    ASSERT_FALSE(stalled);
    EXPECT_NE(stalled.error().text.find("next to nothing"), std::string::npos);
    EXPECT_GE(bytesOf(".part").size(), half.size());
    play({});
    EXPECT_EQ(run(fetching()).status, 0);
    expectInstalled("after all");
    EXPECT_FALSE(PartialFile::open(file).value().checkRoomFor(std::uintmax_t{1} << 60));
}

TEST_F(ModelsTest, listsRepairsAndRemovesWhatIsInstalled) {
    EXPECT_EQ(run({"get", "tiny", "--from", "http://mirror.example"}).status, 2);
    EXPECT_EQ(run({"get", "tiny-q5_1"}).status, 2);  // nobody knows its digest
    EXPECT_EQ(run({"get", "../tiny", "--sha256", sha256("")}).status, 2);
    EXPECT_EQ(run({"get", "tiny", "--from", mirror.url("/m")}).status, 4);  // the table's digest
    EXPECT_EQ(run(fetching()).status, 0);
    const std::size_t requests = mirror.requests().size();
    EXPECT_EQ(run(fetching()).status, 0);
    EXPECT_EQ(mirror.requests().size(), requests);
    EXPECT_NE(run({}).said.find("fits; installed, in use\n"), std::string::npos);
    put("", "bits rot");
    EXPECT_NE(run({}).said.find("damaged"), std::string::npos);
    EXPECT_EQ(run(fetching()).status, 0);
    expectInstalled("repaired");
    EXPECT_EQ(run({"remove", "tiny"}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(run({"remove", "tiny"}).status, 1);
}

TEST_F(ModelsTest, doesAsItsConfigurationSays) {
    std::ofstream(folder / "given.json")
        << R"({"offline": {"modelSource": ")" << mirror.url("/m/") << R"("}})";
    const Run got =
        run({"get", "tiny", "--sha256", sha256(content), "--config", folder / "given.json"});
    EXPECT_EQ(got.status, 0) << got.said;
    expectInstalled("from the mirror that is named");
    std::ofstream(folder / "given.json") << "{";
    EXPECT_EQ(run({"--config", folder / "given.json"}).status, 1);
}

TEST_F(ModelsTest, takesTheBestThatFindsRoomUnlessOneIsNamed) {
    const ModelFolder models(file.parent_path());
    for (const char* name : {"medium", "small", "mine", "tiny"}) {
        put("", "x");
        ASSERT_TRUE(models.install(name, file, sha256("x")));
    }
    const auto tried = [&](std::uintmax_t megabytes, const char* named = "") {
        std::string names;
        const MachineMemory memory{megabytes * 1'000'000, megabytes * 1'000'000};
        const auto choice = modelsToTry({.model = named}, models, memory);
        for (const auto& model : choice ? choice.value() : std::vector<InstalledModel>())
            names += model.name + " ";
        return choice ? names : choice.error().description;
    };
    EXPECT_EQ(tried(8000), "medium small tiny mine ");
    EXPECT_EQ(tried(2000), "small tiny mine ");
    EXPECT_EQ(tried(8000, "mine"), "mine ");
    EXPECT_NE(tried(8000, "base").find("models get base"), std::string::npos);
}

TEST(FetchProgress, tellsSpeedAndRemainingTime) {
    FakeClock clock;
    std::string drawn;
    FetchProgress bar("small", 80, clock, [&](std::string_view bytes) { drawn += bytes; });
    for (std::uintmax_t received = 0; received <= 488'000'000; received += 4'000'000) {
        bar.show(received, 488'000'000);
        clock.advance(std::chrono::milliseconds(400));
    }
    bar.end();
    EXPECT_NE(drawn.find("\rsmall  [############............]   50 %  244 MB of 488 MB  10 MB/s  "
                         "25 s left\x1b[K"),
              std::string::npos)
        << drawn;
    EXPECT_TRUE(drawn.ends_with("10 MB/s\x1b[K\n")) << drawn;
}

}  // namespace
}  // namespace nulo::service
