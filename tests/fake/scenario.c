/*
 * The same steps on the fake and, inside a user-mode kernel, on the module: what they print has to be the same. What
 * differs by nature is not printed: numbers of descriptors, associations and free ports.
 */
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "host.h"
#include "kel_sctp.h"
#include "kel_socket.h"

static CHAR *const both[] = {"127.0.0.1", "127.0.0.2"};
static struct sctp_initmsg init = {4, 3, 0, 0};
static struct sctp_event_subscribe some = {1, 1, 0, 1, 1, 1, 1, 0, 0, 0};

/* A result: of a failure errno, of a descriptor that there is one. */
static LONG say(const char *what, LONG result)
{
    printf("%s: %s\n", what, result == KEL_ERROR ? strerrorname_np(errno) : "ok");
    return result;
}

static void number(const char *what, LONG result)
{
    if (result == KEL_ERROR) {
        say(what, result);
    } else {
        printf("%s: %ld\n", what, result);
    }
}

static void address(const char *what, kel_sockaddr_t *record)
{
    CHAR line[100] = "";
    kel_addr_showstr(record, line, sizeof(line));
    char *port = strrchr(line, ':');
    if (port != NULL && strlen(port) > 5 && record->sa.sa_family != KEL_AF_UNIX) {
        strcpy(port, ":free");
    }
    printf("%s: %s\n", what, line);
}

static kel_sockaddr_t record(kel_domain_t family, const char *text, SHORT port)
{
    kel_sockaddr_t made;
    kel_addr_fill(0, &made, family, port, text, 0, NULL);
    return made;
}

static int waits(LONG sockfd)
{
    struct pollfd question = {(int)sockfd, POLLIN, 0};
    return poll(&question, 1, 60000) == 1;
}

/* Receives one thing, in parts of at most size bytes. */
static void receive_part(const char *who, LONG sockfd, size_t size)
{
    union {
        char text[2000];
        union sctp_notification event;
    } got;
    kel_sockaddr_t from = {{0}};
    struct sctp_sndrcvinfo info = {0};
    LONG flags = 0;
    if (!waits(sockfd)) {
        printf("%s has nothing\n", who);
        return;
    }
    LONG count = kel_sctp_recvmsg(sockfd, &got, size < sizeof(got) ? size : sizeof(got), &from, &info, &flags);
    if (count == KEL_ERROR) {
        say(who, count);
    } else if ((flags & MSG_NOTIFICATION) == 0) {
        printf("%s receives %.*s, flags %lx, stream %d, ssn %d, ppid %u, sinfo_flags %d\n", who, (int)count, got.text,
               flags, info.sinfo_stream, info.sinfo_ssn, info.sinfo_ppid, info.sinfo_flags);
        if (count > 0) {
            address("  from", &from);
        }
    } else if (got.event.sn_header.sn_type == SCTP_ASSOC_CHANGE) {
        struct sctp_assoc_change *change = &got.event.sn_assoc_change;
        printf("%s hears of change %d, error %x, streams %d out %d in, length %u of %ld, flags %lx\n", who,
               change->sac_state, change->sac_error, change->sac_outbound_streams, change->sac_inbound_streams,
               change->sac_length, count, flags);
    } else {
        printf("%s hears of %x, length %u of %ld, flags %lx\n", who, got.event.sn_header.sn_type,
               got.event.sn_header.sn_length, count, flags);
    }
}

static void receive(const char *who, LONG sockfd)
{
    receive_part(who, sockfd, 2000);
}

static void lists(const char *who, LONG sockfd, sctp_assoc_t id)
{
    kel_sockaddr_t *list = NULL;
    LONG count = kel_sctp_getpaddrs(sockfd, id, &list);
    number(who, count);
    for (LONG i = 0; i < count; i++) {
        address("  peer", &list[i]);
    }
    kel_sctp_freepaddrs(list);
    list = NULL;
    count = kel_sctp_getladdrs(sockfd, id, &list);
    number(who, count);
    for (LONG i = 0; i < count; i++) {
        address("  local", &list[i]);
    }
    kel_sctp_freeladdrs(list);
}

