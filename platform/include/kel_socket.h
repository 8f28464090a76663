/*
 * The socket module: one address record for every family, one function for each socket call, and endpoints that come
 * out of one call ready for use.
 *
 * What the functions have in common, argument by argument and then subject by subject:
 *
 *   - sockfd: an open descriptor, of this module or of the system.
 *   - port, s_port: 0 to 65535, in the 16 bits of a SHORT: port 40000 is (SHORT)40000. Recipe: high-ports.
 *   - addrStr, s_addrStr: addresses are numeric. Names of hosts are refused; so are zones ("fe80::1%eth0"), and a
 *     link-local address gets no scope: bind(2) and connect(2) refuse it (EINVAL), sendto(2) picks an interface. Set
 *     sin6_scope_id in a record to name one. Recipes: host-names, split-address.
 *   - Numbers: descriptors, flags, backlogs, option levels and option names travel as LONG and reach the system cut to
 *     int.
 *   - Byte order: ports are in host byte order as arguments; in records, ports and addresses are in network byte order.
 *   - Descriptors: none that the module returns is close-on-exec: programs that the process starts inherit it, unless
 *     fcntl(2) sets FD_CLOEXEC, or SOCK_CLOEXEC stands in the type that kel_socket() gets. Recipe: close-on-exec.
 *   - Constructors: the result of every kel_..._create() is a descriptor that the caller ends with kel_close(), or
 *     KEL_ERROR with nothing left open.
 *   - Steps: a constructor reports the step that failed, after what the step itself reports. The socket comes first: a
 *     null text or one that is no address fails the second step without a call of the system. Recipe: failed-address.
 *   - Null pointers: one that is refused is reported ("addr is null\r\n"), and KEL_ERROR returned. A function that only
 *     hands a pointer on leaves the check to the one that uses it: an endpoint has created its socket by then, and
 *     closes it again.
 *   - Failures: the result is KEL_ERROR. errno is what the failed call left, unless a report or a close behind it has
 *     changed it: the module never sets, saves or restores it.
 *   - Failures without a call: a null pointer or a text that is no address leaves errno as the calls in front of it
 *     did. An endpoint's report then ends in words that have nothing to do with the failure, as in "connet tcp socket:
 *     Success".
 *   - Reports: the texts that are quoted are reports at the error level. On the console, function and line stand in
 *     front of the text and, null pointers apart, the words of errno behind it; the system log gets the text alone. The
 *     print filter may suppress a report; the result stays the same.
 *   - Unwritten records: a success may leave a record unwritten, in part or wholly: clear it first. Of a local peer
 *     that is bound to no path, kel_accept(), kel_getpeername() and kel_getsockname() write the family alone, and
 *     kel_recvfrom() nothing. On a TCP or local stream socket, kel_recvfrom() never writes the record.
 *   - Blocking: a call blocks as the system's does. Recipes: timeouts, poll.
 *   - Memory: records and buffers belong to the caller, and no pointer is kept.
 *   - Threads: any function may run on several threads.
 */
#ifndef KEL_SOCKET_H
#define KEL_SOCKET_H

/* Release of the module: compatible changes raise the second number, others the first and the library's soname. */
#define KEL_SOCKET_VERSION "1.0.0"

#include "kel_types.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

/*
 * struct sockaddr_ll stands in two headers of the system, <netpacket/packet.h> and <linux/if_packet.h>, which exclude
 * each other. The first one that a program includes serves. The kernel's has all that the C library's has, so behind it
 * the C library's is marked as included and adds nothing.
 */
#ifndef __NETPACKET_PACKET_H
#include <linux/if_packet.h>
#define __NETPACKET_PACKET_H 1
#endif

