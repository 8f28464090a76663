/* Registration, addresses and the functions that wrap one call each, as the kernel answers them. */
#include "live.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>

#include "host.h"

namespace
{

class LivePrimitives : public Live
{
};

class LiveInetPrimitives : public LiveInet
{
  protected:
    const Inet &inet = GetParam();

    Descriptor socket(kel_socktype_t type = KEL_SOCK_STREAM)
    {
        return kel_socket(inet.family, type, 0);
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveInetPrimitives);

TEST_F(LivePrimitives, RegistersUnderItsName)
{
    host_registry_clear();

    EXPECT_EQ(socket_module_init(), KEL_OK);

    ASSERT_EQ(host_registry_count(), 1U);
    EXPECT_STREQ(host_registry_record(1)->name, "KEL_socket");
}

TEST_F(LivePrimitives, LengthsAreThoseThatTheKernelReturns)
{
    Folder folder;
    const struct {
        kel_domain_t family;
        const char *address;
    } cases[] = {{KEL_AF_INET, "127.0.0.1"}, {KEL_AF_INET6, "::1"}};
    for (const auto &each : cases) {
        Descriptor bound(kel_udp_server_socket_create(each.family, each.address, 0));
        kel_sockaddr_t record;
        socklen_t length = sizeof(record);
        ASSERT_EQ(getsockname((int)bound, &record.sa, &length), 0);
        EXPECT_EQ(kel_sizeof_socket(&record), (LONG)length);
    }
    kel_sockaddr_t path;
    EXPECT_EQ(kel_addr_fill(0, &path, KEL_AF_UNIX, 0, "/run/x", 0, NULL), KEL_OK);
    EXPECT_EQ(kel_sizeof_socket(&path), 110);
}

TEST_F(LivePrimitives, AddressTextGoesBothWays)
{
    CHAR four[] = "10.1.2.3", six[] = "2001:db8::5", neither[] = "10.1.2.x";
    EXPECT_EQ(kel_is_ipv4_addr(four), KEL_TRUE);
    EXPECT_EQ(kel_is_ipv4_addr(six), KEL_FALSE);
    EXPECT_EQ(kel_is_ipv6_addr(six), KEL_TRUE);
    EXPECT_EQ(kel_is_ipv6_addr(neither), KEL_FALSE);

    kel_sockaddr_t record;
    CHAR text[INET6_ADDRSTRLEN];
    memset(&record, 0, sizeof(record));
    EXPECT_EQ(kel_inet_pton(KEL_AF_INET, four, &record), KEL_OK);
    EXPECT_STREQ(kel_inet_ntop(KEL_AF_INET, &record, text, sizeof(text)), four);
    EXPECT_EQ(kel_inet_pton(KEL_AF_INET6, six, &record), KEL_OK);
    EXPECT_STREQ(kel_inet_ntop(KEL_AF_INET6, &record, text, sizeof(text)), six);
    EXPECT_EQ(kel_inet_pton(KEL_AF_INET, neither, &record), KEL_ERROR);
}

TEST_F(LivePrimitives, AddressOfNoFamilyIsRefusedByTheKernel)
{
    kel_sockaddr_t record;
    EXPECT_EQ(kel_addr_fill(0, &record, (kel_domain_t)99, 1, NULL, 0, NULL), KEL_OK);
    Descriptor sockfd(kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0));

