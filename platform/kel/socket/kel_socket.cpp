/*
 * The socket module: one address record for every family, one function for each socket call, and endpoints that come
 * out of one call ready for use.
 *
 *   Registration ............ socket_module_init
 *   Address record .......... kel_sizeof_socket
 *   Address text ............ kel_is_ipv4_addr, kel_is_ipv6_addr, kel_inet_pton, kel_inet_ntop, kel_addr_showstr
 *   Address comparison ...... kel_sock_addr_cmp
 *   Address construction .... kel_addr_fill, kel_get_if_mac_addr
 *   Descriptors, options .... kel_socket, kel_getsockopt, kel_setsockopt, kel_close
 *   Bind, connect, names .... kel_bind, kel_bind_str, kel_listen, kel_accept, kel_connect, kel_connect_str,
 *                             kel_getpeername, kel_getsockname
 *   Data transfer ........... kel_recv, kel_send, kel_recvfrom, kel_sendto, kel_raw_sendto
 *   TCP and UDP endpoints ... kel_tcp_server_socket_create, kel_tcp_client_socket_create{,_bind},
 *                             kel_udp_server_socket_create, kel_udp_client_socket_create{,_bind}
 *   Local endpoints ......... kel_unix_tcp_server_socket_create, kel_unix_udp_socket_create,
 *                             kel_unix_tcp_client_socket_create
 *   Packet endpoint ......... kel_raw_server_socket_create
 *   SCTP address lists ...... kel_sctp_getpaddrs, kel_sctp_getladdrs, kel_sctp_freepaddrs, kel_sctp_freeladdrs
 *   SCTP association calls .. kel_sctp_bindx{,_str}, kel_sctp_connectx{,_str}, kel_sctp_send, kel_sctp_sendmsg,
 *                             kel_sctp_recvmsg, kel_sctp_peeloff, kel_sctp_opt_info
 *   SCTP set-up ............. kel_prv_sctp.h: what the endpoints share
 *   SCTP endpoints .......... kel_sctp_server_one2one{,_str}_create, kel_sctp_server_one2many{,_str}_create,
 *                             kel_sctp_client_one2one_create{,_bind}, kel_sctp_client_one2one_str_create,
 *                             kel_sctp_client_one2many_create{,_bind}, kel_sctp_client_one2many_str_create
 *
 * A null argument is reported where it is checked. A call of the system or of libsctp that fails is reported so:
 *
 *   Primitives .............. only connect, the options in kel_socket, and the interface's queries for kel_raw_sendto
 *   SCTP calls .............. each, but not receiving
 *   Endpoints ............... each step, also one that has reported itself
 *
 * Nothing here sets, saves or restores errno. There is no state between calls.
 *
 * Functions that are flattened have all that they call of the module compiled into them, so that an endpoint costs
 * little more than its system calls.
 */
#include "kel_socket.h"

#include <arpa/inet.h>
#include <gperftools/tcmalloc.h>
#include <net/if.h>
#include <regex.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "kel_lib.h"
#include "kel_module.h"
#include "kel_prv_sctp.h"
#include "kel_prv_socket.h"
#include "kel_sctp.h"

/* ---- What the module relies on --------------------------------------------------------------------------------- */

static_assert(KEL_AF_UNIX == AF_UNIX && KEL_AF_INET == AF_INET && KEL_AF_INET6 == AF_INET6 &&
                  KEL_AF_PACKET == AF_PACKET,
              "families go to the system unchanged");
static_assert(KEL_SOCK_STREAM == int{SOCK_STREAM} && KEL_SOCK_DGRAM == int{SOCK_DGRAM} &&
                  KEL_SOCK_RAW == int{SOCK_RAW} && KEL_SOCK_SEQPACKET == int{SOCK_SEQPACKET},
              "types go to the system unchanged");

static_assert(sizeof(SHORT) == 2 && sizeof(LONG) == 8 && sizeof(ULONG) == 8, "the 64-bit target");
static_assert(sizeof(struct sockaddr_in) == 16, "the length that goes with KEL_AF_INET");
static_assert(sizeof(struct sockaddr_in6) == 28, "the length that goes with KEL_AF_INET6");
static_assert(sizeof(struct sockaddr_un) == 110, "the length that goes with KEL_AF_UNIX");
static_assert(sizeof(struct sockaddr_ll) == 20, "the length that goes with KEL_AF_PACKET");
static_assert(sizeof(kel_sockaddr_t) == 112, "accept and recvfrom are given a whole record");

static_assert(offsetof(struct sockaddr_in, sin_family) == 0 && offsetof(struct sockaddr_in6, sin6_family) == 0 &&
                  offsetof(struct sockaddr_un, sun_family) == 0 && offsetof(struct sockaddr_ll, sll_family) == 0 &&
                  sizeof(sockaddr_ll::sll_family) == sizeof(sa_family_t),
              "sa.sa_family reads the family of any record");
static_assert(offsetof(struct sockaddr_in, sin_port) == offsetof(struct sockaddr_in6, sin6_port),
              "the port of both IP families is filled and tested as that of one");
static_assert(IFNAMSIZ == 16, "an interface name with its NUL");

static_assert(sizeof(struct sctp_initmsg) == 8, "the length that goes with SCTP_INITMSG");
static_assert(sizeof(struct sctp_event_subscribe) == 10, "the length that goes with SCTP_EVENTS: ten flags, no more");
static_assert(sizeof(sctp_assoc_t) == 4, "an association's identifier");

static_assert(sizeof(PATTERN_IPV4) - 1 == 87 && sizeof(PATTERN_IPV6) - 1 == 1378, "the patterns are complete");

/* ---- Registration: the record belongs to the registry, nothing here reads or writes it -------------------------- */

kel_module_t g_module_socket;

LONG socket_module_init(void)
{
    LONG ret = KEL_ERROR;

    ret = KEL_module_register("KEL_socket", &g_module_socket);
    if (ret != 0) {
        /* Not through the reports of kel_lib.h: this one is never suppressed and never logged. */
        KEL_Printf("module socket register error \r\n");
    }

    return ret;
}

