/* The work with GLib's GSocket. */
#include "work.h"

#include <gio/gio.h>
#include <gio/gunixsocketaddress.h>
#include <glib/gstdio.h>

static GInetAddress *fill_address(const char *text)
{
    GInetAddress *address = g_inet_address_new_from_string(text);
    REQUIRE(address != nullptr);
    return address;
}

/* In two steps: g_inet_socket_address_new_from_string() does the same in one, at a higher cost for IPv6. */
static GSocketAddress *fill_record(const char *text, guint16 port)
{
    GInetAddress *address = fill_address(text);
    GSocketAddress *record = g_inet_socket_address_new(address, port);
    g_object_unref(address);
    return record;
}

static GSocket *create(GSocketFamily family, GSocketType type)
{
    GSocket *socket = g_socket_new(family, type, G_SOCKET_PROTOCOL_DEFAULT, nullptr);
    REQUIRE(socket != nullptr);
    return socket;
}

/* Takes the record over. */
static GSocket *create_listening(GSocketFamily family, GSocketAddress *record)
{
    GSocket *socket = create(family, G_SOCKET_TYPE_STREAM);
    REQUIRE(g_socket_bind(socket, record, TRUE, nullptr));
    g_object_unref(record);
    g_socket_set_listen_backlog(socket, BACKLOG);
    REQUIRE(g_socket_listen(socket, nullptr));
    return socket;
}

/* Takes the record over. */
static GSocket *create_connected(GSocketFamily family, GSocketAddress *record)
{
    GSocket *socket = create(family, G_SOCKET_TYPE_STREAM);
    REQUIRE(g_socket_connect(socket, record, nullptr, nullptr));
    g_object_unref(record);
    return socket;
}

static GSocket *create_udp_server()
{
    GSocket *socket = create(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_DATAGRAM);
    GSocketAddress *record = fill_record(IPV4_LOOPBACK, 0);
    REQUIRE(g_socket_bind(socket, record, FALSE, nullptr));
    g_object_unref(record);
    return socket;
}

/* ---- Endpoints: the end of the last reference closes the socket ---- */

static void tcp_server_ipv4()
{
    g_object_unref(create_listening(G_SOCKET_FAMILY_IPV4, fill_record(IPV4_LOOPBACK, 0)));
}

static void tcp_server_ipv6()
{
    g_object_unref(create_listening(G_SOCKET_FAMILY_IPV6, fill_record(IPV6_LOOPBACK, 0)));
}

static void tcp_client()
{
    g_object_unref(create_connected(G_SOCKET_FAMILY_IPV4, fill_record(IPV4_LOOPBACK, server_port)));
}

static void udp_server()
{
    g_object_unref(create_udp_server());
}

static void local_server()
{
    g_unlink(path);
    g_object_unref(create_listening(G_SOCKET_FAMILY_UNIX, g_unix_socket_address_new(path)));
}

/* ---- Transfers ---- */

static GSocket *pair[2];

/* There is no call for a pair: a local server and its client are one. */
static void open_pair()
{
    choose_path();
    GSocket *server = create_listening(G_SOCKET_FAMILY_UNIX, g_unix_socket_address_new(path));
    pair[0] = create_connected(G_SOCKET_FAMILY_UNIX, g_unix_socket_address_new(path));
    pair[1] = g_socket_accept(server, nullptr, nullptr);
    REQUIRE(pair[1] != nullptr);
    g_object_unref(server);
}

static void send_recv()
{
    char byte = 'x';
    REQUIRE(g_socket_send(pair[0], &byte, 1, nullptr, nullptr) == 1);
    REQUIRE(g_socket_receive(pair[1], &byte, 1, nullptr, nullptr) == 1);
}

static GSocket *datagrams;
static GSocketAddress *own;

/* One socket that sends to itself: half the descriptors, the same calls. */
static void open_datagrams()
{
    datagrams = create_udp_server();
    own = g_socket_get_local_address(datagrams, nullptr);
    REQUIRE(own != nullptr);
}

static char datagram[DATAGRAM];

static void sendto_recvfrom()
{
    GSocketAddress *from;
    REQUIRE(g_socket_send_to(datagrams, own, datagram, sizeof(datagram), nullptr, nullptr) == DATAGRAM);
    REQUIRE(g_socket_receive_from(datagrams, &from, datagram, sizeof(datagram), nullptr, nullptr) == DATAGRAM);
    g_object_unref(from);
}

/* ---- Addresses ---- */

static void ipv4_from_text()
{
    g_object_unref(fill_address(IPV4_TEXT));
}

static void ipv6_from_text()
{
    g_object_unref(fill_address(IPV6_TEXT));
}

static void ipv4_record_from_text()
{
    g_object_unref(fill_record(IPV4_TEXT, PORT_IN_TEXT));
}

static void ipv6_record_from_text()
{
    g_object_unref(fill_record(IPV6_TEXT, PORT_IN_TEXT));
}

static GInetAddress *ipv4[2];
static GInetAddress *ipv6[2];

static void fill_addresses()
{
    for (GInetAddress *&address : ipv4) {
        address = fill_address(IPV4_TEXT);
    }
    for (GInetAddress *&address : ipv6) {
        address = fill_address(IPV6_TEXT);
    }
}

static void ipv4_to_text()
{
    char *text = g_inet_address_to_string(ipv4[0]);
    keep(*text);
    g_free(text);
}

static void ipv6_to_text()
{
    char *text = g_inet_address_to_string(ipv6[0]);
    keep(*text);
    g_free(text);
}

static GSocketConnectable *ipv4_record;
static GSocketConnectable *ipv6_record;

static void fill_records()
{
    ipv4_record = G_SOCKET_CONNECTABLE(fill_record(IPV4_TEXT, PORT_IN_TEXT));
    ipv6_record = G_SOCKET_CONNECTABLE(fill_record(IPV6_TEXT, PORT_IN_TEXT));
}

static void ipv4_line()
{
    char *line = g_socket_connectable_to_string(ipv4_record);
    keep(*line);
    g_free(line);
}

static void ipv6_line()
{
    char *line = g_socket_connectable_to_string(ipv6_record);
    keep(*line);
    g_free(line);
}

/* Addresses alone: the library has no call that compares ports, too. */
static void ipv4_compare()
{
    REQUIRE(g_inet_address_equal(ipv4[0], ipv4[1]));
}

static void ipv6_compare()
{
    REQUIRE(g_inet_address_equal(ipv6[0], ipv6[1]));
}

const Operation operations[] = {
    OPERATION(tcp_server_ipv4, nullptr),
    OPERATION(tcp_server_ipv6, nullptr),
    OPERATION(tcp_client, find_server),
    OPERATION(udp_server, nullptr),
    OPERATION(local_server, choose_path),
    OPERATION(send_recv, open_pair),
    OPERATION(sendto_recvfrom, open_datagrams),
    OPERATION(ipv4_from_text, nullptr),
    OPERATION(ipv6_from_text, nullptr),
    OPERATION(ipv4_record_from_text, nullptr),
    OPERATION(ipv6_record_from_text, nullptr),
    OPERATION(ipv4_to_text, fill_addresses),
    OPERATION(ipv6_to_text, fill_addresses),
    OPERATION(ipv4_line, fill_records, WITHOUT_FAMILY),
    OPERATION(ipv6_line, fill_records, WITHOUT_FAMILY),
    OPERATION(ipv4_compare, fill_addresses, WITHOUT_PORTS),
    OPERATION(ipv6_compare, fill_addresses, WITHOUT_PORTS),
    {nullptr, nullptr, nullptr},
};