    EXPECT_EQ(kel_bind(sockfd, &record), KEL_ERROR);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(LivePrimitives, UnknownFamilyTellsWhy)
{
    EXPECT_EQ(kel_socket((kel_domain_t)99, KEL_SOCK_STREAM, 0), KEL_ERROR);
    EXPECT_EQ(errno, EAFNOSUPPORT);
}

TEST_F(LivePrimitives, LocalSequencedPackets)
{
    Folder folder;
    std::string path = folder.file("socket");
    Descriptor listener(kel_socket(KEL_AF_UNIX, KEL_SOCK_SEQPACKET, 0));
    EXPECT_EQ(option(listener, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(kel_bind_str(listener, KEL_AF_UNIX, 0, path.c_str(), 0, NULL), KEL_OK);
    EXPECT_EQ(kel_listen(listener, 1), KEL_OK);
    Descriptor connected(kel_socket(KEL_AF_UNIX, KEL_SOCK_SEQPACKET, 0));
    EXPECT_EQ(kel_connect_str(connected, KEL_AF_UNIX, 0, path.c_str()), KEL_OK);
    Descriptor connection = accepted(listener);

    EXPECT_EQ(kel_send(connected, "one", 3, 0), 3);
    EXPECT_EQ(kel_send(connected, "two", 3, 0), 3);
    char buffer[10];
    EXPECT_EQ(kel_recv(connection, buffer, sizeof(buffer), 0), 3) << "records stay apart";
}

TEST_F(LivePrimitives, ClosedDescriptorIsNoDescriptor)
{
    LONG sockfd = kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0);
    char byte = 0;
    kel_sockaddr_t record = record_of(ipv4(), "127.0.0.1", 1);
    int value = 0;
    socklen_t length = sizeof(value);

    EXPECT_EQ(kel_close(sockfd), 0);

    const std::pair<const char *, LONG> calls[] = {
        {"close", kel_close(sockfd)},
        {"bind", kel_bind(sockfd, &record)},
        {"bind_str", kel_bind_str(sockfd, KEL_AF_INET, 0, NULL, 0, NULL)},
        {"listen", kel_listen(sockfd, 1)},
        {"accept", kel_accept(sockfd, &record)},
        {"getpeername", kel_getpeername(sockfd, &record)},
        {"getsockname", kel_getsockname(sockfd, &record)},
        {"recv", kel_recv(sockfd, &byte, 1, 0)},
        {"send", kel_send(sockfd, &byte, 1, 0)},
        {"recvfrom", kel_recvfrom(sockfd, &byte, 1, 0, &record)},
        {"sendto", kel_sendto(sockfd, &byte, 1, 0, &record)},
        {"getsockopt", kel_getsockopt(sockfd, SOL_SOCKET, SO_TYPE, &value, &length)},
        {"setsockopt", kel_setsockopt(sockfd, SOL_SOCKET, SO_KEEPALIVE, &value, length)},
        {"connect", kel_connect(sockfd, &record)},
        {"connect_str", kel_connect_str(sockfd, KEL_AF_INET, 1, "127.0.0.1")},
    };
    EXPECT_EQ(errno, EBADF);
    for (const auto &call : calls) {
        EXPECT_EQ(call.second, KEL_ERROR) << call.first;
    }
}

TEST_P(LiveInetPrimitives, EverySocketHasItsOptions)
{
    for (kel_socktype_t type : {KEL_SOCK_STREAM, KEL_SOCK_DGRAM}) {
        Descriptor sockfd = socket(type);
        EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_TYPE), (int)type);
        if (inet.family == KEL_AF_INET6) {
            EXPECT_EQ(option(sockfd, IPPROTO_IPV6, IPV6_V6ONLY), 1);
        }
    }
}

TEST_P(LiveInetPrimitives, ProtocolOfTheCallReachesTheKernel)
{
    Descriptor sockfd(kel_socket(inet.family, KEL_SOCK_STREAM, IPPROTO_TCP));
    EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_PROTOCOL), IPPROTO_TCP);
    EXPECT_EQ(kel_socket(inet.family, KEL_SOCK_STREAM, IPPROTO_UDP), KEL_ERROR);
    EXPECT_EQ(errno, EPROTONOSUPPORT);
}

TEST_P(LiveInetPrimitives, OptionsAreReallySet)
{
    Descriptor sockfd = socket();
    int value = 1;

    EXPECT_EQ(kel_setsockopt(sockfd, IPPROTO_TCP, TCP_NODELAY, &value, sizeof(value)), 0);
    EXPECT_EQ(option(sockfd, IPPROTO_TCP, TCP_NODELAY), 1);
    int values[2] = {0, 77};
    socklen_t length = sizeof(values);
    EXPECT_EQ(kel_getsockopt(sockfd, IPPROTO_TCP, TCP_NODELAY, values, &length), 0);
    EXPECT_EQ(length, sizeof(int)) << "the value's length comes back";
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[1], 77);
    EXPECT_EQ(kel_setsockopt(sockfd, IPPROTO_TCP, 9999, &value, sizeof(value)), KEL_ERROR);
    EXPECT_EQ(errno, ENOPROTOOPT);
    EXPECT_EQ(kel_setsockopt(sockfd, IPPROTO_TCP, TCP_NODELAY, &value, 1), KEL_ERROR);
    EXPECT_EQ(errno, EINVAL);
    length = sizeof(value);
    EXPECT_EQ(kel_getsockopt(sockfd, IPPROTO_TCP, 9999, &value, &length), KEL_ERROR);
    EXPECT_EQ(errno, ENOPROTOOPT);
}

