/* Datagram endpoints: UDP over either IP family, and local ones. */
#include "live.h"

#include <string.h>

namespace
{

class LiveUdp : public LiveInet
{
  protected:
    const Port port{inet, KEL_SOCK_DGRAM}; /* of the kernel's choice, the client might get the same one */
    const std::string number = std::to_string(port.number);
    kel_sockaddr_t record;

    Descriptor server()
    {
        return kel_udp_server_socket_create(inet.family, inet.loopback, (SHORT)port.number);
    }
    Descriptor client() /* and the server's record */
    {
        memset(&record, 0xff, sizeof(record));
        return kel_udp_client_socket_create(inet.family, inet.loopback, (SHORT)port.number, &record);
    }

    void expect_server_talks_to(const std::vector<std::string> &command)
    {
        SCOPED_TRACE(command[0]);
        Descriptor bound = server();
        Peer peer(command);
        kel_sockaddr_t from;
        peer.write("from elsewhere");

        EXPECT_EQ(received_datagram(bound, &from), "from elsewhere");
        send_datagram(bound, pattern(4000), from);
        expect_same(peer.read(4000), pattern(4000));
    }

    void expect_client_talks_to(const std::vector<std::string> &command)
    {
        SCOPED_TRACE(command[0]);
        Peer peer(command);
        peer.wait_until_it_says("istening on");
        Descriptor sender = client();
        kel_sockaddr_t from;

        send_datagram(sender, pattern(4000), record);
        expect_same(peer.read(4000), pattern(4000));
        peer.write("from elsewhere");
        EXPECT_EQ(received_datagram(sender, &from), "from elsewhere");
        EXPECT_EQ(text_of(from), text_of(record));
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveUdp);

TEST_P(LiveUdp, TalksToSocat)
{
    const std::string udp = "UDP" + std::string(inet.socat), address = inet.socat_address();

    expect_server_talks_to({"socat", "-", udp + "-SENDTO:" + address + ":" + number});
    expect_client_talks_to({"socat", "-d", "-d", udp + "-LISTEN:" + number + ",reuseaddr,bind=" + address, "-"});
}

TEST_P(LiveUdp, TalksToNcat)
{
    expect_server_talks_to({"ncat", "-u", inet.ncat, inet.loopback, number});
    expect_client_talks_to({"ncat", "-v", "-u", "-l", inet.ncat, inet.loopback, number});
}

TEST_P(LiveUdp, EndpointsHaveTheirOptionsAndNames)
{
    Descriptor bound = server(), sender = client();
    Descriptor chosen(kel_udp_server_socket_create(inet.family, inet.loopback, 0));
    Descriptor without(kel_udp_client_socket_create(inet.family, NULL, 0, NULL));

    for (LONG sockfd : {(LONG)bound, (LONG)sender, (LONG)chosen, (LONG)without}) {
        expect_socket_of(sockfd, inet.family, SOCK_DGRAM);
    }
    EXPECT_EQ(text_of(name_of(bound)), text_of(record_of(inet, inet.loopback, port.number)));
    EXPECT_EQ(text_of(record), text_of(name_of(bound)));
    EXPECT_EQ(text_of(name_of(sender)), text_of(record_of(inet, inet.wildcard, 0))) << "nothing is bound";
    EXPECT_GT(port_of(chosen), 0);
}

TEST_P(LiveUdp, ServerWithoutAnAddressReceivesOnAllOfItsFamilyAlone)
{
    const Inet &other = inet.family == KEL_AF_INET ? ipv6() : ipv4();
    Descriptor bound(kel_udp_server_socket_create(inet.family, NULL, (SHORT)port.number));
    EXPECT_EQ(text_of(name_of(bound)), text_of(record_of(inet, inet.wildcard, port.number)));

    for (const Inet *family : {&other, &inet}) {
        Descriptor sender(kel_udp_client_socket_create(family->family, family->loopback, (SHORT)port.number, &record));
        send_datagram(sender, family->name, record);
    }

    EXPECT_EQ(received_datagram(bound), inet.name);
}

TEST_P(LiveUdp, DatagramsOfEverySizeArriveWithTheirSender)
{
    Descriptor bound = server(), sender = client();

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

TEST_P(LiveUdp, ClientSendsFromItsRecordIfItCan)
{
    const Port own(inet, KEL_SOCK_DGRAM);
    Descriptor bound = server();
    kel_sockaddr_t mine = record_of(inet, inet.loopback, own.number);
    kel_sockaddr_t cannot = record_of(inet, inet.elsewhere, 1);
    kel_sockaddr_t portless = record_of(inet, inet.elsewhere, 0); /* no bind is tried, which would fail */

    for (kel_sockaddr_t *local : {&mine, &cannot, &portless, (kel_sockaddr_t *)nullptr}) {
        Descriptor sender(
            kel_udp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port.number, &record, local));
        kel_sockaddr_t from;
        expect_socket_of(sender, inet.family, SOCK_DGRAM);

        send_datagram(sender, "from somewhere", record);

        EXPECT_EQ(received_datagram(bound, &from), "from somewhere");
        EXPECT_EQ(text_of(from), text_of(record_of(inet, inet.loopback, port_of(sender))));
        EXPECT_EQ(port_of(sender) == own.number, local == &mine);
    }
}

/* ---- Local ------------------------------------------------------------------------------------------------------- */

class LiveLocalDatagram : public Live
{
  protected:
    const Folder folder;
    const std::string path = folder.file("socket"), other = folder.file("other");