/* ---- Address record: the family field alone says what a record holds -------------------------------------------- */

LONG kel_sizeof_socket(const kel_sockaddr_t *addr)
{
    switch (addr->sa.sa_family) {
    case KEL_AF_INET:
        return sizeof(addr->sin);
    case KEL_AF_INET6:
        return sizeof(addr->sin6);
    case KEL_AF_UNIX:
        return sizeof(addr->un); /* the whole record, whatever the path's length */
    case KEL_AF_PACKET:
        return sizeof(addr->raw);
    default:
        return 0; /* the system call that gets the record reports the fault */
    }
}

/* ---- Address text: silent but for null arguments, so that callers word their own reports ------------------------ */

int Match_RegExpPattern(const char *inputpattern, char *inputbuf, int matchmode)
{
    if (inputpattern == NULL || inputbuf == NULL) {
        return 0;
    }

    regex_t pattern;
    if (regcomp(&pattern, inputpattern, matchmode) != 0) {
        return 0;
    }

    regmatch_t match[1];
    int result = regexec(&pattern, inputbuf, 1, match, 0);
    regfree(&pattern);

    return result == 0 ? 1 : 0;
}

BOOL kel_is_ipv4_addr(CHAR *str)
{
    return Match_RegExpPattern(PATTERN_IPV4, str, REG_EXTENDED | REG_ICASE) == 1 ? KEL_TRUE : KEL_FALSE;
}

BOOL kel_is_ipv6_addr(char *str)
{
    return Match_RegExpPattern(PATTERN_IPV6, str, REG_EXTENDED | REG_ICASE) == 1 ? KEL_TRUE : KEL_FALSE;
}

LONG kel_inet_pton(LONG af, const CHAR *src, kel_sockaddr_t *dst)
{
    NULL_CHECK(src);
    NULL_CHECK(dst);

    VOID *binary;
    switch (af) {
    case KEL_AF_INET:
        binary = &dst->sin.sin_addr;
        break;
    case KEL_AF_INET6:
        binary = &dst->sin6.sin6_addr;
        break;
    default:
        return KEL_ERROR;
    }

    return inet_pton((int)af, src, binary) == 1 ? KEL_OK : KEL_ERROR;
}

const CHAR *kel_inet_ntop(LONG af, const kel_sockaddr_t *src, CHAR *dst, socklen_t size)
{
    switch (af) {
    case KEL_AF_INET:
        return inet_ntop((int)af, &src->sin.sin_addr, dst, size);
    case KEL_AF_INET6:
        return inet_ntop((int)af, &src->sin6.sin6_addr, dst, size);
    default:
        return NULL;
    }
}

CHAR *kel_addr_showstr(kel_sockaddr_t *addr, CHAR *str, LONG size)
{
    CHAR line[100] = {0};
    CHAR text[100] = {0};

    switch (addr->sa.sa_family) {
    case KEL_AF_INET:
        KEL_Sprintf(line, "ipv4 %s:%ld", kel_inet_ntop(KEL_AF_INET, addr, text, sizeof(text)),
                    (LONG)ntohs(addr->sin.sin_port));
        break;
    case KEL_AF_INET6:
        KEL_Sprintf(line, "ipv6 %s:%ld", kel_inet_ntop(KEL_AF_INET6, addr, text, sizeof(text)),
                    (LONG)ntohs(addr->sin6.sin6_port));
        break;
    case KEL_AF_UNIX:
        /* A path of 108 characters has no NUL and is longer than the line: reading and writing are both bounded. */
        KEL_Snprintf(line, sizeof(line), "file %.*s", (int)sizeof(addr->un.sun_path), addr->un.sun_path);
        break;
    case KEL_AF_PACKET:
        KEL_Sprintf(line, "ifindex %ld,protocol 0x%lx", (LONG)addr->raw.sll_ifindex,
                    (ULONG)ntohs(addr->raw.sll_protocol));
        break;
    default:
        return const_cast<CHAR *>("null"); /* str stays as it was */
    }

    KEL_StrnCpy(str, line, (size_t)size);
    return str;
}

/* ---- Address comparison: a difference is a normal outcome and never reported ------------------------------------ */

LONG kel_sock_addr_cmp(kel_sockaddr_t *addr1, kel_sockaddr_t *addr2, BOOL ignPort)
{
    NULL_CHECK(addr1);
    NULL_CHECK(addr2);

    if (addr1->sa.sa_family != addr2->sa.sa_family) {
        return KEL_ERROR;
    }

    const sa_family_t family = addr1->sa.sa_family;
    bool same = false;
    if (family == KEL_AF_INET6) {
        same = (ignPort || addr1->sin6.sin6_port == addr2->sin6.sin6_port) &&
               KEL_MemCmp(&addr1->sin6.sin6_addr, &addr2->sin6.sin6_addr, sizeof(addr1->sin6.sin6_addr)) == 0;
    } else if (family == KEL_AF_INET) {
        same = (ignPort || addr1->sin.sin_port == addr2->sin.sin_port) &&
               KEL_MemCmp(&addr1->sin.sin_addr, &addr2->sin.sin_addr, sizeof(addr1->sin.sin_addr)) == 0;
    } else if (family == KEL_AF_UNIX) {
        same = KEL_StrCmp(addr1->un.sun_path, addr2->un.sun_path) == 0;
    } else if (family == KEL_AF_PACKET) {
        /* The protocol is no port: ignPort does not reach it. */
        same = addr1->raw.sll_protocol == addr2->raw.sll_protocol && addr1->raw.sll_ifindex == addr2->raw.sll_ifindex;
    }

    return same ? KEL_OK : KEL_ERROR;
}

/* ---- Address construction: the one place where text, port and interface become a record ------------------------- */