#ifdef __cplusplus
extern "C" {
/* Applications pass on any number as a family or type, and C++ leaves only the listed ones defined without this. */
#define KEL_ENUM_OF_INT : int
#else
#define KEL_ENUM_OF_INT
#endif

/* ---- Address record ------------------------------------------------------------------------------------------- */

/* Address families: the system's own values, stored into records and passed to the system unchanged. */
typedef enum kel_domain_e KEL_ENUM_OF_INT {
    KEL_AF_UNIX = 1,
    KEL_AF_INET = 2,
    KEL_AF_INET6 = 10,
    KEL_AF_PACKET = 17
} kel_domain_t;

/* Socket types: the system's own values. */
typedef enum kel_socktype_e KEL_ENUM_OF_INT {
    KEL_SOCK_STREAM = 1,
    KEL_SOCK_DGRAM = 2,
    KEL_SOCK_RAW = 3,
    KEL_SOCK_SEQPACKET = 5
} kel_socktype_t;

#undef KEL_ENUM_OF_INT

/* The wildcard addresses as text. */
#define IPV4_ANY_STR "0.0.0.0"
#define IPV6_ANY_STR "::"

/* A socket address of any family. Every member begins with the family, which is read through sa.sa_family. */
typedef union kel_sockaddr_u {
    struct sockaddr sa;
    struct sockaddr_in sin;   /* KEL_AF_INET: port and address in network byte order */
    struct sockaddr_in6 sin6; /* KEL_AF_INET6: likewise */
    struct sockaddr_un un;    /* KEL_AF_UNIX: path */
    struct sockaddr_ll raw;   /* KEL_AF_PACKET: protocol in network byte order, interface index */
} kel_sockaddr_t;

/**
 * Tells the length that belongs to a filled record, as bind(2), connect(2) and sendto(2) want it.
 *
 * @param addr record of any family; not checked, must not be null
 * @return bytes: 16 (KEL_AF_INET), 28 (KEL_AF_INET6), 110 (KEL_AF_UNIX, whatever the path's length), 20
 *         (KEL_AF_PACKET), or 0 for any other family
 */
LONG kel_sizeof_socket(const kel_sockaddr_t *addr);

/* ---- Address text --------------------------------------------------------------------------------------------- */

/**
 * Tells whether a text is an IPv4 address: four decimal fields of 0 to 255, with up to three digits each.
 *
 * Compiles its pattern on every call, which costs about 200 thousand instructions and 600 allocations. Check a text
 * once, where it enters the program; kel_inet_pton() refuses what is no address, too, for some 340 instructions.
 *
 * @param str text, or NULL
 * @return KEL_TRUE or, for NULL too, KEL_FALSE; leading zeros pass ("192.168.001.010"), though kel_inet_pton() refuses
 *         them; blanks do not
 */
BOOL kel_is_ipv4_addr(CHAR *str);

/**
 * Tells whether a text is an IPv6 address, with or without compression and a dotted IPv4 tail.
 *
 * Compiles its pattern on every call, which costs about 3 million instructions and 7,000 allocations. Check a text
 * once, where it enters the program; kel_inet_pton() refuses what is no address, too, for some 710 instructions.
 *
 * @param str text, or NULL
 * @return KEL_TRUE or, for NULL too, KEL_FALSE; "::" alone does not pass, though kel_inet_pton() takes it; nor do
 *         leading zeros in a dotted tail, zones ("%eth0") and brackets. Recipe: split-address.
 */
BOOL kel_is_ipv6_addr(char *str);

/**
 * Converts address text into the address field of a record. Family and port of the record are left as they are.
 *
 * @param af  KEL_AF_INET or KEL_AF_INET6; any other family fails
 * @param src numeric address, without port and zone
 * @param dst record that receives the address, in network byte order
 * @return KEL_OK, or KEL_ERROR for a text that is no address of the family (not reported)
 *
 * Reported: "src is null\r\n", "dst is null\r\n". Recipe: host-names.
 */
LONG kel_inet_pton(LONG af, const CHAR *src, kel_sockaddr_t *dst);

/**
 * Writes the address field of a record as text.
 *
 * @param af   KEL_AF_INET or KEL_AF_INET6; the record's own family is not looked at
 * @param src  record; must not be null
 * @param dst  receives the text and its NUL; must not be null
 * @param size bytes at dst: INET_ADDRSTRLEN (16) or INET6_ADDRSTRLEN (46) are enough
 * @return dst, or NULL for another family or too small a buffer, for which errno is as inet_ntop(3) sets it; neither is
 *         reported
 */
const CHAR *kel_inet_ntop(LONG af, const kel_sockaddr_t *src, CHAR *dst, socklen_t size);

/**
 * Describes a record in one line: "ipv4 10.1.2.3:5000", "ipv6 ::1:80", "file /run/app", "ifindex 2,protocol 0x3". An
 * abstract local name, which begins with a NUL, is shown as "file ".
 *
 * @param addr record of any family; must not be null
 * @param str  receives the line, at most 99 characters of it, and NULs up to size; must not be null
 * @param size characters at str, not negative; a line that does not fit is cut and then has no NUL, as with strncpy(3)
 * @return str, or the constant text "null" for an unknown family, which leaves str untouched. Recipe: split-address.
 */
CHAR *kel_addr_showstr(kel_sockaddr_t *addr, CHAR *str, LONG size);

/* ---- Address comparison --------------------------------------------------------------------------------------- */

/**
 * Tells whether two records name the same endpoint.
 *
 * Compared are port and address (IPv4, IPv6), path (local) or protocol and interface (packet), and nothing else: not
 * the scope of an IPv6 address, nor what stands behind the first NUL of a path. Abstract local names begin with one, so
 * any two of them are the same here.
 *
 * @param addr1   record; a local path must end in a NUL
 * @param addr2   record; likewise
 * @param ignPort KEL_TRUE, or any other number but 0: a differing port makes no difference; the protocol of a packet
 *                record always does
 * @return KEL_OK when they are the same; KEL_ERROR when not, or when the family is none of the four
 *
 * Reported: "addr1 is null\r\n", "addr2 is null\r\n".
 */
LONG kel_sock_addr_cmp(kel_sockaddr_t *addr1, kel_sockaddr_t *addr2, BOOL ignPort);

/* ---- Address construction ------------------------------------------------------------------------------------- */

/**
 * Fills a record from its parts. The record is cleared first; what a family does not use may be NULL or 0.
 *
 * @param socket   KEL_AF_PACKET: an open descriptor for the interface query. When the query fails it has been closed
 *                 and must not be closed again. Other families: not used
 * @param my_addr  receives the record
 * @param family   its family; for a family that is none of the four the record stays zero and the result is KEL_OK, and
 *                 the system call that gets the record refuses it
 * @param port     KEL_AF_INET, KEL_AF_INET6: host byte order
 * @param addrStr  KEL_AF_INET, KEL_AF_INET6: numeric address, required; the wildcards are "0.0.0.0" and "::".
 *                 KEL_AF_UNIX: path, required; 107 characters fit with their NUL, a longer one is cut to 108 without
 *                 one. An empty path is an abstract name of 107 NULs
 * @param protocol KEL_AF_PACKET: link-layer protocol in host byte order (3 is every protocol)
 * @param ifName   KEL_AF_PACKET: interface name, required; its first 15 characters count, so a longer name finds the
 *                 interface that is called by its beginning
 * @return KEL_OK, or KEL_ERROR: a required text is null, the address is none (the assertion handler is called, nothing
 *         else is reported), or the interface is unknown (not reported, ENODEV, socket closed)
 *
 * Reported: "my_addr is null\r\n", "addrStr is null\r\n", "ifName is null\r\n". See netdevice(7), packet(7). Recipes:
 * long-paths, packet-double-close.
 */
LONG kel_addr_fill(LONG socket, kel_sockaddr_t *my_addr, kel_domain_t family, SHORT port, const CHAR *addrStr,
                   SHORT protocol, const CHAR *ifName);

/**
 * Reads the hardware address of a network interface, through a packet socket of its own.
 *
 * @param ifName interface name; its first 15 characters count
 * @param addr   receives 6 bytes in the order of the wire, whatever kind of interface it is
 * @return KEL_OK or KEL_ERROR; a failure leaves addr untouched. Needs the raw-socket privilege (CAP_NET_RAW); errno is
 *         ENODEV for an unknown interface
 *
 * Reported: "ifName is null\r\n", "addr is null\r\n", "socket() failed to get socket descriptor for using ioctl() ",
 * "ioctl() failed to get source MAC address ".
 */
LONG kel_get_if_mac_addr(const CHAR *ifName, UCHAR *addr);

/* ---- Descriptors and options ---------------------------------------------------------------------------------- */

/**
 * Creates a socket with SO_REUSEADDR and, for KEL_AF_INET6, IPV6_V6ONLY set.
 *
 * @param domain   address family, one of kel_domain_t or any other that the system knows
 * @param type     socket type, one of kel_socktype_t or any other that the system knows
 * @param protocol the family's protocol number, 0 for its default; for KEL_AF_PACKET in network byte order
 * @return the descriptor, which the caller ends with kel_close(); KEL_ERROR with nothing left open. A failed socket(2)
 *         is not reported
 *
 * Reported: "setsockopt socket". Recipes: both-versions, shared-port.
 */
LONG kel_socket(kel_domain_t domain, kel_socktype_t type, LONG protocol);

/**
 * Reads a socket option.
 *
 * @param level   option level, such as SOL_SOCKET
 * @param optname option of that level
 * @param optval  receives the value
 * @param optlen  in: bytes at optval; out: bytes of the value
 * @return 0, or -1 with errno as getsockopt(2) sets it (not reported)
 *
 * Reported: "optval is null\r\n", "optlen is null\r\n".
 */
LONG kel_getsockopt(LONG sockfd, LONG level, LONG optname, void *optval, socklen_t *optlen);

/**
 * Sets a socket option.
 *
 * @param level   option level, such as SOL_SOCKET
 * @param optname option of that level
 * @param optval  the value
 * @param optlen  bytes of the value
 * @return 0, or -1 with errno as setsockopt(2) sets it (not reported)
 *
 * Reported: "optval is null\r\n". Recipe: timeouts.
 */
LONG kel_setsockopt(LONG sockfd, LONG level, LONG optname, const void *optval, socklen_t optlen);

/**
 * Closes a descriptor.
 *
 * @return 0, or -1 with errno as close(2) sets it; never reported. Recipe: shutdown.
 */
LONG kel_close(LONG sockfd);

/* ---- Bind, listen, accept, connect, names --------------------------------------------------------------------- */

/**
 * Binds a socket to a local address.
 *
 * @param my_addr record of any family, with port and address, path, or protocol and interface filled
 * @return KEL_OK, or KEL_ERROR with errno as bind(2) sets it (not reported)
 *
 * Reported: "my_addr is null\r\n".
 */
LONG kel_bind(LONG sockfd, kel_sockaddr_t *my_addr);

/**
 * Binds a socket to a local address given in parts.
 *
 * @param family   any of the four
 * @param port     KEL_AF_INET, KEL_AF_INET6: host byte order; 0 lets the system choose
 * @param addrStr  numeric address or path; NULL is the wildcard for KEL_AF_INET and KEL_AF_INET6, refused for
 *                 KEL_AF_UNIX and not looked at for KEL_AF_PACKET
 * @param protocol KEL_AF_PACKET: link-layer protocol in host byte order (3 is every protocol)
 * @param ifName   KEL_AF_PACKET: interface name, required; its first 15 characters count
 * @return KEL_OK or KEL_ERROR. For KEL_AF_PACKET and an unknown interface (ENODEV) sockfd has been closed and must not
 *         be closed again
 *
 * Reported: what kel_addr_fill() reports. Recipe: packet-double-close.
 */
LONG kel_bind_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr, SHORT protocol,
                  const CHAR *ifName);

