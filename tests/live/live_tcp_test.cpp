/* TCP endpoints. */
#include "live.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>

#include <regex>

namespace
{

class LiveTcp : public LiveInet
{
  protected:
    const Inet &inet = GetParam();

    Descriptor server(int port = 0, const char *address = nullptr)
    {
        return kel_tcp_server_socket_create(inet.family, address != nullptr ? address : inet.loopback, (SHORT)port, 1);
    }
    Descriptor client(int port)
    {
        return kel_tcp_client_socket_create(inet.family, inet.loopback, (SHORT)port);
    }

    std::string socat(const std::string &kind, int port)
    {
        std::string name = "TCP" + std::string(inet.socat);
        return kind == "LISTEN" ? name + "-LISTEN:" + std::to_string(port) + ",reuseaddr,bind=" + inet.socat_address()
                                : name + ":" + inet.socat_address() + ":" + std::to_string(port);
    }

    /* A conversation with a peer that sends back nothing by itself: both directions, then the end of both. */
    void expect_conversation(LONG connection, Peer &peer)
    {
        const std::string there = pattern(100000), back = pattern(70001);
        send_all(connection, there);
        expect_same(peer.read(there.size()), there);
        peer.write(back);
        expect_same(received(connection, back.size()), back);
        peer.end_input();
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveTcp);

/* What a listening socket's queue holds at most: the kernel tells in a field that listening sockets do not need. */
unsigned backlog(LONG listener)
{
    struct tcp_info info;
    socklen_t length = sizeof(info);
    EXPECT_EQ(kel_getsockopt(listener, IPPROTO_TCP, TCP_INFO, &info, &length), 0);
    EXPECT_EQ(info.tcpi_state, TCP_LISTEN);
    return info.tcpi_sacked;
}

/* The reports' texts on the console, without colour, function and line. */
std::string reports(const std::string &console)
{
    return std::regex_replace(console, std::regex("\033\\[(1;31m[a-z_0-9]+\\.[0-9]+:|m)"), "|");
}

TEST_P(LiveTcp, ServerOnAPortInUseReportsAndLeavesNothingOpen)
{
    Descriptor first = server();
    Reports shown;

    EXPECT_EQ(server(port_of(first)), KEL_ERROR);

    EXPECT_EQ(reports(shown.text()), "|bind tcp socket: Address already in use|");
}

TEST_P(LiveTcp, ServerOnAnAddressOfAnotherMachineFails)
{
    EXPECT_EQ(server(0, inet.elsewhere), KEL_ERROR);
}

TEST_P(LiveTcp, RefusedClientReportsTheConnectAndThenTheStep)
{
    Port nobody(inet, KEL_SOCK_STREAM);
    Reports shown;

    EXPECT_EQ(client(nobody.number), KEL_ERROR);

    EXPECT_EQ(reports(shown.text()), "|connect :: Connection refused||connet tcp socket: Connection refused|");
}

TEST_P(LiveTcp, RefusedClientWithALocalAddressReportsAlike)
{
    Port nobody(inet, KEL_SOCK_STREAM);
    Reports shown;

    EXPECT_EQ(kel_tcp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)nobody.number, NULL), KEL_ERROR);

    EXPECT_EQ(reports(shown.text()), "|connect :: Connection refused||connet tcp socket: Connection refused|");
}

TEST_P(LiveTcp, BacklogIsFiveWhateverTheCallerAsksFor)
{
    for (LONG asked : {0, 1, 5, 1000}) {
        Descriptor listener(kel_tcp_server_socket_create(inet.family, inet.loopback, 0, asked));
        EXPECT_EQ(backlog(listener), 5U) << "asked for " << asked;
    }
}

TEST_P(LiveTcp, EveryEndpointHasItsOptions)
{
    Descriptor listener = server();
    Descriptor plain = client(port_of(listener));
    Descriptor from(kel_tcp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port_of(listener), NULL));

    for (LONG sockfd : {(LONG)listener, (LONG)plain, (LONG)from}) {
        expect_socket_of(sockfd, inet.family, SOCK_STREAM);
    }
}

