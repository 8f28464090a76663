/* Registration, addresses and the functions that wrap one call each, as the kernel answers them. */
#include "live.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>

#include "host.h"

namespace
{

class LivePrimitives : public Live
{
};

TEST_F(LivePrimitives, RegistersUnderItsName)
{
    host_registry_clear();

    EXPECT_EQ(socket_module_init(), KEL_OK);

    ASSERT_EQ(host_registry_count(), 1U);
    EXPECT_STREQ(host_registry_record(1)->name, "KEL_socket");
}

TEST_F(LivePrimitives, LocalSequencedPackets)
{
    Folder folder;
    std::string path = folder.file("socket");
    Descriptor listener(kel_socket(KEL_AF_UNIX, KEL_SOCK_SEQPACKET, 0));
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

class LiveInetPrimitives : public LiveInet
{
  protected:
    Descriptor socket(kel_socktype_t type = KEL_SOCK_STREAM)
    {
        return kel_socket(inet.family, type, 0);
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveInetPrimitives);

TEST_P(LiveInetPrimitives, AddressGoesToTheKernelAndBack)
{
    std::string text = inet.loopback;
    const bool six = inet.family == KEL_AF_INET6;
    EXPECT_EQ(kel_is_ipv4_addr(text.data()), six ? KEL_FALSE : KEL_TRUE);
    EXPECT_EQ(kel_is_ipv6_addr(text.data()), six ? KEL_TRUE : KEL_FALSE);
    kel_sockaddr_t record = record_of(inet, inet.wildcard, 0);
    EXPECT_EQ(kel_inet_pton(inet.family, text.c_str(), &record), KEL_OK);
    Descriptor sockfd = socket();

    EXPECT_EQ(kel_bind(sockfd, &record), KEL_OK);

    CHAR back[INET6_ADDRSTRLEN];
    socklen_t length = sizeof(record);
    EXPECT_EQ(getsockname((int)sockfd, &record.sa, &length), 0);
    EXPECT_EQ((LONG)length, kel_sizeof_socket(&record));
    EXPECT_STREQ(kel_inet_ntop(inet.family, &record, back, sizeof(back)), inet.loopback);
}

TEST_P(LiveInetPrimitives, SocketsHaveTheirOptionsAndProtocol)
{
    for (kel_socktype_t type : {KEL_SOCK_STREAM, KEL_SOCK_DGRAM}) {
        expect_socket_of(socket(type), inet.family, (int)type);
    }
    Descriptor sockfd(kel_socket(inet.family, KEL_SOCK_STREAM, IPPROTO_TCP));
    EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_PROTOCOL), IPPROTO_TCP);
}

TEST_P(LiveInetPrimitives, OptionsAreReallySet)
{
    Descriptor sockfd = socket();
    int value = 1, values[2] = {0, 77};
    socklen_t length = sizeof(values);

    EXPECT_EQ(kel_setsockopt(sockfd, IPPROTO_TCP, TCP_NODELAY, &value, sizeof(value)), 0);

    EXPECT_EQ(kel_getsockopt(sockfd, IPPROTO_TCP, TCP_NODELAY, values, &length), 0);
    EXPECT_EQ(length, sizeof(int)) << "the value's length comes back";
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[1], 77);
}

TEST_P(LiveInetPrimitives, StepsOneByOneMakeAConnection)
{
    Descriptor listener = socket(), connected = socket();
    Port port(inet, KEL_SOCK_STREAM);
    kel_sockaddr_t here = record_of(inet, inet.loopback, port.number);
    EXPECT_EQ(kel_bind_str(listener, inet.family, (SHORT)port.number, NULL, 0, NULL), KEL_OK);
    EXPECT_EQ(text_of(name_of(listener)), text_of(record_of(inet, inet.wildcard, port.number)));
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
}

} // namespace