/*
 * Asks for an interface's index. On failure the caller's descriptor is closed here: it must not be closed again. Cold,
 * so that records without an interface pay nothing for those that ask the system.
 */
[[gnu::cold]]
static bool __interface_index(int sockfd, const CHAR *ifName, int *index)
{
    struct ifreq request;
    KEL_MemSet(&request, 0, sizeof(request));
    KEL_StrnCpy(request.ifr_name, ifName, IFNAMSIZ);

    if (ioctl(sockfd, SIOCGIFINDEX, &request) == -1) {
        close(sockfd);
        return false;
    }

    *index = request.ifr_ifindex;
    return true;
}

[[gnu::flatten]]
LONG kel_addr_fill(LONG socket, kel_sockaddr_t *my_addr, kel_domain_t family, SHORT port, const CHAR *addrStr,
                   SHORT protocol, const CHAR *ifName)
{
    LONG ret = KEL_ERROR;
    int index = 0;

    /* Cleared before it is checked: a null record reaches the memory service, which has to tolerate it. */
    KEL_MemSet(my_addr, 0, sizeof(*my_addr));
    NULL_CHECK(my_addr);

    switch (family) {
    case KEL_AF_INET:
    case KEL_AF_INET6:
        NULL_CHECK(addrStr);
        my_addr->sin.sin_port = htons((uint16_t)port);
        my_addr->sin.sin_family = (sa_family_t)family;
        ret = kel_inet_pton(family, addrStr, my_addr);
        if (ret != KEL_OK) {
            KEL_ASSERT(0); /* the handler's report is the only one that bad text gets */
            return ret;
        }
        break;

    case KEL_AF_UNIX:
        NULL_CHECK(addrStr);
        my_addr->un.sun_family = (sa_family_t)family;
        KEL_StrnCpy(my_addr->un.sun_path, addrStr, sizeof(my_addr->un.sun_path));
        break;

    case KEL_AF_PACKET:
        NULL_CHECK(ifName);
        if (!__interface_index((int)socket, ifName, &index)) {
            return KEL_ERROR;
        }
        my_addr->raw.sll_family = (sa_family_t)family;
        my_addr->raw.sll_protocol = htons((uint16_t)protocol);
        my_addr->raw.sll_ifindex = index;
        /* The low byte of 6 in network order, which is 0 on this target. Raw packet sockets do not use it. */
        my_addr->raw.sll_halen = (unsigned char)htons(6);
        break;

    default:
        break; /* a zero record and success: the system call that gets the record refuses it */
    }

    return KEL_OK;
}

LONG kel_get_if_mac_addr(const CHAR *ifName, UCHAR *addr)
{
    NULL_CHECK(ifName);
    NULL_CHECK(addr);

    struct ifreq request;
    KEL_MemSet(&request, 0, sizeof(request));

    int query = socket(AF_PACKET, SOCK_RAW, 0);
    if (query < 0) {
        kel_perror("socket() failed to get socket descriptor for using ioctl() ");
        return KEL_ERROR;
    }

    KEL_Snprintf(request.ifr_name, sizeof(request.ifr_name), "%s", ifName);
    if (ioctl(query, SIOCGIFHWADDR, &request) < 0) {
        kel_perror("ioctl() failed to get source MAC address ");
        close(query);
        return KEL_ERROR;
    }
    close(query);

    KEL_MemCpy(addr, request.ifr_hwaddr.sa_data, 6);
    return KEL_OK;
}

/* ---- Descriptors and options: every descriptor that is handed out was made by kel_socket ------------------------ */

LONG kel_socket(kel_domain_t domain, kel_socktype_t type, LONG protocol)
{
    const int on = 1;

    int sockfd = socket(domain, type, (int)protocol);
    if (sockfd == -1) {
        return KEL_ERROR;
    }

    if (setsockopt(sockfd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) < 0 ||
        (domain == KEL_AF_INET6 && setsockopt(sockfd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on)) < 0)) {
        kel_perror("setsockopt socket");
        close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

LONG kel_getsockopt(LONG sockfd, LONG level, LONG optname, void *optval, socklen_t *optlen)
{
    NULL_CHECK(optval);
    NULL_CHECK(optlen);

    return getsockopt((int)sockfd, (int)level, (int)optname, optval, optlen);
}

LONG kel_setsockopt(LONG sockfd, LONG level, LONG optname, const void *optval, socklen_t optlen)
{
    NULL_CHECK(optval);

    return setsockopt((int)sockfd, (int)level, (int)optname, optval, optlen);
}

LONG kel_close(LONG sockfd)
{
    return close((int)sockfd);
}

/* ---- Bind, listen, accept, connect, names: silent but for null arguments and a failed connect ------------------- */

LONG kel_bind(LONG sockfd, kel_sockaddr_t *my_addr)
{
    NULL_CHECK(my_addr);

    if (bind((int)sockfd, &my_addr->sa, (socklen_t)kel_sizeof_socket(my_addr)) != 0) {
        return KEL_ERROR;
    }

    return KEL_OK;
}

LONG kel_bind_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr, SHORT protocol, const CHAR *ifName)
{
    kel_sockaddr_t record;
    KEL_MemSet(&record, 0, sizeof(record));

    /* The wildcard of the family, if it has one and the caller names no address. */
    const CHAR *text = NULL;
    if (family == KEL_AF_INET) {
        text = IPV4_ANY_STR;
    } else if (family == KEL_AF_INET6) {
        text = IPV6_ANY_STR;
    }
    if (addrStr != NULL) {
        text = addrStr;
    }

    if (kel_addr_fill(sockfd, &record, family, port, text, protocol, ifName) != 0) {
        return KEL_ERROR;
    }

    return kel_bind(sockfd, &record);
}

LONG kel_listen(LONG sockfd, LONG maxClient)
{
    /* The analyzer sees -1 come from the one-to-many server, past a bind of -1, which cannot succeed. */
    if (listen((int)sockfd, (int)maxClient) != 0) { // NOLINT(clang-analyzer-unix.StdCLibraryFunctions)
        return KEL_ERROR;
    }

    return KEL_OK;
}