/**
 * Makes a socket listen.
 *
 * @param maxClient backlog: connections that may wait, passed on unchanged; on an SCTP socket 0 ends listening, and
 *                  fails where there is none
 * @return KEL_OK, or KEL_ERROR with errno as listen(2) sets it (not reported). Recipe: backlog.
 */
LONG kel_listen(LONG sockfd, LONG maxClient);

/**
 * Takes one connection from a listening socket; blocks as accept(2) does.
 *
 * @param addr receives the peer's address, of an unnamed local peer the family alone; required
 * @return the connection's descriptor, which the caller closes; KEL_ERROR with errno as accept(2) sets it (not
 *         reported)
 *
 * Reported: "addr is null\r\n". Recipe: many-clients.
 */
LONG kel_accept(LONG sockfd, kel_sockaddr_t *addr);

/**
 * Connects a socket to a peer.
 *
 * @param con_addr record with family, and port and address or path, filled
 * @return KEL_OK or KEL_ERROR. On a descriptor that does not block, a connection that is under way is an error too,
 *         reported, with EINPROGRESS in errno
 *
 * Reported: "con_addr is null\r\n", "connect :".
 */
LONG kel_connect(LONG sockfd, kel_sockaddr_t *con_addr);

/**
 * Connects a socket to a peer given in parts.
 *
 * @param family  KEL_AF_INET, KEL_AF_INET6 or KEL_AF_UNIX
 * @param port    KEL_AF_INET, KEL_AF_INET6: host byte order
 * @param addrStr numeric address or path; NULL is refused, there is no wildcard peer
 * @return KEL_OK or KEL_ERROR, as of kel_connect()
 *
 * Reported: "addrStr is null\r\n", and what kel_addr_fill() and kel_connect() report.
 */
