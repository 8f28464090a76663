/* The work with the module. */
#include "work.h"

#include "kel_socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>

/* ---- Endpoints ---- */

static void tcp_server_ipv4()
{
    LONG fd = kel_tcp_server_socket_create(KEL_AF_INET, IPV4_LOOPBACK, 0, BACKLOG);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void tcp_server_ipv6()
{
    LONG fd = kel_tcp_server_socket_create(KEL_AF_INET6, IPV6_LOOPBACK, 0, BACKLOG);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void tcp_client()
{
    LONG fd = kel_tcp_client_socket_create(KEL_AF_INET, IPV4_LOOPBACK, (SHORT)server_port);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void udp_server()
{
    LONG fd = kel_udp_server_socket_create(KEL_AF_INET, IPV4_LOOPBACK, 0);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void local_server()
{
    LONG fd = kel_unix_tcp_server_socket_create(path, BACKLOG);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

/* ---- Transfers ---- */

static int pair[2];

static void open_pair()
{
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0);
}

static void send_recv()
{
    char byte = 'x';
    REQUIRE(kel_send(pair[0], &byte, 1, 0) == 1);
    REQUIRE(kel_recv(pair[1], &byte, 1, 0) == 1);
}

static LONG datagrams;
static kel_sockaddr_t own;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    datagrams = kel_udp_server_socket_create(KEL_AF_INET, IPV4_LOOPBACK, 0);
    REQUIRE(datagrams != KEL_ERROR);
    REQUIRE(kel_getsockname(datagrams, &own) == KEL_OK);
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    kel_sockaddr_t from;
    REQUIRE(kel_sendto(datagrams, datagram, sizeof(datagram), 0, &own) == DATAGRAM);
    REQUIRE(kel_recvfrom(datagrams, datagram, sizeof(datagram), 0, &from) == DATAGRAM);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    kel_sockaddr_t record;
    REQUIRE(kel_inet_pton(KEL_AF_INET, IPV4_TEXT, &record) == KEL_OK);
    keep(record);
}

static void ipv6_from_text()
{
    kel_sockaddr_t record;
    REQUIRE(kel_inet_pton(KEL_AF_INET6, IPV6_TEXT, &record) == KEL_OK);
    keep(record);
}

static void ipv4_record_from_text()
{
    kel_sockaddr_t record;
    REQUIRE(kel_addr_fill(0, &record, KEL_AF_INET, PORT_IN_TEXT, IPV4_TEXT, 0, nullptr) == KEL_OK);
    keep(record);
}

static void ipv6_record_from_text()
{
    kel_sockaddr_t record;
    REQUIRE(kel_addr_fill(0, &record, KEL_AF_INET6, PORT_IN_TEXT, IPV6_TEXT, 0, nullptr) == KEL_OK);
    keep(record);
}

static kel_sockaddr_t ipv4[2];
static kel_sockaddr_t ipv6[2];

static void fill_records()
{
    for (kel_sockaddr_t &record : ipv4) {
        REQUIRE(kel_addr_fill(0, &record, KEL_AF_INET, PORT_IN_TEXT, IPV4_TEXT, 0, nullptr) == KEL_OK);
    }
    for (kel_sockaddr_t &record : ipv6) {
        REQUIRE(kel_addr_fill(0, &record, KEL_AF_INET6, PORT_IN_TEXT, IPV6_TEXT, 0, nullptr) == KEL_OK);
    }
}

static void ipv4_to_text()
{
    char text[INET_ADDRSTRLEN];
    REQUIRE(kel_inet_ntop(KEL_AF_INET, &ipv4[0], text, sizeof(text)) != nullptr);
    keep(text);
}

static void ipv6_to_text()
{
    char text[INET6_ADDRSTRLEN];
    REQUIRE(kel_inet_ntop(KEL_AF_INET6, &ipv6[0], text, sizeof(text)) != nullptr);
    keep(text);
}

static void ipv4_line()
{
    CHAR line[100];
    keep(*kel_addr_showstr(&ipv4[0], line, sizeof(line)));
}

static void ipv6_line()
{
    CHAR line[100];
    keep(*kel_addr_showstr(&ipv6[0], line, sizeof(line)));
}

static void ipv4_compare()
{
    REQUIRE(kel_sock_addr_cmp(&ipv4[0], &ipv4[1], KEL_FALSE) == KEL_OK);
}

static void ipv6_compare()
{
    REQUIRE(kel_sock_addr_cmp(&ipv6[0], &ipv6[1], KEL_FALSE) == KEL_OK);
}

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, nullptr),        OPERATION(tcp_server_ipv6, nullptr),
    OPERATION(tcp_client, find_server),         OPERATION(udp_server, nullptr),
    OPERATION(local_server, choose_path),       OPERATION(send_recv, open_pair),
    OPERATION(sendto_recvfrom, open_datagrams), OPERATION(ipv4_from_text, nullptr),
    OPERATION(ipv6_from_text, nullptr),         OPERATION(ipv4_record_from_text, nullptr),
    OPERATION(ipv6_record_from_text, nullptr),  OPERATION(ipv4_to_text, fill_records),
    OPERATION(ipv6_to_text, fill_records),      OPERATION(ipv4_line, fill_records),
    OPERATION(ipv6_line, fill_records),         OPERATION(ipv4_compare, fill_records),
    OPERATION(ipv6_compare, fill_records),      {nullptr, nullptr, nullptr},
};