static void tcp(kel_domain_t family, const char *text)
{
    CHAR buffer[100];
    kel_sockaddr_t peer = {{0}};
    say("tcp client without a server", kel_tcp_client_socket_create(family, text, 9000));
    LONG server = say("tcp server", kel_tcp_server_socket_create(family, text, 9000, 5));
    say("second tcp server", kel_tcp_server_socket_create(family, NULL, 9000, 5));
    LONG client = say("tcp client", kel_tcp_client_socket_create(family, text, 9000));
    LONG accepted = say("accept", kel_accept(server, &peer));
    address("peer", &peer);
    kel_getpeername(client, &peer);
    address("getpeername", &peer);
    number("send", kel_send(client, "hello", 5, MSG_NOSIGNAL));
    memset(&peer, 0, sizeof(peer));
    number("recvfrom", kel_recvfrom(accepted, buffer, sizeof(buffer), 0, &peer));
    number("family", peer.sa.sa_family);
    number("sendto", kel_sendto(accepted, "back", 4, MSG_NOSIGNAL, &peer));
    number("recv", kel_recv(client, buffer, 2, 0));
    number("recv", kel_recv(client, buffer, sizeof(buffer), MSG_DONTWAIT));
    number("recv", kel_recv(client, buffer, sizeof(buffer), MSG_DONTWAIT));
    say("connect again", kel_connect_str(client, family, 9000, text));
    say("bind again", kel_bind_str(client, family, 9001, text, 0, NULL));
    LONG fresh = kel_socket(family, KEL_SOCK_STREAM, 0);
    say("bind where somebody listens", kel_bind_str(fresh, family, 9000, text, 0, NULL));
    kel_close(fresh);
    say("listen connected", kel_listen(client, 5));
    say("accept unlistening", kel_accept(client, &peer));
    say("close", kel_close(client));
    number("recv", kel_recv(accepted, buffer, sizeof(buffer), 0));
    kel_close(accepted);
    kel_close(server);
    say("close again", kel_close(server));
}

static void udp(kel_domain_t family, const char *text)
{
    CHAR buffer[100];
    kel_sockaddr_t to = {{0}};
    kel_sockaddr_t from = {{0}};
    LONG server = say("udp server", kel_udp_server_socket_create(family, NULL, 9000));
    LONG client = say("udp client", kel_udp_client_socket_create(family, text, 9000, &to));
    number("send unconnected", kel_send(client, "hello", 5, 0));
    say("getpeername", kel_getpeername(client, &from));
    kel_getsockname(client, &from);
    address("unbound", &from);
    number("sendto", kel_sendto(client, "hello", 5, 0, &to));
    number("recvfrom", kel_recvfrom(server, buffer, 3, 0, &from));
    address("from", &from);
    number("sendto", kel_sendto(server, "", 0, 0, &from));
    number("recvfrom", kel_recvfrom(client, buffer, sizeof(buffer), 0, &from));
    address("from", &from);
    say("connect", kel_connect(client, &to));
    number("send", kel_send(client, "hello", 5, 0));
    number("recv", kel_recv(server, buffer, sizeof(buffer), 0));
    number("recv", kel_recv(server, buffer, sizeof(buffer), MSG_DONTWAIT));
    say("listen", kel_listen(server, 5));
    say("accept", kel_accept(server, &from));
    to.sin.sin_port = 0;
    number("sendto port 0", kel_sendto(client, "hello", 5, 0, &to));
    kel_sockaddr_t other =
        record(family == KEL_AF_INET ? KEL_AF_INET6 : KEL_AF_INET, family == KEL_AF_INET ? "::1" : "127.0.0.1", 9000);
    number("sendto the other family", kel_sendto(server, "hello", 5, 0, &other));
    LONG fresh = kel_socket(family, KEL_SOCK_DGRAM, 0);
    say("bind to the other family", kel_bind(fresh, &other));
    kel_close(fresh);
    kel_close(client);
    kel_close(server);
}