LONG kel_connect_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr);

/**
 * Tells the peer's address.
 *
 * @param addr receives it, of an unnamed local peer the family alone; null is refused by the system (EFAULT)
 * @return KEL_OK, or KEL_ERROR with errno as getpeername(2) sets it (not reported)
 */
LONG kel_getpeername(LONG sockfd, kel_sockaddr_t *addr);

/**
 * Tells the local address.
 *
 * @param addr receives it, of an unnamed local socket the family alone; null is refused by the system (EFAULT)
 * @return KEL_OK, or KEL_ERROR with errno as getsockname(2) sets it (not reported)
 */
LONG kel_getsockname(LONG sockfd, kel_sockaddr_t *addr);

/* ---- Data transfer: that the sending or receiving itself fails is not reported; errno is that of the call ----- */

/**
 * Receives from a connected socket.
 *
 * @param buf   receives at most len bytes
 * @param len   bytes at buf
 * @param flags MSG_* flags
 * @return bytes received, 0 at the end of a stream, or KEL_ERROR with errno as recv(2) sets it. Recipe: shutdown.
 */
LONG kel_recv(LONG sockfd, VOID *buf, size_t len, LONG flags);

/**
 * Sends on a connected socket.
 *
 * @param buf   the data
 * @param len   bytes at buf
 * @param flags MSG_* flags; without MSG_NOSIGNAL a peer that has gone raises SIGPIPE
 * @return bytes sent, which may be fewer than len on a stream, or KEL_ERROR with errno as send(2) sets it
 */
LONG kel_send(LONG sockfd, const VOID *buf, size_t len, LONG flags);

/**
 * Receives a datagram and its sender.
 *
 * @param buf      receives at most len bytes; the rest of a longer datagram is lost
 * @param len      bytes at buf
 * @param flags    MSG_* flags
 * @param src_addr receives the sender's address; not written on a TCP or local stream socket, nor for a local sender
 *                 that is not bound
 * @return bytes received, as a 32-bit count, or KEL_ERROR with errno as recvfrom(2) sets it
 *
 * Reported: "buf is null\r\n", "src_addr is null\r\n".
 */
LONG kel_recvfrom(LONG sockfd, void *buf, size_t len, LONG flags, kel_sockaddr_t *src_addr);

/**
 * Sends a datagram.
 *
 * @param buf       the data
 * @param len       bytes at buf
 * @param flags     MSG_* flags; on a TCP socket, without MSG_NOSIGNAL, a peer that has gone raises SIGPIPE
 * @param dest_addr record with family, port and address filled; a connected local stream refuses any (EISCONN)
 * @return bytes sent, as a 32-bit count, or KEL_ERROR with errno as sendto(2) sets it
 *
 * Reported: "buf is null\r\n", "dest_addr is null\r\n".
 */
LONG kel_sendto(LONG sockfd, const void *buf, size_t len, LONG flags, const kel_sockaddr_t *dest_addr);

/**
 * Sends one whole link-layer frame out of an interface.
 *
 * Asks for the interface's hardware address and index on every call: six system calls before the one that sends, about
 * 1,000 instructions, and milliseconds in the kernel, which takes that long to end a packet socket. That one of the six
 * fails is reported. To send many frames, fill a record once with kel_addr_fill() and call kel_sendto(): one system
 * call, some 40 instructions.
 *
 * @param sockfd packet socket, as kel_raw_server_socket_create() gives it
 * @param ifName interface name; more than 15 characters are refused (ENODEV)
 * @param buf    the frame with its link-layer header
 * @param len    bytes at buf
 * @param flags  MSG_* flags
 * @return bytes sent or KEL_ERROR. Needs the raw-socket privilege
 *
 * Reported: what kel_get_if_mac_addr() reports, then "get mac addr"; "get %s index\r\n" with the name; what
 * kel_sendto() reports. Recipe: many-frames.
 */