TEST_P(LiveInetPrimitives, BindTellsWhyItFailsAndSaysNothing)
{
    Descriptor first = socket(), second = socket();
    EXPECT_EQ(kel_bind_str(first, inet.family, 0, inet.loopback, 0, NULL), KEL_OK);
    EXPECT_EQ(kel_listen(first, 1), KEL_OK);
    kel_sockaddr_t taken = name_of(first), elsewhere = record_of(inet, inet.elsewhere, 0);
    Reports shown;

    EXPECT_EQ(kel_bind(second, &taken), KEL_ERROR);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(kel_bind(second, &elsewhere), KEL_ERROR);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(shown.text(), "");
}

TEST_P(LiveInetPrimitives, BindWithoutAnAddressIsTheWildcard)
{
    Descriptor sockfd = socket();
    Port port(inet, KEL_SOCK_STREAM);

    EXPECT_EQ(kel_bind_str(sockfd, inet.family, (SHORT)port.number, NULL, 0, NULL), KEL_OK);

    EXPECT_EQ(text_of(name_of(sockfd)), text_of(record_of(inet, inet.wildcard, port.number)));
}

TEST_P(LiveInetPrimitives, BindOfOtherTextFails)
{
    Descriptor sockfd = socket();
    int notice = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    ULONG before = host_assertions();
    dup2(nowhere, STDERR_FILENO); /* the assertion's line is wanted and no news */

    EXPECT_EQ(kel_bind_str(sockfd, inet.family, 0, "localhost", 0, NULL), KEL_ERROR);

    dup2(notice, STDERR_FILENO);
    close(notice);
    close(nowhere);
    EXPECT_EQ(host_assertions(), before + 1);
}

TEST_P(LiveInetPrimitives, ListenTakesAnyBacklog)
{
    for (LONG asked : {0, 100000}) {
        Descriptor sockfd = socket();
        EXPECT_EQ(kel_bind_str(sockfd, inet.family, 0, inet.loopback, 0, NULL), KEL_OK);
        EXPECT_EQ(kel_listen(sockfd, asked), KEL_OK);
        EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_ACCEPTCONN), 1);
    }
    EXPECT_EQ(kel_listen(socket(KEL_SOCK_DGRAM), 1), KEL_ERROR);
}

TEST_P(LiveInetPrimitives, ListenOnDatagramsTellsWhy)
{
    Descriptor sockfd = socket(KEL_SOCK_DGRAM);

    EXPECT_EQ(kel_listen(sockfd, 1), KEL_ERROR);
    EXPECT_EQ(errno, EOPNOTSUPP);
}

TEST_P(LiveInetPrimitives, AcceptWithoutListeningTellsWhy)
{
    Descriptor sockfd = socket();
    kel_sockaddr_t peer;

    EXPECT_EQ(kel_accept(sockfd, &peer), KEL_ERROR);
    EXPECT_EQ(errno, EINVAL);
}

TEST_P(LiveInetPrimitives, AcceptWithoutARecordLeavesTheConnectionWaiting)
{
    Descriptor listener(kel_tcp_server_socket_create(inet.family, inet.loopback, 0, 5));
    Descriptor connected(kel_tcp_client_socket_create(inet.family, inet.loopback, (SHORT)port_of(listener)));

    EXPECT_EQ(kel_accept(listener, NULL), KEL_ERROR);

    EXPECT_NE(accepted(listener), KEL_ERROR);
}