static void local(void)
{
    CHAR buffer[100];
    kel_sockaddr_t peer = {{0}};
    unlink("/run/kel-one");
    unlink("/run/kel-two");
    say("local client without a path", kel_unix_tcp_client_socket_create("/run/kel-one"));
    LONG server = say("local server", kel_unix_tcp_server_socket_create("/run/kel-one", 5));
    LONG client = say("local client", kel_unix_tcp_client_socket_create("/run/kel-one"));
    LONG accepted = say("accept", kel_accept(server, &peer));
    number("family", peer.sa.sa_family);
    address("peer", &peer);
    kel_getpeername(client, &peer);
    address("getpeername", &peer);
    number("send", kel_send(client, "hello", 5, 0));
    number("recv", kel_recv(accepted, buffer, sizeof(buffer), 0));
    number("sendto", kel_sendto(accepted, "hello", 5, 0, &peer));
    LONG newer = say("newer server", kel_unix_tcp_server_socket_create("/run/kel-one", 5));
    kel_close(newer);
    say("client of a server that has gone", kel_unix_tcp_client_socket_create("/run/kel-one"));
    say("datagrams on a path that is there", kel_unix_udp_socket_create("/run/kel-one", KEL_TRUE));
    kel_close(client);
    kel_close(accepted);
    kel_close(server);

    LONG one = say("datagrams", kel_unix_udp_socket_create("/run/kel-two", KEL_TRUE));
    LONG two = say("datagrams", kel_unix_udp_socket_create(NULL, KEL_FALSE));
    peer = record(KEL_AF_UNIX, "/run/kel-two", 0);
    number("sendto", kel_sendto(two, "hello", 5, 0, &peer));
    memset(&peer, 0, sizeof(peer));
    number("recvfrom", kel_recvfrom(one, buffer, sizeof(buffer), 0, &peer));
    number("family", peer.sa.sa_family);
    peer = record(KEL_AF_UNIX, "/run/kel-none", 0);
    number("sendto nobody", kel_sendto(two, "hello", 5, 0, &peer));
    peer = record(KEL_AF_UNIX, "/run/kel-one", 0);
    number("sendto a dead path", kel_sendto(two, "hello", 5, 0, &peer));
    say("stream client of datagrams", kel_unix_tcp_client_socket_create("/run/kel-two"));
    number("send unconnected", kel_send(two, "hello", 5, 0));
    kel_close(one);
    kel_close(two);
    unlink("/run/kel-one");
    unlink("/run/kel-two");
}

static void packet(void)
{
    UCHAR mac[6] = {9, 9, 9, 9, 9, 9};
    const UCHAR frame[60] = {0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1, 0x88, 0xb5, 1, 2, 3};
    UCHAR got[100];
    kel_sockaddr_t from = {{0}};
    say("mac of lo", kel_get_if_mac_addr("lo", mac));
    printf("%d:%d\n", mac[0], mac[5]);
    say("mac of nothing", kel_get_if_mac_addr("nothing0", mac));
    say("packets of nothing", kel_raw_server_socket_create((SHORT)0x88b5, "nothing0"));
    LONG one = say("packets", kel_raw_server_socket_create((SHORT)0x88b5, "lo"));
    LONG two = say("packets", kel_raw_server_socket_create(0x0001, "lo"));
    number("short frame", kel_raw_sendto(two, "lo", frame, 13, 0));
    number("nowhere", kel_raw_sendto(two, "nothing0", frame, sizeof(frame), 0));
    number("frame", kel_raw_sendto(two, "lo", frame, sizeof(frame), 0));
    number("recvfrom", kel_recvfrom(one, got, sizeof(got), 0, &from));
    address("  from", &from);
    printf("type %d, length %d, %d:%d\n", from.raw.sll_pkttype, from.raw.sll_halen, from.raw.sll_addr[0],
           from.raw.sll_addr[5]);
    number("nothing", kel_recvfrom(two, got, sizeof(got), MSG_DONTWAIT, &from));
    kel_getsockname(one, &from);
    address("name", &from);
    say("getpeername", kel_getpeername(one, &from));
    say("connect", kel_connect(one, &from));
    say("listen", kel_listen(one, 5));
    kel_close(one);
    kel_close(two);
}