LONG kel_raw_sendto(LONG sockfd, const CHAR *ifName, const void *buf, size_t len, LONG flags);

/* ---- TCP and UDP endpoints ------------------------------------------------------------------------------------ */

/**
 * Creates a TCP socket that listens on one local address.
 *
 * @param family    KEL_AF_INET or KEL_AF_INET6; an IPv6 socket takes no IPv4 traffic
 * @param addrStr   numeric address, or NULL for every local address of the family
 * @param port      host byte order; 0 lets the system choose, kel_getsockname() tells. One on which another socket
 *                  listens fails (EADDRINUSE)
 * @param maxClient not used: the backlog is always 5
 *
 * Reported: "create tcp socket", "bind tcp socket", "listen tcp socket"; what kel_socket() and kel_addr_fill() report.
 * Recipes: backlog, both-versions, many-clients.
 */
LONG kel_tcp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port, LONG maxClient);

/**
 * Create a TCP socket that is connected to a server, from a local address where one is given.
 *
 * @param family  KEL_AF_INET or KEL_AF_INET6
 * @param addrStr numeric address of the server; NULL is refused
 * @param port    its port, host byte order
 * @param my_addr local address; NULL, or a record with port 0, binds nothing. A bind that fails is not reported: the
 *                socket then connects from an address of the system's choice, which kel_getsockname() tells
 *
 * Reported: "create tcp socket", "connet tcp socket" (spelled so); what kel_socket() and kel_connect_str() report.
 */
LONG kel_tcp_client_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port);
LONG kel_tcp_client_socket_create_bind(kel_domain_t family, const CHAR *addrStr, SHORT port, kel_sockaddr_t *my_addr);

/**
 * Creates a UDP socket that is bound to one local address.
 *
 * @param family  KEL_AF_INET or KEL_AF_INET6
 * @param addrStr numeric address, or NULL for every local address of the family
 * @param port    host byte order; 0 lets the system choose. One that another socket of this module is bound to
 *                succeeds, and the datagrams go to the newer socket from then on: SO_REUSEADDR allows it
 *
 * Reported, with the TCP texts: "create tcp socket", "bind tcp socket"; what kel_socket() and kel_addr_fill() report.
 * Recipes: both-versions, shared-port.
 */
LONG kel_udp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port);

/**
 * Create a UDP socket that is not connected, and fill the server's record for kel_sendto(). It is bound where a local
 * address is given.
 *
 * @param family    KEL_AF_INET or KEL_AF_INET6
 * @param s_addrStr numeric address of the server; required when s_addr is given, not looked at otherwise
 * @param s_port    its port, host byte order
 * @param s_addr    receives the server's record, or NULL
 * @param my_addr   local address; NULL, or a record with port 0, binds nothing. A bind that fails is not reported
 *
 * Reported, with the TCP texts: "create tcp socket", "bind tcp socket" (the record could not be filled); what
 * kel_socket() and kel_addr_fill() report.
 */
LONG kel_udp_client_socket_create(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port, kel_sockaddr_t *s_addr);
LONG kel_udp_client_socket_create_bind(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port, kel_sockaddr_t *s_addr,
                                       kel_sockaddr_t *my_addr);

/* ---- Local-domain endpoints -----------------------------------------------------------------------------------
 *
 *   - local_path: at most 107 characters. A longer one is cut to 108, and the file of the cut name is what is bound or
 *     connected to. Recipe: long-paths.
 */

/**
 * Creates a local datagram socket.
 *
 * @param local_path path to bind to; a file that exists there makes the bind fail, NULL is refused
 * @param isbind     KEL_FALSE: nothing is bound and local_path not used
 *
 * Reported: "create unix socket", "bind unix socket"; what kel_socket() and kel_addr_fill() report. Recipe:
 * lost-socket-file.
 */
LONG kel_unix_udp_socket_create(const CHAR *local_path, BOOL isbind);

/**
 * Creates a local stream socket that listens on a path.
 *
 * @param local_path path. Whatever file stands there is removed first, but no folder; the socket's own file stays when
 *                   the descriptor is closed. Of a path that is too long the whole name is removed, and the cut one is
 *                   not: the next start fails. NULL is refused behind the removal, which leaves EFAULT in errno
 * @param maxClient  backlog: connections that may wait, passed on unchanged
 *
 * Reported: "create unix socket", "bind unix socket", "listen unix socket"; what kel_socket() and kel_addr_fill()
 * report. Recipe: lost-socket-file.
 */
LONG kel_unix_tcp_server_socket_create(const CHAR *local_path, LONG maxClient);

/**
 * Creates a local stream socket that is connected to a server.
 *
 * @param local_path the server's path; NULL is refused
 *
 * Reported: "socket failed", "connect failed"; what kel_socket() and kel_connect_str() report.
 */