LONG kel_accept(LONG sockfd, kel_sockaddr_t *addr)
{
    NULL_CHECK(addr);

    socklen_t length = sizeof(*addr);
    int accepted = accept((int)sockfd, &addr->sa, &length);
    if (accepted == -1) {
        return KEL_ERROR;
    }

    return accepted;
}

LONG kel_connect(LONG sockfd, kel_sockaddr_t *con_addr)
{
    NULL_CHECK(con_addr);

    if (connect((int)sockfd, &con_addr->sa, (socklen_t)kel_sizeof_socket(con_addr)) != 0) {
        kel_perror("connect :"); /* the report adds a colon: the console shows "connect :: " and the text of errno */
        return KEL_ERROR;
    }

    return KEL_OK;
}

LONG kel_connect_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr)
{
    NULL_CHECK(addrStr);

    kel_sockaddr_t record;
    KEL_MemSet(&record, 0, sizeof(record));

    if (kel_addr_fill(sockfd, &record, family, port, addrStr, 0, NULL) != 0) {
        return KEL_ERROR;
    }

    return kel_connect(sockfd, &record);
}

/* The names are cast, not taken as &addr->sa: a null record has to reach the system, which answers EFAULT. */
LONG kel_getpeername(LONG sockfd, kel_sockaddr_t *addr)
{
    socklen_t length = sizeof(*addr);

    return getpeername((int)sockfd, reinterpret_cast<struct sockaddr *>(addr), &length) == -1 ? KEL_ERROR : KEL_OK;
}

LONG kel_getsockname(LONG sockfd, kel_sockaddr_t *addr)
{
    socklen_t length = sizeof(*addr);

    return getsockname((int)sockfd, reinterpret_cast<struct sockaddr *>(addr), &length) == -1 ? KEL_ERROR : KEL_OK;
}

/* ---- Data transfer: a failed system call is never reported, nothing is closed ----------------------------------- */

LONG kel_recv(LONG sockfd, VOID *buf, size_t len, LONG flags)
{
    return recv((int)sockfd, buf, len, (int)flags);
}

LONG kel_send(LONG sockfd, const VOID *buf, size_t len, LONG flags)
{
    return send((int)sockfd, buf, len, (int)flags);
}

LONG kel_recvfrom(LONG sockfd, void *buf, size_t len, LONG flags, kel_sockaddr_t *src_addr)
{
    NULL_CHECK(buf);
    NULL_CHECK(src_addr);

    /* Counted in 32 bits, here and in kel_sendto: what reads as -1 in them is a failure. */
    socklen_t length = sizeof(*src_addr);
    int count = (int)recvfrom((int)sockfd, buf, len, (int)flags, &src_addr->sa, &length);
    if (count == -1) {
        return KEL_ERROR;
    }

    return count;
}

LONG kel_sendto(LONG sockfd, const void *buf, size_t len, LONG flags, const kel_sockaddr_t *dest_addr)
{
    NULL_CHECK(buf);
    NULL_CHECK(dest_addr);

    socklen_t length = (socklen_t)kel_sizeof_socket(dest_addr);
    int count = (int)sendto((int)sockfd, buf, len, (int)flags, &dest_addr->sa, length);
    if (count == -1) {
        return KEL_ERROR;
    }

    return count;
}

LONG kel_raw_sendto(LONG sockfd, const CHAR *ifName, const void *buf, size_t len, LONG flags)
{
    UCHAR mac[6];
    if (kel_get_if_mac_addr(ifName, mac) == -1) {
        kel_perror("get mac addr");
        return KEL_ERROR;
    }

    kel_sockaddr_t record;
    memset(&record, 0, sizeof(record));

    record.raw.sll_ifindex = (int)if_nametoindex(ifName);
    if (record.raw.sll_ifindex == 0) {
        kel_perror("get %s index\r\n", ifName);
        return KEL_ERROR;
    }

    record.raw.sll_family = KEL_AF_PACKET;
    record.raw.sll_halen = (unsigned char)htons(6); /* 0 on this target, as in kel_addr_fill */
    memcpy(record.raw.sll_addr, mac, sizeof(mac));  /* the frame's own header names its receiver */

    return kel_sendto(sockfd, buf, len, flags, &record);
}

/* ---- TCP and UDP endpoints: create, one or two steps, report the step that failed, close ------------------------ */

