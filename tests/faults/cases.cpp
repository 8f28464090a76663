/*
 * What the explorer calls: every function, with every kind of argument that changes its path. One line serves the
 * module and the model.
 */
#include <errno.h>
#include <string.h>

#include "explorer.h"
#include "kel_module.h"
#include "kel_prv_sctp.h"
#include "kel_prv_socket.h"
#include "model.h"

/* The module's own functions: the shared library keeps them to itself, and there they are not called. */
extern "C" {
__attribute__((weak)) int Match_RegExpPattern(const char *inputpattern, char *inputbuf, int matchmode);
__attribute__((weak)) decltype(__kel_set_sock_op_sctp) __kel_set_sock_op_sctp;
__attribute__((weak)) decltype(__sctp_server_create) __sctp_server_create;
__attribute__((weak)) decltype(__sctp_one2one_client_create) __sctp_one2one_client_create;
__attribute__((weak)) decltype(__sctp_one2many_client_create) __sctp_one2many_client_create;
}

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

/* Where the result is an array of the module's, what it holds counts, and not where it lies. */
std::string fetched(LONG result)
{
    const bool untouched = caller.addresses == &caller.record;
    const std::string records = untouched                     ? "untouched"
                                : caller.addresses == nullptr ? "null"
                                                              : sys::hex(caller.addresses, (size_t)result * 112);
    caller.addresses = &caller.record;
    return std::to_string(result) + ", records " + records;
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

/* Lists of texts. Counts: one of a size that no allocator has, and those of sizes beyond 64 bits, whose low 64 bits are
 * one element of 16, 28 or 112 bytes. */
CHAR second_ipv4_text[] = "10.1.2.4", second_ipv6_text[] = "2001:db8::4", bad_text[] = "1.2.3.256";
CHAR *ipv4_texts[] = {ipv4_text, second_ipv4_text}, *ipv6_texts[] = {ipv6_text, second_ipv6_text};
CHAR *bad_texts[] = {bad_text, ipv4_text}, *half_bad_texts[] = {ipv4_text, bad_text}, *missing_texts[] = {nullptr};
CHAR **const NO_TEXTS = nullptr;
kel_sockaddr_t *const NO_RECORDS = nullptr;
struct sctp_initmsg *const NO_INITMSG = nullptr;
struct sctp_event_subscribe *const NO_EVENTS = nullptr;
constexpr LONG HUGE_COUNT = 1L << 40, BEYOND_16 = (1L << 60) + 1, BEYOND_28 = (1L << 62) + 1, BEYOND_112 = BEYOND_16;

} // namespace

