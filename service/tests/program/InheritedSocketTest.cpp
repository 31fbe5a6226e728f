#include <arpa/inet.h>
#include <signal.h>
#include <unistd.h>

#include <future>

#include "ServiceProgram.h"

namespace nulo::service {
namespace {

/// A socket held as a service manager holds it, and the service started with it.
class ManagedSocket {
  public:
    explicit ManagedSocket(in_addr_t host = INADDR_LOOPBACK, int type = SOCK_STREAM)
        : m_socket(socket(AF_INET, type, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(host);
        socklen_t size = sizeof address;
        const auto pointer = reinterpret_cast<sockaddr*>(&address);
        if (bind(m_socket, pointer, size) != 0 || getsockname(m_socket, pointer, &size) != 0 ||
            (type == SOCK_STREAM && listen(m_socket, 16) != 0))
            throw std::runtime_error("no socket");
        port = ntohs(address.sin_port);
    }
    ~ManagedSocket() { close(m_socket); }

    ChildProcess start(const std::string& sockets = "1") {
        const std::string command = "LISTEN_PID=$$ LISTEN_FDS=" + sockets + " exec " + program +
                                    " --port 1 --jobs 1 3<&" + std::to_string(m_socket);
        return ChildProcess({"sh", "-c", command},
                            {{"XDG_CONFIG_HOME=" + m_folder.path().string()}, m_folder / "log"});
    }
    std::string log() const { return readFile(m_folder / "log", 1 << 20).value_or(""); }
    void expectRefusal(const char* text, const std::string& sockets = "1") {
        EXPECT_EQ(start(sockets).wait(std::chrono::seconds(30)), 1);
        EXPECT_NE(log().find(text), std::string::npos) << log();
    }

    int port = 0;

  private:
    const int m_socket;
    TemporaryFolder m_folder;
};

TEST(InheritedSocket, isServedAndLeftOpenForTheNextService) {
    ManagedSocket managed;
    for (int run = 0; run < 2; ++run) {
        // Asked before there is a service: the answer waits for it.
        auto early = std::async(std::launch::async, [&] {
            httplib::Client client("127.0.0.1", managed.port);
            client.set_read_timeout(60);
            const auto answer = client.Get("/api/version");
            return answer ? answer->status : 0;
        });
        ChildProcess service = managed.start();
        EXPECT_EQ(early.get(), 200) << managed.log();
        service.signal(SIGTERM);
        EXPECT_EQ(service.wait(std::chrono::seconds(30)), 0) << managed.log();
    }
}

TEST(InheritedSocket, isRefusedWithAReasonWhenItCannotBeServed) {
    ManagedSocket().expectRefusal("handed 2 sockets", "2");
    ManagedSocket(INADDR_LOOPBACK, SOCK_DGRAM).expectRefusal("no listening TCP socket");
    ManagedSocket(INADDR_ANY).expectRefusal("0.0.0.0 can be reached from other");
}

}  // namespace
}  // namespace nulo::service