[[gnu::flatten]]
LONG kel_tcp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port, LONG maxClient)
{
    LONG sockfd = kel_socket(family, KEL_SOCK_STREAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create tcp socket");
        return KEL_ERROR;
    }

    if (kel_bind_str(sockfd, family, port, addrStr, 0, NULL) == KEL_ERROR) {
        kel_perror("bind tcp socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    /* The backlog is five, whatever the caller asks for. */
    (void)maxClient;
    if (kel_listen(sockfd, 5) == KEL_ERROR) {
        kel_perror("listen tcp socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

[[gnu::flatten]]
LONG kel_tcp_client_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port)
{
    LONG sockfd = kel_socket(family, KEL_SOCK_STREAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create tcp socket");
        return KEL_ERROR;
    }

    if (kel_connect_str(sockfd, family, port, addrStr) == KEL_ERROR) {
        kel_perror("connet tcp socket"); /* scripts and print filters may match it: the spelling stays */
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

/*
 * The local bind of the clients. Without a port there is nothing to bind; a bind that fails leaves the choice of the
 * local address to the system, and the client goes on.
 */
static void __bind_local(LONG sockfd, kel_sockaddr_t *my_addr)
{
    if (my_addr != NULL && my_addr->sin.sin_port != 0) {
        (void)kel_bind(sockfd, my_addr);
    }
}

[[gnu::flatten]]
LONG kel_tcp_client_socket_create_bind(kel_domain_t family, const CHAR *addrStr, SHORT port, kel_sockaddr_t *my_addr)
{
    LONG sockfd = kel_socket(family, KEL_SOCK_STREAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create tcp socket");
        return KEL_ERROR;
    }

    __bind_local(sockfd, my_addr);

    if (kel_connect_str(sockfd, family, port, addrStr) == KEL_ERROR) {
        kel_perror("connet tcp socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

/* The UDP endpoints report with the texts of the TCP ones; the function's name in front tells them apart. */

[[gnu::flatten]]
LONG kel_udp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port)
{
    LONG sockfd = kel_socket(family, KEL_SOCK_DGRAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create tcp socket");
        return KEL_ERROR;
    }

    if (kel_bind_str(sockfd, family, port, addrStr, 0, NULL) == KEL_ERROR) {
        kel_perror("bind tcp socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

/* Descriptor 0 goes to kel_addr_fill, not sockfd: only packet records need one, and these clients build none. */

[[gnu::flatten]]
LONG kel_udp_client_socket_create(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port, kel_sockaddr_t *s_addr)
{
    LONG sockfd = kel_socket(family, KEL_SOCK_DGRAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create tcp socket");
        return KEL_ERROR;
    }

    if (s_addr != NULL && kel_addr_fill(0, s_addr, family, s_port, s_addrStr, 0, NULL) == KEL_ERROR) {
        kel_perror("bind tcp socket"); /* though it is the record that failed and nothing is bound */
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

[[gnu::flatten]]
LONG kel_udp_client_socket_create_bind(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port, kel_sockaddr_t *s_addr,
                                       kel_sockaddr_t *my_addr)
{
    LONG sockfd = kel_socket(family, KEL_SOCK_DGRAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create tcp socket");
        return KEL_ERROR;
    }

    __bind_local(sockfd, my_addr);

    if (s_addr != NULL && kel_addr_fill(0, s_addr, family, s_port, s_addrStr, 0, NULL) == KEL_ERROR) {
        kel_perror("bind tcp socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

/* ---- Local endpoints: as above, on a path ------------------------------------------------------------------------ */

/*
 * unlink(2) without its header's promise that the path is never null. A null path is allowed to come this far and is
 * refused by the check after it, which a compiler that believed the promise would delete; a sanitizer would object.
 */
extern "C" int __unlink_path(const char *path) __asm__("unlink");

[[gnu::flatten]]
LONG kel_unix_tcp_server_socket_create(const CHAR *local_path, LONG maxClient)
{
    LONG sockfd = kel_socket(KEL_AF_UNIX, KEL_SOCK_STREAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create unix socket");
        return KEL_ERROR;
    }

    /* The file that an earlier server left would refuse the bind. Only this endpoint removes it. */
    (void)__unlink_path(local_path);

    if (kel_bind_str(sockfd, KEL_AF_UNIX, 0, local_path, 0, NULL) == KEL_ERROR) {
        kel_perror("bind unix socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    /* The caller's backlog, unlike the five of the TCP server. */
    if (kel_listen(sockfd, maxClient) == KEL_ERROR) {
        kel_perror("listen unix socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

[[gnu::flatten]]
LONG kel_unix_udp_socket_create(const CHAR *local_path, BOOL isbind)
{
    LONG sockfd = kel_socket(KEL_AF_UNIX, KEL_SOCK_DGRAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("create unix socket");
        return KEL_ERROR;
    }

    if (isbind && kel_bind_str(sockfd, KEL_AF_UNIX, 0, local_path, 0, NULL) == KEL_ERROR) {
        kel_perror("bind unix socket");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

[[gnu::flatten]]
LONG kel_unix_tcp_client_socket_create(const CHAR *local_path)
{
    LONG sockfd = kel_socket(KEL_AF_UNIX, KEL_SOCK_STREAM, 0);
    if (sockfd == KEL_ERROR) {
        kel_perror("socket failed");
        return KEL_ERROR;
    }

    if (kel_connect_str(sockfd, KEL_AF_UNIX, 0, local_path) == KEL_ERROR) {
        kel_perror("connect failed");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

/* ---- Packet endpoint --------------------------------------------------------------------------------------------- */

[[gnu::flatten]]
LONG kel_raw_server_socket_create(SHORT protocol, const CHAR *ifName)
{
    /*
     * In host order, where the system expects network order: only the bind puts it right. Until then the socket
     * receives the protocol of the swapped bytes.
     */
    LONG sockfd = kel_socket(KEL_AF_PACKET, KEL_SOCK_RAW, protocol);
    if (sockfd == KEL_ERROR) {
        kel_perror("create raw socket");
        return KEL_ERROR;
    }

    if (kel_bind_str(sockfd, KEL_AF_PACKET, 0, NULL, protocol, ifName) == KEL_ERROR) {
        kel_perror("bind raw socket");
        kel_close(sockfd); /* for an unknown interface, the second close of this number */
        return KEL_ERROR;
    }

    return sockfd;
}

/* ---- SCTP address lists: records of one family, packed for the library and back ---------------------------------- */

/*
 * The bytes of a list: count times element, as a signed product. Of a negative count it is a request that the allocator
 * cannot meet; SIZE_MAX is another, for a product of more than 64 bits.
 */
static size_t __list_size(LONG count, LONG element)
{
    LONG size;
    if (__builtin_mul_overflow(count, element, &size)) {
        return SIZE_MAX;
    }

    return (size_t)size;
}

/* The first record decides the family of the list and the length of every entry: the others' families are not read. */
static struct sockaddr *__kel_addr_transfer2_addr(kel_sockaddr_t *addrs, LONG addrcnt)
{
    NULL_CHECK_RP(addrs);

    LONG entry;
    switch (addrs[0].sa.sa_family) {
    case KEL_AF_INET:
        entry = sizeof(struct sockaddr_in);
        break;
    case KEL_AF_INET6:
        entry = sizeof(struct sockaddr_in6);
        break;
    default:
        return NULL;
    }

    VOID *list = tc_malloc(__list_size(addrcnt, entry));
    if (list == NULL) {
        return NULL;
    }

    UCHAR *position = static_cast<UCHAR *>(list);
    for (LONG i = 0; i < addrcnt; i++) {
        KEL_MemCpy(position, &addrs[i], (size_t)entry);
        position += entry;
    }

    return static_cast<struct sockaddr *>(list);
}

/* The array comes as the allocator delivers it: what lies behind a record's family member is not cleared. */
static kel_sockaddr_t *__addr_transfer2_kel_addr(struct sockaddr *addrs, LONG addrcnt)
{
    NULL_CHECK_RP(addrs);

    sa_family_t family = addrs->sa_family;
    kel_sockaddr_t *records = static_cast<kel_sockaddr_t *>(tc_malloc(__list_size(addrcnt, sizeof(kel_sockaddr_t))));
    if (records == NULL) {
        return NULL;
    }

    switch (family) {
    case KEL_AF_INET:
        for (LONG i = 0; i < addrcnt; i++) {
            records[i].sin = reinterpret_cast<struct sockaddr_in *>(addrs)[i];
        }
        break;
    case KEL_AF_INET6:
        for (LONG i = 0; i < addrcnt; i++) {
            records[i].sin6 = reinterpret_cast<struct sockaddr_in6 *>(addrs)[i];
        }
        break;
    default:
        tc_free(records);
        return NULL;
    }

    return records;
}

/*
 * Without texts, one record for the wildcard of the family, whatever the count. Text that is no address is reported by
 * the assertion in kel_addr_fill alone.
 */
[[gnu::flatten]]
static kel_sockaddr_t *__str_transfer2kel_addr(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr,
                                               LONG addrcnt)
{
    CHAR wildcard[100] = {0};
    CHAR *wildcards[1] = {wildcard};

    if (addrStr == NULL) {
        addrStr = wildcards;
        addrcnt = 1;
        if (family == KEL_AF_INET) {
            KEL_StrCpy(wildcard, IPV4_ANY_STR);
        } else if (family == KEL_AF_INET6) {
            KEL_StrCpy(wildcard, IPV6_ANY_STR);
        }
    }

    kel_sockaddr_t *records = static_cast<kel_sockaddr_t *>(tc_malloc(__list_size(addrcnt, sizeof(kel_sockaddr_t))));
    if (records == NULL) {
        return NULL;
    }

    for (LONG i = 0; i < addrcnt; i++) {
        if (kel_addr_fill(sockfd, &records[i], family, port, addrStr[i], 0, NULL) != KEL_OK) {
            tc_free(records);
            return NULL;
        }
    }

    return records;
}

LONG kel_sctp_getpaddrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs)
{
    NULL_CHECK(addrs);

    struct sockaddr *list = NULL;
    LONG count = sctp_getpaddrs((int)sockfd, assoc_id, &list);
    if (count == -1) {
        kel_perror("sctp_opt_info "); /* as kel_sctp_opt_info reports: addresses are fetched as an option, too */
        return KEL_ERROR;
    }

    if (count != 0) {
        *addrs = __addr_transfer2_kel_addr(list, count);
        if (*addrs == NULL) {
            count = KEL_ERROR;
        }
    }

    if (list != NULL) {
        sctp_freepaddrs(list);
    }

    return count;
}

LONG kel_sctp_getladdrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs)
{
    NULL_CHECK(addrs);

    struct sockaddr *list = NULL;
    LONG count = sctp_getladdrs((int)sockfd, assoc_id, &list);
    if (count == -1) {
        kel_perror("sctp_opt_info ");
        return KEL_ERROR;
    }

    if (count != 0) {
        *addrs = __addr_transfer2_kel_addr(list, count);
        if (*addrs == NULL) {
            count = KEL_ERROR;
        }
    }

    if (list != NULL) {
        sctp_freeladdrs(list);
    }

    return count;
}

LONG kel_sctp_freepaddrs(kel_sockaddr_t *addrs)
{
    tc_free(addrs);
    return KEL_OK;
}

LONG kel_sctp_freeladdrs(kel_sockaddr_t *addrs)
{
    tc_free(addrs);
    return KEL_OK;
}

/* ---- SCTP association calls: failed is a result of exactly -1; receiving is silent ------------------------------- */

LONG kel_sctp_bindx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, LONG flags)
{
    struct sockaddr *list = __kel_addr_transfer2_addr(addrs, addrcnt);
    if (list == NULL) {
        return KEL_ERROR;
    }

    LONG ret = sctp_bindx((int)sockfd, list, (int)addrcnt, (int)flags);
    if (ret == -1) {
        kel_perror("sctp bindx ");
        ret = KEL_ERROR;
    }
    tc_free(list);

    return ret;
}

LONG kel_sctp_bindx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt, LONG flags)
{
    kel_sockaddr_t *records = __str_transfer2kel_addr(sockfd, family, port, addrStr, addrcnt);
    if (records == NULL) {
        return KEL_ERROR;
    }

    /* The caller's count, also for the one wildcard record: a caller that binds the wildcard has to pass 1. */
    LONG ret = kel_sctp_bindx(sockfd, records, addrcnt, flags);
    tc_free(records);

    return ret;
}

LONG kel_sctp_connectx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, sctp_assoc_t *id)
{
    NULL_CHECK(addrs);

    struct sockaddr *list = __kel_addr_transfer2_addr(addrs, addrcnt);
    if (list == NULL) {
        return KEL_ERROR;
    }

    LONG ret = sctp_connectx((int)sockfd, list, (int)addrcnt, id);
    if (ret == -1) {
        kel_perror("sctp connectx ");
        ret = KEL_ERROR;
    }
    tc_free(list);

    return ret;
}

LONG kel_sctp_connectx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt, sctp_assoc_t *id)
{
    NULL_CHECK(addrStr); /* there is no wildcard peer */

    kel_sockaddr_t *records = __str_transfer2kel_addr(sockfd, family, port, addrStr, addrcnt);
    if (records == NULL) {
        return KEL_ERROR;
    }

    LONG ret = kel_sctp_connectx(sockfd, records, addrcnt, id);
    tc_free(records);

    return ret;
}

LONG kel_sctp_send(LONG sockfd, const void *msg, size_t len, const struct sctp_sndrcvinfo *sinfo, LONG flags)
{
    NULL_CHECK(msg);

    int count = sctp_send((int)sockfd, msg, len, sinfo, (int)flags);
    if (count == -1) {
        kel_perror("sctp send ");
        return KEL_ERROR;
    }

    return count;
}

LONG kel_sctp_sendmsg(LONG sockfd, const void *msg, size_t len, kel_sockaddr_t *to, LONG ppid, LONG flags,
                      LONG stream_no, LONG timetolive, LONG context)
{
    socklen_t length = (socklen_t)kel_sizeof_socket(to);
    int count = sctp_sendmsg((int)sockfd, msg, len, &to->sa, length, (uint32_t)ppid, (uint32_t)flags,
                             (uint16_t)stream_no, (uint32_t)timetolive, (uint32_t)context);
    if (count == -1) {
        kel_perror("sctp sendmsg ");
        return KEL_ERROR;
    }

    return count;
}

LONG kel_sctp_recvmsg(LONG sockfd, void *msg, size_t len, kel_sockaddr_t *from, struct sctp_sndrcvinfo *sinfo,
                      LONG *msg_flags)
{
    socklen_t length = sizeof(*from);
    int flags = 0;

    /* A cast, not &from->sa: a null record goes on to the library as it is. */
    int count = sctp_recvmsg((int)sockfd, msg, len, reinterpret_cast<struct sockaddr *>(from), &length, sinfo, &flags);
    if (count == -1) {
        return KEL_ERROR; /* silent: on a descriptor that does not block, receiving always ends in a failure */
    }

    *msg_flags = flags;
    return count;
}

LONG kel_sctp_peeloff(LONG sockfd, sctp_assoc_t assoc_id)
{
    int peeled = sctp_peeloff((int)sockfd, assoc_id);
    if (peeled == -1) {
        kel_perror("sctp_peeloff ");
        return KEL_ERROR;
    }

    return peeled;
}

LONG kel_sctp_opt_info(LONG sockfd, sctp_assoc_t assoc_id, LONG opt, void *arg, socklen_t *size)
{
    NULL_CHECK(arg);
    NULL_CHECK(size);

    int ret = sctp_opt_info((int)sockfd, assoc_id, (int)opt, arg, size);
    if (ret == -1) {
        kel_perror("sctp_opt_info ");
        return KEL_ERROR;
    }

    return ret;
}

/* ---- SCTP set-up: fixed sequences that report the step that failed ----------------------------------------------- */

LONG __kel_set_sock_op_sctp(LONG sockfd, const struct sctp_initmsg *initmsg, const struct sctp_event_subscribe *events)
{
    LONG ret = kel_setsockopt(sockfd, SOL_SCTP, SCTP_INITMSG, initmsg, sizeof(*initmsg));
    if (ret != 0) {
        kel_perror("set sctp_initmsg ");
        return ret;
    }

    ret = kel_setsockopt(sockfd, SOL_SCTP, SCTP_EVENTS, events, sizeof(*events));
    if (ret != 0) {
        kel_perror("set sctp_event_subscribe ");
        return ret;
    }

    return KEL_OK;
}

/* The caller's subscription, or the default in own: data-io events alone. */
static const struct sctp_event_subscribe *__choose_events(const struct sctp_event_subscribe *events,
                                                          struct sctp_event_subscribe *own)
{
    if (events != NULL) {
        return events;
    }

    KEL_MemSet(own, 0, sizeof(*own));
    own->sctp_data_io_event = 1;
    return own;
}

/* The ports are those of the records, here and in the clients; sockfd stays open on every path: it is the caller's. */
LONG __sctp_server_create(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port, LONG maxClient,
                          struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    (void)port;

    if (kel_sctp_bindx(sockfd, addrs, addrcnt, SCTP_BINDX_ADD_ADDR) == KEL_ERROR) {
        kel_perror("bind sctp socket");
        return KEL_ERROR;
    }

    if (kel_listen(sockfd, maxClient) == KEL_ERROR) {
        kel_perror("listen sctp socket");
        return KEL_ERROR;
    }

    /* Behind the listen: an association that is set up in between has the kernel's own values. */
    struct sctp_event_subscribe own;
    if (__kel_set_sock_op_sctp(sockfd, initmsg, __choose_events(events, &own)) != 0) {
        kel_perror("set_sock_op_sctp");
        return KEL_ERROR;
    }

    return KEL_OK;
}

/* The local bind of the clients. When it fails, kel_sctp_bindx reports it and the kernel chooses the addresses. */
static void __bind_local_list(LONG sockfd, kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    if (my_addrs != NULL && my_addrcnt != 0) {
        (void)kel_sctp_bindx(sockfd, my_addrs, my_addrcnt, SCTP_BINDX_ADD_ADDR);
    }
}

[[gnu::flatten]]
LONG __sctp_one2one_client_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                  struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events, sctp_assoc_t *id,
                                  kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    (void)s_port;

    /* Descriptor 0 counts as a failure and stays open. The one-to-many server alone returns it. */
    LONG sockfd = kel_socket(family, KEL_SOCK_STREAM, IPPROTO_SCTP);
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    __bind_local_list(sockfd, my_addrs, my_addrcnt);

    struct sctp_event_subscribe own;
    if (__kel_set_sock_op_sctp(sockfd, initmsg, __choose_events(events, &own)) != 0) {
        kel_perror("set_sock_op_sctp ");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    if (kel_sctp_connectx(sockfd, s_addrs, s_addrcnt, id) != 0) {
        kel_perror("sctp_connectx ");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

/* The peer's addresses are not used: associations come with the caller's first message to each peer. */
[[gnu::flatten]]
LONG __sctp_one2many_client_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                   struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                   kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    (void)s_addrs;
    (void)s_addrcnt;
    (void)s_port;

    LONG sockfd = kel_socket(family, KEL_SOCK_SEQPACKET, IPPROTO_SCTP);
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    __bind_local_list(sockfd, my_addrs, my_addrcnt);

    struct sctp_event_subscribe own;
    if (__kel_set_sock_op_sctp(sockfd, initmsg, __choose_events(events, &own)) != 0) {
        kel_perror("set_sock_op_sctp ");
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

/* ---- SCTP endpoints: a client that fails is reported twice, by its set-up and under its own name ----------------- */

[[gnu::flatten]]
LONG kel_sctp_server_one2one_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port,
                                    LONG maxClient, struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    NULL_CHECK(initmsg);

    LONG sockfd = kel_socket(family, KEL_SOCK_STREAM, IPPROTO_SCTP);
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    kel_sockaddr_t wildcard;
    if (addrs == NULL) {
        KEL_MemSet(&wildcard, 0, sizeof(wildcard));
        /* Not tested: a record that could not be filled fails the bind. */
        (void)kel_addr_fill(sockfd, &wildcard, family, port, family == KEL_AF_INET6 ? IPV6_ANY_STR : IPV4_ANY_STR, 0,
                            NULL);
        addrs = &wildcard;
        addrcnt = 1;
    }

    if (__sctp_server_create(sockfd, addrs, addrcnt, port, maxClient, initmsg, events) != 0) {
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

[[gnu::flatten]]
LONG kel_sctp_server_one2many_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port,
                                     LONG maxClient, struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    NULL_CHECK(initmsg);

    /* Not tested: -1 fails the bind, which is reported, and is closed like a descriptor. A null list fails it, too. */
    LONG sockfd = kel_socket(family, KEL_SOCK_SEQPACKET, IPPROTO_SCTP);

    if (__sctp_server_create(sockfd, addrs, addrcnt, port, maxClient, initmsg, events) != 0) {
        kel_close(sockfd);
        return KEL_ERROR;
    }

    return sockfd;
}

LONG kel_sctp_server_one2one_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port, LONG maxClient,
                                        struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    NULL_CHECK(initmsg);

    kel_sockaddr_t *records = __str_transfer2kel_addr(0, family, port, addrStr, addrcnt);
    if (records == NULL) {
        return KEL_ERROR;
    }

    LONG count = addrStr == NULL ? 1 : addrcnt;
    LONG ret = kel_sctp_server_one2one_create(family, records, count, port, maxClient, initmsg, events);
    tc_free(records);

    return ret;
}

LONG kel_sctp_server_one2many_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port, LONG maxClient,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    NULL_CHECK(initmsg);

    kel_sockaddr_t *records = __str_transfer2kel_addr(0, family, port, addrStr, addrcnt);
    if (records == NULL) {
        return KEL_ERROR;
    }

    LONG count = addrStr == NULL ? 1 : addrcnt;
    LONG ret = kel_sctp_server_one2many_create(family, records, count, port, maxClient, initmsg, events);
    tc_free(records);

    return ret;
}

LONG kel_sctp_client_one2one_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                    struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events, sctp_assoc_t *id)
{
    NULL_CHECK(s_addrs);
    NULL_CHECK(initmsg);
    NULL_CHECK(id);

    LONG sockfd = __sctp_one2one_client_create(family, s_addrs, s_addrcnt, s_port, initmsg, events, id, NULL, 0);
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    return sockfd;
}

LONG kel_sctp_client_one2one_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                         sctp_assoc_t *id, kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    NULL_CHECK(s_addrs);
    NULL_CHECK(initmsg);
    NULL_CHECK(id);

    LONG sockfd =
        __sctp_one2one_client_create(family, s_addrs, s_addrcnt, s_port, initmsg, events, id, my_addrs, my_addrcnt);
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    return sockfd;
}

LONG kel_sctp_client_one2one_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                        struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                        sctp_assoc_t *id)
{
    NULL_CHECK(s_addrStr);
    NULL_CHECK(initmsg);
    NULL_CHECK(id);

    kel_sockaddr_t *records = __str_transfer2kel_addr(0, family, s_port, s_addrStr, s_addrcnt);
    if (records == NULL) {
        return KEL_ERROR;
    }

    LONG ret = kel_sctp_client_one2one_create(family, records, s_addrcnt, s_port, initmsg, events, id);
    tc_free(records);

    return ret;
}

LONG kel_sctp_client_one2many_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                     struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    NULL_CHECK(s_addrs);
    NULL_CHECK(initmsg);

    LONG sockfd = __sctp_one2many_client_create(family, s_addrs, s_addrcnt, s_port, initmsg, events, NULL, 0);
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    return sockfd;
}

LONG kel_sctp_client_one2many_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                          struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                          kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    NULL_CHECK(s_addrs);
    NULL_CHECK(initmsg);

    LONG sockfd =
        __sctp_one2many_client_create(family, s_addrs, s_addrcnt, s_port, initmsg, events, my_addrs, my_addrcnt);
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    return sockfd;
}

LONG kel_sctp_client_one2many_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    NULL_CHECK(s_addrStr);
    NULL_CHECK(initmsg);

    /* Converted, but not used: text that is no address fails here, before there is a socket. */
    kel_sockaddr_t *records = __str_transfer2kel_addr(0, family, s_port, s_addrStr, s_addrcnt);
    if (records == NULL) {
        return KEL_ERROR;
    }

    LONG sockfd = __sctp_one2many_client_create(family, records, s_addrcnt, s_port, initmsg, events, NULL, 0);
    tc_free(records); /* before the report; the other text variants release theirs after it */
    if (!(sockfd > 0)) {
        kel_perror("create sctp socket ");
        return KEL_ERROR;
    }

    return sockfd;
}