TEST_P(LiveTcp, ServerListensOnTheAddressAndPortOfTheCall)
{
    Port port(inet, KEL_SOCK_STREAM);

    Descriptor listener = server(port.number);

    EXPECT_EQ(text_of(name_of(listener)), text_of(record_of(inet, inet.loopback, port.number)));
}

TEST_P(LiveTcp, ServerWithoutAnAddressListensOnAllOfThem)
{
    Descriptor listener(kel_tcp_server_socket_create(inet.family, NULL, 0, 5));

    EXPECT_EQ(text_of(name_of(listener)), text_of(record_of(inet, inet.wildcard, port_of(listener))));
    Descriptor connected = client(port_of(listener));
    EXPECT_EQ(text_of(peer_of(connected)), text_of(record_of(inet, inet.loopback, port_of(listener))));
    Descriptor connection = accepted(listener);
}

TEST_P(LiveTcp, ServerIsReachedThroughItsOwnFamilyAlone)
{
    const Inet &other = inet.family == KEL_AF_INET ? ipv6() : ipv4();
    Port port(other, KEL_SOCK_STREAM);
    Descriptor listener(kel_tcp_server_socket_create(inet.family, NULL, (SHORT)port.number, 5));
    ASSERT_NE(listener, KEL_ERROR);

    EXPECT_EQ(kel_tcp_client_socket_create(other.family, other.loopback, (SHORT)port.number), KEL_ERROR);
    Descriptor beside(kel_tcp_server_socket_create(other.family, NULL, (SHORT)port.number, 5));
    EXPECT_NE(beside, KEL_ERROR) << "the port is free in the other family";
}

TEST_P(LiveTcp, RestartedServerTakesItsPortWhileOldConnectionsLinger)
{
    Descriptor first = server();
    int port = port_of(first);
    Descriptor connected = client(port);
    Descriptor connection = accepted(first);
    connection.close(); /* the server's side ends first: it is the one that lingers */
    EXPECT_EQ(received(connected, 1), "");
    connected.close();
    first.close();

    EXPECT_NE(server(port), KEL_ERROR);
}

TEST_P(LiveTcp, AcceptTellsTheClientsName)
{
    Descriptor listener = server();
    Descriptor connected = client(port_of(listener));
    kel_sockaddr_t peer;

    Descriptor connection = accepted(listener, &peer);

    EXPECT_EQ(text_of(peer), text_of(name_of(connected)));
    EXPECT_EQ(text_of(peer), text_of(record_of(inet, inet.loopback, port_of(connected))));
    EXPECT_EQ(text_of(peer), text_of(peer_of(connection)));
    EXPECT_EQ(text_of(name_of(connection)), text_of(peer_of(connected)));
    EXPECT_NE(port_of(connected), port_of(listener));
}

TEST_P(LiveTcp, ClientConnectsFromThePortOfItsRecord)
{
    Descriptor listener = server();
    Port port(inet, KEL_SOCK_STREAM);
    kel_sockaddr_t mine = record_of(inet, inet.loopback, port.number);

    Descriptor connected(
        kel_tcp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port_of(listener), &mine));

    kel_sockaddr_t peer;
    Descriptor connection = accepted(listener, &peer);
    EXPECT_EQ(text_of(peer), text_of(mine));
    EXPECT_EQ(text_of(name_of(connected)), text_of(mine));
}

TEST_P(LiveTcp, ClientGoesOnWhenItsRecordCannotBeBound)
{
    Descriptor listener = server();
    kel_sockaddr_t mine = record_of(inet, inet.elsewhere, 1);
    Reports shown;

    Descriptor connected(
        kel_tcp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port_of(listener), &mine));

    kel_sockaddr_t peer;
    Descriptor connection = accepted(listener, &peer);
    EXPECT_EQ(text_of(peer), text_of(record_of(inet, inet.loopback, port_of(connected))));
    EXPECT_EQ(shown.text(), "");
}