TEST_P(LiveInetPrimitives, StepsOneByOneMakeAConnection)
{
    Descriptor listener = socket(), connected = socket();
    Port port(inet, KEL_SOCK_STREAM);
    kel_sockaddr_t here = record_of(inet, inet.loopback, port.number);
    EXPECT_EQ(kel_bind(listener, &here), KEL_OK);
    EXPECT_EQ(kel_listen(listener, 5), KEL_OK);
    EXPECT_EQ(kel_connect(connected, &here), KEL_OK);
    kel_sockaddr_t peer;
    Descriptor connection = accepted(listener, &peer);

    kel_sockaddr_t name = name_of(connected);
    EXPECT_EQ(kel_sock_addr_cmp(&peer, &name, KEL_FALSE), KEL_OK);
    EXPECT_EQ(kel_sock_addr_cmp(&peer, &here, KEL_FALSE), KEL_ERROR);
    EXPECT_EQ(kel_sock_addr_cmp(&peer, &here, KEL_TRUE), KEL_OK);
    EXPECT_EQ(text_of(peer_of(connected)), text_of(here));

    send_all(connected, "peek");
    char buffer[4] = {};
    ASSERT_TRUE(wait_for(connection, POLLIN));
    EXPECT_EQ(kel_recv(connection, buffer, 4, MSG_PEEK), 4) << "flags reach the kernel";
    EXPECT_EQ(received(connection, 4), "peek");
    EXPECT_EQ(kel_connect(connected, &here), KEL_ERROR);
    EXPECT_EQ(errno, EISCONN);
}

TEST_P(LiveInetPrimitives, ConnectWithoutAnAddressTouchesNothing)
{
    Descriptor sockfd = socket();

    EXPECT_EQ(kel_connect_str(sockfd, inet.family, 80, NULL), KEL_ERROR);

    EXPECT_EQ(text_of(name_of(sockfd)), text_of(record_of(inet, inet.wildcard, 0)));
}

TEST_P(LiveInetPrimitives, NamesOfAnUnconnectedSocket)
{
    Descriptor sockfd = socket();
    kel_sockaddr_t record;

    EXPECT_EQ(kel_getpeername(sockfd, &record), KEL_ERROR);
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_EQ(text_of(name_of(sockfd)), text_of(record_of(inet, inet.wildcard, 0)));
}

TEST_P(LiveInetPrimitives, NullRecordOfANameIsTheKernelsToRefuse)
{
    Descriptor listener(kel_tcp_server_socket_create(inet.family, inet.loopback, 0, 5));
    Descriptor connected(kel_tcp_client_socket_create(inet.family, inet.loopback, (SHORT)port_of(listener)));

    EXPECT_EQ(kel_getsockname(connected, NULL), KEL_ERROR);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(kel_getpeername(connected, NULL), KEL_ERROR);
    EXPECT_EQ(errno, EFAULT);
}

TEST_P(LiveInetPrimitives, ReceiveWithoutDataTellsWhy)
{
    Descriptor bound(kel_udp_server_socket_create(inet.family, inet.loopback, 0));
    kel_sockaddr_t sender;
    char byte;

    EXPECT_EQ(kel_recv(bound, &byte, 1, MSG_DONTWAIT), KEL_ERROR);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(kel_recvfrom(bound, &byte, 1, MSG_DONTWAIT, &sender), KEL_ERROR);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_P(LiveInetPrimitives, NullsOfADatagramLeaveItWaiting)
{
    Descriptor bound(kel_udp_server_socket_create(inet.family, inet.loopback, 0));
    kel_sockaddr_t record = name_of(bound);
    char buffer[10];
    send_datagram(bound, "to itself", record);

    EXPECT_EQ(kel_recvfrom(bound, NULL, sizeof(buffer), 0, &record), KEL_ERROR);
    EXPECT_EQ(kel_recvfrom(bound, buffer, sizeof(buffer), 0, NULL), KEL_ERROR);
    EXPECT_EQ(kel_sendto(bound, NULL, 1, 0, &record), KEL_ERROR);
    EXPECT_EQ(kel_sendto(bound, buffer, 1, 0, NULL), KEL_ERROR);

    EXPECT_EQ(received_datagram(bound), "to itself");
}

TEST_P(LiveInetPrimitives, DatagramThatDoesNotFitIsCut)
{
    Descriptor bound(kel_udp_server_socket_create(inet.family, inet.loopback, 0));
    kel_sockaddr_t record = name_of(bound);
    char buffer[5] = {};
    send_datagram(bound, "123456789", record);
    ASSERT_TRUE(wait_for(bound, POLLIN));

    EXPECT_EQ(kel_recvfrom(bound, buffer, 4, 0, &record), 4);

    EXPECT_STREQ(buffer, "1234");
}

} // namespace
