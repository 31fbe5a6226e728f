#include "base/SocketOwner.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <utility>

namespace nulo {
namespace {

constexpr uid_t somebody = 65534;

/// One that listens on every address of both families, and a client that reached it by IPv4.
class SocketOwnerTest : public testing::Test {
  protected:
    void SetUp() override {
        const int no = 0;
        setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no);
        sockaddr_in6 any{};
        any.sin6_family = AF_INET6;
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&any), sizeof any), 0);
        ASSERT_EQ(listen(listener, 1), 0);
        socklen_t size = sizeof any;
        getsockname(listener, reinterpret_cast<sockaddr*>(&any), &size);
        address.sin_family = AF_INET;
        address.sin_port = any.sin6_port;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~SocketOwnerTest() override {
        for (const int socket : {listener, client, accepted})
            close(socket);
    }

    const int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int accepted = -1;
    sockaddr_in address{};
};

// Whoever listens first on a well-known port must not get other users' speech.
TEST_F(SocketOwnerTest, tellsAnotherUsersEndFromOnesOwn) {
    const uid_t self = geteuid();
    // Root gives its sockets away, to be somebody's; anybody else asks as somebody.
    const uid_t owner = self == 0 && fchown(listener, somebody, -1) == 0 ? somebody : self;
    const uid_t stranger = owner + 1;
    EXPECT_EQ(listenersAt(reinterpret_cast<sockaddr*>(&address)), std::set<uid_t>{owner});

    ASSERT_TRUE(farEndOf(client).has_value());
    EXPECT_FALSE(farEndOf(client)->isHeld);
    EXPECT_TRUE(isConnectedToOwn(client, owner));
    EXPECT_FALSE(isConnectedToOwn(client, stranger));  // although its end is listed as root's

    accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_EQ(fchown(accepted, owner, -1), 0);
    EXPECT_TRUE(farEndOf(client)->isHeld);
    EXPECT_EQ(farEndOf(client)->user, owner);
    EXPECT_TRUE(isConnectedToOwn(client, owner));
    EXPECT_FALSE(isConnectedToOwn(client, stranger));
    EXPECT_EQ(farEndOf(accepted)->user, self);  // the server looks at its client

    close(std::exchange(client, -1));
    const auto gone = farEndOf(accepted);
    EXPECT_FALSE(gone && gone->isHeld);
}

}  // namespace
}  // namespace nulo
