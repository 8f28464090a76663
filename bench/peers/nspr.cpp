/* The work with NSPR. */
#include "work.h"

#include <arpa/inet.h>
#include <prinit.h>
#include <prio.h>
#include <prnetdb.h>
#include <string.h>

static void start()
{
    PR_Init(PR_USER_THREAD, PR_PRIORITY_NORMAL, 0);
}

/* The text gives family and address and leaves the port; PR_IpAddrNull sets the port and leaves the address. */
static PRNetAddr fill_record(PRUint16 family, const char *text, PRUint16 port)
{
    PRNetAddr record;
    REQUIRE(PR_StringToNetAddr(text, &record) == PR_SUCCESS);
    REQUIRE(PR_SetNetAddr(PR_IpAddrNull, family, port, &record) == PR_SUCCESS);
    return record;
}

static PRFileDesc *open_tcp(PRIntn family)
{
    PRFileDesc *socket = PR_OpenTCPSocket(family);
    REQUIRE(socket != nullptr);
    return socket;
}

static PRFileDesc *open_udp_server()
{
    PRFileDesc *socket = PR_OpenUDPSocket(PR_AF_INET);
    REQUIRE(socket != nullptr);
    PRNetAddr record = fill_record(PR_AF_INET, IPV4_LOOPBACK, 0);
    REQUIRE(PR_Bind(socket, &record) == PR_SUCCESS);
    return socket;
}

static void bind_and_listen(PRFileDesc *socket, const PRNetAddr &record)
{
    REQUIRE(PR_Bind(socket, &record) == PR_SUCCESS);
    REQUIRE(PR_Listen(socket, BACKLOG) == PR_SUCCESS);
}

/* ---- Endpoints ---- */

static void tcp_server_ipv4()
{
    PRFileDesc *socket = open_tcp(PR_AF_INET);
    bind_and_listen(socket, fill_record(PR_AF_INET, IPV4_LOOPBACK, 0));
    PR_Close(socket);
}

static void tcp_server_ipv6()
{
    PRFileDesc *socket = open_tcp(PR_AF_INET6);
    bind_and_listen(socket, fill_record(PR_AF_INET6, IPV6_LOOPBACK, 0));
    PR_Close(socket);
}

static void start_with_server()
{
    find_server();
    start();
}

static void tcp_client()
{
    PRFileDesc *socket = open_tcp(PR_AF_INET);
    PRNetAddr record = fill_record(PR_AF_INET, IPV4_LOOPBACK, server_port);
    REQUIRE(PR_Connect(socket, &record, PR_INTERVAL_NO_TIMEOUT) == PR_SUCCESS);
    PR_Close(socket);
}

static void udp_server()
{
    PR_Close(open_udp_server());
}

static void start_with_path()
{
    choose_path();
    start();
}

static void local_server()
{
    PRFileDesc *socket = open_tcp(PR_AF_LOCAL);
    PRNetAddr record = {};
    record.local.family = PR_AF_LOCAL;
    strncpy(record.local.path, path, sizeof(record.local.path) - 1);
    PR_Delete(path);
    bind_and_listen(socket, record);
    PR_Close(socket);
}

/* ---- Transfers ---- */

static PRFileDesc *pair[2];

static void open_pair()
{
    start();
    REQUIRE(PR_NewTCPSocketPair(pair) == PR_SUCCESS);
}

static void send_recv()
{
    char byte = 'x';
    REQUIRE(PR_Send(pair[0], &byte, 1, 0, PR_INTERVAL_NO_TIMEOUT) == 1);
    REQUIRE(PR_Recv(pair[1], &byte, 1, 0, PR_INTERVAL_NO_TIMEOUT) == 1);
}

static PRFileDesc *datagrams;
static PRNetAddr own;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    start();
    datagrams = open_udp_server();
    REQUIRE(PR_GetSockName(datagrams, &own) == PR_SUCCESS);
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    PRNetAddr from;
    REQUIRE(PR_SendTo(datagrams, datagram, sizeof(datagram), 0, &own, PR_INTERVAL_NO_TIMEOUT) == DATAGRAM);
    REQUIRE(PR_RecvFrom(datagrams, datagram, sizeof(datagram), 0, &from, PR_INTERVAL_NO_TIMEOUT) == DATAGRAM);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    PRNetAddr record;
    REQUIRE(PR_StringToNetAddr(IPV4_TEXT, &record) == PR_SUCCESS);
    keep(record);
}

static void ipv6_from_text()
{
    PRNetAddr record;
    REQUIRE(PR_StringToNetAddr(IPV6_TEXT, &record) == PR_SUCCESS);
    keep(record);
}

static void ipv4_record_from_text()
{
    keep(fill_record(PR_AF_INET, IPV4_TEXT, PORT_IN_TEXT));
}

static void ipv6_record_from_text()
{
    keep(fill_record(PR_AF_INET6, IPV6_TEXT, PORT_IN_TEXT));
}

static PRNetAddr ipv4;
static PRNetAddr ipv6;

static void fill_records()
{
    start();
    ipv4 = fill_record(PR_AF_INET, IPV4_TEXT, PORT_IN_TEXT);
    ipv6 = fill_record(PR_AF_INET6, IPV6_TEXT, PORT_IN_TEXT);
}

static void ipv4_to_text()
{
    char text[INET_ADDRSTRLEN];
    REQUIRE(PR_NetAddrToString(&ipv4, text, sizeof(text)) == PR_SUCCESS);
    keep(text);
}

static void ipv6_to_text()
{
    char text[INET6_ADDRSTRLEN];
    REQUIRE(PR_NetAddrToString(&ipv6, text, sizeof(text)) == PR_SUCCESS);
    keep(text);
}

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, start),          OPERATION(tcp_server_ipv6, start),
    OPERATION(tcp_client, start_with_server),   OPERATION(udp_server, start),
    OPERATION(local_server, start_with_path),   OPERATION(send_recv, open_pair),
    OPERATION(sendto_recvfrom, open_datagrams), OPERATION(ipv4_from_text, start),
    OPERATION(ipv6_from_text, start),           OPERATION(ipv4_record_from_text, start),
    OPERATION(ipv6_record_from_text, start),    OPERATION(ipv4_to_text, fill_records),
    OPERATION(ipv6_to_text, fill_records),      NO_OPERATION(ipv4_line, NO_LINE),
    NO_OPERATION(ipv6_line, NO_LINE),           NO_OPERATION(ipv4_compare, NO_COMPARISON),
    NO_OPERATION(ipv6_compare, NO_COMPARISON),  {nullptr, nullptr, nullptr},
};
