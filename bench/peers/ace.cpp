/* The work with ACE: its wrapper facades, which report by their results. */
#include "work.h"

#include <ace/INET_Addr.h>
#include <ace/LSOCK_Acceptor.h>
#include <ace/LSOCK_Stream.h>
#include <ace/OS_NS_sys_socket.h>
#include <ace/SOCK_Acceptor.h>
#include <ace/SOCK_Connector.h>
#include <ace/SOCK_Dgram.h>

/* Told the family, ACE reads the text once; untold, it tries IPv6 before IPv4. */
static void fill(ACE_INET_Addr &address, unsigned short port, const char *text, int family)
{
    REQUIRE(address.set(port, text, 1, family) == 0);
}

/* ---- Endpoints ---- */

static const int without_reuse = 0;

/* At a port that is given: where the system is to choose one, ACE tries ports itself, at 340 instructions more. */
static void tcp_server(const char *text, int family)
{
    ACE_INET_Addr address;
    fill(address, free_port, text, family);
    ACE_SOCK_Acceptor acceptor;
    REQUIRE(acceptor.open(address, without_reuse, family, BACKLOG) == 0);
    acceptor.close();
}

static void tcp_server_ipv4()
{
    tcp_server(IPV4_LOOPBACK, AF_INET);
}

static void tcp_server_ipv6()
{
    tcp_server(IPV6_LOOPBACK, AF_INET6);
}

static void tcp_client()
{
    ACE_INET_Addr address;
    fill(address, server_port, IPV4_LOOPBACK, AF_INET);
    ACE_SOCK_Stream stream;
    ACE_SOCK_Connector connector;
    REQUIRE(connector.connect(stream, address) == 0);
    stream.close();
}

static void udp_server()
{
    ACE_INET_Addr address;
    fill(address, 0, IPV4_LOOPBACK, AF_INET);
    ACE_SOCK_Dgram socket;
    REQUIRE(socket.open(address, AF_INET) == 0);
    socket.close();
}

static void local_server()
{
    ACE_UNIX_Addr address(path);
    ACE_LSOCK_Acceptor acceptor;
    REQUIRE(acceptor.open(address, without_reuse, PF_UNIX, BACKLOG) == 0);
    acceptor.remove(); /* closes, and removes the file */
}

/* ---- Transfers ---- */

static ACE_LSOCK_Stream pair[2];

static void open_pair()
{
    ACE_HANDLE handles[2];
    REQUIRE(ACE_OS::socketpair(AF_UNIX, SOCK_STREAM, 0, handles) == 0);
    pair[0].set_handle(handles[0]);
    pair[1].set_handle(handles[1]);
}

static void send_recv()
{
    char byte = 'x';
    REQUIRE(pair[0].send(&byte, 1) == 1);
    REQUIRE(pair[1].recv(&byte, 1) == 1);
}

/* The first of ACE's addresses asks once whether the host has IPv6: these are made before the counting begins. */
static ACE_INET_Addr own;
static ACE_INET_Addr from;
static ACE_SOCK_Dgram datagrams;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    fill(own, 0, IPV4_LOOPBACK, AF_INET);
    REQUIRE(datagrams.open(own, AF_INET) == 0);
    REQUIRE(datagrams.get_local_addr(own) == 0);
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    REQUIRE(datagrams.send(datagram, sizeof(datagram), own) == DATAGRAM);
    REQUIRE(datagrams.recv(datagram, sizeof(datagram), from) == DATAGRAM);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    ACE_INET_Addr address;
    fill(address, 0, IPV4_TEXT, AF_INET);
    keep(address);
}

static void ipv6_from_text()
{
    ACE_INET_Addr address;
    fill(address, 0, IPV6_TEXT, AF_INET6);
    keep(address);
}

static void ipv4_record_from_text()
{
    ACE_INET_Addr address;
    fill(address, PORT_IN_TEXT, IPV4_TEXT, AF_INET);
    keep(address);
}

static void ipv6_record_from_text()
{
    ACE_INET_Addr address;
    fill(address, PORT_IN_TEXT, IPV6_TEXT, AF_INET6);
    keep(address);
}

static ACE_INET_Addr ipv4[2];
static ACE_INET_Addr ipv6[2];

static void fill_records()
{
    for (ACE_INET_Addr &address : ipv4) {
        fill(address, PORT_IN_TEXT, IPV4_TEXT, AF_INET);
    }
    for (ACE_INET_Addr &address : ipv6) {
        fill(address, PORT_IN_TEXT, IPV6_TEXT, AF_INET6);
    }
}

static void ipv4_to_text()
{
    char text[INET_ADDRSTRLEN];
    REQUIRE(ipv4[0].get_host_addr(text, sizeof(text)) != nullptr);
    keep(text);
}

static void ipv6_to_text()
{
    char text[INET6_ADDRSTRLEN];
    REQUIRE(ipv6[0].get_host_addr(text, sizeof(text)) != nullptr);
    keep(text);
}

static void ipv4_line()
{
    char line[100];
    REQUIRE(ipv4[0].addr_to_string(line, sizeof(line)) == 0);
    keep(line);
}

static void ipv6_line()
{
    char line[100];
    REQUIRE(ipv6[0].addr_to_string(line, sizeof(line)) == 0);
    keep(line);
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

static const char GIVEN_PORT[] = "at a port that is given";

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, choose_port, GIVEN_PORT),
    OPERATION(tcp_server_ipv6, choose_port, GIVEN_PORT),
    OPERATION(tcp_client, find_server),
    OPERATION(udp_server, nullptr),
    OPERATION(local_server, choose_path),
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
