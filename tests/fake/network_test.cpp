/* Endpoints that find each other inside the process: everything but SCTP. */
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <thread>
#include <unistd.h>

#include "host.h"
#include "kel_socket_fake.h"

namespace
{

class FakeNetwork : public testing::Test
{
  protected:
    FakeNetwork()
    {
        kel_fake_reset();
        host_filter_add("*", HOST_EVERY_LEVEL);
    }
    ~FakeNetwork() override
    {
        host_filter_clear();
        kel_fake_reset();
    }
};

std::string shown(kel_sockaddr_t address)
{
    CHAR line[100] = "";
    return kel_addr_showstr(&address, line, sizeof(line));
}

std::string received(LONG sockfd)
{
    CHAR text[100];
    const LONG count = kel_recv(sockfd, text, sizeof(text), MSG_DONTWAIT);
    return count < 0 ? strerrorname_np(errno) : std::string(text, (size_t)count);
}

bool readable(LONG sockfd)
{
    struct pollfd question = {(int)sockfd, POLLIN, 0};
    return poll(&question, 1, 0) == 1;
}

TEST_F(FakeNetwork, TcpConnectsAcceptsAndEnds)
{
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET6, "2001:db8::1", (SHORT)40000, 5);
    EXPECT_FALSE(readable(server));
    LONG client = kel_tcp_client_socket_create(KEL_AF_INET6, "2001:db8::1", (SHORT)40000);
    EXPECT_TRUE(readable(server));
    kel_sockaddr_t peer;
    kel_sockaddr_t name;
    LONG accepted = kel_accept(server, &peer);

    ASSERT_EQ(kel_getsockname(client, &name), KEL_OK);
    EXPECT_EQ(shown(peer), shown(name));
    ASSERT_EQ(kel_getpeername(client, &peer), KEL_OK);
    EXPECT_EQ(shown(peer), "ipv6 2001:db8::1:40000");
    EXPECT_EQ(kel_send(client, "hello", 5, MSG_NOSIGNAL), 5);
    EXPECT_EQ(received(accepted), "hello");
    EXPECT_EQ(write((int)accepted, "world", 5), 5);
    EXPECT_EQ(received(client), "world");
    close((int)client);
    EXPECT_EQ(received(accepted), "");
    EXPECT_EQ(kel_tcp_server_socket_create(KEL_AF_INET6, NULL, (SHORT)40000, 5), KEL_ERROR);
    EXPECT_EQ(kel_fake_open(), 2);
    kel_close(server);
    EXPECT_EQ(kel_tcp_client_socket_create(KEL_AF_INET6, "2001:db8::1", (SHORT)40000), KEL_ERROR);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(FakeNetwork, UdpTellsTheSender)
{
    kel_sockaddr_t to;
    kel_sockaddr_t from = {};
    kel_sockaddr_t local;
    LONG older = kel_udp_server_socket_create(KEL_AF_INET, NULL, 53);
    LONG server = kel_udp_server_socket_create(KEL_AF_INET, NULL, 53);
    LONG client = kel_udp_client_socket_create(KEL_AF_INET, "10.0.0.2", 53, &to);
    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(kel_sendto(client, "question", 8, 0, &to), 8);
    }
    CHAR text[100];
    EXPECT_EQ(read((int)server, text, sizeof(text)), 8);
    EXPECT_EQ(kel_recvfrom(server, text, 4, 0, &from), 4);
    EXPECT_EQ(kel_getsockname(client, &local), KEL_OK);
    EXPECT_EQ(local.sin.sin_port, from.sin.sin_port);
    EXPECT_EQ(kel_sendto(server, "", 0, 0, &from), 0);
    EXPECT_EQ(kel_recvfrom(client, text, sizeof(text), 0, &from), 0);
    EXPECT_EQ(from.sin.sin_port, htons(53));
    EXPECT_FALSE(readable(older));
    from.sin.sin_port = htons(99);
    EXPECT_EQ(kel_sendto(client, "lost", 4, 0, &from), 4);
}

