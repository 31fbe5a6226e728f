#include <fcntl.h>
#include <signal.h>

#include <future>

#include "ServiceProgram.h"
#include "service/http/ListeningSocket.h"

namespace nulo::service {
namespace {

constexpr std::chrono::seconds longest(30);

/// Starts the service with what a service manager holds open.
ChildProcess started(const TemporaryFolder& folder, const std::string& descriptor,
                     const std::string& sockets = "1") {
    const std::string command = "LISTEN_PID=$$ LISTEN_FDS=" + sockets + " exec " + program +
                                " --port 1 --jobs 1 3<" + descriptor;
    return ChildProcess({"sh", "-c", command},
                        {{"XDG_CONFIG_HOME=" + folder.path().string()}, folder / "log"});
}
std::string inheritable(const ListeningSocket& socket) {
    fcntl(socket.descriptor, F_SETFD, 0);
    return "&" + std::to_string(socket.descriptor);
}

TEST(InheritedSocket, isServedAndLeftOpenForTheNextService) {
    const TemporaryFolder folder;
    const auto socket = openSocket("127.0.0.1", 0).value();
    for (int run = 0; run < 2; ++run) {
        // Asked before there is a service: the answer waits for it.
        auto early = std::async(std::launch::async, [&] {
            httplib::Client client("127.0.0.1", socket.port);
            client.set_read_timeout(60);
            return bool(client.Get("/api/version"));
        });
        ChildProcess service = started(folder, inheritable(socket));
        EXPECT_TRUE(early.get());
        service.signal(SIGTERM);
        EXPECT_EQ(service.wait(longest), 0);
    }
    close(socket.descriptor);
}

TEST(InheritedSocket, isRefusedWithAReasonWhenItCannotBeServed) {
    const auto open = openSocket("0.0.0.0", 0).value();
    const std::string openly = inheritable(open);
    for (const auto& [descriptor, sockets, text] :
         {std::tuple{"/dev/null", "2", "handed 2 sockets"},
          {"/dev/null", "1", "no listening TCP socket"},
          {openly.c_str(), "1", "0.0.0.0 can be reached from other"}}) {
        const TemporaryFolder folder;
        EXPECT_EQ(started(folder, descriptor, sockets).wait(longest), 1);
        const std::string log = readFile(folder / "log", 1 << 20).value_or("");
        EXPECT_NE(log.find(text), std::string::npos) << log;
    }
    close(open.descriptor);
}

}  // namespace
}  // namespace nulo::service
