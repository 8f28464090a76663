/*
 * The work by hand, as who knows the socket interface writes it: no more checks than the system's own. With OPTIONS,
 * the options that the module puts on every socket are set, too: that is the limit of what the module can reach.
 */
#include "work.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static int create(int family, int type)
{
    int fd = socket(family, type, 0);
    REQUIRE(fd >= 0);
#ifdef OPTIONS
    const int on = 1;
    REQUIRE(setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0);
    if (family == AF_INET6) {
        REQUIRE(setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on)) == 0);
    }
#endif
    return fd;
}

static sockaddr_in ipv4_record(const char *text, unsigned short port)
{
    sockaddr_in record = {};
    record.sin_family = AF_INET;
    record.sin_port = htons(port);
    REQUIRE(inet_pton(AF_INET, text, &record.sin_addr) == 1);
    return record;
}

static sockaddr_in6 ipv6_record(const char *text, unsigned short port)
{
    sockaddr_in6 record = {};
    record.sin6_family = AF_INET6;
    record.sin6_port = htons(port);
    REQUIRE(inet_pton(AF_INET6, text, &record.sin6_addr) == 1);
    return record;
}

template <typename Record> const sockaddr *generic(const Record &record)
{
    return reinterpret_cast<const sockaddr *>(&record);
}

template <typename Record> sockaddr *generic(Record &record)
{
    return reinterpret_cast<sockaddr *>(&record);
}

/* ---- Endpoints ---- */

static void tcp_server_ipv4()
{
    int fd = create(AF_INET, SOCK_STREAM);
    sockaddr_in record = ipv4_record(IPV4_LOOPBACK, 0);
    REQUIRE(bind(fd, generic(record), sizeof(record)) == 0);
    REQUIRE(listen(fd, BACKLOG) == 0);
    close(fd);
}

static void tcp_server_ipv6()
{
    int fd = create(AF_INET6, SOCK_STREAM);
    sockaddr_in6 record = ipv6_record(IPV6_LOOPBACK, 0);
    REQUIRE(bind(fd, generic(record), sizeof(record)) == 0);
    REQUIRE(listen(fd, BACKLOG) == 0);
    close(fd);
}

static void tcp_client()
{
    int fd = create(AF_INET, SOCK_STREAM);
    sockaddr_in record = ipv4_record(IPV4_LOOPBACK, server_port);
    REQUIRE(connect(fd, generic(record), sizeof(record)) == 0);
    close(fd);
}

static void udp_server()
{
    int fd = create(AF_INET, SOCK_DGRAM);
    sockaddr_in record = ipv4_record(IPV4_LOOPBACK, 0);
    REQUIRE(bind(fd, generic(record), sizeof(record)) == 0);
    close(fd);
}

static void local_server()
{
    int fd = create(AF_UNIX, SOCK_STREAM);
    sockaddr_un record = {};
    record.sun_family = AF_UNIX;
    strncpy(record.sun_path, path, sizeof(record.sun_path) - 1);
    unlink(path);
    REQUIRE(bind(fd, generic(record), sizeof(record)) == 0);
    REQUIRE(listen(fd, BACKLOG) == 0);
    close(fd);
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
    REQUIRE(send(pair[0], &byte, 1, 0) == 1);
    REQUIRE(recv(pair[1], &byte, 1, 0) == 1);
}

static int datagrams;
static sockaddr_in own;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    datagrams = create(AF_INET, SOCK_DGRAM);
    own = ipv4_record(IPV4_LOOPBACK, 0);
    socklen_t length = sizeof(own);
    REQUIRE(bind(datagrams, generic(own), length) == 0);
    REQUIRE(getsockname(datagrams, generic(own), &length) == 0);
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    sockaddr_in from;
    socklen_t length = sizeof(from);
    REQUIRE(sendto(datagrams, datagram, sizeof(datagram), 0, generic(own), sizeof(own)) == DATAGRAM);
    REQUIRE(recvfrom(datagrams, datagram, sizeof(datagram), 0, generic(from), &length) == DATAGRAM);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    in_addr address;
    REQUIRE(inet_pton(AF_INET, IPV4_TEXT, &address) == 1);
    keep(address);
}

static void ipv6_from_text()
{
    in6_addr address;
    REQUIRE(inet_pton(AF_INET6, IPV6_TEXT, &address) == 1);
    keep(address);
}

static void ipv4_record_from_text()
{
    keep(ipv4_record(IPV4_TEXT, PORT_IN_TEXT));
}

static void ipv6_record_from_text()
{
    keep(ipv6_record(IPV6_TEXT, PORT_IN_TEXT));
}

static sockaddr_in ipv4[2];
static sockaddr_in6 ipv6[2];

static void fill_records()
{
    ipv4[0] = ipv4[1] = ipv4_record(IPV4_TEXT, PORT_IN_TEXT);
    ipv6[0] = ipv6[1] = ipv6_record(IPV6_TEXT, PORT_IN_TEXT);
}

static void ipv4_to_text()
{
    char text[INET_ADDRSTRLEN];
    REQUIRE(inet_ntop(AF_INET, &ipv4[0].sin_addr, text, sizeof(text)) != nullptr);
    keep(text);
}

static void ipv6_to_text()
{
    char text[INET6_ADDRSTRLEN];
    REQUIRE(inet_ntop(AF_INET6, &ipv6[0].sin6_addr, text, sizeof(text)) != nullptr);
    keep(text);
}

static void ipv4_line()
{
    char text[INET_ADDRSTRLEN];
    char line[100];
    snprintf(line, sizeof(line), "ipv4 %s:%d", inet_ntop(AF_INET, &ipv4[0].sin_addr, text, sizeof(text)),
             ntohs(ipv4[0].sin_port));
    keep(line);
}

static void ipv6_line()
{
    char text[INET6_ADDRSTRLEN];
    char line[100];
    snprintf(line, sizeof(line), "ipv6 %s:%d", inet_ntop(AF_INET6, &ipv6[0].sin6_addr, text, sizeof(text)),
             ntohs(ipv6[0].sin6_port));
    keep(line);
}

static void ipv4_compare()
{
    keep(ipv4);
    REQUIRE(ipv4[0].sin_family == ipv4[1].sin_family && ipv4[0].sin_port == ipv4[1].sin_port &&
            memcmp(&ipv4[0].sin_addr, &ipv4[1].sin_addr, sizeof(in_addr)) == 0);
}

static void ipv6_compare()
{
    keep(ipv6);
    REQUIRE(ipv6[0].sin6_family == ipv6[1].sin6_family && ipv6[0].sin6_port == ipv6[1].sin6_port &&
            memcmp(&ipv6[0].sin6_addr, &ipv6[1].sin6_addr, sizeof(in6_addr)) == 0);
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