TEST_F(FakeNetwork, LocalPathsAreTheProcesssOwn)
{
    EXPECT_EQ(kel_unix_tcp_client_socket_create("/run/app"), KEL_ERROR);
    EXPECT_EQ(errno, ENOENT);
    LONG server = kel_unix_tcp_server_socket_create("/run/app", 5);
    LONG client = kel_unix_tcp_client_socket_create("/run/app");
    kel_sockaddr_t peer = {};
    LONG accepted = kel_accept(server, &peer);
    EXPECT_EQ(shown(peer), "file ");
    EXPECT_EQ(kel_send(accepted, "hello", 5, 0), 5);
    EXPECT_EQ(received(client), "hello");
    EXPECT_NE(access("/run/app", F_OK), 0);
    kel_close(server);
    EXPECT_EQ(kel_unix_tcp_client_socket_create("/run/app"), KEL_ERROR);
    EXPECT_EQ(errno, ECONNREFUSED);

    LONG one = kel_unix_udp_socket_create("/run/one", KEL_TRUE);
    EXPECT_EQ(kel_unix_udp_socket_create("/run/one", KEL_TRUE), KEL_ERROR);
    EXPECT_EQ(errno, EADDRINUSE);
    LONG two = kel_unix_udp_socket_create("/run/two", KEL_TRUE);
    ASSERT_EQ(kel_connect_str(two, KEL_AF_UNIX, 0, "/run/one"), KEL_OK);
    EXPECT_EQ(kel_send(two, "hello", 5, 0), 5);
    CHAR text[10];
    EXPECT_EQ(kel_recvfrom(one, text, sizeof(text), 0, &peer), 5);
    EXPECT_EQ(shown(peer), "file /run/two");

    kel_fake_reset();
    EXPECT_EQ(kel_recv(one, text, 1, 0), KEL_ERROR);
    EXPECT_EQ(errno, EBADF);
    EXPECT_GT(kel_unix_udp_socket_create("/run/one", KEL_TRUE), 0);
}

TEST_F(FakeNetwork, FramesReachTheOthersOnTheInterface)
{
    const UCHAR mac[6] = {2, 0, 0, 0, 0, 9};
    kel_fake_interface("eth7", mac);
    UCHAR read_mac[6];
    EXPECT_EQ(kel_get_if_mac_addr("eth7", read_mac), KEL_OK);
    EXPECT_EQ(memcmp(mac, read_mac, 6), 0);
    LONG sender = kel_raw_server_socket_create((SHORT)0x88b5, "eth7");
    LONG receiver = kel_raw_server_socket_create((SHORT)0x88b5, "eth7");
    LONG everything = kel_raw_server_socket_create(3, "eth7");
    LONG elsewhere = kel_raw_server_socket_create(3, "eth0");
    const UCHAR frame[20] = {2, 0, 0, 0, 0, 9, 2, 0, 0, 0, 0, 1, 0x88, 0xb5, 1, 2, 3};
    EXPECT_EQ(kel_raw_sendto(sender, "eth7", frame, sizeof(frame), 0), 20);
    UCHAR got[100];
    kel_sockaddr_t from;
    EXPECT_EQ(kel_recvfrom(receiver, got, sizeof(got), 0, &from), 20);
    EXPECT_EQ(shown(from), "ifindex 3,protocol 0x88b5");
    EXPECT_EQ(received(everything).size(), 20U);
    EXPECT_FALSE(readable(elsewhere));
    EXPECT_FALSE(readable(sender));
    EXPECT_EQ(kel_raw_server_socket_create(3, "eth9"), KEL_ERROR);
    EXPECT_EQ(errno, EBADF); /* closed twice, as the module does */
}

TEST_F(FakeNetwork, OptionsAreReadBack)
{
    LONG sockfd = kel_socket(KEL_AF_INET6, KEL_SOCK_DGRAM, 0);
    int value = 0;
    socklen_t length = sizeof(value);
    EXPECT_EQ(kel_getsockopt(sockfd, IPPROTO_IPV6, IPV6_V6ONLY, &value, &length), 0);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(kel_getsockopt(sockfd, SOL_SOCKET, SO_DOMAIN, &value, &length), 0);
    EXPECT_EQ(value, AF_INET6);
    struct timeval patience = {0, 1000};
    EXPECT_EQ(kel_setsockopt(sockfd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)), 0);
    EXPECT_EQ(kel_recv(sockfd, &value, sizeof(value), 0), KEL_ERROR);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(FakeNetwork, ThreadsTalk)
{
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, NULL, 7, 5);
    std::thread echo([&] {
        kel_sockaddr_t peer;
        LONG accepted = kel_accept(server, &peer);
        CHAR text[100];
        for (LONG count; (count = kel_recv(accepted, text, sizeof(text), 0)) > 0;) {
            kel_send(accepted, text, (size_t)count, MSG_NOSIGNAL);
        }
        kel_close(accepted);
    });
    LONG client = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", 7);
    for (int i = 0; i < 1000; i++) {
        int back = -1;
        kel_send(client, &i, sizeof(i), MSG_NOSIGNAL);
        EXPECT_EQ(kel_recv(client, &back, sizeof(back), MSG_WAITALL), (LONG)sizeof(back));
        EXPECT_EQ(back, i);
    }
    kel_close(client);
    echo.join();
    EXPECT_EQ(kel_fake_open(), 1);
}

} // namespace
