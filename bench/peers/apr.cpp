/*
 * The work with APR. What a round allocates comes from one pool that the round clears at its end, which closes the
 * round's socket, too.
 */
#include "work.h"

#include <apr_general.h>
#include <apr_network_io.h>
#include <apr_pools.h>
#include <apr_strings.h>
#include <arpa/inet.h>
#include <stdlib.h>

static apr_pool_t *lasting;
static apr_pool_t *round_pool;

static void start()
{
    REQUIRE(apr_initialize() == APR_SUCCESS);
    atexit(apr_terminate);
    REQUIRE(apr_pool_create(&lasting, nullptr) == APR_SUCCESS);
    REQUIRE(apr_pool_create(&round_pool, lasting) == APR_SUCCESS);
}

static apr_sockaddr_t *resolve(apr_pool_t *pool, int family, const char *text, apr_port_t port)
{
    apr_sockaddr_t *address;
    REQUIRE(apr_sockaddr_info_get(&address, text, family, port, 0, pool) == APR_SUCCESS);
    return address;
}

static apr_socket_t *create(apr_pool_t *pool, int family, int type)
{
    apr_socket_t *socket;
    REQUIRE(apr_socket_create(&socket, family, type, 0, pool) == APR_SUCCESS);
    return socket;
}

static apr_socket_t *create_bound(apr_pool_t *pool, int family, int type, const char *text)
{
    apr_socket_t *socket = create(pool, family, type);
    REQUIRE(apr_socket_bind(socket, resolve(pool, family, text, 0)) == APR_SUCCESS);
    return socket;
}

static apr_socket_t *create_listening(apr_pool_t *pool, int family, const char *text)
{
    apr_socket_t *socket = create_bound(pool, family, SOCK_STREAM, text);
    REQUIRE(apr_socket_listen(socket, BACKLOG) == APR_SUCCESS);
    return socket;
}

static apr_socket_t *create_connected(apr_pool_t *pool, int family, const char *text, apr_port_t port)
{
    apr_socket_t *socket = create(pool, family, SOCK_STREAM);
    REQUIRE(apr_socket_connect(socket, resolve(pool, family, text, port)) == APR_SUCCESS);
    return socket;
}

/* ---- Endpoints ---- */

static void tcp_server_ipv4()
{
    create_listening(round_pool, APR_INET, IPV4_LOOPBACK);
    apr_pool_clear(round_pool);
}

static void tcp_server_ipv6()
{
    create_listening(round_pool, APR_INET6, IPV6_LOOPBACK);
    apr_pool_clear(round_pool);
}

static void start_with_server()
{
    find_server();
    start();
}

static void tcp_client()
{
    create_connected(round_pool, APR_INET, IPV4_LOOPBACK, server_port);
    apr_pool_clear(round_pool);
}

static void udp_server()
{
    create_bound(round_pool, APR_INET, SOCK_DGRAM, IPV4_LOOPBACK);
    apr_pool_clear(round_pool);
}

static void start_with_path()
{
    choose_path();
    start();
}

/* The library itself removes the path of a local socket that it bound and closes. */
static void local_server()
{
    create_listening(round_pool, APR_UNIX, path);
    apr_pool_clear(round_pool);
}

/* ---- Transfers ---- */

static apr_socket_t *pair[2];

/* There is no call for a pair: a local server and its client are one. */
static void open_pair()
{
    start_with_path();
    apr_socket_t *server = create_listening(lasting, APR_UNIX, path);
    pair[0] = create_connected(lasting, APR_UNIX, path, 0);
    REQUIRE(apr_socket_accept(&pair[1], server, lasting) == APR_SUCCESS);
}

static void send_recv()
{
    char byte = 'x';
    apr_size_t sent = 1;
    apr_size_t received = 1;
    REQUIRE(apr_socket_send(pair[0], &byte, &sent) == APR_SUCCESS && sent == 1);
    REQUIRE(apr_socket_recv(pair[1], &byte, &received) == APR_SUCCESS && received == 1);
}