LONG kel_unix_tcp_client_socket_create(const CHAR *local_path);

/* ---- Packet endpoint ------------------------------------------------------------------------------------------ */

/**
 * Creates a packet socket that receives whole frames of one protocol from one interface, and sends whole frames.
 *
 * Until the bind inside, the socket receives the protocol of the number's swapped bytes, from every interface: frames
 * of it may be waiting when the call returns.
 *
 * @param protocol link-layer protocol in host byte order (3 is every protocol)
 * @param ifName   interface name, of which the first 15 characters count; NULL is refused
 * @return the descriptor, or KEL_ERROR. Needs the raw-socket privilege. When the interface is unknown the descriptor's
 *         number is closed twice, which leaves EBADF in errno: a thread that opens descriptors meanwhile may lose one
 *
 * Reported: "create raw socket", "bind raw socket"; what kel_socket() and kel_addr_fill() report. Recipe:
 * packet-double-close.
 */
LONG kel_raw_server_socket_create(SHORT protocol, const CHAR *ifName);

/* ---- SCTP -----------------------------------------------------------------------------------------------------
 *
 * The records and constants are in kel_sctp.h, which includes kel_socket.h.
 *
 *   - Lists of addresses: arrays of records, or of numeric texts, of one family: that of the first record decides how
 *     all of them are read, and a mixed list is not noticed. Counts are not checked: a negative one finds no memory and
 *     fails; of records there may be 0, of texts at least 1. A text that is NULL is refused ("addrStr is null\r\n").
 *     Temporary lists come from tc_malloc() and are gone when a call returns.
 *   - A kernel without SCTP: it refuses to create the sockets (EPROTONOSUPPORT, or ESOCKTNOSUPPORT for one-to-many).
 *     The one-to-many server goes on without one, so its reports are "sctp bindx : Bad file descriptor" and "bind sctp
 *     socket: Bad file descriptor".
 */

typedef int sctp_assoc_t; /* association identifier, 32 bits; one-to-one sockets have one, and ignore it */

struct sctp_event_subscribe;
struct sctp_initmsg;
struct sctp_sndrcvinfo;

/**
 * Fetch the peer's addresses of an association, or the local ones.
 *
 * @param assoc_id association; any while a one-to-one socket has one. For kel_sctp_getladdrs() also 0: all local
 *                 addresses of the socket
 * @param addrs    receives an array of records in memory of its own, for kel_sctp_freepaddrs() or
 *                 kel_sctp_freeladdrs(); NULL when the addresses were fetched and could not be converted. Not written
 *                 when the result is 0 or the fetching failed: set it to NULL before the call. What lies behind a
 *                 record's own family member is not cleared
 * @return number of records, 0 when there are none, or KEL_ERROR; errno as getsockopt(2) left it
 *
 * Reported: "addrs is null\r\n", "sctp_opt_info " (for every failure of the library).
 */
LONG kel_sctp_getpaddrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs);
LONG kel_sctp_getladdrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs);

/**
 * Release the array of kel_sctp_getpaddrs() or kel_sctp_getladdrs(); either function takes either array.
 *
 * @param addrs array, or NULL
 * @return KEL_OK
 */
LONG kel_sctp_freepaddrs(kel_sockaddr_t *addrs);
LONG kel_sctp_freeladdrs(kel_sockaddr_t *addrs);

/**
 * Add local addresses to an endpoint, or remove them.
 *
 * @param addrs   records of KEL_AF_INET or KEL_AF_INET6, with their ports, which have to be the same or 0 behind the
 *                first; records of another family fail without a report
 * @param family  KEL_AF_INET or KEL_AF_INET6
 * @param port    of every text, host byte order
 * @param addrStr numeric addresses; NULL is the wildcard, and addrcnt has to be 1 then
 * @param addrcnt number of records or texts
 * @param flags   SCTP_BINDX_ADD_ADDR or SCTP_BINDX_REM_ADDR, passed on unchecked
 * @return the library's result (0), or KEL_ERROR; errno as setsockopt(2) left it
 *
 * Reported: "addrs is null\r\n", "sctp bindx "; of texts, what kel_addr_fill() reports.
 */
LONG kel_sctp_bindx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, LONG flags);
LONG kel_sctp_bindx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt, LONG flags);

/**
 * Set up one association with a peer that has several addresses. Blocks until the peer has answered or was given up.
 *
 * @param addrs   the peer's records of KEL_AF_INET or KEL_AF_INET6, with their ports, which have to be the same;
 *                records of another family fail without a report
 * @param family  KEL_AF_INET or KEL_AF_INET6
 * @param port    of every text, host byte order
 * @param addrStr numeric addresses; NULL is refused, there is no wildcard peer
 * @param addrcnt number of records or texts
 * @param id      receives the association's identifier, also when the call fails with EINPROGRESS, as it does on a
 *                descriptor that does not block; passed on unchecked
 * @return the library's result (0), or KEL_ERROR with the descriptor still open; errno as connect(2) would leave it
 *
 * Reported: "addrs is null\r\n", "addrStr is null\r\n", "sctp connectx "; of texts, what kel_addr_fill() reports.
 * Recipe: bounded-connect.
 */
