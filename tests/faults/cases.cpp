/*
 * What the explorer calls: every function, with every kind of argument that changes its path. One line serves the
 * module and the model.
 */
#include <errno.h>
#include <string.h>

#include "explorer.h"
#include "kel_module.h"
#include "kel_prv_socket.h"
#include "model.h"

/* The module's own function: the shared library keeps it to itself, and there it is not called. */
extern "C" __attribute__((weak)) int Match_RegExpPattern(const char *inputpattern, char *inputbuf, int matchmode);

/* The platform's registry, answered as the system is. */
extern "C" LONG KEL_module_register(const char *name, kel_module_t *record)
{
    const kel_module_t zero = {};
    const bool is_zero = memcmp(record, &zero, sizeof(zero)) == 0;
    return sys::answered("KEL_module_register", std::string(name) + ", " + (is_zero ? "zero" : "written"), KEL_OK);
}

namespace
{

std::string outcome(LONG result)
{
    return std::to_string(result);
}

std::string outcome(const CHAR *result)
{
    return result == nullptr ? "null" : result == caller.text ? "the caller's text" : '"' + std::string(result) + '"';
}

void nothing(Caller &)
{
}

/* Descriptors, flags and the like travel in 64 bits, of which the system gets the low half. */
constexpr LONG wide(int low)
{
    return (1L << 32) + low;
}

constexpr kel_domain_t INET = KEL_AF_INET, INET6 = KEL_AF_INET6, UNIX = KEL_AF_UNIX, PACKET = KEL_AF_PACKET;
constexpr kel_domain_t UNKNOWN = (kel_domain_t)3;
constexpr kel_socktype_t STREAM = KEL_SOCK_STREAM, DGRAM = KEL_SOCK_DGRAM, RAW = KEL_SOCK_RAW;
constexpr SHORT PORT = 8080, HIGH_PORT = (SHORT)40000;
const CHAR *const BAD = "1.2.3.256";
const CHAR *const PATH = "/run/server";
const CHAR *const LONG_PATH = "/run/0123456789/0123456789/0123456789/0123456789/0123456789/0123456789/0123456789/"
                              "0123456789/0123456789/0123456789";
const CHAR *const IF_NAME = "eth9";
const CHAR *const LONG_IF_NAME = "an-interface-with-a-long-name";
CHAR ipv4_text[] = "10.1.2.3", ipv6_text[] = "fe80::1", no_text[] = "here";

} // namespace