TEST_P(LiveTcp, ClientBindsNothingWithoutAPort)
{
    Descriptor listener = server();
    kel_sockaddr_t mine = record_of(inet, inet.elsewhere, 0); /* a bind would fail, and a connect from there too */

    Descriptor connected(
        kel_tcp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port_of(listener), &mine));

    EXPECT_NE(connected, KEL_ERROR);
}

TEST_P(LiveTcp, EndOfTheStreamIsNoFailure)
{
    Descriptor listener = server();
    Descriptor connected = client(port_of(listener));
    accepted(listener).close();
    char byte;

    ASSERT_TRUE(wait_for(connected, POLLIN));
    EXPECT_EQ(kel_recv(connected, &byte, 1, 0), 0);
}

TEST_P(LiveTcp, SendAfterAResetTellsWhy)
{
    Descriptor listener = server();
    Descriptor connected = client(port_of(listener));
    Descriptor connection = accepted(listener);
    struct linger now = {1, 0};
    EXPECT_EQ(kel_setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof(now)), 0);
    connection.close();
    ASSERT_TRUE(wait_for(connected, POLLIN));
    char byte = 0;

    EXPECT_EQ(kel_recv(connected, &byte, 1, 0), KEL_ERROR);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(kel_send(connected, &byte, 1, MSG_NOSIGNAL), KEL_ERROR);
    EXPECT_EQ(errno, EPIPE);
}

TEST_P(LiveTcp, ServerTalksToSocat)
{
    Port port(inet, KEL_SOCK_STREAM);
    Descriptor listener = server(port.number);
    Peer peer({"socat", "-", socat("CONNECT", port.number)});
    Descriptor connection = accepted(listener);

    expect_conversation(connection, peer);

    EXPECT_EQ(received(connection, 1), "");
    connection.close();
    EXPECT_EQ(peer.exit_status(), 0);
}

TEST_P(LiveTcp, ClientTalksToSocat)
{
    Port port(inet, KEL_SOCK_STREAM);
    Peer peer({"socat", "-d", "-d", socat("LISTEN", port.number), "-"});
    peer.wait_until_it_says("listening on");
    Descriptor connection = client(port.number);

    expect_conversation(connection, peer);

    EXPECT_EQ(received(connection, 1), "");
    connection.close();
    EXPECT_EQ(peer.exit_status(), 0);
}

TEST_P(LiveTcp, ServerTalksToNcat)
{
    Port port(inet, KEL_SOCK_STREAM);
    Descriptor listener = server(port.number);
    Peer peer({"ncat", inet.ncat, inet.loopback, std::to_string(port.number)});
    Descriptor connection = accepted(listener);

    expect_conversation(connection, peer);

    EXPECT_EQ(received(connection, 1), "");
    connection.close();
    EXPECT_EQ(peer.exit_status(), 0);
}

TEST_P(LiveTcp, ClientTalksToNcat)
{
    Port port(inet, KEL_SOCK_STREAM);
    Peer peer({"ncat", "-v", "-l", inet.ncat, inet.loopback, std::to_string(port.number)});
    peer.wait_until_it_says("Listening on");
    Descriptor connection = client(port.number);

    expect_conversation(connection, peer);

    connection.close();
    EXPECT_EQ(peer.exit_status(), 0);
}

/* From client to server through a relay that was written elsewhere: a server to one and a client to the other. */
TEST_P(LiveTcp, MebibytesArriveWhole)
{
    Descriptor listener = server();
    Port port(inet, KEL_SOCK_STREAM);
    Peer relay(
        {"socat", "-d", "-d", "-u", "-b", "262144", socat("LISTEN", port.number), socat("CONNECT", port_of(listener))});
    relay.wait_until_it_says("listening on");
    Descriptor from = client(port.number);
    Descriptor to = accepted(listener);

    expect_stream_arrives_whole(from, to);

    from.close();
    EXPECT_EQ(received(to, 1), "") << "and nothing after it";
    EXPECT_EQ(relay.exit_status(), 0);
}

} // namespace