static void sctp_one2one(void)
{
    sctp_assoc_t id = -1;
    kel_sockaddr_t peer;
    struct sctp_sndrcvinfo info = {0};
    kel_sockaddr_t servers[] = {record(KEL_AF_INET, both[0], 9000), record(KEL_AF_INET, both[1], 9000)};
    kel_sockaddr_t clients[] = {record(KEL_AF_INET, "127.0.0.3", 5000), record(KEL_AF_INET, "127.0.0.4", 5000)};
    say("sctp client without a server",
        kel_sctp_client_one2one_create(KEL_AF_INET, servers, 2, 9000, &init, &some, &id));
    LONG server =
        say("sctp server", kel_sctp_server_one2one_str_create(KEL_AF_INET, (CHAR **)both, 2, 9000, 5, &init, &some));
    say("second sctp server", kel_sctp_server_one2one_str_create(KEL_AF_INET, NULL, 1, 9000, 5, &init, &some));
    say("server without a backlog", kel_sctp_server_one2one_str_create(KEL_AF_INET, NULL, 1, 9001, 0, &init, &some));
    LONG client = say("sctp client", kel_sctp_client_one2one_create_bind(KEL_AF_INET, servers, 2, 9000, &init, &some,
                                                                         &id, clients, 2));
    LONG accepted = say("accept", kel_accept(server, &peer));
    address("peer", &peer);
    receive("client", client);
    receive("server", accepted);
    lists("client", client, id);
    lists("server", accepted, 0);
    lists("listening", server, 0);

    info.sinfo_stream = 2;
    info.sinfo_ppid = 46;
    number("send", kel_sctp_send(client, "hello", 5, &info, 0));
    number("send", kel_sctp_send(client, "again", 5, &info, 0));
    info.sinfo_flags = SCTP_UNORDERED;
    number("send", kel_sctp_send(client, "unordered", 9, &info, 0));
    number("send", kel_send(client, "plain", 5, 0));
    number("sendmsg", kel_sctp_sendmsg(client, "addressed", 9, &servers[1], 47, SCTP_ADDR_OVER, 1, 0, 0));
    receive_part("server", accepted, 3);
    receive("server", accepted);
    receive("server", accepted);
    receive("server", accepted);
    receive("server", accepted);
    receive("server", accepted);
    info.sinfo_stream = 3;
    number("stream too high", kel_sctp_send(client, "hello", 5, &info, 0));
    info.sinfo_stream = 0;
    number("nothing", kel_sctp_send(client, "", 0, &info, 0));
    say("connect again", kel_sctp_connectx(client, servers, 2, &id));
    say("bind again", kel_bind(client, &clients[0]));
    say("peeloff", kel_sctp_peeloff(client, id));
    number("send on the listening one", kel_sctp_send(server, "hello", 5, &info, MSG_NOSIGNAL));

    struct sctp_status status = {0};
    socklen_t size = sizeof(status);
    say("status", kel_sctp_opt_info(accepted, 0, SCTP_STATUS, &status, &size));
    printf("state %d, streams %d in %d out, %u\n", status.sstat_state, status.sstat_instrms, status.sstat_outstrms,
           size);
    struct sctp_prim primary = {0};
    size = sizeof(primary);
    say("primary", kel_sctp_opt_info(client, id, SCTP_PRIMARY_ADDR, &primary, &size));
    address("  address", (kel_sockaddr_t *)&primary.ssp_addr);
    struct sctp_paddrinfo path = {0};
    memcpy(&path.spinfo_address, &servers[1], sizeof(struct sockaddr_in));
    size = sizeof(path);
    say("path", kel_sctp_opt_info(client, id, SCTP_GET_PEER_ADDR_INFO, &path, &size));
    memcpy(&path.spinfo_address, &clients[1], sizeof(struct sockaddr_in));
    say("path of another", kel_sctp_opt_info(client, id, SCTP_GET_PEER_ADDR_INFO, &path, &size));
    struct sctp_initmsg read_init = {0};
    size = sizeof(read_init);
    number("initmsg", kel_getsockopt(accepted, SOL_SCTP, SCTP_INITMSG, &read_init, &size));
    printf("streams %d %d, %u\n", read_init.sinit_num_ostreams, read_init.sinit_max_instreams, size);
    struct sctp_event_subscribe read_events = {0};
    size = sizeof(read_events);
    number("events", kel_getsockopt(accepted, SOL_SCTP, SCTP_EVENTS, &read_events, &size));
    printf("same %d, %u\n", memcmp(&read_events, &some, sizeof(some)), size);
    int type = 0;
    size = sizeof(type);
    number("type", kel_getsockopt(accepted, SOL_SOCKET, SO_TYPE, &type, &size));
    number("type", type);

    kel_close(client);
    receive("server", accepted);
    receive("server", accepted);
    receive("server", accepted);
    receive("server", accepted);
    number("send late", kel_sctp_send(accepted, "late", 4, NULL, MSG_NOSIGNAL));
    lists("server", accepted, 0);
    kel_close(accepted);

    client = say("sctp client", kel_sctp_client_one2one_create(KEL_AF_INET, servers, 2, 9000, &init, &some, &id));
    accepted = say("accept", kel_accept(server, &peer));
    receive("client", client);
    receive("server", accepted);
    number("abort", kel_sctp_sendmsg(client, "why", 3, &servers[0], 0, SCTP_ABORT, 0, 0, 0));
    number("eof", kel_sctp_sendmsg(client, NULL, 0, &servers[0], 0, SCTP_EOF, 0, 0, 0));
    struct linger at_once = {1, 0};
    kel_setsockopt(client, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    kel_close(client);
    receive("server", accepted);
    receive("server", accepted);
    number("send late", kel_sctp_send(accepted, "late", 4, NULL, MSG_NOSIGNAL));
    kel_close(accepted);
    kel_close(server);
}

static void sctp_one2many(void)
{
    kel_sockaddr_t servers[] = {record(KEL_AF_INET, both[0], 9100), record(KEL_AF_INET, both[1], 9100)};
    kel_sockaddr_t nobody = record(KEL_AF_INET, both[0], 9999);
    sctp_assoc_t id = -1;
    struct sctp_sndrcvinfo info = {0};
    LONG flags = 0;
    CHAR buffer[100];
    kel_sockaddr_t from;
    LONG server =
        say("server", kel_sctp_server_one2many_str_create(KEL_AF_INET, (CHAR **)both, 2, 9100, 5, &init, &some));
    LONG client = say("client", kel_sctp_client_one2many_create(KEL_AF_INET, servers, 2, 9100, &init, &some));
    lists("client", client, 0);
    number("sendmsg to nobody", kel_sctp_sendmsg(client, "hello", 5, &nobody, 0, 0, 0, 0, 0));
    receive("client", client);
    receive("client", client);
    number("sendmsg", kel_sctp_sendmsg(client, "hello", 5, &servers[0], 7, 0, 1, 0, 0));
    receive("client", client);
    receive("server", server);
    waits(server);
    number("recvmsg", kel_sctp_recvmsg(server, buffer, sizeof(buffer), &from, &info, &flags));
    address("  from", &from);
    number("answer", kel_sctp_send(server, "answer", 6, &info, 0));
    receive("client", client);
    number("no association", kel_sctp_send(server, "hello", 5, NULL, MSG_NOSIGNAL));
    number("sendmsg on the other path", kel_sctp_sendmsg(client, "more", 4, &servers[1], 7, 0, 1, 0, 0));
    waits(server);
    LONG peeled = say("peeloff", kel_sctp_peeloff(server, info.sinfo_assoc_id));
    receive("peeled", peeled);
    say("peeloff again", kel_sctp_peeloff(server, info.sinfo_assoc_id));
    say("connectx again", kel_sctp_connectx(client, servers, 1, &id));
    LONG single =
        say("one-to-one client", kel_sctp_client_one2one_create(KEL_AF_INET, servers, 2, 9100, &init, NULL, &id));
    receive("server", server);
    number("send", kel_sctp_send(single, "single", 6, NULL, 0));
    receive("server", server);
    number("eof", kel_sctp_sendmsg(client, NULL, 0, &servers[0], 0, SCTP_EOF, 0, 0, 0));
    receive("peeled", peeled);
    receive("peeled", peeled);
    number("send late", kel_sctp_send(peeled, "late", 4, NULL, MSG_NOSIGNAL));
    receive("client", client);
    number("sendmsg anew", kel_sctp_sendmsg(client, "anew", 4, &servers[0], 7, 0, 1, 0, 0));
    receive("client", client);
    receive("server", server);
    receive("server", server);
    number("abort", kel_sctp_sendmsg(client, "why", 3, &servers[0], 7, SCTP_ABORT, 1, 0, 0));
    receive("client", client);
    receive("server", server);
    kel_close(single);
    receive("server", server);
    receive("server", server);
    kel_close(peeled);
    kel_close(client);
    kel_close(server);
}

static void sctp_addresses(void)
{
    kel_sockaddr_t one = record(KEL_AF_INET, "127.0.0.1", 9200);
    kel_sockaddr_t two = record(KEL_AF_INET, "127.0.0.2", 9200);
    kel_sockaddr_t other = record(KEL_AF_INET, "127.0.0.3", 9201);
    LONG sockfd = say("socket", kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, IPPROTO_SCTP));
    say("bindx", kel_sctp_bindx(sockfd, &one, 1, SCTP_BINDX_ADD_ADDR));
    say("bindx again", kel_sctp_bindx(sockfd, &one, 1, SCTP_BINDX_ADD_ADDR));
    say("bindx more", kel_sctp_bindx(sockfd, &two, 1, SCTP_BINDX_ADD_ADDR));
    say("bindx other port", kel_sctp_bindx(sockfd, &other, 1, SCTP_BINDX_ADD_ADDR));
    say("bindx flags", kel_sctp_bindx(sockfd, &other, 1, 7));
    say("bindx remove other", kel_sctp_bindx(sockfd, &other, 1, SCTP_BINDX_REM_ADDR));
    say("bindx remove", kel_sctp_bindx(sockfd, &one, 1, SCTP_BINDX_REM_ADDR));
    say("bindx remove the last", kel_sctp_bindx(sockfd, &two, 1, SCTP_BINDX_REM_ADDR));
    lists("bound", sockfd, 0);
    say("listen 0", kel_listen(sockfd, 0));
    say("listen", kel_listen(sockfd, 5));
    say("listen 0", kel_listen(sockfd, 0));
    say("client", kel_sctp_connectx(kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, IPPROTO_SCTP), &two, 1, NULL));
    number("send", kel_sctp_send(sockfd, "hello", 5, NULL, MSG_NOSIGNAL));
    say("getpeername", kel_getpeername(sockfd, &other));
    kel_close(sockfd);
    sockfd = kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0);
    say("bindx of tcp", kel_sctp_bindx(sockfd, &one, 1, SCTP_BINDX_ADD_ADDR));
    kel_close(sockfd);
    say("bindx of nothing", kel_sctp_bindx(sockfd, &one, 1, SCTP_BINDX_ADD_ADDR));
}

