#include "constructors.h"

#include <errno.h>
#include <fcntl.h>
#include <initializer_list>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "kel_sctp.h"

namespace
{

int listeners[7];
int listener_count;

Place place(kel_domain_t family)
{
    static CHAR texts[2][10] = {"127.0.0.1", "::1"};
    const bool second = family == KEL_AF_INET6;
    Place at = {family, texts[second], SHORT(7001 + second), SHORT(7003 + second), {}, {}, {}};
    kel_addr_fill(0, &at.peer, family, at.peer_port, at.text, 0, nullptr);
    kel_addr_fill(0, &at.own, family, at.own_port, at.text, 0, nullptr);
    kel_addr_fill(0, &at.local, family, SHORT(7005 + second), at.text, 0, nullptr);
    return at;
}

struct sctp_initmsg streams = {10, 10, 0, 0};
sctp_assoc_t association;
kel_sockaddr_t filled;

void listen_with(LONG sockfd, const char *what)
{
    require(sockfd >= 0 && fcntl((int)sockfd, F_SETFL, O_NONBLOCK) == 0, "has no peer", what);
    listeners[listener_count++] = (int)sockfd;
}

// Nothing waits for the other side any more: a connection is reset, an association aborted.
void drop(int sockfd)
{
    const struct linger at_once = {1, 0};
    setsockopt(sockfd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    close(sockfd);
}

} // namespace

#define MADE_BY(name, kind, ...) {#name, kind, [](Place &at) -> LONG { return (void)at, name(__VA_ARGS__); }}

const Constructor constructors[] = {
    MADE_BY(kel_tcp_server_socket_create, cheap, at.family, at.text, at.own_port, 5),
    MADE_BY(kel_tcp_client_socket_create, cheap, at.family, at.text, at.peer_port),
    MADE_BY(kel_tcp_client_socket_create_bind, cheap, at.family, at.text, at.peer_port, &at.local),
    MADE_BY(kel_udp_server_socket_create, cheap, at.family, at.text, at.own_port),
    MADE_BY(kel_udp_client_socket_create, cheap, at.family, at.text, at.peer_port, &filled),
    MADE_BY(kel_udp_client_socket_create_bind, cheap, at.family, at.text, at.peer_port, &filled, &at.local),
    MADE_BY(kel_unix_udp_socket_create, cheap, "own", KEL_TRUE),
    MADE_BY(kel_unix_tcp_server_socket_create, cheap, "own", 5),
    MADE_BY(kel_unix_tcp_client_socket_create, cheap, "peer"),
    MADE_BY(kel_raw_server_socket_create, packet, 0x88b5, "lo"),
    MADE_BY(kel_sctp_server_one2one_create, sctp, at.family, &at.own, 1, 0, 5, &streams, nullptr),
    MADE_BY(kel_sctp_server_one2many_create, sctp, at.family, &at.own, 1, 0, 5, &streams, nullptr),
    MADE_BY(kel_sctp_server_one2one_str_create, sctp, at.family, &at.text, 1, at.own_port, 5, &streams, nullptr),
    MADE_BY(kel_sctp_server_one2many_str_create, sctp, at.family, &at.text, 1, at.own_port, 5, &streams, nullptr),
    MADE_BY(kel_sctp_client_one2one_create, sctp, at.family, &at.peer, 1, 0, &streams, nullptr, &association),
    MADE_BY(kel_sctp_client_one2one_create_bind, sctp, at.family, &at.peer, 1, 0, &streams, nullptr, &association,
            &at.local, 1),
    MADE_BY(kel_sctp_client_one2one_str_create, sctp, at.family, &at.text, 1, at.peer_port, &streams, nullptr,
            &association),
    MADE_BY(kel_sctp_client_one2many_create, sctp, at.family, &at.peer, 1, 0, &streams, nullptr),
    MADE_BY(kel_sctp_client_one2many_create_bind, sctp, at.family, &at.peer, 1, 0, &streams, nullptr, &at.local, 1),
    MADE_BY(kel_sctp_client_one2many_str_create, sctp, at.family, &at.text, 1, at.peer_port, &streams, nullptr),
};
const int constructor_count = sizeof(constructors) / sizeof(constructors[0]);

void start_peers(bool with_sctp)
{
    for (kel_domain_t family : {KEL_AF_INET, KEL_AF_INET6}) {
        Place at = place(family);
        listen_with(kel_tcp_server_socket_create(family, at.text, at.peer_port, 5), "TCP");
        if (with_sctp) {
            listen_with(kel_sctp_server_one2one_create(family, &at.peer, 1, 0, 5, &streams, nullptr), "SCTP");
        }
    }
    listen_with(kel_unix_tcp_server_socket_create("peer", 5), "unix");
}

void end_peers()
{
    while (listener_count > 0) {
        close(listeners[--listener_count]);
    }
}

LONG make_one(const Constructor &constructor, kel_domain_t family)
{
    unlink("own");
    Place at = place(family);
    return constructor.make(at);
}

void end_one(LONG sockfd)
{
    if (sockfd >= 0) {
        drop((int)sockfd);
    }
    for (int i = 0; i < listener_count; i++) {
        for (int accepted; (accepted = accept(listeners[i], nullptr, nullptr)) >= 0;) {
            drop(accepted);
        }
    }
}

int next_descriptor()
{
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

void require(bool condition, const char *what, const char *name)
{
    if (!condition) {
        fprintf(stderr, "%s: %s (%s)\n", name, what, strerror(errno));
        exit(1);
    }
}
