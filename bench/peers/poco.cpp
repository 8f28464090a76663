/* The work with POCO. What fails throws, and nothing here catches: that ends the program. */
#include "work.h"

#include <Poco/Net/DatagramSocket.h>
#include <Poco/Net/IPAddress.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>

#include <string>
#include <unistd.h>

using Poco::Net::DatagramSocket;
using Poco::Net::IPAddress;
using Poco::Net::ServerSocket;
using Poco::Net::SocketAddress;
using Poco::Net::StreamSocket;

/* POCO takes its texts as strings: made once. */
static const std::string ipv4_loopback = IPV4_LOOPBACK;
static const std::string ipv6_loopback = IPV6_LOOPBACK;
static const std::string ipv4_text = IPV4_TEXT;
static const std::string ipv6_text = IPV6_TEXT;

/* The shortest way in: the other constructors try one family after the other, and may resolve names. */
static SocketAddress ipv4_record(const std::string &text, unsigned short port)
{
    return SocketAddress(IPAddress(text, IPAddress::IPv4), port);
}

static SocketAddress ipv6_record(const std::string &text, unsigned short port)
{
    return SocketAddress(IPAddress(text, IPAddress::IPv6), port);
}

/* ---- Endpoints: bound step by step, for the constructor that does it all sets options besides ---- */

static void serve(const SocketAddress &address)
{
    ServerSocket socket;
    socket.bind(address);
    socket.listen(BACKLOG);
    socket.close();
}

static void tcp_server_ipv4()
{
    serve(ipv4_record(ipv4_loopback, 0));
}

static void tcp_server_ipv6()
{
    serve(ipv6_record(ipv6_loopback, 0));
}

static void tcp_client()
{
    StreamSocket socket(ipv4_record(ipv4_loopback, server_port));
    socket.close();
}

static void udp_server()
{
    DatagramSocket socket(ipv4_record(ipv4_loopback, 0));
    socket.close();
}

static std::string path_text;

static void choose_path_text()
{
    choose_path();
    path_text = path;
}

static void local_server()
{
    unlink(path);
    serve(SocketAddress(SocketAddress::UNIX_LOCAL, path_text));
}

/* ---- Transfers ---- */

static StreamSocket pair[2];

/* POCO makes no pairs: a local server and its client are one, too. */
static void open_pair()
{
    choose_path_text();
    SocketAddress address(SocketAddress::UNIX_LOCAL, path_text);
    ServerSocket server;
    server.bind(address);
    server.listen(BACKLOG);
    pair[0].connect(address);
    pair[1] = server.acceptConnection();
}

static void send_recv()
{
    char byte = 'x';
    REQUIRE(pair[0].sendBytes(&byte, 1) == 1);
    REQUIRE(pair[1].receiveBytes(&byte, 1) == 1);
}

static DatagramSocket datagrams;
static SocketAddress own;
static SocketAddress from;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    datagrams.bind(ipv4_record(ipv4_loopback, 0));
    own = datagrams.address();
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    REQUIRE(datagrams.sendTo(datagram, sizeof(datagram), own) == DATAGRAM);
    REQUIRE(datagrams.receiveFrom(datagram, sizeof(datagram), from) == DATAGRAM);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    keep(IPAddress(ipv4_text, IPAddress::IPv4));
}

static void ipv6_from_text()
{
    keep(IPAddress(ipv6_text, IPAddress::IPv6));
}

static void ipv4_record_from_text()
{
    keep(ipv4_record(ipv4_text, PORT_IN_TEXT));
}

static void ipv6_record_from_text()
{
    keep(ipv6_record(ipv6_text, PORT_IN_TEXT));
}

static IPAddress ipv4_address;
static IPAddress ipv6_address;
static SocketAddress ipv4[2];
static SocketAddress ipv6[2];

static void fill_records()
{
    ipv4_address = IPAddress(ipv4_text, IPAddress::IPv4);
    ipv6_address = IPAddress(ipv6_text, IPAddress::IPv6);
    for (SocketAddress &address : ipv4) {
        address = ipv4_record(ipv4_text, PORT_IN_TEXT);
    }
    for (SocketAddress &address : ipv6) {
        address = ipv6_record(ipv6_text, PORT_IN_TEXT);
    }
}

static void ipv4_to_text()
{
    keep(ipv4_address.toString());
}

static void ipv6_to_text()
{
    keep(ipv6_address.toString());
}

static void ipv4_line()
{
    keep(ipv4[0].toString());
}

static void ipv6_line()
{
    keep(ipv6[0].toString());
}

static void ipv4_compare()
{
    keep(ipv4);
    REQUIRE(ipv4[0] == ipv4[1]);
}

static void ipv6_compare()
{
    keep(ipv6);
    REQUIRE(ipv6[0] == ipv6[1]);
}

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, nullptr),
    OPERATION(tcp_server_ipv6, nullptr),
    OPERATION(tcp_client, find_server),
    OPERATION(udp_server, nullptr),
    OPERATION(local_server, choose_path_text),
    OPERATION(send_recv, open_pair),
    OPERATION(sendto_recvfrom, open_datagrams),
    OPERATION(ipv4_from_text, nullptr),
    OPERATION(ipv6_from_text, nullptr),
    OPERATION(ipv4_record_from_text, nullptr),
    OPERATION(ipv6_record_from_text, nullptr),
    OPERATION(ipv4_to_text, fill_records),
    OPERATION(ipv6_to_text, fill_records),
    OPERATION(ipv4_line, fill_records, WITHOUT_FAMILY),
    OPERATION(ipv6_line, fill_records, WITHOUT_FAMILY),
    OPERATION(ipv4_compare, fill_records),
    OPERATION(ipv6_compare, fill_records),
    {nullptr, nullptr, nullptr},
};