static apr_socket_t *datagrams;
static apr_sockaddr_t *own;
static apr_sockaddr_t *from;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    start();
    datagrams = create_bound(lasting, APR_INET, SOCK_DGRAM, IPV4_LOOPBACK);
    REQUIRE(apr_socket_addr_get(&own, APR_LOCAL, datagrams) == APR_SUCCESS);
    from = resolve(lasting, APR_INET, nullptr, 0);
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    apr_size_t sent = sizeof(datagram);
    apr_size_t received = sizeof(datagram);
    REQUIRE(apr_socket_sendto(datagrams, own, 0, datagram, &sent) == APR_SUCCESS && sent == DATAGRAM);
    REQUIRE(apr_socket_recvfrom(from, datagrams, 0, datagram, &received) == APR_SUCCESS && received == DATAGRAM);
}

/* ---- Addresses: there is one record, with a port, and one call that fills it from text ---- */

static void ipv4_from_text()
{
    keep(*resolve(round_pool, APR_INET, IPV4_TEXT, 0));
    apr_pool_clear(round_pool);
}

static void ipv6_from_text()
{
    keep(*resolve(round_pool, APR_INET6, IPV6_TEXT, 0));
    apr_pool_clear(round_pool);
}

static void ipv4_record_from_text()
{
    keep(*resolve(round_pool, APR_INET, IPV4_TEXT, PORT_IN_TEXT));
    apr_pool_clear(round_pool);
}

static void ipv6_record_from_text()
{
    keep(*resolve(round_pool, APR_INET6, IPV6_TEXT, PORT_IN_TEXT));
    apr_pool_clear(round_pool);
}

static apr_sockaddr_t *ipv4[2];
static apr_sockaddr_t *ipv6[2];

static void fill_records()
{
    start();
    for (apr_sockaddr_t *&record : ipv4) {
        record = resolve(lasting, APR_INET, IPV4_TEXT, PORT_IN_TEXT);
    }
    for (apr_sockaddr_t *&record : ipv6) {
        record = resolve(lasting, APR_INET6, IPV6_TEXT, PORT_IN_TEXT);
    }
}

static void ipv4_to_text()
{
    char text[INET_ADDRSTRLEN];
    REQUIRE(apr_sockaddr_ip_getbuf(text, sizeof(text), ipv4[0]) == APR_SUCCESS);
    keep(text);
}

static void ipv6_to_text()
{
    char text[INET6_ADDRSTRLEN];
    REQUIRE(apr_sockaddr_ip_getbuf(text, sizeof(text), ipv6[0]) == APR_SUCCESS);
    keep(text);
}

static void ipv4_line()
{
    char line[100];
    apr_snprintf(line, sizeof(line), "%pI", ipv4[0]);
    keep(line);
}

static void ipv6_line()
{
    char line[100];
    apr_snprintf(line, sizeof(line), "%pI", ipv6[0]);
    keep(line);
}

/* The ports are not compared: the library has no call that does. */
static void ipv4_compare()
{
    REQUIRE(apr_sockaddr_equal(ipv4[0], ipv4[1]));
}

static void ipv6_compare()
{
    REQUIRE(apr_sockaddr_equal(ipv6[0], ipv6[1]));
}

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, start),
    OPERATION(tcp_server_ipv6, start),
    OPERATION(tcp_client, start_with_server),
    OPERATION(udp_server, start),
    OPERATION(local_server, start_with_path),
    OPERATION(send_recv, open_pair),
    OPERATION(sendto_recvfrom, open_datagrams),
    OPERATION(ipv4_from_text, start),
    OPERATION(ipv6_from_text, start),
    OPERATION(ipv4_record_from_text, start),
    OPERATION(ipv6_record_from_text, start),
    OPERATION(ipv4_to_text, fill_records),
    OPERATION(ipv6_to_text, fill_records),
    OPERATION(ipv4_line, fill_records, WITHOUT_FAMILY),
    OPERATION(ipv6_line, fill_records, WITHOUT_FAMILY),
    OPERATION(ipv4_compare, fill_records, WITHOUT_PORTS),
    OPERATION(ipv6_compare, fill_records, WITHOUT_PORTS),
    {nullptr, nullptr, nullptr},
};
