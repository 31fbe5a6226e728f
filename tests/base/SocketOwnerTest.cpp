#include "base/SocketOwner.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

namespace nulo {
namespace {

// Whoever listens first on a well-known port must not get other users' speech.
TEST(SocketOwner, tellsAnotherUsersEndFromOnesOwn) {
    // One that listens on every address of both families, and a client that reached it by IPv4.
    const int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int no = 0;
    setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no);
    sockaddr_in6 any{};
    any.sin6_family = AF_INET6;
    socklen_t size = sizeof any;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&any), size), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    getsockname(listener, reinterpret_cast<sockaddr*>(&any), &size);
    const sockaddr_in here{AF_INET, any.sin6_port, {htonl(INADDR_LOOPBACK)}, {}};
    const auto* address = reinterpret_cast<const sockaddr*>(&here);
    ASSERT_EQ(connect(client, address, sizeof here), 0);

    const uid_t self = geteuid();
    // Root gives its sockets away, to be somebody's; anybody else asks as somebody.
    const uid_t owner = self == 0 && fchown(listener, 65534, -1) == 0 ? 65534 : self;
    const uid_t stranger = owner + 1;
    EXPECT_EQ(listenersAt(address), std::set<uid_t>{owner});
    ASSERT_TRUE(farEndOf(client).has_value());
    EXPECT_FALSE(farEndOf(client)->isHeld);
    EXPECT_TRUE(isConnectedToOwn(client, owner));
    EXPECT_FALSE(isConnectedToOwn(client, stranger));  // although its end is listed as root's

    const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_EQ(fchown(accepted, owner, -1), 0);
    EXPECT_TRUE(farEndOf(client)->isHeld);
    EXPECT_EQ(farEndOf(client)->user, owner);
    EXPECT_TRUE(isConnectedToOwn(client, owner));
    EXPECT_FALSE(isConnectedToOwn(client, stranger));
    EXPECT_EQ(farEndOf(accepted)->user, self);  // the server looks at its client
    close(client);
    const auto gone = farEndOf(accepted);
    EXPECT_FALSE(gone && gone->isHeld);
    close(accepted);
    close(listener);
}

}  // namespace
}  // namespace nulo