    Descriptor datagram(const std::string &where)
    {
        return kel_unix_udp_socket_create(where.c_str(), KEL_TRUE);
    }
};

TEST_F(LiveLocalDatagram, ArrivesWithItsSender)
{
    Descriptor one = datagram(path), two = datagram(other);
    kel_sockaddr_t from;
    expect_socket_of(one, AF_UNIX, SOCK_DGRAM);

    for (size_t size : {0, 1, 100000}) {
        send_datagram(one, pattern(size), record_of_path(other));
        expect_same(received_datagram(two, &from), pattern(size));
        kel_sockaddr_t expected = record_of_path(path);
        EXPECT_EQ(kel_sock_addr_cmp(&from, &expected, KEL_FALSE), KEL_OK) << text_of(from);
        send_datagram(two, "back", from);
        EXPECT_EQ(received_datagram(one), "back");
    }
}

TEST_F(LiveLocalDatagram, TalksToSocat)
{
    {
        Descriptor bound = datagram(path);
        Peer peer({"socat", "-", "UNIX-SENDTO:" + path + ",bind=" + other});
        kel_sockaddr_t from;
        peer.write("from socat");
        EXPECT_EQ(received_datagram(bound, &from), "from socat");
        EXPECT_EQ(text_of(from), "file " + other);
        send_datagram(bound, pattern(8000), from);
        expect_same(peer.read(8000), pattern(8000));
    }
    const std::string third = folder.file("third");
    Peer peer({"socat", "-d", "-d", "-u", "UNIX-RECV:" + third, "-"});
    peer.wait_until_it_says("starting data transfer");
    Descriptor sender(kel_unix_udp_socket_create(NULL, KEL_FALSE));
    expect_socket_of(sender, AF_UNIX, SOCK_DGRAM);
    send_datagram(sender, pattern(8000), record_of_path(third));
    expect_same(peer.read(8000), pattern(8000));
}

TEST_F(LiveLocalDatagram, TalksToNcat)
{
    Descriptor bound = datagram(path);
    Peer sends({"env", "TMPDIR=" + folder.file("."), "ncat", "-u", "-U", path}); /* which makes a file there */
    sends.write("from ncat");
    EXPECT_EQ(received_datagram(bound), "from ncat");

    Peer receives({"ncat", "-v", "-l", "-u", "-U", other});
    receives.wait_until_it_says("Listening on");
    send_datagram(bound, pattern(4000), record_of_path(other)); /* ncat connects back and needs a name for it */
    expect_same(receives.read(4000), pattern(4000));
}

} // namespace
