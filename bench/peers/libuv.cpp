/* The work with libuv. What waits in the hand-written work, and the end of every handle, runs through the loop here. */
#include "work.h"

#include <arpa/inet.h>
#include <uv.h>

static uv_loop_t *loop;

static void start()
{
    loop = uv_default_loop();
    REQUIRE(loop != nullptr);
}

static sockaddr_in ipv4_record(const char *text, int port)
{
    sockaddr_in record;
    REQUIRE(uv_ip4_addr(text, port, &record) == 0);
    return record;
}

static sockaddr_in6 ipv6_record(const char *text, int port)
{
    sockaddr_in6 record;
    REQUIRE(uv_ip6_addr(text, port, &record) == 0);
    return record;
}

template <typename Record> static const sockaddr *generic(const Record &record)
{
    return reinterpret_cast<const sockaddr *>(&record);
}

/* ---- Endpoints ---- */

static uv_any_handle endpoint;

/* The loop ends when no handle is left, that is, when this one has been closed. */
static void close_endpoint()
{
    uv_close(&endpoint.handle, nullptr);
    REQUIRE(uv_run(loop, UV_RUN_DEFAULT) == 0);
}

/* No client comes. */
static void on_connection(uv_stream_t *, int)
{
}

template <typename Record> static void serve_tcp(const Record &record)
{
    REQUIRE(uv_tcp_init(loop, &endpoint.tcp) == 0);
    REQUIRE(uv_tcp_bind(&endpoint.tcp, generic(record), 0) == 0);
    REQUIRE(uv_listen(&endpoint.stream, BACKLOG, on_connection) == 0);
    close_endpoint();
}

static void tcp_server_ipv4()
{
    serve_tcp(ipv4_record(IPV4_LOOPBACK, 0));
}

static void tcp_server_ipv6()
{
    serve_tcp(ipv6_record(IPV6_LOOPBACK, 0));
}

static void start_with_server()
{
    find_server();
    start();
}

static void on_connect(uv_connect_t *, int status)
{
    REQUIRE(status == 0);
    uv_close(&endpoint.handle, nullptr);
}

static void tcp_client()
{
    uv_connect_t request;
    REQUIRE(uv_tcp_init(loop, &endpoint.tcp) == 0);
    sockaddr_in record = ipv4_record(IPV4_LOOPBACK, server_port);
    REQUIRE(uv_tcp_connect(&request, &endpoint.tcp, generic(record), on_connect) == 0);
    REQUIRE(uv_run(loop, UV_RUN_DEFAULT) == 0);
}

static void open_udp_server(uv_udp_t *server)
{
    REQUIRE(uv_udp_init(loop, server) == 0);
    sockaddr_in record = ipv4_record(IPV4_LOOPBACK, 0);
    REQUIRE(uv_udp_bind(server, generic(record), 0) == 0);
}

static void udp_server()
{
    open_udp_server(&endpoint.udp);
    close_endpoint();
}

static void start_with_path()
{
    choose_path();
    start();
}

/* The library itself removes the path of a local socket that it closes. */
static void local_server()
{
    REQUIRE(uv_pipe_init(loop, &endpoint.pipe, 0) == 0);
    REQUIRE(uv_pipe_bind(&endpoint.pipe, path) == 0);
    REQUIRE(uv_listen(&endpoint.stream, BACKLOG, on_connection) == 0);
    close_endpoint();
}

/* ---- Transfers: reading is switched on once, and a round runs the loop until its data has come ---- */

/* Larger than what arrives: after a read that fills the buffer, the library reads once more. */
static char arrival[2 * DATAGRAM];
static ssize_t arrived;

static void on_buffer(uv_handle_t *, size_t, uv_buf_t *buffer)
{
    *buffer = uv_buf_init(arrival, sizeof(arrival));
}

static uv_any_handle pair[2];

static void on_read(uv_stream_t *, ssize_t count, const uv_buf_t *)
{
    arrived += count;
}