static void sctp_wildcard(void)
{
    kel_sockaddr_t peer = record(KEL_AF_INET, "127.0.0.1", 9300);
    sctp_assoc_t id = -1;
    LONG server = say("wildcard server", kel_sctp_server_one2one_create(KEL_AF_INET, NULL, 0, 9300, 5, &init, NULL));
    LONG client = say("client", kel_sctp_client_one2one_create(KEL_AF_INET, &peer, 1, 9300, &init, NULL, &id));
    LONG accepted = say("accept", kel_accept(server, &peer));
    address("peer", &peer);
    kel_getpeername(client, &peer);
    address("getpeername", &peer);
    lists("client", client, id);
    lists("server", accepted, 0);
    number("send", kel_sctp_send(accepted, "hello", 5, NULL, 0));
    receive("client", client);
    kel_close(server);
    number("send", kel_sctp_send(accepted, "again", 5, NULL, 0));
    receive("client", client);
    kel_close(client);
    kel_close(accepted);
}

int main(void)
{
    host_log_to("/dev/null");
    host_filter_add("*", HOST_EVERY_LEVEL);
    setvbuf(stdout, NULL, _IOLBF, 0);
    tcp(KEL_AF_INET, "127.0.0.1");
    tcp(KEL_AF_INET6, "::1");
    udp(KEL_AF_INET, "127.0.0.1");
    udp(KEL_AF_INET6, "::1");
    local();
    packet();
    sctp_one2one();
    sctp_one2many();
    sctp_addresses();
    sctp_wildcard();
    return 0;
}