LONG kel_sctp_connectx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, sctp_assoc_t *id);
LONG kel_sctp_connectx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt,
                           sctp_assoc_t *id);

/**
 * Sends one message over an association.
 *
 * @param msg   message, not null
 * @param len   its bytes; one message is sent whole or not at all, and one that the send buffer (SO_SNDBUF) cannot hold
 *              fails with EMSGSIZE
 * @param sinfo stream, identifiers and association, which a one-to-many socket needs; passed on unchecked
 * @param flags as for send(2); without MSG_NOSIGNAL, sending where there is no association ends the process (SIGPIPE)
 * @return bytes sent, 0 with SCTP_ABORT, or KEL_ERROR; errno as sendmsg(2) left it
 *
 * Reported: "msg is null\r\n", "sctp send ". Recipe: ppid.
 */
LONG kel_sctp_send(LONG sockfd, const void *msg, size_t len, const struct sctp_sndrcvinfo *sinfo, LONG flags);

/**
 * Sends one message to a peer; the first message to a peer sets up the association.
 *
 * @param msg        message; passed on unchecked
 * @param len        its bytes; more than the send buffer (SO_SNDBUF) holds is EMSGSIZE, none is EINVAL but with
 *                   SCTP_EOF
 * @param to         a peer's record of KEL_AF_INET or KEL_AF_INET6, with its port; must not be null
 * @param ppid       payload protocol identifier as it appears on the wire: no byte order is changed, use htonl(3)
 * @param flags      of enum sctp_sinfo_flags; 32 bits of it
 * @param stream_no  stream, 0 to 65535: cut to 16 bits; one that the association does not have is EINVAL
 * @param timetolive milliseconds until the message is given up, 0 for never; 32 bits of it
 * @param context    handed back when sending fails (SCTP_SEND_FAILED); 32 bits of it
 * @return bytes sent, 0 with SCTP_ABORT, or KEL_ERROR; errno as sendmsg(2) left it
 *
 * Reported: "sctp sendmsg ". Recipe: ppid.
 */
LONG kel_sctp_sendmsg(LONG sockfd, const void *msg, size_t len, kel_sockaddr_t *to, LONG ppid, LONG flags,
                      LONG stream_no, LONG timetolive, LONG context);

/**
 * Receives one message or notification.
 *
 * @param msg       receives it; what does not fit is what the next call delivers, with no MSG_EOR until the end
 * @param len       size of msg
 * @param from      receives the sender's address, whose length is that of its family, but not at the end of an
 *                  association; passed on unchecked
 * @param sinfo     receives stream and identifiers of a message when sctp_data_io_event asks for them, and is not
 *                  written otherwise; passed on unchecked
 * @param msg_flags receives the flags: MSG_NOTIFICATION, MSG_EOR; must not be null. Not written by a call that fails
 * @return bytes received, 0 at the end of a one-to-one association, or KEL_ERROR; errno as recvmsg(2) left it
 *
 * Nothing is reported. Recipe: ppid.
 */
LONG kel_sctp_recvmsg(LONG sockfd, void *msg, size_t len, kel_sockaddr_t *from, struct sctp_sndrcvinfo *sinfo,
                      LONG *msg_flags);

/**
 * Gives an association of a one-to-many socket a descriptor of its own.
 *
 * @param assoc_id association; an unknown one, and any on a one-to-one socket, is EINVAL
 * @return the descriptor, which the caller closes, or KEL_ERROR; errno as getsockopt(2) left it
 *
 * Reported: "sctp_peeloff ". Recipe: peel-off.
 */
LONG kel_sctp_peeloff(LONG sockfd, sctp_assoc_t assoc_id);

/**
 * Reads an SCTP option of one association.
 *
 * @param assoc_id association of a one-to-many socket; the library writes it into the first four bytes of arg, where
 *                 most records have it. struct sctp_sndrcvinfo has it at its end: fill in sinfo_assoc_id
 * @param opt      one of the options of kel_sctp.h, passed on unchecked
 * @param arg      option's record, of four bytes at least, whose question (an address, for example) is filled in;
 *                 receives the answer
 * @param size     bytes of arg; receives those of the answer
 * @return the library's result (0; for an option that it does not know, a positive number), or KEL_ERROR; errno as
 *         getsockopt(2) left it
 *
 * Reported: "arg is null\r\n", "size is null\r\n", "sctp_opt_info ".
 */
LONG kel_sctp_opt_info(LONG sockfd, sctp_assoc_t assoc_id, LONG opt, void *arg, socklen_t *size);

/**
 * Make an SCTP server: bound to each address of its list, listening, its options set. From a one-to-one server,
 * kel_accept() takes each association as a descriptor; a one-to-many server carries all its associations itself.
 *
 * @param family    KEL_AF_INET or KEL_AF_INET6
 * @param addrs     local records, with their ports. Null is the wildcard at port for a one-to-one server, whatever
 *                  addrcnt is; the one-to-many server refuses it
 * @param addrStr   local numeric addresses; null is the wildcard for both servers, whatever addrcnt is
 * @param addrcnt   number of records or texts
 * @param port      of texts and of the wildcard, host byte order; records keep their own
 * @param maxClient backlog, as for listen(2), but not 0: with SCTP that is to end listening, and fails
 * @param initmsg   how associations are set up: streams, attempts, time; not null
 * @param events    notifications that are to arrive, just these; null subscribes to data-io events alone
 * @return the descriptor, which the caller closes, or KEL_ERROR with nothing left open but, from a one-to-one server,
 *         descriptor 0, which counts as a failure and is not closed
 *
 * Reported: "initmsg is null\r\n"; "create sctp socket " (one-to-one), "bind sctp socket", "listen sctp socket" and
 * "set_sock_op_sctp", behind what kel_socket() and kel_sctp_bindx() report, and behind "set sctp_initmsg " or "set
 * sctp_event_subscribe ". Recipes: both-versions, peel-off.
 */