static void open_pair()
{
    uv_os_sock_t sockets[2];
    start();
    REQUIRE(uv_socketpair(SOCK_STREAM, 0, sockets, UV_NONBLOCK_PIPE, UV_NONBLOCK_PIPE) == 0);
    for (int i = 0; i < 2; i++) {
        REQUIRE(uv_pipe_init(loop, &pair[i].pipe, 0) == 0);
        REQUIRE(uv_pipe_open(&pair[i].pipe, sockets[i]) == 0);
    }
    REQUIRE(uv_read_start(&pair[1].stream, on_buffer, on_read) == 0);
}

static void send_recv()
{
    char byte = 'x';
    uv_buf_t buffer = uv_buf_init(&byte, 1);
    arrived = 0;
    REQUIRE(uv_try_write(&pair[0].stream, &buffer, 1) == 1);
    while (arrived == 0) {
        uv_run(loop, UV_RUN_ONCE);
    }
    REQUIRE(arrived == 1);
}

static uv_udp_t datagrams;
static sockaddr_in own;
static sockaddr_in from;

/* Called with no count and no sender when there is nothing more to read. */
static void on_datagram(uv_udp_t *, ssize_t count, const uv_buf_t *, const sockaddr *sender, unsigned)
{
    if (sender != nullptr) {
        from = *reinterpret_cast<const sockaddr_in *>(sender);
        arrived += count;
    }
}

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    start();
    open_udp_server(&datagrams);
    int length = sizeof(own);
    REQUIRE(uv_udp_getsockname(&datagrams, reinterpret_cast<sockaddr *>(&own), &length) == 0);
    REQUIRE(uv_udp_recv_start(&datagrams, on_buffer, on_datagram) == 0);
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    uv_buf_t buffer = uv_buf_init(datagram, sizeof(datagram));
    arrived = 0;
    REQUIRE(uv_udp_try_send(&datagrams, &buffer, 1, generic(own)) == DATAGRAM);
    while (arrived == 0) {
        uv_run(loop, UV_RUN_ONCE);
    }
    REQUIRE(arrived == DATAGRAM);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    in_addr address;
    REQUIRE(uv_inet_pton(AF_INET, IPV4_TEXT, &address) == 0);
    keep(address);
}

static void ipv6_from_text()
{
    in6_addr address;
    REQUIRE(uv_inet_pton(AF_INET6, IPV6_TEXT, &address) == 0);
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

static sockaddr_in ipv4;
static sockaddr_in6 ipv6;

static void fill_records()
{
    ipv4 = ipv4_record(IPV4_TEXT, PORT_IN_TEXT);
    ipv6 = ipv6_record(IPV6_TEXT, PORT_IN_TEXT);
}

static void ipv4_to_text()
{
    char text[INET_ADDRSTRLEN];
    REQUIRE(uv_ip4_name(&ipv4, text, sizeof(text)) == 0);
    keep(text);
}

static void ipv6_to_text()
{
    char text[INET6_ADDRSTRLEN];
    REQUIRE(uv_ip6_name(&ipv6, text, sizeof(text)) == 0);
    keep(text);
}

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, start),          OPERATION(tcp_server_ipv6, start),
    OPERATION(tcp_client, start_with_server),   OPERATION(udp_server, start),
    OPERATION(local_server, start_with_path),   OPERATION(send_recv, open_pair),
    OPERATION(sendto_recvfrom, open_datagrams), OPERATION(ipv4_from_text, nullptr),
    OPERATION(ipv6_from_text, nullptr),         OPERATION(ipv4_record_from_text, nullptr),
    OPERATION(ipv6_record_from_text, nullptr),  OPERATION(ipv4_to_text, fill_records),
    OPERATION(ipv6_to_text, fill_records),      NO_OPERATION(ipv4_line, NO_LINE),
    NO_OPERATION(ipv6_line, NO_LINE),           NO_OPERATION(ipv4_compare, NO_COMPARISON),
    NO_OPERATION(ipv6_compare, NO_COMPARISON),  {nullptr, nullptr, nullptr},
};