const std::vector<Case> &cases()
{
#define TRY(brief, prepare, function, ...)                                                                             \
    {#function,                                                                                                        \
     #__VA_ARGS__,                                                                                                     \
     brief,                                                                                                            \
     prepare,                                                                                                          \
     [] { return outcome(::function(__VA_ARGS__)); },                                                                  \
     [](Model &model) { return outcome(model.function(__VA_ARGS__)); }}
#define EVERY(function, ...) TRY(false, nothing, function, __VA_ARGS__) /* with every answer of every call */
#define BRIEF(function, ...) TRY(true, nothing, function, __VA_ARGS__)
#define WITH(change, function, ...) TRY(true, [](Caller &c) { change; }, function, __VA_ARGS__)

    static std::vector<Case> all = {
        EVERY(socket_module_init),

        EVERY(kel_sizeof_socket, &caller.inet),
        EVERY(kel_sizeof_socket, &caller.inet6),
        EVERY(kel_sizeof_socket, &caller.local),
        EVERY(kel_sizeof_socket, &caller.packet),
        EVERY(kel_sizeof_socket, &caller.strange),
        EVERY(kel_sizeof_socket, &caller.record),

        EVERY(kel_is_ipv4_addr, ipv4_text),
        EVERY(kel_is_ipv4_addr, no_text),
        EVERY(kel_is_ipv4_addr, nullptr),
        EVERY(kel_is_ipv6_addr, ipv6_text),
        EVERY(kel_is_ipv6_addr, no_text),
        EVERY(kel_is_ipv6_addr, nullptr),

        EVERY(kel_inet_pton, INET, "127.0.0.1", &caller.record),
        EVERY(kel_inet_pton, INET, BAD, &caller.record),
        EVERY(kel_inet_pton, INET6, "2001:db8::1", &caller.record),
        EVERY(kel_inet_pton, INET6, "127.0.0.1", &caller.record),
        EVERY(kel_inet_pton, UNIX, PATH, &caller.record),
        EVERY(kel_inet_pton, wide(INET), "127.0.0.1", &caller.record),
        EVERY(kel_inet_pton, INET, nullptr, nullptr),
        EVERY(kel_inet_pton, UNKNOWN, "::", nullptr),

        EVERY(kel_inet_ntop, INET, &caller.inet, caller.text, 16),
        EVERY(kel_inet_ntop, INET, &caller.inet6, caller.text, sizeof(caller.text)),
        EVERY(kel_inet_ntop, INET, &caller.inet, caller.text, 8),
        EVERY(kel_inet_ntop, INET6, &caller.inet6, caller.text, 46),
        EVERY(kel_inet_ntop, INET6, &caller.inet6, caller.text, 4),
        EVERY(kel_inet_ntop, UNIX, &caller.local, caller.text, 46),

        EVERY(kel_addr_showstr, &caller.inet, caller.text, 100),
        EVERY(kel_addr_showstr, &caller.inet, caller.text, 7),
        EVERY(kel_addr_showstr, &caller.inet6, caller.text, 100),
        EVERY(kel_addr_showstr, &caller.local, caller.text, 100),
        WITH(memset(c.local.un.sun_path, 'p', 108), kel_addr_showstr, &caller.local, caller.text, 120),
        EVERY(kel_addr_showstr, &caller.packet, caller.text, 100),
        WITH(c.packet.raw.sll_protocol = 0xfeca, kel_addr_showstr, &caller.packet, caller.text, 0),
        EVERY(kel_addr_showstr, &caller.strange, caller.text, 100),

        EVERY(kel_sock_addr_cmp, nullptr, nullptr, 0),
        EVERY(kel_sock_addr_cmp, &caller.inet, nullptr, 0),
        EVERY(kel_sock_addr_cmp, &caller.inet, &caller.inet6, 1),
        EVERY(kel_sock_addr_cmp, &caller.inet, &caller.no_port, 0),
        EVERY(kel_sock_addr_cmp, &caller.inet, &caller.no_port, 1),
        WITH(c.record = c.inet, kel_sock_addr_cmp, &caller.inet, &caller.record, 0),
        WITH((c.record = c.inet, c.record.sin.sin_zero[7] = 1), kel_sock_addr_cmp, &caller.inet, &caller.record, 0),
        WITH((c.record = c.inet, c.record.sin.sin_addr.s_addr++), kel_sock_addr_cmp, &caller.inet, &caller.record, 2),
        WITH(c.record = c.inet6, kel_sock_addr_cmp, &caller.inet6, &caller.record, 0),
        WITH((c.record = c.inet6, c.record.sin6.sin6_scope_id = 4), kel_sock_addr_cmp, &caller.inet6, &caller.record,
             0),
        WITH((c.record = c.inet6, c.record.sin6.sin6_port = 1), kel_sock_addr_cmp, &caller.inet6, &caller.record, 0),
        WITH((c.record = c.inet6, c.record.sin6.sin6_port = 1), kel_sock_addr_cmp, &caller.inet6, &caller.record, -1),
        WITH((c.record = c.inet6, c.record.sin6.sin6_addr.s6_addr[15]++), kel_sock_addr_cmp, &caller.inet6,
             &caller.record, 1),
        WITH((c.record = c.local, c.record.un.sun_path[9] = 'x'), kel_sock_addr_cmp, &caller.local, &caller.record, 0),
        WITH((c.record = c.local, c.record.un.sun_path[7] = 'x'), kel_sock_addr_cmp, &caller.local, &caller.record, 1),
        WITH((c.record = c.packet, c.record.raw.sll_halen = 6), kel_sock_addr_cmp, &caller.packet, &caller.record, 0),
        WITH((c.record = c.packet, c.record.raw.sll_protocol++), kel_sock_addr_cmp, &caller.packet, &caller.record, 1),
        WITH((c.record = c.packet, c.record.raw.sll_ifindex++), kel_sock_addr_cmp, &caller.packet, &caller.record, 1),
        EVERY(kel_sock_addr_cmp, &caller.strange, &caller.strange, 0),

        EVERY(kel_addr_fill, 60, nullptr, INET, PORT, "127.0.0.1", 0, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, INET, PORT, "127.0.0.1", 3, IF_NAME),
        EVERY(kel_addr_fill, 60, &caller.record, INET, HIGH_PORT, "255.255.255.255", 3, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, INET, PORT, BAD, 0, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, INET, PORT, nullptr, 0, IF_NAME),
        EVERY(kel_addr_fill, 60, &caller.record, INET6, HIGH_PORT, "2001:db8::1", 0, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, INET6, PORT, BAD, 0, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, INET6, PORT, nullptr, 0, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, UNIX, PORT, PATH, 3, IF_NAME),
        EVERY(kel_addr_fill, 60, &caller.record, UNIX, 0, LONG_PATH, 0, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, UNIX, 0, nullptr, 0, nullptr),
        EVERY(kel_addr_fill, wide(60), &caller.record, PACKET, PORT, nullptr, 3, IF_NAME),
        EVERY(kel_addr_fill, 60, &caller.record, PACKET, 0, BAD, (SHORT)0x88cc, LONG_IF_NAME),
        EVERY(kel_addr_fill, 60, &caller.record, PACKET, 0, PATH, 3, nullptr),
        EVERY(kel_addr_fill, 60, &caller.record, UNKNOWN, PORT, "127.0.0.1", 3, IF_NAME),
        EVERY(kel_addr_fill, 60, &caller.record, (kel_domain_t)-1, PORT, nullptr, 3, nullptr),

        EVERY(kel_get_if_mac_addr, IF_NAME, caller.mac),
        EVERY(kel_get_if_mac_addr, LONG_IF_NAME, caller.mac),
        EVERY(kel_get_if_mac_addr, nullptr, nullptr),
        EVERY(kel_get_if_mac_addr, IF_NAME, nullptr),

        EVERY(kel_socket, INET, STREAM, 0),
        EVERY(kel_socket, INET6, DGRAM, wide(17)),
        BRIEF(kel_socket, UNIX, KEL_SOCK_SEQPACKET, 0),
        BRIEF(kel_socket, PACKET, RAW, 3),
        BRIEF(kel_socket, (kel_domain_t)-1, (kel_socktype_t)99, -1),

        EVERY(kel_getsockopt, wide(60), wide(1), wide(2), caller.buffer, &caller.length),
        EVERY(kel_getsockopt, 60, 1, 2, nullptr, nullptr),
        EVERY(kel_getsockopt, 60, 1, 2, caller.buffer, nullptr),
        EVERY(kel_setsockopt, wide(60), wide(1), wide(2), caller.buffer, 8),
        EVERY(kel_setsockopt, 60, 41, 26, caller.buffer, 0),
        EVERY(kel_setsockopt, 60, 1, 2, nullptr, 4),
        EVERY(kel_close, wide(60)),
        EVERY(kel_close, -1),

        EVERY(kel_bind, wide(60), &caller.inet),
        EVERY(kel_bind, 60, &caller.inet6),
        EVERY(kel_bind, 60, &caller.local),
        EVERY(kel_bind, 60, &caller.packet),
        EVERY(kel_bind, 60, &caller.strange),
        EVERY(kel_bind, 60, nullptr),

        EVERY(kel_bind_str, wide(60), INET, PORT, "127.0.0.1", 0, nullptr),
        EVERY(kel_bind_str, 60, INET, HIGH_PORT, nullptr, 0, nullptr),
        EVERY(kel_bind_str, 60, INET, PORT, BAD, 0, nullptr),
        EVERY(kel_bind_str, 60, INET6, PORT, "2001:db8::1", 0, nullptr),
        EVERY(kel_bind_str, 60, INET6, HIGH_PORT, nullptr, 0, nullptr),
        EVERY(kel_bind_str, 60, UNIX, PORT, PATH, 0, nullptr),
        EVERY(kel_bind_str, 60, UNIX, 0, LONG_PATH, 0, nullptr),
        EVERY(kel_bind_str, 60, UNIX, 0, nullptr, 0, nullptr),
        EVERY(kel_bind_str, wide(60), PACKET, 0, nullptr, 3, IF_NAME),
        EVERY(kel_bind_str, 60, PACKET, 0, nullptr, (SHORT)0x88cc, nullptr),
        EVERY(kel_bind_str, 60, UNKNOWN, PORT, nullptr, 0, nullptr),

        EVERY(kel_listen, wide(60), 0),
        EVERY(kel_listen, 60, wide(100000)),
        EVERY(kel_listen, 60, -1),

        EVERY(kel_accept, wide(60), &caller.record),
        EVERY(kel_accept, 60, nullptr),

        EVERY(kel_connect, wide(60), &caller.inet),
        EVERY(kel_connect, 60, &caller.inet6),
        EVERY(kel_connect, 60, &caller.local),
        EVERY(kel_connect, 60, &caller.packet),
        EVERY(kel_connect, 60, &caller.strange),
        EVERY(kel_connect, 60, nullptr),

        EVERY(kel_connect_str, wide(60), INET, HIGH_PORT, "127.0.0.1"),
        EVERY(kel_connect_str, 60, INET, PORT, BAD),
        EVERY(kel_connect_str, 60, INET, PORT, nullptr),
        EVERY(kel_connect_str, 60, INET6, PORT, "::1"),
        EVERY(kel_connect_str, 60, INET6, PORT, nullptr),
        EVERY(kel_connect_str, 60, UNIX, PORT, PATH),
        EVERY(kel_connect_str, 60, PACKET, PORT, PATH),
        EVERY(kel_connect_str, 60, UNKNOWN, PORT, PATH),

        EVERY(kel_getpeername, wide(60), &caller.record),
        EVERY(kel_getpeername, 60, nullptr),
        EVERY(kel_getsockname, wide(60), &caller.record),
        EVERY(kel_getsockname, 60, nullptr),

        EVERY(kel_recv, wide(60), caller.buffer, sizeof(caller.buffer), wide(2)),
        EVERY(kel_recv, 60, nullptr, 0, 0),
        EVERY(kel_send, wide(60), caller.buffer, sizeof(caller.buffer), wide(0x4000)),
        EVERY(kel_send, 60, nullptr, (1UL << 33), 0),

        EVERY(kel_recvfrom, wide(60), caller.buffer, sizeof(caller.buffer), wide(2), &caller.record),
        EVERY(kel_recvfrom, 60, caller.buffer, 0, 0, &caller.record),
        EVERY(kel_recvfrom, 60, nullptr, 8, 0, nullptr),
        EVERY(kel_recvfrom, 60, caller.buffer, 8, 0, nullptr),

        EVERY(kel_sendto, wide(60), caller.buffer, sizeof(caller.buffer), wide(0x4000), &caller.inet),
        EVERY(kel_sendto, 60, caller.buffer, (1UL << 33) + 1, 0, &caller.inet6),
        EVERY(kel_sendto, 60, caller.buffer, 8, 0, &caller.local),
        EVERY(kel_sendto, 60, caller.buffer, 8, 0, &caller.packet),
        EVERY(kel_sendto, 60, caller.buffer, 0, 0, &caller.strange),
        EVERY(kel_sendto, 60, nullptr, 8, 0, nullptr),
        EVERY(kel_sendto, 60, caller.buffer, 8, 0, nullptr),

        EVERY(kel_raw_sendto, wide(60), IF_NAME, caller.buffer, sizeof(caller.buffer), wide(0x40)),
        BRIEF(kel_raw_sendto, 60, LONG_IF_NAME, nullptr, 8, 0),
        BRIEF(kel_raw_sendto, 60, nullptr, caller.buffer, 8, 0),

        EVERY(kel_tcp_server_socket_create, INET6, "2001:db8::1", PORT, 1000),
        BRIEF(kel_tcp_server_socket_create, INET, "127.0.0.1", HIGH_PORT, 1),
        BRIEF(kel_tcp_server_socket_create, INET, nullptr, PORT, 0),
        BRIEF(kel_tcp_server_socket_create, INET, BAD, PORT, 5),
        BRIEF(kel_tcp_server_socket_create, INET6, nullptr, HIGH_PORT, -1),
        BRIEF(kel_tcp_server_socket_create, UNIX, PATH, PORT, 5),
        BRIEF(kel_tcp_server_socket_create, UNIX, nullptr, PORT, 5),
        BRIEF(kel_tcp_server_socket_create, PACKET, nullptr, PORT, 5),
        BRIEF(kel_tcp_server_socket_create, UNKNOWN, nullptr, PORT, 5),

        EVERY(kel_tcp_client_socket_create, INET, "127.0.0.1", HIGH_PORT),
        BRIEF(kel_tcp_client_socket_create, INET6, "2001:db8::1", PORT),
        BRIEF(kel_tcp_client_socket_create, INET, BAD, PORT),
        BRIEF(kel_tcp_client_socket_create, INET, nullptr, PORT),
        BRIEF(kel_tcp_client_socket_create, UNIX, PATH, PORT),
        BRIEF(kel_tcp_client_socket_create, PACKET, PATH, PORT),
        BRIEF(kel_tcp_client_socket_create, UNKNOWN, PATH, PORT),

        EVERY(kel_tcp_client_socket_create_bind, INET, "127.0.0.1", PORT, &caller.no_port),
        BRIEF(kel_tcp_client_socket_create_bind, INET, "127.0.0.1", HIGH_PORT, nullptr),
        BRIEF(kel_tcp_client_socket_create_bind, INET, "127.0.0.1", PORT, &caller.inet),
        BRIEF(kel_tcp_client_socket_create_bind, INET6, "2001:db8::1", PORT, &caller.inet6),
        BRIEF(kel_tcp_client_socket_create_bind, INET, nullptr, PORT, &caller.inet),
        BRIEF(kel_tcp_client_socket_create_bind, INET6, BAD, PORT, &caller.no_port),
        BRIEF(kel_tcp_client_socket_create_bind, UNIX, PATH, PORT, &caller.local),
        BRIEF(kel_tcp_client_socket_create_bind, PACKET, PATH, PORT, &caller.packet),
        BRIEF(kel_tcp_client_socket_create_bind, UNKNOWN, PATH, PORT, &caller.strange),

        EVERY(kel_udp_server_socket_create, INET, "127.0.0.1", HIGH_PORT),
        BRIEF(kel_udp_server_socket_create, INET6, "2001:db8::1", PORT),
        BRIEF(kel_udp_server_socket_create, INET, nullptr, PORT),
        BRIEF(kel_udp_server_socket_create, INET6, nullptr, PORT),
        BRIEF(kel_udp_server_socket_create, INET, BAD, PORT),
        BRIEF(kel_udp_server_socket_create, UNIX, PATH, PORT),
        BRIEF(kel_udp_server_socket_create, UNIX, nullptr, PORT),
        BRIEF(kel_udp_server_socket_create, PACKET, nullptr, PORT),
        BRIEF(kel_udp_server_socket_create, UNKNOWN, nullptr, PORT),

        EVERY(kel_udp_client_socket_create, INET, "10.0.0.1", HIGH_PORT, &caller.record),
        BRIEF(kel_udp_client_socket_create, INET, "10.0.0.1", 53, nullptr),
        BRIEF(kel_udp_client_socket_create, INET, BAD, 53, &caller.record),
        BRIEF(kel_udp_client_socket_create, INET, nullptr, 53, &caller.record),
        BRIEF(kel_udp_client_socket_create, INET, nullptr, 53, nullptr),
        BRIEF(kel_udp_client_socket_create, INET6, "2001:db8::1", 53, &caller.record),
        BRIEF(kel_udp_client_socket_create, UNIX, PATH, 53, &caller.record),
        BRIEF(kel_udp_client_socket_create, PACKET, PATH, 53, &caller.record),
        BRIEF(kel_udp_client_socket_create, UNKNOWN, nullptr, 53, &caller.record),

        EVERY(kel_udp_client_socket_create_bind, INET, "10.0.0.1", 53, &caller.record, &caller.no_port),
        BRIEF(kel_udp_client_socket_create_bind, INET, "10.0.0.1", HIGH_PORT, &caller.record, &caller.inet),
        BRIEF(kel_udp_client_socket_create_bind, INET, "10.0.0.1", 53, &caller.record, nullptr),
        BRIEF(kel_udp_client_socket_create_bind, INET, "10.0.0.1", 53, nullptr, &caller.inet),
        BRIEF(kel_udp_client_socket_create_bind, INET, nullptr, 53, nullptr, nullptr),
        BRIEF(kel_udp_client_socket_create_bind, INET, BAD, 53, &caller.record, &caller.inet),
        BRIEF(kel_udp_client_socket_create_bind, INET, "10.0.0.1", 53, &caller.inet, &caller.inet),
        BRIEF(kel_udp_client_socket_create_bind, INET6, "2001:db8::1", 53, &caller.record, &caller.inet6),
        BRIEF(kel_udp_client_socket_create_bind, UNIX, PATH, 53, &caller.record, &caller.local),
        BRIEF(kel_udp_client_socket_create_bind, PACKET, PATH, 53, &caller.record, &caller.packet),
        BRIEF(kel_udp_client_socket_create_bind, UNKNOWN, nullptr, 53, &caller.record, &caller.strange),

        EVERY(kel_unix_tcp_server_socket_create, PATH, wide(7)),
        BRIEF(kel_unix_tcp_server_socket_create, LONG_PATH, -1),
        BRIEF(kel_unix_tcp_server_socket_create, nullptr, 5),

        EVERY(kel_unix_udp_socket_create, PATH, KEL_TRUE),
        BRIEF(kel_unix_udp_socket_create, LONG_PATH, -1),
        BRIEF(kel_unix_udp_socket_create, nullptr, KEL_TRUE),
        BRIEF(kel_unix_udp_socket_create, PATH, KEL_FALSE),
        BRIEF(kel_unix_udp_socket_create, nullptr, KEL_FALSE),

        EVERY(kel_unix_tcp_client_socket_create, PATH),
        BRIEF(kel_unix_tcp_client_socket_create, LONG_PATH),
        BRIEF(kel_unix_tcp_client_socket_create, nullptr),

        EVERY(kel_raw_server_socket_create, 3, IF_NAME),
        BRIEF(kel_raw_server_socket_create, (SHORT)0x88cc, LONG_IF_NAME),
        BRIEF(kel_raw_server_socket_create, 3, nullptr),
    };

    static const bool own = [] {
        if (Match_RegExpPattern != nullptr) {
            all.push_back(EVERY(Match_RegExpPattern, "^a", ipv4_text, 1));
            all.push_back(EVERY(Match_RegExpPattern, nullptr, ipv4_text, 3));
            all.push_back(EVERY(Match_RegExpPattern, "^a", nullptr, 3));
        }
        return true;
    }();
    (void)own;
    return all;
}
