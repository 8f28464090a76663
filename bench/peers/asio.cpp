/* The work with Asio, in its synchronous calls. What fails throws, and nothing here catches: that ends the program. */
#include "work.h"

#include <asio.hpp>

#include <sstream>
#include <string>
#include <unistd.h>

using asio::ip::make_address_v4;
using asio::ip::make_address_v6;
using asio::ip::tcp;
using asio::ip::udp;
using local = asio::local::stream_protocol;

/* One thread uses it, so it is told to do without its locks. */
static asio::io_context context(ASIO_CONCURRENCY_HINT_UNSAFE);

/* ---- Endpoints: bound step by step, for the constructors that do it all take no backlog ---- */

template <typename Protocol> static void serve(const typename Protocol::endpoint &endpoint)
{
    typename Protocol::acceptor acceptor(context, endpoint.protocol());
    acceptor.bind(endpoint);
    acceptor.listen(BACKLOG);
    acceptor.close();
}

static void tcp_server_ipv4()
{
    serve<tcp>(tcp::endpoint(make_address_v4(IPV4_LOOPBACK), 0));
}

static void tcp_server_ipv6()
{
    serve<tcp>(tcp::endpoint(make_address_v6(IPV6_LOOPBACK), 0));
}

static void tcp_client()
{
    tcp::socket socket(context);
    socket.connect(tcp::endpoint(make_address_v4(IPV4_LOOPBACK), server_port));
    socket.close();
}

static void udp_server()
{
    udp::socket socket(context, udp::endpoint(make_address_v4(IPV4_LOOPBACK), 0));
    socket.close();
}

static void local_server()
{
    unlink(path);
    serve<local>(local::endpoint(path));
}

/* ---- Transfers ---- */

static local::socket pair[2] = {local::socket(context), local::socket(context)};

static void open_pair()
{
    asio::local::connect_pair(pair[0], pair[1]);
}

static void send_recv()
{
    char byte = 'x';
    REQUIRE(pair[0].send(asio::buffer(&byte, 1)) == 1);
    REQUIRE(pair[1].receive(asio::buffer(&byte, 1)) == 1);
}

static udp::socket datagrams(context);
static udp::endpoint own;
static udp::endpoint from;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    datagrams.open(udp::v4());
    datagrams.bind(udp::endpoint(make_address_v4(IPV4_LOOPBACK), 0));
    own = datagrams.local_endpoint();
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    REQUIRE(datagrams.send_to(asio::buffer(datagram), own) == DATAGRAM);
    REQUIRE(datagrams.receive_from(asio::buffer(datagram), from) == DATAGRAM);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    keep(make_address_v4(IPV4_TEXT));
}

static void ipv6_from_text()
{
    keep(make_address_v6(IPV6_TEXT));
}

static void ipv4_record_from_text()
{
    keep(tcp::endpoint(make_address_v4(IPV4_TEXT), PORT_IN_TEXT));
}

static void ipv6_record_from_text()
{
    keep(tcp::endpoint(make_address_v6(IPV6_TEXT), PORT_IN_TEXT));
}

static asio::ip::address_v4 ipv4_address;
static asio::ip::address_v6 ipv6_address;
static tcp::endpoint ipv4[2];
static tcp::endpoint ipv6[2];

static void fill_records()
{
    ipv4_address = make_address_v4(IPV4_TEXT);
    ipv6_address = make_address_v6(IPV6_TEXT);
    ipv4[0] = ipv4[1] = tcp::endpoint(ipv4_address, PORT_IN_TEXT);
    ipv6[0] = ipv6[1] = tcp::endpoint(ipv6_address, PORT_IN_TEXT);
}

static void ipv4_to_text()
{
    keep(ipv4_address.to_string());
}

static void ipv6_to_text()
{
    keep(ipv6_address.to_string());
}

/* The only call that makes a line writes it to a stream: one that is there already, and empty again each time. */
static std::ostringstream stream;

static void line(const tcp::endpoint &endpoint)
{
    stream.str({});
    stream << endpoint;
    keep(stream);
}

static void ipv4_line()
{
    line(ipv4[0]);
}

static void ipv6_line()
{
    line(ipv6[0]);
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

static const char ONE_THREAD[] = "told that one thread uses it, which spares it most of its locks";

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, nullptr, ONE_THREAD),
    OPERATION(tcp_server_ipv6, nullptr, ONE_THREAD),
    OPERATION(tcp_client, find_server, ONE_THREAD),
    OPERATION(udp_server, nullptr, ONE_THREAD),
    OPERATION(local_server, choose_path, ONE_THREAD),
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
