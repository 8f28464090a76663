/* UDP endpoints. */
#include "live.h"

#include <poll.h>
#include <string.h>

namespace
{

class LiveUdp : public LiveInet
{
  protected:
    const Inet &inet = GetParam();
    const Port port{inet, KEL_SOCK_DGRAM}; /* of the kernel's choice, the client might get the same one */

    Descriptor server()
    {
        return kel_udp_server_socket_create(inet.family, inet.loopback, (SHORT)port.number);
    }
    Descriptor client(int to, kel_sockaddr_t *server_record)
    {
        return kel_udp_client_socket_create(inet.family, inet.loopback, (SHORT)to, server_record);
    }
    std::string socat(const std::string &kind)
    {
        const std::string number = std::to_string(port.number);
        std::string name = "UDP" + std::string(inet.socat) + "-" + kind + ":";
        return kind == "RECVFROM" || kind == "LISTEN" ? name + number + ",reuseaddr,bind=" + inet.socat_address()
                                                      : name + inet.socat_address() + ":" + number;
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveUdp);

TEST_P(LiveUdp, ServerOnAnAddressOfAnotherMachineReportsInTheTcpWords)
{
    Reports shown;

    EXPECT_EQ(kel_udp_server_socket_create(inet.family, inet.elsewhere, 0), KEL_ERROR);

    EXPECT_NE(shown.text().find("bind tcp socket: Cannot assign requested address"), std::string::npos);
}

TEST_P(LiveUdp, ClientWithoutAServersTextIsClosedAgain)
{
    kel_sockaddr_t record;

    EXPECT_EQ(kel_udp_client_socket_create(inet.family, NULL, 53, &record), KEL_ERROR);
    EXPECT_EQ(kel_udp_client_socket_create_bind(inet.family, NULL, 53, &record, NULL), KEL_ERROR);
}

TEST_P(LiveUdp, EveryEndpointHasItsOptions)
{
    kel_sockaddr_t record;
    Descriptor bound = server();
    Descriptor plain = client(port_of(bound), &record);
    Descriptor from(kel_udp_client_socket_create_bind(inet.family, inet.loopback, 1, &record, NULL));

    for (LONG sockfd : {(LONG)bound, (LONG)plain, (LONG)from}) {
        expect_socket_of(sockfd, inet.family, SOCK_DGRAM);
    }
}

TEST_P(LiveUdp, ServerIsBoundToTheAddressAndPortOfTheCall)
{
    Descriptor bound = server();

    EXPECT_EQ(text_of(name_of(bound)), text_of(record_of(inet, inet.loopback, port.number)));
}

TEST_P(LiveUdp, ServerOnPortZeroHasThePortThatTheKernelChooses)
{
    Descriptor bound(kel_udp_server_socket_create(inet.family, inet.loopback, 0));

    EXPECT_GT(port_of(bound), 0);
}

TEST_P(LiveUdp, ServerWithoutAnAddressReceivesOnAllOfItsFamilyAlone)
{
    Descriptor bound(kel_udp_server_socket_create(inet.family, NULL, (SHORT)port.number));
    EXPECT_EQ(text_of(name_of(bound)), text_of(record_of(inet, inet.wildcard, port_of(bound))));
    const Inet &other = inet.family == KEL_AF_INET ? ipv6() : ipv4();
    kel_sockaddr_t record;
    Descriptor stranger(kel_udp_client_socket_create(other.family, other.loopback, (SHORT)port_of(bound), &record));
    send_datagram(stranger, "of the other family", record);
    Descriptor sender = client(port_of(bound), &record);
    send_datagram(sender, "of its own", record);

    EXPECT_EQ(received_datagram(bound), "of its own");
}

TEST_P(LiveUdp, ClientFillsTheServersRecordAndBindsNothing)
{
    kel_sockaddr_t record;
    memset(&record, 0xff, sizeof(record));

    Descriptor sender = client(53, &record);

    EXPECT_EQ(text_of(record), text_of(record_of(inet, inet.loopback, 53)));
    EXPECT_EQ(text_of(name_of(sender)), text_of(record_of(inet, inet.wildcard, 0)));
}

TEST_P(LiveUdp, ClientNeedsNoServersRecord)
{
    Descriptor plain(kel_udp_client_socket_create(inet.family, NULL, 0, NULL));
    Descriptor from(kel_udp_client_socket_create_bind(inet.family, NULL, 0, NULL, NULL));

    EXPECT_NE(plain, KEL_ERROR);
    EXPECT_NE(from, KEL_ERROR);
}

TEST_P(LiveUdp, DatagramsOfEverySizeArriveWithTheirSender)
{
    Descriptor bound = server();
    kel_sockaddr_t record;
    Descriptor sender = client(port_of(bound), &record);

    for (size_t size : {0, 1, 512, 1500, 65000}) {
        kel_sockaddr_t from;
        send_datagram(sender, pattern(size), record);
        expect_same(received_datagram(bound, &from), pattern(size));
        EXPECT_EQ(text_of(from), text_of(record_of(inet, inet.loopback, port_of(sender))));

        kel_sockaddr_t back;
        send_datagram(bound, "to " + text_of(from), from);
        EXPECT_EQ(received_datagram(sender, &back), "to " + text_of(from));
        EXPECT_EQ(text_of(back), text_of(record));
    }
}

TEST_P(LiveUdp, DatagramThatIsTooLongTellsWhy)
{
    kel_sockaddr_t record;
    Descriptor sender = client(port.number, &record);
    const std::string data = pattern(70000);

    EXPECT_EQ(kel_sendto(sender, data.data(), data.size(), 0, &record), KEL_ERROR);
    EXPECT_EQ(errno, EMSGSIZE);
}

TEST_P(LiveUdp, ClientSendsFromThePortOfItsRecord)
{
    Descriptor bound = server();
    const Port own(inet, KEL_SOCK_DGRAM);
    kel_sockaddr_t mine = record_of(inet, inet.loopback, own.number);
    kel_sockaddr_t record, from;

    Descriptor sender(
        kel_udp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port_of(bound), &record, &mine));