LONG kel_sctp_server_one2one_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port,
                                    LONG maxClient, struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
LONG kel_sctp_server_one2many_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port,
                                     LONG maxClient, struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
LONG kel_sctp_server_one2one_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port, LONG maxClient,
                                        struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
LONG kel_sctp_server_one2many_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port, LONG maxClient,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);

/**
 * Make a one-to-one client: one association to all the addresses of a peer, its options set before it connects. Blocks
 * until the peer has answered or was given up (initmsg says when). A signal that is caught meanwhile makes it fail,
 * even with SA_RESTART: Linux connects anew and finds the association under way.
 *
 * @param family     KEL_AF_INET or KEL_AF_INET6
 * @param s_addrs    the peer's records, with their ports; not null
 * @param s_addrStr  the peer's numeric addresses; not null
 * @param s_addrcnt  number of records or texts
 * @param s_port     of texts, host byte order; records keep their own
 * @param initmsg    how the association is set up: streams, attempts, time; not null
 * @param events     notifications that are to arrive, just these; null subscribes to data-io events alone
 * @param id         receives the association's identifier; not null
 * @param my_addrs   local records to bind before connecting, with their ports as for kel_sctp_bindx(); null, or a count
 *                   of 0, binds nothing. When they cannot be bound, that is reported ("sctp bindx "), and the kernel
 *                   chooses the local addresses
 * @param my_addrcnt number of local records
 * @return the connected descriptor, which the caller closes, or KEL_ERROR with nothing left open but descriptor 0,
 *         which counts as a failure and is not closed
 *
 * Reported: "s_addrs is null\r\n" or "s_addrStr is null\r\n", "initmsg is null\r\n", "id is null\r\n"; every failure of
 * the work twice: "create sctp socket ", "set_sock_op_sctp " or "sctp_connectx ", then "create sctp socket ", behind
 * what kel_socket(), kel_sctp_bindx() and kel_sctp_connectx() report, and behind "set sctp_initmsg " or "set
 * sctp_event_subscribe "; for a text that is no address, the assertion alone. Recipe: bounded-connect.
 */
LONG kel_sctp_client_one2one_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                    struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                    sctp_assoc_t *id);
LONG kel_sctp_client_one2one_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                         sctp_assoc_t *id, kel_sockaddr_t *my_addrs, LONG my_addrcnt);
LONG kel_sctp_client_one2one_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                        struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                        sctp_assoc_t *id);

/**
 * Make a one-to-many client: a socket without an association, its options set. The first kel_sctp_sendmsg() to a peer
 * sets up the association with it.
 *
 * @param family     KEL_AF_INET or KEL_AF_INET6
 * @param s_addrs    not null, and not used
 * @param s_addrStr  not null; numeric addresses, which are checked and not used
 * @param s_addrcnt  number of records or texts
 * @param s_port     host byte order, not used
 * @param initmsg    how associations are set up: streams, attempts, time; not null
 * @param events     notifications that are to arrive, just these; null subscribes to data-io events alone
 * @param my_addrs   local records to bind, with their ports as for kel_sctp_bindx(); null, or a count of 0, binds
 *                   nothing. When they cannot be bound, that is reported ("sctp bindx "), and the kernel chooses the
 *                   local addresses
 * @param my_addrcnt number of local records
 * @return the descriptor, which the caller closes, or KEL_ERROR with nothing left open but descriptor 0, which counts
 *         as a failure and is not closed
 *
 * Reported: "s_addrs is null\r\n" or "s_addrStr is null\r\n", "initmsg is null\r\n"; every failure of the work twice:
 * "create sctp socket " or "set_sock_op_sctp ", then "create sctp socket ", behind what kel_socket() and
 * kel_sctp_bindx() report, and behind "set sctp_initmsg " or "set sctp_event_subscribe "; for a text that is no
 * address, the assertion alone.
 */
LONG kel_sctp_client_one2many_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                     struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
LONG kel_sctp_client_one2many_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                          struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                          kel_sockaddr_t *my_addrs, LONG my_addrcnt);
LONG kel_sctp_client_one2many_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);

/* ---- Registration --------------------------------------------------------------------------------------------- */

/**
 * Registers the module with the platform as "KEL_socket". Called once by the platform at start-up; no other function
 * depends on it.
 *
 * @return the registry's result: KEL_OK, or what it refused the module with, after the console line "module socket
 *         register error \r\n", which is neither filtered nor logged
 */
LONG socket_module_init(void);

#ifdef __cplusplus
}
#endif

#endif