const std::vector<Case> &cases()
{
#define TRY(depth, prepare, result, function, ...)                                                                     \
    {#function,                                                                                                        \
     #__VA_ARGS__,                                                                                                     \
     Depth::depth,                                                                                                     \
     prepare,                                                                                                          \
     [] { return result(::function(__VA_ARGS__)); },                                                                   \
     [](Model &model) { return result(model.function(__VA_ARGS__)); }}
#define EVERY(function, ...) TRY(Every, nothing, outcome, function, __VA_ARGS__)
#define PAIRS(function, ...) TRY(Pairs, nothing, outcome, function, __VA_ARGS__)
#define BRIEF(function, ...) TRY(Brief, nothing, outcome, function, __VA_ARGS__)
#define ONCE(function, ...) TRY(Once, nothing, outcome, function, __VA_ARGS__)
#define WITH(change, function, ...) TRY(Brief, [](Caller &c) { change; }, outcome, function, __VA_ARGS__)
#define FETCH(change, function, ...) TRY(Every, [](Caller &c) { change; }, fetched, function, __VA_ARGS__)
/* Fetches addresses and hands them back: a sequence of two. */
#define FREED(free, get)                                                                                               \
    {#free,                                                                                                            \
     #get,                                                                                                             \
     Depth::Brief,                                                                                                     \
     nothing,                                                                                                          \
     [] {                                                                                                              \
         ::get(60, 7, &caller.addresses);                                                                              \
         const LONG result = ::free(caller.addresses);                                                                 \
         caller.addresses = nullptr;                                                                                   \
         return outcome(result);                                                                                       \
     },                                                                                                                \
     [](Model &model) {                                                                                                \
         model.get(60, 7, &caller.addresses);                                                                          \
         const LONG result = model.free(caller.addresses);                                                             \
         caller.addresses = nullptr;                                                                                   \
         return outcome(result);                                                                                       \
     }}

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

        FETCH(c.listed_count = 2, kel_sctp_getpaddrs, wide(60), 7, &caller.addresses),
        FETCH(c.listed_count = 1, kel_sctp_getpaddrs, 60, -7, &caller.addresses),
        FETCH(c.listed_count = 0, kel_sctp_getpaddrs, 60, 0, &caller.addresses),
        FETCH(memcpy(c.listed, c.pair6, sizeof(c.listed)), kel_sctp_getpaddrs, 60, 7, &caller.addresses),
        FETCH(c.listed[1] = c.inet6, kel_sctp_getpaddrs, 60, 7, &caller.addresses),
        FETCH((c.listed[0] = c.inet6, c.listed_count = 1), kel_sctp_getpaddrs, 60, 7, &caller.addresses),
        FETCH(c.listed[0] = c.strange, kel_sctp_getpaddrs, 60, 7, &caller.addresses),
        FETCH(c.listed[0] = c.local, kel_sctp_getpaddrs, 60, 7, &caller.addresses),
        FETCH(c.listed_count = 2, kel_sctp_getpaddrs, 60, 7, nullptr),
        FETCH(c.listed_count = 2, kel_sctp_getladdrs, wide(60), 7, &caller.addresses),
        FETCH(c.listed_count = 1, kel_sctp_getladdrs, 60, -7, &caller.addresses),
        FETCH(c.listed_count = 0, kel_sctp_getladdrs, 60, 0, &caller.addresses),
        FETCH(memcpy(c.listed, c.pair6, sizeof(c.listed)), kel_sctp_getladdrs, 60, 7, &caller.addresses),
        FETCH(c.listed[1] = c.inet6, kel_sctp_getladdrs, 60, 7, &caller.addresses),
        FETCH((c.listed[0] = c.inet6, c.listed_count = 1), kel_sctp_getladdrs, 60, 7, &caller.addresses),
        FETCH(c.listed[0] = c.packet, kel_sctp_getladdrs, 60, 7, &caller.addresses),
        FETCH(c.listed_count = 2, kel_sctp_getladdrs, 60, 7, nullptr),

        EVERY(kel_sctp_freepaddrs, nullptr),
        EVERY(kel_sctp_freepaddrs, &caller.inet),
        FREED(kel_sctp_freepaddrs, kel_sctp_getpaddrs),
        FREED(kel_sctp_freepaddrs, kel_sctp_getladdrs),
        EVERY(kel_sctp_freeladdrs, nullptr),
        EVERY(kel_sctp_freeladdrs, &caller.inet),
        FREED(kel_sctp_freeladdrs, kel_sctp_getladdrs),
        FREED(kel_sctp_freeladdrs, kel_sctp_getpaddrs),

        EVERY(kel_sctp_bindx, wide(60), caller.pair, 2, wide(1)),
        EVERY(kel_sctp_bindx, 60, &caller.inet6, 1, wide(2)),
        BRIEF(kel_sctp_bindx, 60, caller.pair6, 2, -1),
        BRIEF(kel_sctp_bindx, 60, caller.pair, 0, 1),
        BRIEF(kel_sctp_bindx, 60, caller.pair6, -1, 1),
        BRIEF(kel_sctp_bindx, 60, caller.pair, HUGE_COUNT, 1),
        BRIEF(kel_sctp_bindx, 60, caller.pair, BEYOND_16, 1),
        BRIEF(kel_sctp_bindx, 60, caller.pair6, BEYOND_28, 1),
        BRIEF(kel_sctp_bindx, 60, caller.pair, -BEYOND_16, 1),
        WITH(c.pair[1] = c.inet6, kel_sctp_bindx, 60, caller.pair, 2, 1),
        WITH(c.pair6[1] = c.inet, kel_sctp_bindx, 60, caller.pair6, 2, 1),
        BRIEF(kel_sctp_bindx, 60, &caller.local, 1, 1),
        BRIEF(kel_sctp_bindx, 60, &caller.packet, 1, 1),
        BRIEF(kel_sctp_bindx, 60, &caller.strange, 1, 1),
        EVERY(kel_sctp_bindx, 60, nullptr, 1, 1),

        EVERY(kel_sctp_bindx_str, wide(60), INET, HIGH_PORT, ipv4_texts, 2, wide(1)),
        BRIEF(kel_sctp_bindx_str, 60, INET6, PORT, ipv6_texts, 2, 2),
        BRIEF(kel_sctp_bindx_str, 60, INET, PORT, NO_TEXTS, 1, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET6, HIGH_PORT, NO_TEXTS, 1, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET, PORT, NO_TEXTS, 0, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET6, PORT, NO_TEXTS, -1, 1),
        BRIEF(kel_sctp_bindx_str, 60, UNIX, PORT, NO_TEXTS, 1, 1),
        BRIEF(kel_sctp_bindx_str, 60, PACKET, PORT, NO_TEXTS, 1, 1),
        BRIEF(kel_sctp_bindx_str, 60, UNKNOWN, PORT, NO_TEXTS, 1, 1),
        BRIEF(kel_sctp_bindx_str, 60, UNIX, PORT, ipv4_texts, 1, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET, PORT, ipv4_texts, -1, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET, PORT, ipv4_texts, BEYOND_112, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET, PORT, bad_texts, 2, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET, PORT, half_bad_texts, 2, 1),
        BRIEF(kel_sctp_bindx_str, 60, INET6, PORT, missing_texts, 1, 1),

        EVERY(kel_sctp_connectx, wide(60), caller.pair, 2, &caller.association),
        BRIEF(kel_sctp_connectx, 60, caller.pair6, 2, &caller.association),
        BRIEF(kel_sctp_connectx, 60, &caller.inet6, 1, nullptr),
        BRIEF(kel_sctp_connectx, 60, caller.pair, 0, &caller.association),
        BRIEF(kel_sctp_connectx, 60, caller.pair, -1, &caller.association),
        BRIEF(kel_sctp_connectx, 60, caller.pair6, BEYOND_28, &caller.association),
        WITH(c.pair[1] = c.inet6, kel_sctp_connectx, 60, caller.pair, 2, &caller.association),
        BRIEF(kel_sctp_connectx, 60, &caller.local, 1, &caller.association),
        EVERY(kel_sctp_connectx, 60, nullptr, 1, &caller.association),

        EVERY(kel_sctp_connectx_str, wide(60), INET, HIGH_PORT, ipv4_texts, 2, &caller.association),
        BRIEF(kel_sctp_connectx_str, 60, INET6, PORT, ipv6_texts, 2, nullptr),
        BRIEF(kel_sctp_connectx_str, 60, INET, PORT, ipv4_texts, -1, &caller.association),
        BRIEF(kel_sctp_connectx_str, 60, INET, PORT, half_bad_texts, 2, &caller.association),
        BRIEF(kel_sctp_connectx_str, 60, INET, PORT, missing_texts, 1, &caller.association),
        BRIEF(kel_sctp_connectx_str, 60, UNKNOWN, PORT, ipv4_texts, 1, &caller.association),
        EVERY(kel_sctp_connectx_str, 60, INET, PORT, NO_TEXTS, 1, &caller.association),

        EVERY(kel_sctp_send, wide(60), caller.buffer, sizeof(caller.buffer), &caller.info, wide(0x4000)),
        BRIEF(kel_sctp_send, 60, caller.buffer, (1UL << 33) + 5, nullptr, -1),
        EVERY(kel_sctp_send, 60, nullptr, 8, &caller.info, 0),

        EVERY(kel_sctp_sendmsg, wide(60), caller.buffer, sizeof(caller.buffer), &caller.inet, wide(0x1020304), wide(1),
              0xfff0001, wide(1000), wide(-2)),
        BRIEF(kel_sctp_sendmsg, 60, nullptr, 8, &caller.inet6, -2, 0x200, -1, -1, 5),
        BRIEF(kel_sctp_sendmsg, 60, caller.buffer, (1UL << 33) + 5, &caller.strange, 0, -1, 0x10000, 0, 0),

        EVERY(kel_sctp_recvmsg, wide(60), caller.buffer, sizeof(caller.buffer), &caller.record, &caller.info,
              &caller.flags),
        BRIEF(kel_sctp_recvmsg, 60, nullptr, (1UL << 33) + 5, nullptr, nullptr, &caller.flags),

        EVERY(kel_sctp_peeloff, wide(60), 7),
        BRIEF(kel_sctp_peeloff, 60, -7),

        EVERY(kel_sctp_opt_info, wide(60), 7, wide(14), caller.buffer, &caller.length),
        EVERY(kel_sctp_opt_info, 60, -7, -1, nullptr, nullptr),
        EVERY(kel_sctp_opt_info, 60, 7, 14, caller.buffer, nullptr),

        PAIRS(kel_sctp_server_one2one_create, INET6, caller.pair6, 2, PORT, wide(7), &caller.initmsg, &caller.events),
        BRIEF(kel_sctp_server_one2one_create, INET, NO_RECORDS, 5, HIGH_PORT, -1, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_server_one2one_create, INET6, NO_RECORDS, -1, PORT, 7, &caller.initmsg, &caller.events),
        BRIEF(kel_sctp_server_one2one_create, UNIX, NO_RECORDS, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_server_one2one_create, PACKET, NO_RECORDS, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_server_one2one_create, UNKNOWN, NO_RECORDS, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_server_one2one_create, INET, &caller.local, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2one_create, INET, caller.pair, 0, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2one_create, INET, &caller.no_port, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        TRY(
            Once, [](Caller &c) { c.events = {}; }, outcome, kel_sctp_server_one2one_create, INET, caller.pair, 1, PORT,
            7, &caller.initmsg, &caller.events),
        ONCE(kel_sctp_server_one2one_create, INET, caller.pair, -1, PORT, 7, &caller.initmsg, NO_EVENTS),
        EVERY(kel_sctp_server_one2one_create, INET, caller.pair, 1, PORT, 7, NO_INITMSG, NO_EVENTS),

        PAIRS(kel_sctp_server_one2many_create, INET, &caller.inet, 1, PORT, wide(7), &caller.initmsg, NO_EVENTS),
        PAIRS(kel_sctp_server_one2many_create, INET6, caller.pair6, 2, PORT, -1, &caller.initmsg, &caller.events),
        PAIRS(kel_sctp_server_one2many_create, INET, NO_RECORDS, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2many_create, INET, &caller.packet, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2many_create, INET, caller.pair, 0, PORT, 7, &caller.initmsg, NO_EVENTS),
        EVERY(kel_sctp_server_one2many_create, INET, caller.pair, 1, PORT, 7, NO_INITMSG, NO_EVENTS),

        PAIRS(kel_sctp_server_one2one_str_create, INET, ipv4_texts, 2, HIGH_PORT, wide(7), &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2one_str_create, INET6, ipv6_texts, 2, PORT, -1, &caller.initmsg, &caller.events),
        ONCE(kel_sctp_server_one2one_str_create, INET, NO_TEXTS, 5, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2one_str_create, INET6, NO_TEXTS, -1, HIGH_PORT, 7, &caller.initmsg, &caller.events),
        ONCE(kel_sctp_server_one2one_str_create, UNIX, NO_TEXTS, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_server_one2one_str_create, PACKET, NO_TEXTS, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2one_str_create, INET, half_bad_texts, 2, PORT, 7, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_server_one2one_str_create, INET, missing_texts, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2one_str_create, INET, ipv4_texts, BEYOND_112, PORT, 7, &caller.initmsg, NO_EVENTS),
        EVERY(kel_sctp_server_one2one_str_create, INET, NO_TEXTS, 1, PORT, 7, NO_INITMSG, NO_EVENTS),

        PAIRS(kel_sctp_server_one2many_str_create, INET, ipv4_texts, 2, HIGH_PORT, wide(7), &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2many_str_create, INET6, ipv6_texts, 2, PORT, -1, &caller.initmsg, &caller.events),
        ONCE(kel_sctp_server_one2many_str_create, INET, NO_TEXTS, 5, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2many_str_create, INET6, NO_TEXTS, -1, HIGH_PORT, 7, &caller.initmsg, &caller.events),
        BRIEF(kel_sctp_server_one2many_str_create, UNKNOWN, NO_TEXTS, 1, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2many_str_create, INET, half_bad_texts, 2, PORT, 7, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_server_one2many_str_create, INET, ipv4_texts, -1, PORT, 7, &caller.initmsg, NO_EVENTS),
        EVERY(kel_sctp_server_one2many_str_create, INET, NO_TEXTS, 1, PORT, 7, NO_INITMSG, NO_EVENTS),

        PAIRS(kel_sctp_client_one2one_create, INET, caller.pair, 2, PORT, &caller.initmsg, NO_EVENTS,
              &caller.association),
        BRIEF(kel_sctp_client_one2one_create, INET6, caller.pair6, 2, HIGH_PORT, &caller.initmsg, &caller.events,
              &caller.association),
        ONCE(kel_sctp_client_one2one_create, INET, &caller.strange, 1, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association),
        ONCE(kel_sctp_client_one2one_create, INET, caller.pair, 0, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association),
        ONCE(kel_sctp_client_one2one_create, INET, caller.pair, -1, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association),
        EVERY(kel_sctp_client_one2one_create, INET, NO_RECORDS, 1, PORT, NO_INITMSG, NO_EVENTS, nullptr),
        EVERY(kel_sctp_client_one2one_create, INET, caller.pair, 1, PORT, NO_INITMSG, NO_EVENTS, nullptr),
        EVERY(kel_sctp_client_one2one_create, INET, caller.pair, 1, PORT, &caller.initmsg, NO_EVENTS, nullptr),

        PAIRS(kel_sctp_client_one2one_create_bind, INET, caller.pair, 2, PORT, &caller.initmsg, &caller.events,
              &caller.association, &caller.inet, 1),
        BRIEF(kel_sctp_client_one2one_create_bind, INET6, &caller.inet6, 1, HIGH_PORT, &caller.initmsg, NO_EVENTS,
              &caller.association, caller.pair6, 2),
        ONCE(kel_sctp_client_one2one_create_bind, INET, caller.pair, 2, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association, NO_RECORDS, 2),
        ONCE(kel_sctp_client_one2one_create_bind, INET, &caller.no_port, 1, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association, &caller.no_port, 1),
        ONCE(kel_sctp_client_one2one_create_bind, INET, caller.pair, 2, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association, caller.pair, 0),
        ONCE(kel_sctp_client_one2one_create_bind, INET, caller.pair, 2, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association, caller.pair, -1),
        ONCE(kel_sctp_client_one2one_create_bind, INET, caller.pair, 2, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association, &caller.local, 1),
        EVERY(kel_sctp_client_one2one_create_bind, INET, NO_RECORDS, 1, PORT, NO_INITMSG, NO_EVENTS, nullptr,
              NO_RECORDS, 0),
        EVERY(kel_sctp_client_one2one_create_bind, INET, caller.pair, 1, PORT, NO_INITMSG, NO_EVENTS, nullptr,
              NO_RECORDS, 0),
        EVERY(kel_sctp_client_one2one_create_bind, INET, caller.pair, 1, PORT, &caller.initmsg, NO_EVENTS, nullptr,
              caller.pair, 1),

        PAIRS(kel_sctp_client_one2one_str_create, INET, ipv4_texts, 2, HIGH_PORT, &caller.initmsg, NO_EVENTS,
              &caller.association),
        ONCE(kel_sctp_client_one2one_str_create, INET6, ipv6_texts, 2, PORT, &caller.initmsg, &caller.events,
             &caller.association),
        ONCE(kel_sctp_client_one2one_str_create, INET, half_bad_texts, 2, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association),
        ONCE(kel_sctp_client_one2one_str_create, INET, missing_texts, 1, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association),
        ONCE(kel_sctp_client_one2one_str_create, INET, ipv4_texts, -1, PORT, &caller.initmsg, NO_EVENTS,
             &caller.association),
        EVERY(kel_sctp_client_one2one_str_create, INET, NO_TEXTS, 1, PORT, NO_INITMSG, NO_EVENTS, nullptr),
        EVERY(kel_sctp_client_one2one_str_create, INET, ipv4_texts, 1, PORT, NO_INITMSG, NO_EVENTS, nullptr),
        EVERY(kel_sctp_client_one2one_str_create, INET, ipv4_texts, 1, PORT, &caller.initmsg, NO_EVENTS, nullptr),

        PAIRS(kel_sctp_client_one2many_create, INET, caller.pair, 2, PORT, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_client_one2many_create, INET6, &caller.strange, -1, HIGH_PORT, &caller.initmsg, &caller.events),
        EVERY(kel_sctp_client_one2many_create, INET, NO_RECORDS, 1, PORT, NO_INITMSG, NO_EVENTS),
        EVERY(kel_sctp_client_one2many_create, INET, caller.pair, 1, PORT, NO_INITMSG, NO_EVENTS),

        PAIRS(kel_sctp_client_one2many_create_bind, INET, caller.pair, 2, PORT, &caller.initmsg, NO_EVENTS,
              &caller.inet, 1),
        BRIEF(kel_sctp_client_one2many_create_bind, INET6, caller.pair, 0, HIGH_PORT, &caller.initmsg, &caller.events,
              caller.pair6, 2),
        ONCE(kel_sctp_client_one2many_create_bind, INET, caller.pair, 1, PORT, &caller.initmsg, NO_EVENTS, NO_RECORDS,
             2),
        ONCE(kel_sctp_client_one2many_create_bind, INET, caller.pair, 1, PORT, &caller.initmsg, NO_EVENTS, caller.pair,
             0),
        ONCE(kel_sctp_client_one2many_create_bind, INET, caller.pair, 1, PORT, &caller.initmsg, NO_EVENTS,
             &caller.strange, 1),
        EVERY(kel_sctp_client_one2many_create_bind, INET, NO_RECORDS, 1, PORT, NO_INITMSG, NO_EVENTS, NO_RECORDS, 0),
        EVERY(kel_sctp_client_one2many_create_bind, INET, caller.pair, 1, PORT, NO_INITMSG, NO_EVENTS, caller.pair, 1),

        PAIRS(kel_sctp_client_one2many_str_create, INET, ipv4_texts, 2, PORT, &caller.initmsg, NO_EVENTS),
        BRIEF(kel_sctp_client_one2many_str_create, INET6, ipv6_texts, 1, HIGH_PORT, &caller.initmsg, &caller.events),
        ONCE(kel_sctp_client_one2many_str_create, INET, ipv4_texts, 0, PORT, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_client_one2many_str_create, INET, ipv4_texts, BEYOND_112, PORT, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_client_one2many_str_create, INET, half_bad_texts, 2, PORT, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_client_one2many_str_create, INET, missing_texts, 1, PORT, &caller.initmsg, NO_EVENTS),
        ONCE(kel_sctp_client_one2many_str_create, UNKNOWN, ipv4_texts, 1, PORT, &caller.initmsg, NO_EVENTS),
        EVERY(kel_sctp_client_one2many_str_create, INET, NO_TEXTS, 1, PORT, NO_INITMSG, NO_EVENTS),
        EVERY(kel_sctp_client_one2many_str_create, INET, ipv4_texts, 1, PORT, NO_INITMSG, NO_EVENTS),
    };

    static const std::vector<Case> own = {
        EVERY(Match_RegExpPattern, "^a", ipv4_text, 1),
        EVERY(Match_RegExpPattern, nullptr, ipv4_text, 3),
        EVERY(Match_RegExpPattern, "^a", nullptr, 3),

        EVERY(__kel_set_sock_op_sctp, wide(60), &caller.initmsg, &caller.events),
        BRIEF(__kel_set_sock_op_sctp, 60, NO_INITMSG, &caller.events),
        BRIEF(__kel_set_sock_op_sctp, 60, &caller.initmsg, NO_EVENTS),
        BRIEF(__sctp_server_create, -1, caller.pair, 2, PORT, 7, &caller.initmsg, NO_EVENTS),
        BRIEF(__sctp_one2one_client_create, INET, NO_RECORDS, 1, PORT, &caller.initmsg, NO_EVENTS, nullptr,
              &caller.inet, 1),
        BRIEF(__sctp_one2one_client_create, INET, caller.pair, 1, PORT, NO_INITMSG, NO_EVENTS, nullptr, NO_RECORDS, 0),
        BRIEF(__sctp_one2many_client_create, INET, NO_RECORDS, 1, PORT, NO_INITMSG, NO_EVENTS, &caller.inet, 1),
    };
    static const bool has_own = [] {
        if (Match_RegExpPattern != nullptr) {
            all.insert(all.end(), own.begin(), own.end());
        }
        return true;
    }();
    (void)has_own;
    return all;
}