    send_datagram(sender, "from a port", record);
    EXPECT_EQ(received_datagram(bound, &from), "from a port");
    EXPECT_EQ(text_of(from), text_of(mine));
}

TEST_P(LiveUdp, ClientGoesOnWhenItsRecordCannotBeBound)
{
    Descriptor bound = server();
    kel_sockaddr_t mine = record_of(inet, inet.elsewhere, 1);
    kel_sockaddr_t record, from;

    Descriptor sender(
        kel_udp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port_of(bound), &record, &mine));

    send_datagram(sender, "from anywhere", record);
    EXPECT_EQ(received_datagram(bound, &from), "from anywhere");
    EXPECT_EQ(text_of(from), text_of(record_of(inet, inet.loopback, port_of(sender))));
}

TEST_P(LiveUdp, ClientBindsNothingWithoutAPort)
{
    kel_sockaddr_t mine = record_of(inet, inet.loopback, 0);

    Descriptor sender(kel_udp_client_socket_create_bind(inet.family, NULL, 0, NULL, &mine));

    EXPECT_EQ(text_of(name_of(sender)), text_of(record_of(inet, inet.wildcard, 0)));
}

TEST_P(LiveUdp, ConnectedSocketLearnsThatNobodyListens)
{
    Descriptor sender(kel_udp_client_socket_create(inet.family, NULL, 0, NULL));
    kel_sockaddr_t nobody = record_of(inet, inet.loopback, port.number);
    char byte = 0;

    EXPECT_EQ(kel_connect(sender, &nobody), KEL_OK);
    EXPECT_EQ(kel_send(sender, &byte, 1, 0), 1);
    ASSERT_TRUE(wait_for(sender, POLLIN));
    EXPECT_EQ(kel_recv(sender, &byte, 1, 0), KEL_ERROR);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_P(LiveUdp, ServerTalksToSocat)
{
    Descriptor bound = server();
    Peer peer({"socat", "-", socat("SENDTO")});
    kel_sockaddr_t from;
    peer.write("from socat");

    EXPECT_EQ(received_datagram(bound, &from), "from socat");
    send_datagram(bound, pattern(4000), from);
    expect_same(peer.read(4000), pattern(4000));
}

TEST_P(LiveUdp, ClientTalksToSocat)
{
    Peer peer({"socat", "-d", "-d", socat("LISTEN"), "-"});
    peer.wait_until_it_says("listening on");
    kel_sockaddr_t record, from;
    Descriptor sender = client(port.number, &record);

    send_datagram(sender, pattern(4000), record);
    expect_same(peer.read(4000), pattern(4000));
    peer.write("from socat");
    EXPECT_EQ(received_datagram(sender, &from), "from socat");
    EXPECT_EQ(text_of(from), text_of(record));
}

TEST_P(LiveUdp, ServerTalksToNcat)
{
    Descriptor bound = server();
    Peer peer({"ncat", "-u", inet.ncat, inet.loopback, std::to_string(port_of(bound))});
    kel_sockaddr_t from;
    peer.write("from ncat");

    EXPECT_EQ(received_datagram(bound, &from), "from ncat");
    send_datagram(bound, pattern(4000), from);
    expect_same(peer.read(4000), pattern(4000));
}

TEST_P(LiveUdp, ClientTalksToNcat)
{
    Peer peer({"ncat", "-v", "-u", "-l", inet.ncat, inet.loopback, std::to_string(port.number)});
    peer.wait_until_it_says("Listening on");
    kel_sockaddr_t record, from;
    Descriptor sender = client(port.number, &record);

    send_datagram(sender, pattern(4000), record);
    expect_same(peer.read(4000), pattern(4000));
    peer.write("from ncat");
    EXPECT_EQ(received_datagram(sender, &from), "from ncat");
    EXPECT_EQ(text_of(from), text_of(record));
}

} // namespace
